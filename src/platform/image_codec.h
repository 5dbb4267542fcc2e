#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "archive/value.h"

namespace tervano {

// Pixels in rows from the top, 4 bytes each: red, green, blue, alpha, not premultiplied, sRGB.
struct Bitmap {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;

  // All transparent.
  static Bitmap blank(int width, int height);
  friend bool operator==(const Bitmap&, const Bitmap&) = default;
};

// Decodes and encodes pictures in the process. Any thread. Bounded: a picture of more than
// 64 million pixels is refused; damaged bytes give nil, never a fault.
class ImageCodec {
 public:
  virtual ~ImageCodec() = default;
  // The size in pixels, from the header alone; nil when this is no picture. A vector drawing
  // answers its natural size.
  virtual std::optional<std::pair<int, int>> pixelSize(const Data& encoded) const = 0;
  virtual bool isVector(const Data& encoded) const = 0;
  // Draws the picture into a bitmap of that size, the whole picture stretched to fill it.
  virtual std::optional<Bitmap> draw(const Data& encoded, int width, int height) const = 0;
  // A TIFF (revision 6.0) of one picture: RGBA, 8 bits a sample, unassociated alpha.
  virtual Data TIFFRepresentation(const Bitmap& bitmap) const = 0;
  virtual Data PNGRepresentation(const Bitmap& bitmap) const = 0;
};

class ForwardingImageCodec : public ImageCodec {
 public:
  explicit ForwardingImageCodec(ImageCodec& real) : real_(real) {}
  std::optional<std::pair<int, int>> pixelSize(const Data& encoded) const override {
    return real_.pixelSize(encoded);
  }
  bool isVector(const Data& encoded) const override { return real_.isVector(encoded); }
  std::optional<Bitmap> draw(const Data& encoded, int width, int height) const override {
    return real_.draw(encoded, width, height);
  }
  Data TIFFRepresentation(const Bitmap& bitmap) const override {
    return real_.TIFFRepresentation(bitmap);
  }
  Data PNGRepresentation(const Bitmap& bitmap) const override {
    return real_.PNGRepresentation(bitmap);
  }

 private:
  ImageCodec& real_;
};

}  // namespace tervano
