#include "tools/images/codecs/row_steps.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "tools/images/codecs/bmp_rows.h"
#include "tools/images/codecs/exif.h"
#include "tools/images/codecs/jpeg_rows.h"
#include "tools/images/codecs/png_rows.h"
#include "tools/images/codecs/tiff_rows.h"

namespace tervano {

namespace {

template <typename Sample>
void layOnWhite(const Sample* in, const PictureShape& from, Sample* out) {
  constexpr std::uint32_t kWhite = std::uint32_t{Sample(-1)};
  const int colours = from.colourChannels();
  for (std::uint32_t pixel = 0; pixel < from.width; ++pixel) {
    const std::uint64_t alpha = in[colours];
    for (int channel = 0; channel < colours; ++channel) {
      const std::uint64_t sum = in[channel] * alpha + kWhite * (kWhite - alpha);
      out[channel] = static_cast<Sample>((sum + kWhite / 2) / kWhite);
    }
    in += colours + 1;
    out += colours;
  }
}

// The samples of a row in 8 bits.
void narrow(const std::uint8_t* in, std::size_t samples, std::uint8_t* out) {
  for (std::size_t index = 0; index < samples; ++index) {
    std::uint16_t sample = 0;
    std::memcpy(&sample, in + 2 * index, sizeof sample);
    out[index] = static_cast<std::uint8_t>((sample * std::uint32_t{255} + 32895) >> 16);
  }
}

// A turned picture: the whole of it, given out row by row in its new order.
class TurnedRows : public RowReader {
 public:
  explicit TurnedRows(std::unique_ptr<RowReader> reader) : turn_(reader->orientation()) {
    const PictureShape& lying = reader->shape();
    pixel_ = lying.bytesPerPixel();
    row_ = lying.bytesPerRow();
    pixels_.resize(row_ * lying.height);
    for (std::size_t y = 0; y < lying.height; ++y) reader->read(pixels_.data() + y * row_);
    shape_ = lying;
    notes_ = reader->notes();
    if (turn_ >= kFirstSideways) {
      std::swap(shape_.width, shape_.height);
      if (notes_.density) std::swap(notes_.density->across, notes_.density->down);
    }
    makeExifUpright(notes_.exif, shape_.width, shape_.height);
    makeXmpUpright(notes_.xmp);
  }

  void read(std::uint8_t* row) override {
    const auto last = [](std::uint32_t count) { return static_cast<std::ptrdiff_t>(count) - 1; };
    const auto line = static_cast<std::ptrdiff_t>(row_);
    const auto step = static_cast<std::ptrdiff_t>(pixel_);
    const auto y = static_cast<std::ptrdiff_t>(next_++);
    const bool sideways = turn_ >= kFirstSideways;
    // Where the row's first pixel lies, and how far the next one is.
    const bool fromRight = sideways ? turn_ == 7 || turn_ == 8 : turn_ == 2 || turn_ == 3;
    const bool fromBelow = sideways ? turn_ == 6 || turn_ == 7 : turn_ == 3 || turn_ == 4;
    std::ptrdiff_t first = 0;
    std::ptrdiff_t next = 0;
    if (sideways) {
      first = (fromRight ? last(shape_.height) - y : y) * step +
              (fromBelow ? last(shape_.width) * line : 0);
      next = fromBelow ? -line : line;
    } else {
      first = (fromBelow ? last(shape_.height) - y : y) * line +
              (fromRight ? last(shape_.width) * step : 0);
      next = fromRight ? -step : step;
    }
    const std::uint8_t* from = pixels_.data() + first;
    for (std::uint32_t x = 0; x < shape_.width; ++x, from += next) {
      row = std::copy_n(from, pixel_, row);
    }
  }

 private:
  static constexpr int kFirstSideways = 5;

  int turn_;
  std::size_t pixel_ = 0;
  std::size_t row_ = 0;
  std::uint32_t next_ = 0;
  Data pixels_;
};

}  // namespace

void convertRow(const std::uint8_t* row, const PictureShape& from, std::uint8_t* out,
                const PictureShape& to) {
  Data onWhite;
  if (from.alpha && !to.alpha) {
    if (from.bits == 8) {
      layOnWhite(row, from, out);
      return;
    }
    onWhite.resize(from.bytesPerRow());
    layOnWhite(reinterpret_cast<const std::uint16_t*>(row), from,
               reinterpret_cast<std::uint16_t*>(onWhite.data()));
    row = onWhite.data();
  }
  const std::size_t samples = to.width * static_cast<std::size_t>(to.channels());
  if (from.bits == to.bits) {
    std::memcpy(out, row, to.bytesPerRow());
  } else {
    narrow(row, samples, out);
  }
}

std::unique_ptr<RowReader> upright(std::unique_ptr<RowReader> reader) {
  if (reader->orientation() == 1) return reader;
  return std::make_unique<TurnedRows>(std::move(reader));
}

std::unique_ptr<RowWriter> writeRows(PictureFormat format, OutputStream& file,
                                     const PictureShape& shape, const PictureNotes& notes) {
  switch (format) {
    case PictureFormat::jpeg:
      return writeJpegRows(file, shape, notes);
    case PictureFormat::png:
      return writePngRows(file, shape, notes);
    case PictureFormat::tiff:
      return writeTiffRows(file, shape, notes);
    case PictureFormat::bmp:
      return writeBmpRows(file, shape, notes);
    default:
      return nullptr;
  }
}

void checkSize(std::uint64_t width, std::uint64_t height, PictureFormat format) {
  const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
  if (width == 0 || height == 0) failAsDamaged(size);
  if (width > kMostPixels / height) throw CodecFailure("it is too large (" + size + ")");
  if (std::max(width, height) > largestSide(format)) {
    throw CodecFailure("it is too large for the format " + std::string(wordOf(format)) + " (" +
                       size + ")");
  }
}

}  // namespace tervano
