#include "tools/images/codecs/exif.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>

namespace tervano {

namespace {

using Entry = ExifForTiff::Entry;
using Directory = ExifForTiff::Directory;

constexpr std::uint16_t kOrientation = 274;
constexpr std::uint16_t kExifPointer = 34665;
constexpr std::uint16_t kGpsPointer = 34853;
constexpr std::uint16_t kInteroperabilityPointer = 40965;
constexpr std::uint16_t kWidthInPixels = 40962;
constexpr std::uint16_t kHeightInPixels = 40963;
// Description, maker, model, software, time, artist, host computer, copyright.
constexpr std::uint16_t kTexts[] = {270, 271, 272, 305, 306, 315, 316, 33432};

constexpr std::uint16_t kText = 2;
constexpr std::uint16_t kShort = 3;
constexpr std::uint16_t kLong = 4;

constexpr std::size_t kEntrySize = 12;
constexpr std::size_t kMostEntries = 1000;
constexpr std::size_t kLargestValue = std::size_t{1} << 20;

// Size of a value's numbers and how many bytes of it are turned together.
struct TypeSize {
  std::size_t size;
  std::size_t unit;
};

TypeSize sizeOfType(std::uint16_t type) {
  switch (type) {
    case 1:
    case 2:
    case 6:
    case 7:
      return {1, 1};
    case 3:
    case 8:
      return {2, 2};
    case 4:
    case 9:
    case 11:
    case 13:
      return {4, 4};
    case 5:
    case 10:
      return {8, 4};
    case 12:
      return {8, 8};
    default:
      return {0, 0};
  }
}

bool isText(std::uint16_t tag) {
  return std::find(std::begin(kTexts), std::end(kTexts), tag) != std::end(kTexts);
}

// Bytes of a TIFF structure by their offset.
using BytesAt = std::function<bool(std::uint64_t offset, void* bytes, std::size_t count)>;

BytesAt bytesOf(const Data& data) {
  return [&data](std::uint64_t offset, void* bytes, std::size_t count) {
    if (offset > data.size() || count > data.size() - offset) return false;
    std::memcpy(bytes, data.data() + offset, count);
    return true;
  };
}

class Reader {
 public:
  explicit Reader(BytesAt bytesAt) : bytesAt_(std::move(bytesAt)) {}

  // The offset of the first directory; nil when this is no TIFF structure.
  std::optional<std::uint32_t> begin() {
    std::array<std::uint8_t, 8> header{};
    if (!bytesAt_(0, header.data(), header.size())) return std::nullopt;
    if (std::memcmp(header.data(), "MM\0*", 4) == 0) {
      bigEndian_ = true;
    } else if (std::memcmp(header.data(), "II*\0", 4) != 0) {
      return std::nullopt;
    }
    return number(header.data() + 4, 4);
  }

  std::uint32_t number(const std::uint8_t* bytes, std::size_t size) const {
    std::uint32_t value = 0;
    for (std::size_t index = 0; index < size; ++index) {
      value = value << 8 | bytes[bigEndian_ ? index : size - 1 - index];
    }
    return value;
  }

  // Calls `visit` with each entry's place and its twelve bytes.
  void visitEntries(
      std::uint64_t offset,
      const std::function<void(std::uint64_t place, const std::uint8_t* entry)>& visit) const {
    std::array<std::uint8_t, kEntrySize> entry{};
    if (!bytesAt_(offset, entry.data(), 2)) return;
    const std::size_t count = std::min<std::size_t>(number(entry.data(), 2), kMostEntries);
    for (std::size_t index = 0; index < count; ++index) {
      const std::uint64_t place = offset + 2 + index * kEntrySize;
      if (!bytesAt_(place, entry.data(), entry.size())) return;
      visit(place, entry.data());
    }
  }

  Directory directory(std::uint64_t offset) const {
    Directory entries;
    visitEntries(offset, [&](std::uint64_t place, const std::uint8_t* bytes) {
      Entry entry;
      entry.tag = static_cast<std::uint16_t>(number(bytes, 2));
      entry.type = static_cast<std::uint16_t>(number(bytes + 2, 2));
      entry.count = number(bytes + 4, 4);
      const auto [size, unit] = sizeOfType(entry.type);
      if (size == 0 || entry.count == 0 || entry.count > kLargestValue / size) return;
      entry.bytes.resize(entry.count * size);
      const std::uint64_t at = entry.bytes.size() <= 4 ? place + 8 : number(bytes + 8, 4);
      if (!bytesAt_(at, entry.bytes.data(), entry.bytes.size())) return;
      if (bigEndian_) {
        for (auto next = entry.bytes.begin(); next != entry.bytes.end();
             next += static_cast<std::ptrdiff_t>(unit)) {
          std::reverse(next, next + static_cast<std::ptrdiff_t>(unit));
        }
      }
      entries.push_back(std::move(entry));
    });
    return entries;
  }

 private:
  BytesAt bytesAt_;
  bool bigEndian_ = false;
};

void append(Data& data, std::uint32_t value, std::size_t size) {
  for (std::size_t index = 0; index < size; ++index) {
    data.push_back(static_cast<std::uint8_t>(value >> (8 * index)));
  }
}

Entry longEntry(std::uint16_t tag, std::uint32_t value) {
  Entry entry{tag, kLong, 1, {}};
  append(entry.bytes, value, 4);
  return entry;
}

std::uint32_t valueOf(const Entry& entry) {
  std::uint32_t value = 0;
  for (std::size_t index = std::min<std::size_t>(entry.bytes.size(), 4); index-- > 0;) {
    value = value << 8 | entry.bytes[index];
  }
  return value;
}

// A pointer's directory, and the directory without the pointer.
Directory takeDirectory(const Reader& reader, Directory& from, std::uint16_t pointer) {
  Directory taken;
  std::erase_if(from, [&](const Entry& entry) {
    if (entry.tag != pointer) return false;
    if (taken.empty() && (entry.type == kLong || entry.type == 13)) {
      taken = reader.directory(valueOf(entry));
    }
    return true;
  });
  return taken;
}

// How long a directory with its values is.
std::size_t sizeOf(const Directory& directory) {
  std::size_t size = 2 + directory.size() * kEntrySize + 4;
  for (const Entry& entry : directory) {
    if (entry.bytes.size() > 4) size += (entry.bytes.size() + 1) / 2 * 2;
  }
  return size;
}

// Lays a directory out for a place at `offset`.
Data laidOut(Directory directory, std::uint32_t offset) {
  std::stable_sort(directory.begin(), directory.end(),
                   [](const Entry& left, const Entry& right) { return left.tag < right.tag; });
  Data entries;
  Data values;
  append(entries, static_cast<std::uint32_t>(directory.size()), 2);
  const std::size_t valuesAt = offset + 2 + directory.size() * kEntrySize + 4;
  for (const Entry& entry : directory) {
    append(entries, entry.tag, 2);
    append(entries, entry.type, 2);
    append(entries, entry.count, 4);
    if (entry.bytes.size() <= 4) {
      Data inside = entry.bytes;
      inside.resize(4);
      entries.insert(entries.end(), inside.begin(), inside.end());
      continue;
    }
    append(entries, static_cast<std::uint32_t>(valuesAt + values.size()), 4);
    values.insert(values.end(), entry.bytes.begin(), entry.bytes.end());
    if (values.size() % 2 != 0) values.push_back(0);
  }
  append(entries, 0, 4);
  entries.insert(entries.end(), values.begin(), values.end());
  return entries;
}

// Lays `directory` out with another one behind it that `pointer` points to.
Data laidOutWith(Directory directory, std::uint16_t pointer, const Directory& inner,
                 std::uint32_t offset) {
  if (inner.empty()) return laidOut(std::move(directory), offset);
  directory.push_back(longEntry(pointer, 0));
  const auto innerAt = static_cast<std::uint32_t>(offset + sizeOf(directory));
  directory.back() = longEntry(pointer, innerAt);
  Data data = laidOut(std::move(directory), offset);
  const Data behind = laidOut(inner, innerAt);
  data.insert(data.end(), behind.begin(), behind.end());
  return data;
}

}  // namespace

int orientationOfExif(const Data& exif) {
  Reader reader(bytesOf(exif));
  const auto first = reader.begin();
  int orientation = 1;
  if (!first) return orientation;
  reader.visitEntries(*first, [&](std::uint64_t /*place*/, const std::uint8_t* entry) {
    if (reader.number(entry, 2) != kOrientation || reader.number(entry + 2, 2) != kShort) return;
    const std::uint32_t value = reader.number(entry + 8, 2);
    if (value >= 1 && value <= 8) orientation = static_cast<int>(value);
  });
  return orientation;
}

void makeExifUpright(Data& exif, std::uint32_t width, std::uint32_t height) {
  Reader reader(bytesOf(exif));
  const auto first = reader.begin();
  if (!first) return;
  const bool bigEndian = exif[0] == 'M';
  const bool turned = orientationOfExif(exif) != 1;
  const auto put = [&](std::uint64_t place, std::uint32_t value, std::size_t size) {
    for (std::size_t index = 0; index < size; ++index) {
      const std::size_t shift = 8 * (bigEndian ? size - 1 - index : index);
      exif[place + index] = static_cast<std::uint8_t>(value >> shift);
    }
  };
  const auto setNumber = [&](std::uint64_t place, const std::uint8_t* entry, std::uint32_t value) {
    const std::uint32_t type = reader.number(entry + 2, 2);
    if (reader.number(entry + 4, 4) != 1) return;
    if (type == kLong) put(place + 8, value, 4);
    if (type == kShort && value <= UINT16_MAX) put(place + 8, value, 2);
  };
  std::optional<std::uint32_t> inner;
  std::uint64_t end = *first + 2;
  reader.visitEntries(*first, [&](std::uint64_t place, const std::uint8_t* entry) {
    end = place + kEntrySize;
    const std::uint32_t tag = reader.number(entry, 2);
    if (tag == kOrientation) setNumber(place, entry, 1);
    if (tag == kExifPointer) inner = reader.number(entry + 8, 4);
  });
  // The directory of the thumbnail follows the first one.
  if (turned && end + 4 <= exif.size()) put(end, 0, 4);
  if (!inner) return;
  reader.visitEntries(*inner, [&](std::uint64_t place, const std::uint8_t* entry) {
    const std::uint32_t tag = reader.number(entry, 2);
    if (tag == kWidthInPixels) setNumber(place, entry, width);
    if (tag == kHeightInPixels) setNumber(place, entry, height);
  });
}

Data exifOfTiff(InputStream& file, std::uint64_t directory) {
  Reader reader([&file](std::uint64_t offset, void* bytes, std::size_t count) {
    return file.readAt(offset, bytes, count);
  });
  if (!reader.begin()) return {};
  Directory main = reader.directory(directory);
  Directory exif = takeDirectory(reader, main, kExifPointer);
  const Directory gps = takeDirectory(reader, main, kGpsPointer);
  const Directory interoperability = takeDirectory(reader, exif, kInteroperabilityPointer);
  std::erase_if(main, [](const Entry& entry) { return !isText(entry.tag); });
  if (main.empty() && exif.empty() && gps.empty()) return {};

  constexpr std::uint32_t kHeaderSize = 8;
  if (!exif.empty()) main.push_back(longEntry(kExifPointer, 0));
  if (!gps.empty()) main.push_back(longEntry(kGpsPointer, 0));
  const auto exifAt = static_cast<std::uint32_t>(kHeaderSize + sizeOf(main));
  const Data exifPart = exif.empty() ? Data()
                                     : laidOutWith(std::move(exif), kInteroperabilityPointer,
                                                   interoperability, exifAt);
  const auto gpsAt = static_cast<std::uint32_t>(exifAt + exifPart.size());
  for (Entry& entry : main) {
    if (entry.tag == kExifPointer) entry = longEntry(kExifPointer, exifAt);
    if (entry.tag == kGpsPointer) entry = longEntry(kGpsPointer, gpsAt);
  }
  Data block{'I', 'I', '*', 0};
  append(block, kHeaderSize, 4);
  for (const Data& part :
       {laidOut(main, kHeaderSize), exifPart, gps.empty() ? Data() : laidOut(gps, gpsAt)}) {
    block.insert(block.end(), part.begin(), part.end());
  }
  return block;
}

ExifForTiff::ExifForTiff(const Data& exif) {
  Reader reader(bytesOf(exif));
  const auto first = reader.begin();
  if (!first) return;
  Directory main = reader.directory(*first);
  exif_ = takeDirectory(reader, main, kExifPointer);
  gps_ = takeDirectory(reader, main, kGpsPointer);
  takeDirectory(reader, exif_, kInteroperabilityPointer);
  for (const Entry& entry : main) {
    if (!isText(entry.tag) || entry.type != kText) continue;
    std::string text(entry.bytes.begin(), entry.bytes.end());
    text.resize(std::min(text.find('\0'), text.size()));
    if (!text.empty()) texts_.emplace_back(entry.tag, std::move(text));
  }
}

Data ExifForTiff::exifDirectory(std::uint32_t offset) const {
  return exif_.empty() ? Data() : laidOut(exif_, offset);
}

Data ExifForTiff::gpsDirectory(std::uint32_t offset) const {
  return gps_.empty() ? Data() : laidOut(gps_, offset);
}

void makeXmpUpright(Data& xmp) {
  constexpr std::string_view kName = "tiff:Orientation";
  constexpr std::string_view kBetween = "=\"'> \t\r\n";
  for (auto found = xmp.begin();;) {
    found = std::search(found, xmp.end(), kName.begin(), kName.end());
    if (found == xmp.end()) return;
    found += kName.size();
    while (found != xmp.end() && kBetween.find(static_cast<char>(*found)) != kBetween.npos) ++found;
    if (found != xmp.end() && *found >= '2' && *found <= '8') *found = '1';
  }
}

}  // namespace tervano
