#pragma once

#include "platform/image_codec.h"

namespace tervano {

// Pictures through the desktop's own libraries: TIFF (revision 6.0) by libtiff, SVG by librsvg, and
// PNG, JPEG, GIF, BMP, ICO and WebP by gdk-pixbuf where it has a loader for them. Of a picture with
// several frames the first one counts.
//
// The format is told by the first bytes. A picture of more than kMaximumPixels, an SVG of more than
// kMaximumDrawingBytes, and anything cut short in its header give nil.
class DesktopImageCodec : public ImageCodec {
 public:
  static constexpr std::int64_t kMaximumPixels = 64'000'000;
  static constexpr std::size_t kMaximumDrawingBytes = 8 * 1024 * 1024;

  std::optional<std::pair<int, int>> pixelSize(const Data& encoded) const override;
  bool isVector(const Data& encoded) const override;
  std::optional<Bitmap> draw(const Data& encoded, int width, int height) const override;
  // LZW compressed, one strip.
  Data TIFFRepresentation(const Bitmap& bitmap) const override;
  Data PNGRepresentation(const Bitmap& bitmap) const override;
};

// The bitmap stretched to another size: the average of the covered area where it shrinks, linear
// where it grows. Colours are weighted by their alpha, so that transparent pixels do not bleed.
Bitmap scaledBitmap(const Bitmap& source, int width, int height);

}  // namespace tervano
