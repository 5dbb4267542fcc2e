#pragma once

#include <memory>

#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"

namespace tervano {

// PNG through libpng.

// Nil when the rows are interlaced. 8 or 16 bits, palettes and fewer bits become 8.
std::unique_ptr<RowReader> openPngRows(InputStream& file);

// 8 or 16 bits in gray or colour, with or without alpha.
std::unique_ptr<RowWriter> writePngRows(OutputStream& file, const PictureShape& shape,
                                        const PictureNotes& notes);

// The capture data and XMP of a PNG, wherever they lie in it.
void readPngNotes(InputStream& file, PictureNotes& notes);

}  // namespace tervano
