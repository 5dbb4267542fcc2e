#pragma once

#include <mutex>
#include <string>

#include "platform/image_codec.h"

namespace tervano {

// Pictures through the desktop's own libraries: TIFF, SVG, and PNG, JPEG, GIF, BMP, ICO and WebP
// where gdk-pixbuf has a loader for them. Of a picture with several frames the first one counts.
//
// The format is told by the first bytes. A picture of more than kMaximumPixels, an SVG of more than
// kMaximumDrawingBytes, and anything cut short in its header give nil. The libraries are loaded
// with "pictures.so" at the first call; without that every picture is nil, every encoding empty,
// and one line is logged.
class DesktopImageCodec : public ImageCodec {
 public:
  static constexpr std::int64_t kMaximumPixels = 64'000'000;
  static constexpr std::size_t kMaximumDrawingBytes = std::size_t{8} << 20;

  // Empty: the module of this installation.
  explicit DesktopImageCodec(std::string modulePath = {}) : modulePath_(std::move(modulePath)) {}

  std::optional<std::pair<int, int>> pixelSize(const Data& encoded) const override;
  bool isVector(const Data& encoded) const override;
  std::optional<Bitmap> draw(const Data& encoded, int width, int height) const override;
  // LZW compressed, one strip.
  Data TIFFRepresentation(const Bitmap& bitmap) const override;
  Data PNGRepresentation(const Bitmap& bitmap) const override;

 private:
  // Null without the module.
  const ImageCodec* library() const;

  std::string modulePath_;
  mutable std::once_flag loaded_;
  mutable const ImageCodec* library_ = nullptr;
};

}  // namespace tervano
