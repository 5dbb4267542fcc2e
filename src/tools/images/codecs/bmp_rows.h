#pragma once

#include <memory>

#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"

namespace tervano {

// A Windows bitmap of version 3, not compressed: 8 bits, gray (as a palette) or colour, no alpha.
// Has no place for a colour profile that programs would read.
std::unique_ptr<RowWriter> writeBmpRows(OutputStream& file, const PictureShape& shape,
                                        const PictureNotes& notes);

}  // namespace tervano
