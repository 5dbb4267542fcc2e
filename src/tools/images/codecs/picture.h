#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "archive/value.h"

namespace tervano {

enum class Colour { gray, rgb, cmyk };

// Pixels per inch.
struct Density {
  double across = 0;
  double down = 0;
};

// What a file tells of its resolution; nil for what no picture has and no format can hold: less
// than one pixel per inch, more than 100,000, or no number at all.
std::optional<Density> densityPerInch(double across, double down);
// The same of pixels per metre: 2835 are 72 per inch.
std::optional<Density> densityPerMetre(double across, double down);

// What goes along with the pixels; empty for none.
struct PictureNotes {
  // An ICC profile.
  Data profile;
  // Exif as it stands in files: a TIFF header and directories, without "Exif" in front.
  Data exif;
  Data xmp;
  // Photoshop's image resources ("8BIM" blocks).
  Data photoshop;
  std::optional<Density> density;
};

// How the rows of a picture look: samples one after the other, those of a pixel together, alpha
// last and never multiplied in. 16-bit samples have the machine's byte order. CMYK: 0 is no ink.
struct PictureShape {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  Colour colour = Colour::rgb;
  bool alpha = false;
  // Of a sample: 8 or 16.
  int bits = 8;

  int colourChannels() const { return colour == Colour::gray ? 1 : colour == Colour::rgb ? 3 : 4; }
  int channels() const { return colourChannels() + (alpha ? 1 : 0); }
  std::size_t bytesPerPixel() const { return static_cast<std::size_t>(channels() * bits / 8); }
  std::size_t bytesPerRow() const { return width * bytesPerPixel(); }
};

// No picture of more pixels is converted.
constexpr std::uint64_t kMostPixels = std::uint64_t{1} << 30;
// What is said of a picture that needs more memory than it gets.
constexpr char kTooLarge[] = "it is too large for the memory of this machine";

// Rows out of a file, from the top. Functions throw CodecFailure.
class RowReader {
 public:
  virtual ~RowReader() = default;
  const PictureShape& shape() const { return shape_; }
  const PictureNotes& notes() const { return notes_; }
  // How the rows lie, as Exif and TIFF number it: 1 upright, to 8.
  int orientation() const { return orientation_; }
  // Gives the next row. After the last one, also finds out whether the file is whole.
  virtual void read(std::uint8_t* row) = 0;

 protected:
  PictureShape shape_;
  PictureNotes notes_;
  int orientation_ = 1;
};

// Rows into a file, from the top. Functions throw CodecFailure.
class RowWriter {
 public:
  virtual ~RowWriter() = default;
  virtual void write(const std::uint8_t* row) = 0;
  // Once, after the last row.
  virtual void finish() = 0;
};

// Whether an ICC profile is one for pictures of that colour.
bool profileFits(const Data& profile, Colour colour);

}  // namespace tervano
