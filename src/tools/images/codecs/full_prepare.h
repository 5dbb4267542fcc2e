#pragma once

#include "tools/images/codecs/full_load.h"

namespace tervano {

// Makes the picture one that the format takes: upright, 8 or 16 bits, gray, colour or CMYK, with
// alpha or without, in the picture's own colour space or, where the format knows none, in sRGB.
// The notes are brought in line. Functions throw CodecFailure.
void prepare(LoadedPicture& picture, PictureFormat format, const InputStream& file);

// How the rows of a prepared picture look.
PictureShape shapeOf(const LoadedPicture& picture);

}  // namespace tervano
