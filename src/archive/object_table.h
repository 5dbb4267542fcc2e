#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "archive/value.h"

namespace tervano {

// A property list as its flat table of objects, checked but not yet turned into Values: what both
// encodings are read into, and what the unarchiver works on. Containers refer to their members by
// index, so nothing here recurses, and sharing and cycles cost nothing.
//
// Every offset, width and count has been checked when a table exists: objects lie inside the object
// area and do not overlap, references name existing objects, the keys of a dictionary are distinct
// strings. The bytes given to `readBinary` must outlive the table.
class ObjectTable {
 public:
  using Index = std::uint32_t;
  enum class Kind : std::uint8_t {
    False,
    True,
    Integer,
    Real,
    Date,
    Data,
    Ascii,
    Utf16,
    Utf8,
    Uid,
    Array,
    Dictionary,
  };

  // Each throws PlatformException (kInvalidArgumentException) for malformed bytes. `read` tells the
  // encodings apart by the first bytes.
  static ObjectTable read(std::span<const std::uint8_t> bytes);
  static ObjectTable readBinary(std::span<const std::uint8_t> bytes);
  static ObjectTable readXML(std::span<const std::uint8_t> bytes);

  ObjectTable(const ObjectTable&) = delete;
  ObjectTable& operator=(const ObjectTable&) = delete;
  ObjectTable(ObjectTable&&) noexcept = default;
  ObjectTable& operator=(ObjectTable&&) noexcept = default;
  ~ObjectTable() = default;

  Index root() const { return root_; }
  // The number of objects.
  std::size_t size() const { return objects_.size(); }
  Kind kind(Index object) const { return objects_[object].kind; }
  bool isString(Index object) const {
    return kind(object) >= Kind::Ascii && kind(object) <= Kind::Utf8;
  }
  // Members of an array, pairs of a dictionary, bytes of a scalar, units of a UTF-16 string.
  std::uint32_t count(Index object) const { return objects_[object].count; }

  Index element(Index array, std::uint32_t position) const {
    return reference(objects_[array].offset, position);
  }
  Index key(Index dictionary, std::uint32_t position) const {
    return reference(objects_[dictionary].offset, position);
  }
  Index value(Index dictionary, std::uint32_t position) const {
    const Object& object = objects_[dictionary];
    return reference(object.offset, std::uint64_t{object.count} + position);
  }
  // The value under a key, nullopt when the dictionary does not have it.
  std::optional<Index> find(Index dictionary, std::string_view key) const;

  // The content of an object of that kind. The caller has looked at `kind` first.
  bool stringEquals(Index string, std::string_view text) const;
  std::string string(Index string) const;
  std::span<const std::uint8_t> data(Index data) const;
  std::uint64_t uid(Index uid) const { return unsignedNumber(uid); }
  double real(Index realOrDate) const;
  // An int64_t, or a uint64_t beyond its range.
  Value integer(Index integer) const;
  // Booleans, numbers, dates, strings and UIDs.
  Value scalar(Index object) const;

  // Heap bytes of the table itself.
  std::size_t footprint() const { return objects_.capacity() * sizeof(Object) + pool_.capacity(); }

 private:
  struct Object {
    std::uint32_t offset;
    std::uint32_t count;
    Kind kind;
  };
  friend class BinaryTableReader;
  friend class XMLTableReader;

  ObjectTable() = default;
  const std::uint8_t* base() const { return pool_.empty() ? bytes_.data() : pool_.data(); }
  Index reference(std::uint64_t offset, std::uint64_t position) const;
  std::uint64_t unsignedNumber(Index object) const;

  std::span<const std::uint8_t> bytes_;
  // The payloads of an XML list, in the binary form. Empty for a binary one.
  std::vector<std::uint8_t> pool_;
  std::vector<Object> objects_;
  std::uint8_t referenceWidth_ = 1;
  Index root_ = 0;
};

// What turning a table into Values may still cost. A small file whose containers share one another
// stands for a huge tree, so every Value is paid for, and a reader whose budget is spent throws.
class ReadBudget {
 public:
  // A small multiple of the input, less what its table already takes.
  ReadBudget(std::size_t inputSize, std::size_t alreadySpent);
  void charge(std::uint64_t bytes) {
    if (bytes > left_) throwExceeded();
    left_ -= bytes;
  }
  std::uint64_t left() const { return left_; }

  // Heap bytes of a string of that length, of a dictionary entry and of a shared data block.
  static std::uint64_t ofString(std::uint64_t length) { return length < 16 ? 0 : length + 32; }
  static constexpr std::uint64_t kDictionaryEntry = 144;
  static constexpr std::uint64_t kDataBlock = 80;
  // Of no memory, but of time: a key that is looked at.
  static constexpr std::uint64_t kKey = 16;

 private:
  [[noreturn]] static void throwExceeded();
  std::uint64_t left_;
};

// `number` big-endian bytes, 1 to 8.
std::uint64_t readBigEndian(const std::uint8_t* bytes, unsigned number);

}  // namespace tervano
