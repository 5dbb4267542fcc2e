#pragma once

#include <memory>

#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"

namespace tervano {

// JPEG through libjpeg-turbo.

// Nil when the file is no JPEG of 8 bits in gray or luminance and colour, such as one in CMYK.
std::unique_ptr<RowReader> openJpegRows(InputStream& file);

// 8 bits, no alpha. Quality 90 with colour at full resolution: no loss that can be seen.
std::unique_ptr<RowWriter> writeJpegRows(OutputStream& file, const PictureShape& shape,
                                         const PictureNotes& notes);

}  // namespace tervano
