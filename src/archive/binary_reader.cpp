#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_map>

#include "archive/object_table.h"
#include "archive/platform_exception.h"
#include "archive/utf.h"

namespace tervano {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

[[noreturn]] void refuseList(const std::string& what) {
  throw PlatformException(kInvalidArgumentException, "malformed binary property list: " + what);
}

}  // namespace

// Reads the table of a binary property list: the trailer, then every object that the offset table
// names, one after the other.
class BinaryTableReader {
 public:
  explicit BinaryTableReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  ObjectTable read() {
    readTrailer();
    readObjects();
    checkOverlaps();
    checkReferences();
    return std::move(table_);
  }

 private:
  using Kind = ObjectTable::Kind;
  using Index = ObjectTable::Index;

  void readTrailer() {
    if (bytes_.size() < kHeaderSize + 1 + 1 + kTrailerSize) refuseList("too short");
    if (bytes_.size() >= UINT32_MAX) refuseList("too long");
    if (std::memcmp(bytes_.data(), "bplist00", kHeaderSize) != 0) refuseList("wrong magic");
    const std::size_t end = bytes_.size() - kTrailerSize;
    const std::uint8_t* trailer = bytes_.data() + end;
    offsetWidth_ = trailer[6];
    const unsigned referenceWidth = trailer[7];
    const std::uint64_t objects = readBigEndian(trailer + 8, 8);
    const std::uint64_t root = readBigEndian(trailer + 16, 8);
    const std::uint64_t tableStart = readBigEndian(trailer + 24, 8);
    if (offsetWidth_ < 1 || offsetWidth_ > 8) refuseList("offset width");
    if (referenceWidth < 1 || referenceWidth > 8) refuseList("reference width");
    if (tableStart <= kHeaderSize || tableStart > end) refuseList("offset table outside the file");
    areaEnd_ = tableStart;
    // No two objects share a byte, so there are never more than the area has bytes.
    if (objects == 0 || objects > areaEnd_ - kHeaderSize) refuseList("object count");
    if (objects > (end - tableStart) / offsetWidth_) refuseList("offset table outside the file");
    if (root >= objects) refuseList("root object out of range");
    table_.bytes_ = bytes_;
    table_.referenceWidth_ = static_cast<std::uint8_t>(referenceWidth);
    table_.root_ = static_cast<Index>(root);
    table_.objects_.resize(objects);
  }

  void readObjects() {
    const std::uint8_t* entry = bytes_.data() + areaEnd_;
    starts_.reserve(table_.objects_.size());
    for (ObjectTable::Object& object : table_.objects_) {
      const std::uint64_t offset = readBigEndian(entry, offsetWidth_);
      entry += offsetWidth_;
      if (offset < kHeaderSize || offset >= areaEnd_) refuseList("offset outside the object area");
      const std::uint64_t end = readObject(offset, object);
      if (offset < lastEnd_) inOrder_ = false;
      lastEnd_ = end;
      starts_.push_back({static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(end)});
    }
  }

  // Fills `object` and returns the offset behind it.
  std::uint64_t readObject(std::uint64_t offset, ObjectTable::Object& object) {
    const std::uint8_t marker = bytes_[offset];
    const unsigned low = marker & 0x0F;
    std::uint64_t at = offset + 1;
    switch (marker >> 4) {
      case 0x0:
        if (marker != 0x08 && marker != 0x09) break;
        object = {0, 0, marker == 0x09 ? Kind::True : Kind::False};
        return at;
      case 0x1:
        if (low > 4) break;
        place(object, Kind::Integer, at, std::uint64_t{1} << low, 1);
        if (low == 4) checkWideInteger(at);
        return at + object.count;
      case 0x2:
        if (low != 2 && low != 3) break;
        place(object, Kind::Real, at, std::uint64_t{1} << low, 1);
        return at + object.count;
      case 0x3:
        if (low != 3) break;
        place(object, Kind::Date, at, 8, 1);
        return at + object.count;
      case 0x4: {
        const std::uint64_t count = readCount(low, at);
        place(object, Kind::Data, at, count, 1);
        return at + count;
      }
      case 0x5: {
        const std::uint64_t count = readCount(low, at);
        place(object, Kind::Ascii, at, count, 1);
        if (!isAscii({reinterpret_cast<const char*>(bytes_.data()) + at, count})) {
          refuseList("a byte beyond ASCII in an ASCII string");
        }
        return at + count;
      }
      case 0x6: {
        const std::uint64_t count = readCount(low, at);
        place(object, Kind::Utf16, at, count, 2);
        return at + 2 * count;
      }
      case 0x8:
        if (low > 7) refuseList("a UID of more than 8 bytes");
        place(object, Kind::Uid, at, low + 1, 1);
        return at + object.count;
      case 0xA:
      case 0xB:
      case 0xC: {
        const std::uint64_t count = readCount(low, at);
        place(object, Kind::Array, at, count, table_.referenceWidth_);
        return at + count * table_.referenceWidth_;
      }
      case 0xD: {
        const std::uint64_t count = readCount(low, at);
        place(object, Kind::Dictionary, at, count, 2U * table_.referenceWidth_);
        return at + count * 2 * table_.referenceWidth_;
      }
      default:
        break;
    }
    refuseList("unknown object marker " + std::to_string(marker));
  }

  // The count of the low half of a marker, or of the integer object that follows it.
  std::uint64_t readCount(unsigned low, std::uint64_t& at) {
    if (low != 0x0F) return low;
    if (at >= areaEnd_ || (bytes_[at] >> 4) != 0x1 || (bytes_[at] & 0x0F) > 3) refuseList("count");
    const unsigned width = 1U << (bytes_[at] & 0x0F);
    ++at;
    if (areaEnd_ - at < width) refuseList("count outside the object area");
    const std::uint64_t count = readBigEndian(bytes_.data() + at, width);
    at += width;
    return count;
  }

  void place(ObjectTable::Object& object, Kind kind, std::uint64_t at, std::uint64_t count,
             unsigned unitSize) {
    if (count > (areaEnd_ - at) / unitSize) refuseList("an object reaches beyond the object area");
    object = {static_cast<std::uint32_t>(at), static_cast<std::uint32_t>(count), kind};
  }

  void checkWideInteger(std::uint64_t at) {
    const std::uint64_t high = readBigEndian(bytes_.data() + at, 8);
    const std::uint64_t low = readBigEndian(bytes_.data() + at + 8, 8);
    const bool negative = high == UINT64_MAX && low > INT64_MAX;
    if (high != 0 && !negative) refuseList("an integer beyond 64 bits");
  }

  void checkOverlaps() {
    if (!inOrder_) {
      std::sort(starts_.begin(), starts_.end(),
                [](const Extent& left, const Extent& right) { return left.start < right.start; });
      for (std::size_t i = 1; i < starts_.size(); ++i) {
        if (starts_[i].start < starts_[i - 1].end) refuseList("objects overlap");
      }
    }
    std::vector<Extent>().swap(starts_);
  }

  void checkReferences() {
    const std::uint64_t objects = table_.objects_.size();
    keyNumbers_.resize(objects);
    for (std::uint64_t i = 0; i < objects; ++i) {
      const ObjectTable::Object& object = table_.objects_[i];
      if (object.kind != Kind::Array && object.kind != Kind::Dictionary) continue;
      const std::uint64_t references =
          object.kind == Kind::Array ? object.count : std::uint64_t{2} * object.count;
      const std::uint8_t* at = bytes_.data() + object.offset;
      for (std::uint64_t j = 0; j < references; ++j, at += table_.referenceWidth_) {
        if (readBigEndian(at, table_.referenceWidth_) >= objects)
          refuseList("reference out of range");
      }
      if (object.kind == Kind::Dictionary) checkKeys(static_cast<Index>(i));
    }
  }

  // Keys are numbered by content; each dictionary stamps the numbers that it has used.
  void checkKeys(Index dictionary) {
    for (std::uint32_t i = 0; i < table_.count(dictionary); ++i) {
      const Index key = table_.key(dictionary, i);
      if (!table_.isString(key)) refuseList("a dictionary key that is no string");
      std::uint32_t& number = keyNumbers_[key];
      if (number == 0) {
        const auto next = static_cast<std::uint32_t>(lastUse_.size() + 1);
        number = numbers_.try_emplace(table_.string(key), next).first->second;
        if (number == next) lastUse_.push_back(0);
      }
      std::uint32_t& use = lastUse_[number - 1];
      if (use == dictionary + 1) refuseList("a dictionary key that stands twice");
      use = dictionary + 1;
    }
  }

  struct Extent {
    std::uint32_t start;
    std::uint32_t end;
  };

  std::span<const std::uint8_t> bytes_;
  ObjectTable table_;
  unsigned offsetWidth_ = 1;
  // The object area is [kHeaderSize, areaEnd_), and the offset table begins at areaEnd_.
  std::uint64_t areaEnd_ = 0;
  std::vector<Extent> starts_;
  std::uint64_t lastEnd_ = 0;
  bool inOrder_ = true;
  std::vector<std::uint32_t> keyNumbers_;
  std::unordered_map<std::string, std::uint32_t> numbers_;
  std::vector<std::uint32_t> lastUse_;
};

ObjectTable ObjectTable::readBinary(std::span<const std::uint8_t> bytes) {
  return BinaryTableReader(bytes).read();
}

}  // namespace tervano
