#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/images/codecs/streams.h"

namespace tervano {

// Capture data (Exif 2.32; CIPA DC-008): a TIFF 6.0 header with directories of tagged values.
// Broken parts are left out; nothing here throws. A maker's own notes stay as they are, so their
// inner offsets may mean nothing any more.

// How the picture lies, 1 to 8; 1 when that is not told.
int orientationOfExif(const Data& exif);

// Notes in place that the picture is upright now and has that size. A thumbnail that lay as the
// picture did is dropped.
void makeExifUpright(Data& exif, std::uint32_t width, std::uint32_t height);

// The capture data of the TIFF directory at `offset`, as a block of its own; empty when the
// directory has none. Byte order and offsets are those of the file.
Data exifOfTiff(InputStream& file, std::uint64_t directory);

// The same as parts of a TIFF file with little-endian numbers.
class ExifForTiff {
 public:
  explicit ExifForTiff(const Data& exif);

  // Texts that belong into the picture's own directory, by their tags.
  const std::vector<std::pair<std::uint16_t, std::string>>& texts() const { return texts_; }
  // The directories "Exif" and "GPS", laid out for a place at `offset` in the file; empty for none.
  Data exifDirectory(std::uint32_t offset) const;
  Data gpsDirectory(std::uint32_t offset) const;

  struct Entry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    // Little-endian.
    Data bytes;
  };
  using Directory = std::vector<Entry>;

 private:
  std::vector<std::pair<std::uint16_t, std::string>> texts_;
  Directory exif_;
  Directory gps_;
};

// Notes in an XMP packet, in place, that the picture is upright now.
void makeXmpUpright(Data& xmp);

}  // namespace tervano
