#include "archive/binary_writer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <string>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/utf.h"

namespace tervano {
namespace {

// Widths are powers of two, as every reader takes them.
unsigned widthOf(std::uint64_t value) {
  if (value <= UINT8_MAX) return 1;
  if (value <= UINT16_MAX) return 2;
  return value <= UINT32_MAX ? 4 : 8;
}

void appendBigEndian(std::vector<std::uint8_t>& out, std::uint64_t value, unsigned width) {
  for (unsigned i = width; i > 0; --i) {
    out.push_back(static_cast<std::uint8_t>(value >> (8 * (i - 1))));
  }
}

void appendMarker(std::vector<std::uint8_t>& out, std::uint8_t type, std::uint64_t count) {
  if (count < 0x0F) {
    out.push_back(static_cast<std::uint8_t>(type | count));
    return;
  }
  out.push_back(type | 0x0F);
  const unsigned width = widthOf(count);
  out.push_back(static_cast<std::uint8_t>(0x10 | std::countr_zero(width)));
  appendBigEndian(out, count, width);
}

std::uint64_t markerSize(std::uint64_t count) {
  return count < 0x0F ? 1 : 2 + widthOf(count);
}

std::uint32_t hashOf(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(text));
}

}  // namespace

BinaryWriter::BinaryWriter() : slots_(64) {}

BinaryWriter::Reference BinaryWriter::append(Object object) {
  objects_.push_back(object);
  return static_cast<Reference>(objects_.size() - 1);
}

template <typename Equal>
BinaryWriter::Reference BinaryWriter::findOrInsert(std::uint32_t hash, Object object, Equal equal) {
  if (usedSlots_ * 2 >= slots_.size()) grow();
  const std::size_t mask = slots_.size() - 1;
  std::size_t at = hash & mask;
  for (; slots_[at].used != 0; at = (at + 1) & mask) {
    if (slots_[at].hash == hash && equal(objects_[slots_[at].used - 1])) {
      return slots_[at].used - 1;
    }
  }
  const Reference added = append(object);
  slots_[at] = {hash, added + 1};
  ++usedSlots_;
  return added;
}

void BinaryWriter::grow() {
  std::vector<Slot> old(slots_.size() * 2);
  old.swap(slots_);
  const std::size_t mask = slots_.size() - 1;
  for (const Slot& slot : old) {
    if (slot.used == 0) continue;
    std::size_t at = slot.hash & mask;
    while (slots_[at].used != 0) at = (at + 1) & mask;
    slots_[at] = slot;
  }
}

BinaryWriter::Reference BinaryWriter::addScalar(std::size_t start) {
  const std::size_t size = scalars_.size() - start;
  const std::size_t before = objects_.size();
  const Reference found = findOrInsert(
      hashOf(scalars_.data() + start, size), {Kind::Scalar, start, size}, [&](const Object& other) {
        return other.kind == Kind::Scalar && other.count == size &&
               std::memcmp(scalars_.data() + other.start, scalars_.data() + start, size) == 0;
      });
  if (objects_.size() == before) scalars_.resize(start);
  return found;
}

BinaryWriter::Reference BinaryWriter::addNumber(std::uint8_t marker, std::uint64_t bits) {
  const std::size_t start = scalars_.size();
  scalars_.push_back(marker);
  appendBigEndian(scalars_, bits, 8);
  return addScalar(start);
}

BinaryWriter::Reference BinaryWriter::addBool(bool value) {
  const std::size_t start = scalars_.size();
  scalars_.push_back(value ? 0x09 : 0x08);
  return addScalar(start);
}

BinaryWriter::Reference BinaryWriter::addInteger(std::int64_t value) {
  // Fewer than eight bytes are read as unsigned.
  const auto bits = static_cast<std::uint64_t>(value);
  const unsigned width = value < 0 ? 8 : widthOf(bits);
  const std::size_t start = scalars_.size();
  scalars_.push_back(static_cast<std::uint8_t>(0x10 | std::countr_zero(width)));
  appendBigEndian(scalars_, bits, width);
  return addScalar(start);
}

BinaryWriter::Reference BinaryWriter::addUnsigned(std::uint64_t value) {
  if (value <= INT64_MAX) return addInteger(static_cast<std::int64_t>(value));
  const std::size_t start = scalars_.size();
  scalars_.push_back(0x14);
  appendBigEndian(scalars_, 0, 8);
  appendBigEndian(scalars_, value, 8);
  return addScalar(start);
}

BinaryWriter::Reference BinaryWriter::addReal(double value) {
  return addNumber(0x23, std::bit_cast<std::uint64_t>(value));
}

BinaryWriter::Reference BinaryWriter::addDate(Date value) {
  return addNumber(0x33, std::bit_cast<std::uint64_t>(value.secondsSinceReferenceDate));
}

BinaryWriter::Reference BinaryWriter::addString(std::string_view text) {
  const std::size_t start = scalars_.size();
  if (isAscii(text)) {
    appendMarker(scalars_, 0x50, text.size());
    scalars_.insert(scalars_.end(), text.begin(), text.end());
  } else {
    const std::vector<std::uint8_t> units = utf16BEFromUtf8(text);
    appendMarker(scalars_, 0x60, units.size() / 2);
    scalars_.insert(scalars_.end(), units.begin(), units.end());
  }
  return addScalar(start);
}

BinaryWriter::Reference BinaryWriter::addData(const DataPtr& data) {
  // Blocks can be large; the hash looks at their ends only and equality at everything.
  constexpr std::size_t kSample = 64;
  const std::size_t sample = std::min(data->size(), kSample);
  const std::uint32_t hash = hashOf(data->data(), sample) ^
                             hashOf(data->data() + data->size() - sample, sample) * 31 ^
                             static_cast<std::uint32_t>(data->size()) * 0x9E3779B9U;
  const std::size_t before = objects_.size();
  const Reference found =
      findOrInsert(hash, {Kind::Data, blocks_.size(), 0}, [&](const Object& other) {
        return other.kind == Kind::Data &&
               (blocks_[other.start] == data || *blocks_[other.start] == *data);
      });
  if (objects_.size() != before) blocks_.push_back(data);
  return found;
}

BinaryWriter::Reference BinaryWriter::addUid(std::uint64_t value) {
  const unsigned width = widthOf(value);
  const std::size_t start = scalars_.size();
  scalars_.push_back(static_cast<std::uint8_t>(0x80 | (width - 1)));
  appendBigEndian(scalars_, value, width);
  return addScalar(start);
}

BinaryWriter::Reference BinaryWriter::reserveContainer() {
  return append({Kind::Array, 0, 0});
}

void BinaryWriter::setArray(Reference container, std::span<const Reference> members) {
  objects_[container] = {Kind::Array, members_.size(), members.size()};
  members_.insert(members_.end(), members.begin(), members.end());
}

void BinaryWriter::setDictionary(Reference container, std::span<const Pair> pairs) {
  objects_[container] = {Kind::Dictionary, members_.size(), pairs.size()};
  for (const Pair& pair : pairs) members_.push_back(pair.first);
  for (const Pair& pair : pairs) members_.push_back(pair.second);
}

Data BinaryWriter::finish(Reference root) {
  constexpr std::string_view kMagic = "bplist00";
  constexpr unsigned kTrailerSize = 32;
  const unsigned referenceWidth = widthOf(objects_.size() - 1);
  std::uint64_t tableStart = kMagic.size();
  for (const Object& object : objects_) {
    switch (object.kind) {
      case Kind::Scalar:
        tableStart += object.count;
        break;
      case Kind::Data:
        tableStart += markerSize(blocks_[object.start]->size()) + blocks_[object.start]->size();
        break;
      case Kind::Array:
        tableStart += markerSize(object.count) + object.count * referenceWidth;
        break;
      case Kind::Dictionary:
        tableStart += markerSize(object.count) + 2 * object.count * referenceWidth;
        break;
    }
  }
  const unsigned offsetWidth = widthOf(tableStart);

  Data out;
  out.reserve(tableStart + objects_.size() * offsetWidth + kTrailerSize);
  std::vector<std::uint64_t> offsets;
  offsets.reserve(objects_.size());
  out.insert(out.end(), kMagic.begin(), kMagic.end());
  const auto putMembers = [&](std::size_t start, std::size_t count) {
    for (std::size_t i = start; i < start + count; ++i) {
      appendBigEndian(out, members_[i], referenceWidth);
    }
  };
  for (const Object& object : objects_) {
    offsets.push_back(out.size());
    switch (object.kind) {
      case Kind::Scalar: {
        const auto first = scalars_.begin() + static_cast<std::ptrdiff_t>(object.start);
        out.insert(out.end(), first, first + static_cast<std::ptrdiff_t>(object.count));
        break;
      }
      case Kind::Data: {
        const tervano::Data& block = *blocks_[object.start];
        appendMarker(out, 0x40, block.size());
        out.insert(out.end(), block.begin(), block.end());
        break;
      }
      case Kind::Array:
        appendMarker(out, 0xA0, object.count);
        putMembers(object.start, object.count);
        break;
      case Kind::Dictionary:
        appendMarker(out, 0xD0, object.count);
        putMembers(object.start, 2 * object.count);
        break;
    }
  }
  for (const std::uint64_t offset : offsets) appendBigEndian(out, offset, offsetWidth);
  out.insert(out.end(), 6, 0);
  out.push_back(static_cast<std::uint8_t>(offsetWidth));
  out.push_back(static_cast<std::uint8_t>(referenceWidth));
  appendBigEndian(out, objects_.size(), 8);
  appendBigEndian(out, root, 8);
  appendBigEndian(out, tableStart, 8);
  return out;
}

namespace {

// Walks a Value without recursion and feeds it to a BinaryWriter.
class ValueFlattener {
 public:
  Data flatten(const Value& root) {
    const BinaryWriter::Reference top = add(root);
    while (!frames_.empty()) step();
    return writer_.finish(top);
  }

 private:
  struct Frame {
    BinaryWriter::Reference container;
    const Value::Array* array;
    const Value::Dictionary* dictionary;
    std::size_t next;
    Value::Dictionary::const_iterator entry;
    // Where this container's members begin in pending_.
    std::size_t pendingStart;
  };

  // Containers are reserved and pushed; their members follow in later steps.
  BinaryWriter::Reference add(const Value& value) {
    if (const auto* array = value.getIf<Value::Array>()) return push(array, nullptr);
    if (const auto* dictionary = value.getIf<Value::Dictionary>()) return push(nullptr, dictionary);
    if (const auto* text = value.getIf<std::string>()) return writer_.addString(*text);
    if (const auto* boolean = value.getIf<bool>()) return writer_.addBool(*boolean);
    if (const auto* number = value.getIf<std::int64_t>()) return writer_.addInteger(*number);
    if (const auto* number = value.getIf<std::uint64_t>()) return writer_.addUnsigned(*number);
    if (const auto* number = value.getIf<double>()) return writer_.addReal(*number);
    if (const auto* date = value.getIf<Date>()) return writer_.addDate(*date);
    if (const auto* uid = value.getIf<Uid>()) return writer_.addUid(uid->value);
    if (const auto* data = value.getIf<DataPtr>(); data != nullptr && *data != nullptr) {
      return writer_.addData(*data);
    }
    throw PlatformException(kInvalidArgumentException,
                            "a property list holds no nil, URL, UUID or object");
  }

  BinaryWriter::Reference push(const Value::Array* array, const Value::Dictionary* dictionary) {
    if (frames_.size() >= kMaximumPropertyListDepth) {
      throw PlatformException(kInvalidArgumentException, "the property list is nested too deeply");
    }
    const BinaryWriter::Reference container = writer_.reserveContainer();
    Frame frame{container, array, dictionary, 0, {}, pending_.size()};
    if (dictionary != nullptr) frame.entry = dictionary->begin();
    frames_.push_back(frame);
    return container;
  }

  void step() {
    const std::size_t level = frames_.size() - 1;
    if (frames_[level].array != nullptr) {
      const Value::Array& array = *frames_[level].array;
      while (frames_[level].next < array.size()) {
        // The place first: a container that is added begins its own members behind it.
        pending_.emplace_back();
        pending_.back().second = add(array[frames_[level].next++]);
        if (frames_.size() - 1 != level) return;
      }
      members_.clear();
      for (std::size_t i = frames_[level].pendingStart; i < pending_.size(); ++i) {
        members_.push_back(pending_[i].second);
      }
      writer_.setArray(frames_[level].container, members_);
    } else {
      const Value::Dictionary& dictionary = *frames_[level].dictionary;
      while (frames_[level].entry != dictionary.end()) {
        const auto& [key, value] = *frames_[level].entry++;
        if (!isValidUtf8(key)) {
          throw PlatformException(kInvalidArgumentException, "a dictionary key that is no UTF-8");
        }
        const BinaryWriter::Reference keyReference = writer_.addString(key);
        pending_.emplace_back(keyReference, 0);
        pending_.back().second = add(value);
        if (frames_.size() - 1 != level) return;
      }
      writer_.setDictionary(frames_[level].container,
                            std::span(pending_).subspan(frames_[level].pendingStart));
    }
    pending_.resize(frames_[level].pendingStart);
    frames_.pop_back();
  }

  BinaryWriter writer_;
  std::vector<Frame> frames_;
  std::vector<BinaryWriter::Pair> pending_;
  std::vector<BinaryWriter::Reference> members_;
};

}  // namespace

Data binaryDataWithPropertyList(const Value& value) {
  return ValueFlattener().flatten(value);
}

}  // namespace tervano
