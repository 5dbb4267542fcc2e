#pragma once

#include <memory>
#include <vector>

#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"

namespace tervano {

// TIFF through libtiff.

// Nil when the picture is not in plain rows of 8 or 16 bits, gray or colour, losslessly compressed.
std::unique_ptr<RowReader> openTiffRows(InputStream& file);

// Losslessly compressed (LZW).
std::unique_ptr<RowWriter> writeTiffRows(OutputStream& file, const PictureShape& shape,
                                         const PictureNotes& notes);

// A picture in a TIFF file.
struct TiffPage {
  // Its number among all directories of the file.
  int number = 0;
  Data exif;
};

// The first pictures of a TIFF file, at most that many, without its thumbnails and masks. Empty
// when the file is a camera's raw data: what can be read of that is only a preview. Throws
// CodecFailure, also when one of them cannot be reached.
std::vector<TiffPage> tiffPages(InputStream& file, std::size_t most);

}  // namespace tervano
