#pragma once

#include <memory>

#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"
#include "tools/images/picture_format.h"

namespace tervano {

// Converts a row of `from` to one of `to`, which has the same width and colour: without alpha the
// picture lies on white, 16 bits become 8.
void convertRow(const std::uint8_t* row, const PictureShape& from, std::uint8_t* out,
                const PictureShape& to);

// The reader's picture turned upright, which takes the memory of all its rows; the reader itself
// when it lies so already. Throws CodecFailure.
std::unique_ptr<RowReader> upright(std::unique_ptr<RowReader> reader);

// The writer of a format that has one here: jpeg, png, tiff, bmp. Nil for the others. Shape and
// notes must be such as the format takes, see its header. Throws CodecFailure.
std::unique_ptr<RowWriter> writeRows(PictureFormat format, OutputStream& file,
                                     const PictureShape& shape, const PictureNotes& notes);

// Throws CodecFailure for a picture that is too large for its format, or for anything.
void checkSize(std::uint64_t width, std::uint64_t height, PictureFormat format);

}  // namespace tervano
