#pragma once

#include <memory>

#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"
#include "tools/images/picture_format.h"

namespace tervano {

// Whether this machine has a codec that writes heic or avif.
bool canWriteHeif(PictureFormat format);

// HEIC and AVIF through libheif; colour, 8 bits or, for heic, 16 of which 10 are kept. Takes the
// memory of all rows. Quality 65 for heic with the encoder's quickest method, which is seven times
// as quick as its default one and costs a few percent in size, and 70 for avif.
std::unique_ptr<RowWriter> writeHeifRows(PictureFormat format, OutputStream& file,
                                         const PictureShape& shape, const PictureNotes& notes);

}  // namespace tervano
