#include "tools/images/codecs/pdf_document.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdio>

namespace tervano {

namespace {

constexpr int kPdfCompression = 3;
constexpr std::size_t kPdfBlock = std::size_t{64} << 10;
constexpr double kPointsPerInch = 72;
// No page of a document may be longer.
constexpr double kLongestSide = 14400;

std::string number(double value) {
  constexpr int kDigits = 4;
  std::array<char, 64> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                 std::chars_format::fixed, kDigits);
  return {text.data(), end.ptr};
}

std::string reference(int object) {
  return std::to_string(object) + " 0 R";
}

// A compressed stream, piece by piece.
class Deflater {
 public:
  Deflater() {
    if (deflateInit(&stream_, kPdfCompression) != Z_OK) throw CodecFailure(kTooLarge);
  }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;
  ~Deflater() { deflateEnd(&stream_); }

  // Calls `take` with what has become ready.
  template <typename Take>
  void add(const Data& bytes, bool last, const Take& take) {
    stream_.next_in = const_cast<Bytef*>(bytes.data());
    stream_.avail_in = static_cast<uInt>(bytes.size());
    do {
      stream_.next_out = block_.data();
      stream_.avail_out = static_cast<uInt>(block_.size());
      deflate(&stream_, last ? Z_FINISH : Z_NO_FLUSH);
      take(block_.data(), block_.size() - stream_.avail_out);
    } while (stream_.avail_out == 0);
  }

 private:
  z_stream stream_{};
  Data block_ = Data(kPdfBlock);
};

// Rows as PNG's predictors take them, each by the difference to the one above.
class Predictor {
 public:
  explicit Predictor(std::size_t size) : previous_(size), filtered_(size + 1) {
    constexpr std::uint8_t kUp = 2;
    filtered_[0] = kUp;
  }

  const Data& filter(const std::uint8_t* row) {
    for (std::size_t index = 0; index < previous_.size(); ++index) {
      filtered_[index + 1] = static_cast<std::uint8_t>(row[index] - previous_[index]);
      previous_[index] = row[index];
    }
    return filtered_;
  }

 private:
  Data previous_;
  Data filtered_;
};

std::string filterEntries(const PictureShape& shape, int channels) {
  return "/Filter /FlateDecode /DecodeParms << /Predictor 15 /Colors " + std::to_string(channels) +
         " /BitsPerComponent " + std::to_string(shape.bits) + " /Columns " +
         std::to_string(shape.width) + " >>";
}

std::string imageEntries(const PictureShape& shape, const std::string& colourSpace) {
  return "/Type /XObject /Subtype /Image /Width " + std::to_string(shape.width) + " /Height " +
         std::to_string(shape.height) + " /BitsPerComponent " + std::to_string(shape.bits) +
         " /ColorSpace " + colourSpace;
}

// How the unit square, where a picture is drawn, is turned into an upright one.
const char* matrixOf(int orientation) {
  switch (orientation) {
    case 2:
      return "-1 0 0 1 1 0";
    case 3:
      return "-1 0 0 -1 1 1";
    case 4:
      return "1 0 0 -1 0 1";
    case 5:
      return "0 -1 -1 0 1 1";
    case 6:
      return "0 -1 1 0 0 1";
    case 7:
      return "0 1 1 0 0 0";
    case 8:
      return "0 1 -1 0 1 0";
    default:
      return "1 0 0 1 0 0";
  }
}

}  // namespace

// A page whose picture is being written. Alpha is gathered, compressed, as a picture of its own.
class PdfDocument::Page : public RowWriter {
 public:
  Page(PdfDocument& document, const PictureShape& shape, const PictureNotes& notes)
      : document_(document),
        shape_(shape),
        notes_(notes),
        sampleSize_(static_cast<std::size_t>(shape.bits / 8)),
        colours_(static_cast<std::size_t>(shape.colourChannels()) * sampleSize_ * shape.width),
        alphas_(shape.alpha ? sampleSize_ * shape.width : 0),
        colourPredictor_(colours_.size()),
        alphaPredictor_(alphas_.size()) {
    const std::string space = document_.colourSpace(shape, notes);
    image_ = document_.reserve();
    length_ = document_.reserve();
    if (shape.alpha) mask_ = document_.reserve();
    document_.beginObject(image_);
    document_.write("<< " + imageEntries(shape, space) + " " +
                    filterEntries(shape, shape.colourChannels()) +
                    (shape.alpha ? " /SMask " + reference(mask_) : "") + " /Length " +
                    reference(length_) + " >>\nstream\n");
    begin_ = document_.file_.position();
  }

  void write(const std::uint8_t* row) override {
    split(row);
    addColours(colourPredictor_.filter(colours_.data()), false);
    if (shape_.alpha) addAlphas(alphaPredictor_.filter(alphas_.data()), false);
  }

  void finish() override {
    addColours({}, true);
    const std::uint64_t length = document_.file_.position() - begin_;
    document_.write("\nendstream");
    document_.endObject();
    document_.beginObject(length_);
    document_.write(std::to_string(length));
    document_.endObject();
    if (shape_.alpha) {
      addAlphas({}, true);
      document_.beginObject(mask_);
      document_.write("<< " + imageEntries(shape_, "/DeviceGray") + " " + filterEntries(shape_, 1) +
                      " /Length " + std::to_string(maskData_.size()) + " >>\nstream\n");
      document_.file_.writeOrFail(maskData_.data(), maskData_.size());
      document_.write("\nendstream");
      document_.endObject();
    }
    document_.writePage(shape_, notes_, 1, image_);
  }

 private:
  // Into colours and alpha; numbers of 16 bits are big-endian there.
  void split(const std::uint8_t* row) {
    const auto colourCount = static_cast<std::size_t>(shape_.colourChannels());
    std::uint8_t* colour = colours_.data();
    std::uint8_t* alpha = alphas_.data();
    const auto put = [&](std::uint8_t*& to) {
      if (sampleSize_ == 2 && std::endian::native == std::endian::little) {
        *to++ = row[1];
        *to++ = row[0];
      } else {
        to = std::copy_n(row, sampleSize_, to);
      }
      row += sampleSize_;
    };
    for (std::uint32_t pixel = 0; pixel < shape_.width; ++pixel) {
      for (std::size_t channel = 0; channel < colourCount; ++channel) put(colour);
      if (shape_.alpha) put(alpha);
    }
  }

  void addColours(const Data& bytes, bool last) {
    colourDeflater_.add(bytes, last, [this](const std::uint8_t* ready, std::size_t count) {
      document_.file_.writeOrFail(ready, count);
    });
  }

  void addAlphas(const Data& bytes, bool last) {
    alphaDeflater_.add(bytes, last, [this](const std::uint8_t* ready, std::size_t count) {
      maskData_.insert(maskData_.end(), ready, ready + count);
    });
  }

  PdfDocument& document_;
  PictureShape shape_;
  PictureNotes notes_;
  std::size_t sampleSize_;
  Data colours_;
  Data alphas_;
  Predictor colourPredictor_;
  Predictor alphaPredictor_;
  Deflater colourDeflater_;
  Deflater alphaDeflater_;
  Data maskData_;
  int image_ = 0;
  int length_ = 0;
  int mask_ = 0;
  std::uint64_t begin_ = 0;
};

PdfDocument::PdfDocument(OutputStream& file) : file_(file) {
  // Four bytes beyond ASCII tell programs that copy files that this one is binary.
  write("%PDF-1.5\n%\xe2\xe3\xcf\xd3\n");
  reserve();
  reserve();
}

int PdfDocument::reserve() {
  objects_.push_back(0);
  return static_cast<int>(objects_.size());
}

void PdfDocument::beginObject(int number) {
  objects_[static_cast<std::size_t>(number) - 1] = file_.position();
  write(std::to_string(number) + " 0 obj\n");
}

int PdfDocument::writeStream(const std::string& entries, const Data& content) {
  const int number = reserve();
  beginObject(number);
  write("<< " + entries + " /Length " + std::to_string(content.size()) + " >>\nstream\n");
  file_.writeOrFail(content.data(), content.size());
  write("\nendstream");
  endObject();
  return number;
}

std::string PdfDocument::colourSpace(const PictureShape& shape, const PictureNotes& notes) {
  std::string device = shape.colour == Colour::gray  ? "/DeviceGray"
                       : shape.colour == Colour::rgb ? "/DeviceRGB"
                                                     : "/DeviceCMYK";
  if (!profileFits(notes.profile, shape.colour)) return device;
  const int profile = writeStream(
      "/N " + std::to_string(shape.colourChannels()) + " /Alternate " + device, notes.profile);
  return "[/ICCBased " + reference(profile) + "]";
}

std::unique_ptr<RowWriter> PdfDocument::addPage(const PictureShape& shape,
                                                const PictureNotes& notes) {
  return std::make_unique<Page>(*this, shape, notes);
}

void PdfDocument::addJpegPage(const PictureShape& shape, const PictureNotes& notes, int orientation,
                              InputStream& jpeg) {
  const std::string space = colourSpace(shape, notes);
  const int image = reserve();
  beginObject(image);
  write("<< " + imageEntries(shape, space) + " /Filter /DCTDecode /Length " +
        std::to_string(jpeg.size()) + " >>\nstream\n");
  Data block(kPdfBlock);
  jpeg.seek(0, SEEK_SET);
  std::uint64_t copied = 0;
  while (copied < jpeg.size()) {
    const std::int64_t count = jpeg.read(block.data(), block.size());
    if (count <= 0) break;
    file_.writeOrFail(block.data(), static_cast<std::size_t>(count));
    copied += static_cast<std::uint64_t>(count);
  }
  if (copied != jpeg.size()) {
    if (jpeg.code() != 0) failWithCode(jpeg.code());
    failAsDamaged("");
  }
  write("\nendstream");
  endObject();
  writePage(shape, notes, orientation, image);
}

void PdfDocument::writePage(const PictureShape& shape, const PictureNotes& notes, int orientation,
                            int image) {
  const Density density = notes.density.value_or(Density{kPointsPerInch, kPointsPerInch});
  double width = shape.width * kPointsPerInch / density.across;
  double height = shape.height * kPointsPerInch / density.down;
  constexpr int kFirstTurned = 5;
  if (orientation >= kFirstTurned) std::swap(width, height);
  const double shrink = std::min(1.0, kLongestSide / std::max(width, height));
  width *= shrink;
  height *= shrink;

  const std::string drawing = "q " + number(width) + " 0 0 " + number(height) + " 0 0 cm " +
                              matrixOf(orientation) + " cm /Picture Do Q";
  const int content = writeStream("", Data(drawing.begin(), drawing.end()));
  const int page = reserve();
  beginObject(page);
  write("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + number(width) + " " + number(height) +
        "] /Contents " + reference(content) + " /Resources << /XObject << /Picture " +
        reference(image) + " >> >> >>");
  endObject();
  pages_.push_back(page);
}

void PdfDocument::finish() {
  beginObject(1);
  write("<< /Type /Catalog /Pages 2 0 R >>");
  endObject();
  beginObject(2);
  write("<< /Type /Pages /Count " + std::to_string(pages_.size()) + " /Kids [");
  for (const int page : pages_) write(" " + reference(page));
  write(" ] >>");
  endObject();
  const std::uint64_t table = file_.position();
  const std::string count = std::to_string(objects_.size() + 1);
  write("xref\n0 " + count + "\n0000000000 65535 f \n");
  for (const std::uint64_t offset : objects_) {
    char line[32];
    std::snprintf(line, sizeof line, "%010llu 00000 n \n", static_cast<unsigned long long>(offset));
    write(line);
  }
  write("trailer\n<< /Size " + count + " /Root 1 0 R >>\nstartxref\n" + std::to_string(table) +
        "\n%%EOF\n");
  file_.flushOrFail();
}

}  // namespace tervano
