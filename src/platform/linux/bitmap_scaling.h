#pragma once

#include "platform/image_codec.h"

namespace tervano {

// The bitmap stretched to another size: the average of the covered area where it shrinks, linear
// where it grows. Colours are weighted by their alpha, so that transparent pixels do not bleed.
Bitmap scaledBitmap(const Bitmap& source, int width, int height);

}  // namespace tervano
