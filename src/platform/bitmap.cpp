#include "platform/image_codec.h"

namespace tervano {

Bitmap Bitmap::blank(int width, int height) {
  Bitmap bitmap;
  if (width <= 0 || height <= 0) return bitmap;
  bitmap.width = width;
  bitmap.height = height;
  bitmap.pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  return bitmap;
}

}  // namespace tervano
