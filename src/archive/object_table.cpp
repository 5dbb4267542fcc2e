#include "archive/object_table.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "archive/platform_exception.h"
#include "archive/utf.h"

namespace tervano {

std::uint64_t readBigEndian(const std::uint8_t* bytes, unsigned number) {
  std::uint64_t value = 0;
  for (unsigned i = 0; i < number; ++i) value = (value << 8) | bytes[i];
  return value;
}

ObjectTable ObjectTable::read(std::span<const std::uint8_t> bytes) {
  static constexpr std::string_view kMagic = "bplist";
  const bool binary =
      bytes.size() >= kMagic.size() && std::memcmp(bytes.data(), kMagic.data(), kMagic.size()) == 0;
  return binary ? readBinary(bytes) : readXML(bytes);
}

std::optional<ObjectTable::Index> ObjectTable::find(Index dictionary, std::string_view key) const {
  const std::uint32_t pairs = count(dictionary);
  for (std::uint32_t i = 0; i < pairs; ++i) {
    if (stringEquals(this->key(dictionary, i), key)) return value(dictionary, i);
  }
  return std::nullopt;
}

bool ObjectTable::stringEquals(Index string, std::string_view text) const {
  const Object& object = objects_[string];
  if (object.kind == Kind::Utf16) {
    // A unit needs one to three bytes, a pair of units four.
    if (text.size() < object.count || text.size() > std::size_t{object.count} * 3) return false;
    return this->string(string) == text;
  }
  return object.count == text.size() &&
         (text.empty() || std::memcmp(base() + object.offset, text.data(), text.size()) == 0);
}

std::string ObjectTable::string(Index string) const {
  const Object& object = objects_[string];
  const std::uint8_t* start = base() + object.offset;
  if (object.kind == Kind::Utf16) {
    return utf8FromUtf16BE({start, std::size_t{object.count} * 2});
  }
  return {reinterpret_cast<const char*>(start), object.count};
}

std::span<const std::uint8_t> ObjectTable::data(Index data) const {
  return {base() + objects_[data].offset, objects_[data].count};
}

double ObjectTable::real(Index realOrDate) const {
  const std::uint64_t bits = unsignedNumber(realOrDate);
  if (count(realOrDate) == 4) return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
  return std::bit_cast<double>(bits);
}

Value ObjectTable::integer(Index integer) const {
  const Object& object = objects_[integer];
  // Integers of 16 bytes were checked to fit: only their sign is in the upper half.
  if (object.count == 16) {
    const bool negative = base()[object.offset] != 0;
    const std::uint64_t low = readBigEndian(base() + object.offset + 8, 8);
    return negative ? Value(static_cast<std::int64_t>(low)) : Value(low);
  }
  return static_cast<std::int64_t>(readBigEndian(base() + object.offset, object.count));
}

Value ObjectTable::scalar(Index object) const {
  switch (kind(object)) {
    case Kind::False:
      return false;
    case Kind::True:
      return true;
    case Kind::Integer:
      return integer(object);
    case Kind::Real:
      return real(object);
    case Kind::Date:
      return Date{real(object)};
    case Kind::Ascii:
    case Kind::Utf16:
    case Kind::Utf8:
      return string(object);
    case Kind::Uid:
      return Uid{uid(object)};
    case Kind::Data:
    case Kind::Array:
    case Kind::Dictionary:
      break;
  }
  return nullptr;
}

ObjectTable::Index ObjectTable::reference(std::uint64_t offset, std::uint64_t position) const {
  const std::uint8_t* at = base() + offset + position * referenceWidth_;
  switch (referenceWidth_) {
    case 1:
      return at[0];
    case 2:
      return static_cast<Index>((at[0] << 8) | at[1]);
    default:
      return static_cast<Index>(readBigEndian(at, referenceWidth_));
  }
}

std::uint64_t ObjectTable::unsignedNumber(Index object) const {
  return readBigEndian(base() + objects_[object].offset, objects_[object].count);
}

ReadBudget::ReadBudget(std::size_t inputSize, std::size_t alreadySpent) {
  constexpr std::uint64_t kPerByte = 16;
  constexpr std::uint64_t kAnyway = std::uint64_t{48} << 20;
  const std::uint64_t whole = kPerByte * inputSize + kAnyway;
  left_ = whole - std::min<std::uint64_t>(whole, alreadySpent);
}

void ReadBudget::throwExceeded() {
  throw PlatformException(kInvalidArgumentException,
                          "the property list stands for far more than its own size");
}

}  // namespace tervano
