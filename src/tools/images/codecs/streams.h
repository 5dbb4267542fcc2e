#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "archive/value.h"

namespace tervano {

// Why a picture cannot be converted: what() is the end of a sentence. Never thrown through a
// foreign library.
class CodecFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// For data that a codec rejects; `detail`, its own short words, may be empty.
[[noreturn]] void failAsDamaged(const std::string& detail);
// For errno values.
[[noreturn]] void failWithCode(int code);

// A file to read from, with a position of its own. Does not own the descriptor.
class InputStream {
 public:
  explicit InputStream(int descriptor);

  // At most `count` bytes; fewer at the end only. -1 when the file cannot be read.
  std::int64_t read(void* bytes, std::size_t count);
  // As lseek(2); -1 for a position before the beginning.
  std::int64_t seek(std::int64_t offset, int whence);
  std::uint64_t size() const { return size_; }
  // Whether exactly `count` bytes could be read at `offset`; leaves the position.
  bool readAt(std::uint64_t offset, void* bytes, std::size_t count);
  // `count` bytes at `offset`, or nothing when they are not all there or more than `limit`.
  Data dataAt(std::uint64_t offset, std::uint64_t count, std::uint64_t limit);
  // The errno value of the first read that failed, else 0.
  int code() const { return code_; }

 private:
  int descriptor_;
  std::uint64_t size_ = 0;
  std::uint64_t position_ = 0;
  int code_ = 0;
};

// A file to write, with a position of its own; small pieces are gathered. Does not own the
// descriptor, and writes the last piece only in flush().
class OutputStream {
 public:
  explicit OutputStream(int descriptor) : descriptor_(descriptor) {}

  // False after a failure, which code() keeps.
  bool write(const void* bytes, std::size_t count);
  bool flush();
  // Reads what was written. -1 on failure.
  std::int64_t read(void* bytes, std::size_t count);
  // As lseek(2).
  std::int64_t seek(std::int64_t offset, int whence);
  std::uint64_t position() const { return position_ + gathered_.size(); }
  int code() const { return code_; }

  // The same for code that may throw.
  void writeOrFail(const void* bytes, std::size_t count);
  void flushOrFail();

 private:
  bool writeThrough(const std::uint8_t* bytes, std::size_t count);

  int descriptor_;
  std::uint64_t position_ = 0;
  Data gathered_;
  int code_ = 0;
};

}  // namespace tervano
