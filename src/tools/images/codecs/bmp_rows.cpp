#include "tools/images/codecs/bmp_rows.h"

#include <algorithm>
#include <cmath>

namespace tervano {

namespace {

constexpr double kInchesPerMetre = 1 / 0.0254;
constexpr std::uint32_t kHeaderSize = 54;
constexpr std::uint32_t kPaletteColours = 256;
constexpr std::size_t kBmpBlock = std::size_t{256} << 10;

void appendField(Data& data, std::uint32_t value, int size) {
  for (int index = 0; index < size; ++index) {
    data.push_back(static_cast<std::uint8_t>(value >> (8 * index)));
  }
}

// Rows stand in the file from the bottom, each filled up to four bytes. They are gathered in
// blocks.
class BmpWriter : public RowWriter {
 public:
  BmpWriter(OutputStream& file, const PictureShape& shape, const PictureNotes& notes)
      : file_(file), shape_(shape), stride_((shape.bytesPerRow() + 3) / 4 * 4) {
    const bool gray = shape.colour == Colour::gray;
    dataAt_ = kHeaderSize + (gray ? kPaletteColours * 4 : 0);
    const std::uint64_t size = dataAt_ + stride_ * std::uint64_t{shape.height};
    if (size > UINT32_MAX) throw CodecFailure("it is too large for the format bmp");
    blockRows_ = std::clamp<std::size_t>(kBmpBlock / stride_, 1, shape.height);
    block_.resize(blockRows_ * stride_);

    Data header{'B', 'M'};
    appendField(header, static_cast<std::uint32_t>(size), 4);
    appendField(header, 0, 4);
    appendField(header, dataAt_, 4);
    appendField(header, kHeaderSize - 14, 4);
    appendField(header, shape.width, 4);
    appendField(header, shape.height, 4);
    appendField(header, 1, 2);
    appendField(header, static_cast<std::uint32_t>(shape.channels() * 8), 2);
    appendField(header, 0, 4);
    appendField(header, static_cast<std::uint32_t>(size - dataAt_), 4);
    const Density density = notes.density.value_or(Density{});
    appendField(header, static_cast<std::uint32_t>(std::lround(density.across * kInchesPerMetre)),
                4);
    appendField(header, static_cast<std::uint32_t>(std::lround(density.down * kInchesPerMetre)), 4);
    appendField(header, gray ? kPaletteColours : 0, 4);
    appendField(header, 0, 4);
    for (std::uint32_t level = 0; gray && level < kPaletteColours; ++level) {
      appendField(header, level * 0x010101, 4);
    }
    file_.writeOrFail(header.data(), header.size());
  }

  void write(const std::uint8_t* row) override {
    std::uint8_t* const out = block_.data() + (blockRows_ - 1 - gathered_) * stride_;
    if (shape_.colour == Colour::gray) {
      std::copy_n(row, shape_.width, out);
    } else {
      for (std::size_t at = 0; at < shape_.bytesPerRow(); at += 3) {
        out[at] = row[at + 2];
        out[at + 1] = row[at + 1];
        out[at + 2] = row[at];
      }
    }
    ++gathered_;
    ++rows_;
    if (gathered_ == blockRows_) writeBlock();
  }

  void finish() override {
    writeBlock();
    file_.flushOrFail();
  }

 private:
  void writeBlock() {
    if (gathered_ == 0) return;
    const std::uint64_t place = dataAt_ + (shape_.height - rows_) * std::uint64_t{stride_};
    file_.seek(static_cast<std::int64_t>(place), SEEK_SET);
    file_.writeOrFail(block_.data() + (blockRows_ - gathered_) * stride_, gathered_ * stride_);
    gathered_ = 0;
  }

  OutputStream& file_;
  PictureShape shape_;
  std::size_t stride_;
  std::uint32_t dataAt_ = 0;
  Data block_;
  std::size_t blockRows_ = 0;
  std::size_t gathered_ = 0;
  std::uint32_t rows_ = 0;
};

}  // namespace

std::unique_ptr<RowWriter> writeBmpRows(OutputStream& file, const PictureShape& shape,
                                        const PictureNotes& notes) {
  return std::make_unique<BmpWriter>(file, shape, notes);
}

}  // namespace tervano
