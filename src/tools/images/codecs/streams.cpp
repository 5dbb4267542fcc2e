#include "tools/images/codecs/streams.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tervano {

namespace {

constexpr std::size_t kGathered = std::size_t{64} << 10;

}  // namespace

void failAsDamaged(const std::string& detail) {
  constexpr std::size_t kLongest = 200;
  std::string line = detail.substr(0, detail.find('\n')).substr(0, kLongest);
  throw CodecFailure("the picture is damaged or ends early" +
                     (line.empty() ? line : " (" + line + ")"));
}

void failWithCode(int code) {
  throw CodecFailure(std::generic_category().message(code));
}

InputStream::InputStream(int descriptor) : descriptor_(descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) == 0) size_ = static_cast<std::uint64_t>(status.st_size);
}

std::int64_t InputStream::read(void* bytes, std::size_t count) {
  auto* next = static_cast<std::uint8_t*>(bytes);
  std::size_t left = count;
  while (left > 0) {
    const ssize_t taken = pread(descriptor_, next, left, static_cast<off_t>(position_));
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) {
      if (code_ == 0) code_ = errno;
      return -1;
    }
    if (taken == 0) break;
    next += taken;
    left -= static_cast<std::size_t>(taken);
    position_ += static_cast<std::uint64_t>(taken);
  }
  return static_cast<std::int64_t>(count - left);
}

std::int64_t InputStream::seek(std::int64_t offset, int whence) {
  std::int64_t base = 0;
  if (whence == SEEK_CUR) base = static_cast<std::int64_t>(position_);
  if (whence == SEEK_END) base = static_cast<std::int64_t>(size_);
  if (offset < -base || (offset > 0 && base > INT64_MAX - offset)) return -1;
  position_ = static_cast<std::uint64_t>(base + offset);
  return base + offset;
}

bool InputStream::readAt(std::uint64_t offset, void* bytes, std::size_t count) {
  if (offset > size_ || count > size_ - offset) return false;
  const std::uint64_t keep = position_;
  position_ = offset;
  const bool complete = read(bytes, count) == static_cast<std::int64_t>(count);
  position_ = keep;
  return complete;
}

Data InputStream::dataAt(std::uint64_t offset, std::uint64_t count, std::uint64_t limit) {
  if (count > limit || offset > size_ || count > size_ - offset) return {};
  Data data(count);
  if (!readAt(offset, data.data(), data.size())) data.clear();
  return data;
}

bool OutputStream::writeThrough(const std::uint8_t* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = pwrite(descriptor_, bytes, count, static_cast<off_t>(position_));
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      if (code_ == 0) code_ = errno;
      return false;
    }
    bytes += written;
    count -= static_cast<std::size_t>(written);
    position_ += static_cast<std::uint64_t>(written);
  }
  return true;
}

bool OutputStream::write(const void* bytes, std::size_t count) {
  const auto* first = static_cast<const std::uint8_t*>(bytes);
  if (gathered_.size() + count < kGathered) {
    gathered_.insert(gathered_.end(), first, first + count);
    return code_ == 0;
  }
  return flush() && writeThrough(first, count);
}

bool OutputStream::flush() {
  const bool written = code_ == 0 && writeThrough(gathered_.data(), gathered_.size());
  gathered_.clear();
  return written;
}

std::int64_t OutputStream::read(void* bytes, std::size_t count) {
  if (!flush()) return -1;
  auto* next = static_cast<std::uint8_t*>(bytes);
  std::size_t left = count;
  while (left > 0) {
    const ssize_t taken = pread(descriptor_, next, left, static_cast<off_t>(position_));
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return -1;
    if (taken == 0) break;
    next += taken;
    left -= static_cast<std::size_t>(taken);
    position_ += static_cast<std::uint64_t>(taken);
  }
  return static_cast<std::int64_t>(count - left);
}

std::int64_t OutputStream::seek(std::int64_t offset, int whence) {
  if (!flush()) return -1;
  std::int64_t base = 0;
  if (whence == SEEK_CUR) base = static_cast<std::int64_t>(position_);
  if (whence == SEEK_END) {
    struct stat status {};
    if (fstat(descriptor_, &status) != 0) return -1;
    base = status.st_size;
  }
  if (base + offset < 0) return -1;
  position_ = static_cast<std::uint64_t>(base + offset);
  return base + offset;
}

void OutputStream::writeOrFail(const void* bytes, std::size_t count) {
  if (!write(bytes, count)) failWithCode(code_);
}

void OutputStream::flushOrFail() {
  if (!flush()) failWithCode(code_);
}

}  // namespace tervano
