#pragma once

#include "platform/image_codec.h"

namespace tervano {

// The codec of the picture library, a loadable module of its own: the libraries behind it take ten
// times as long to load as everything else that a file manager's extension needs, and most
// processes never draw.
//
// TIFF (revision 6.0) goes through libtiff, SVG through librsvg, PNG, JPEG, GIF, BMP, ICO and WebP
// through gdk-pixbuf where it has a loader for them.
class PictureCodec : public ImageCodec {
 public:
  std::optional<std::pair<int, int>> pixelSize(const Data& encoded) const override;
  bool isVector(const Data& encoded) const override;
  std::optional<Bitmap> draw(const Data& encoded, int width, int height) const override;
  Data TIFFRepresentation(const Bitmap& bitmap) const override;
  Data PNGRepresentation(const Bitmap& bitmap) const override;
};

}  // namespace tervano

// The module's only exported symbol: its codec, never destroyed.
extern "C" const tervano::ImageCodec* tervanoPictureCodec();
