#include "tools/images/codecs/tiff_rows.h"

#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/images/codecs/exif.h"

namespace tervano {

namespace {

constexpr std::size_t kStripSize = std::size_t{256} << 10;
constexpr tmsize_t kLargestAllocation = tmsize_t{512} << 20;
constexpr std::size_t kLargestTiffNote = std::size_t{16} << 20;
constexpr int kMostPages = 10000;
constexpr double kCentimetresPerInch = 2.54;

struct TiffClose {
  // Nothing is written: whoever writes has flushed.
  void operator()(TIFF* tiff) const { TIFFCleanup(tiff); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffClose>;

tmsize_t readInput(thandle_t file, void* bytes, tmsize_t count) {
  return static_cast<InputStream*>(file)->read(bytes, static_cast<std::size_t>(count));
}
toff_t seekInput(thandle_t file, toff_t offset, int whence) {
  return static_cast<toff_t>(
      static_cast<InputStream*>(file)->seek(static_cast<std::int64_t>(offset), whence));
}
toff_t sizeOfInput(thandle_t file) {
  return static_cast<InputStream*>(file)->size();
}
tmsize_t writeNothing(thandle_t /*file*/, void* /*bytes*/, tmsize_t /*count*/) {
  return 0;
}
tmsize_t readOutput(thandle_t file, void* bytes, tmsize_t count) {
  return static_cast<OutputStream*>(file)->read(bytes, static_cast<std::size_t>(count));
}
tmsize_t writeOutput(thandle_t file, void* bytes, tmsize_t count) {
  return static_cast<OutputStream*>(file)->write(bytes, static_cast<std::size_t>(count)) ? count
                                                                                         : 0;
}
toff_t seekOutput(thandle_t file, toff_t offset, int whence) {
  return static_cast<toff_t>(
      static_cast<OutputStream*>(file)->seek(static_cast<std::int64_t>(offset), whence));
}
toff_t sizeOfOutput(thandle_t file) {
  auto* stream = static_cast<OutputStream*>(file);
  const std::uint64_t position = stream->position();
  const auto end = static_cast<toff_t>(stream->seek(0, SEEK_END));
  stream->seek(static_cast<std::int64_t>(position), SEEK_SET);
  return end;
}
int closeNothing(thandle_t /*file*/) {
  return 0;
}

int keepMessage(TIFF* /*tiff*/, void* message, const char* /*module*/, const char* format,
                va_list arguments) {
  auto* text = static_cast<std::string*>(message);
  std::array<char, 256> buffer{};
  if (text->empty() && std::vsnprintf(buffer.data(), buffer.size(), format, arguments) > 0) {
    *text = buffer.data();
  }
  return 1;
}

int ignoreMessage(TIFF* /*tiff*/, void* /*data*/, const char* /*module*/, const char* /*format*/,
                  va_list /*arguments*/) {
  return 1;
}

struct Options {
  explicit Options(std::string* message) : options(TIFFOpenOptionsAlloc()) {
    if (options == nullptr) return;
    TIFFOpenOptionsSetErrorHandlerExtR(options, keepMessage, message);
    TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreMessage, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, kLargestAllocation);
  }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;
  ~Options() { TIFFOpenOptionsFree(options); }
  TIFFOpenOptions* options;
};

TiffPtr openInput(InputStream& file, std::string& message) {
  const Options options(&message);
  file.seek(0, SEEK_SET);
  // Mapped memory would end the process when somebody cuts the file.
  return TiffPtr(TIFFClientOpenExt("picture", "rm", &file, readInput, writeNothing, seekInput,
                                   closeNothing, sizeOfInput, nullptr, nullptr, options.options));
}

template <typename Number>
Number number(TIFF* tiff, std::uint32_t tag, Number otherwise) {
  Number value = otherwise;
  return TIFFGetFieldDefaulted(tiff, tag, &value) == 1 ? value : otherwise;
}

Data bytes(TIFF* tiff, std::uint32_t tag) {
  std::uint32_t count = 0;
  const void* first = nullptr;
  if (TIFFGetField(tiff, tag, &count, &first) != 1 || first == nullptr ||
      count > kLargestTiffNote) {
    return {};
  }
  const auto* begin = static_cast<const std::uint8_t*>(first);
  return {begin, begin + count};
}

std::optional<Density> densityOf(TIFF* tiff) {
  float across = 0;
  float down = 0;
  if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &across) != 1 ||
      TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &down) != 1) {
    return std::nullopt;
  }
  switch (number<std::uint16_t>(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH)) {
    case RESUNIT_INCH:
      return densityPerInch(across, down);
    case RESUNIT_CENTIMETER:
      return densityPerInch(across * kCentimetresPerInch, down * kCentimetresPerInch);
    default:
      return std::nullopt;
  }
}

bool isPreview(TIFF* tiff) {
  std::uint32_t kind = 0;
  return TIFFGetField(tiff, TIFFTAG_SUBFILETYPE, &kind) == 1 &&
         (kind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) != 0;
}

bool isCameraRaw(TIFF* tiff, InputStream& file) {
  std::array<char, 10> head{};
  const void* version = nullptr;
  return (file.readAt(0, head.data(), head.size()) && std::memcmp(head.data() + 8, "CR", 2) == 0) ||
         TIFFGetField(tiff, TIFFTAG_DNGVERSION, &version) == 1;
}

bool keepsEverySample(std::uint16_t compression) {
  switch (compression) {
    case COMPRESSION_NONE:
    case COMPRESSION_LZW:
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
    case COMPRESSION_PACKBITS:
    case COMPRESSION_ZSTD:
    case COMPRESSION_LZMA:
      return true;
    default:
      return false;
  }
}

class TiffReader : public RowReader {
 public:
  explicit TiffReader(InputStream& file) : file_(file) {}

  bool open() {
    tiff_ = openInput(file_, message_);
    if (tiff_ == nullptr) fail();
    TIFF* const tiff = tiff_.get();
    if (isPreview(tiff) || isCameraRaw(tiff, file_)) return false;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t photometric = 0;
    if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) != 1 ||
        TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height) != 1 ||
        TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric) != 1 || TIFFIsTiled(tiff) != 0) {
      return false;
    }
    std::uint16_t extraCount = 0;
    std::uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    const auto bits = number<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    const auto samples = number<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    const int colours = photometric == PHOTOMETRIC_RGB ? 3 : 1;
    const bool alpha = extraCount == 1 && extra[0] == EXTRASAMPLE_UNASSALPHA;
    if ((photometric != PHOTOMETRIC_RGB && photometric != PHOTOMETRIC_MINISBLACK) ||
        (bits != 8 && bits != 16) || (extraCount != 0 && !alpha) ||
        samples != colours + (alpha ? 1 : 0) ||
        number<std::uint16_t>(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) !=
            PLANARCONFIG_CONTIG ||
        number<std::uint16_t>(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) != SAMPLEFORMAT_UINT ||
        !keepsEverySample(number<std::uint16_t>(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE))) {
      return false;
    }
    shape_ = {width, height, colours == 3 ? Colour::rgb : Colour::gray, alpha, bits};
    if (static_cast<std::size_t>(TIFFScanlineSize64(tiff)) != shape_.bytesPerRow()) return false;
    orientation_ = std::clamp<int>(number<std::uint16_t>(tiff, TIFFTAG_ORIENTATION, 1), 1, 8);
    notes_ = {bytes(tiff, TIFFTAG_ICCPROFILE), exifOfTiff(file_, TIFFCurrentDirOffset(tiff)),
              bytes(tiff, TIFFTAG_XMLPACKET), bytes(tiff, TIFFTAG_PHOTOSHOP), densityOf(tiff)};
    return true;
  }

  void read(std::uint8_t* row) override {
    if (TIFFReadScanline(tiff_.get(), row, row_++, 0) != 1) fail();
  }

 private:
  [[noreturn]] void fail() {
    if (file_.code() != 0) failWithCode(file_.code());
    failAsDamaged(message_);
  }

  InputStream& file_;
  std::string message_;
  TiffPtr tiff_;
  std::uint32_t row_ = 0;
};

class TiffWriter : public RowWriter {
 public:
  TiffWriter(OutputStream& file, const PictureShape& shape, const PictureNotes& notes)
      : file_(file), row_(shape.bytesPerRow()), exif_(notes.exif) {
    // What may grow beyond four gigabytes has to be a big TIFF: noise becomes half as large again.
    constexpr std::uint64_t kClassicLimit = std::uint64_t{5} << 29;
    const Options options(&message_);
    big_ = shape.bytesPerRow() * std::uint64_t{shape.height} > kClassicLimit;
    tiff_.reset(TIFFClientOpenExt("picture", big_ ? "wl8" : "wl", &file, readOutput, writeOutput,
                                  seekOutput, closeNothing, sizeOfOutput, nullptr, nullptr,
                                  options.options));
    TIFF* const tiff = tiff_.get();
    check(tiff != nullptr);
    const auto rows = std::clamp<std::size_t>(kStripSize / row_.size(), 1, shape.height);
    check(TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, shape.width) == 1 &&
          TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, shape.height) == 1 &&
          TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, shape.bits) == 1 &&
          TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, shape.channels()) == 1 &&
          TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == 1 &&
          TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) == 1 &&
          TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW) == 1 &&
          TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) == 1 &&
          TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(rows)) == 1 &&
          TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                       shape.colour == Colour::gray  ? PHOTOMETRIC_MINISBLACK
                       : shape.colour == Colour::rgb ? PHOTOMETRIC_RGB
                                                     : PHOTOMETRIC_SEPARATED) == 1);
    if (shape.alpha) {
      const std::uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
      check(TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &alpha) == 1);
    }
    if (profileFits(notes.profile, shape.colour)) setBytes(TIFFTAG_ICCPROFILE, notes.profile);
    setBytes(TIFFTAG_XMLPACKET, notes.xmp);
    setBytes(TIFFTAG_PHOTOSHOP, notes.photoshop);
    if (notes.density) {
      TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
      TIFFSetField(tiff, TIFFTAG_XRESOLUTION, notes.density->across);
      TIFFSetField(tiff, TIFFTAG_YRESOLUTION, notes.density->down);
    }
    for (const auto& [tag, text] : exif_.texts()) TIFFSetField(tiff, tag, text.c_str());
  }

  void write(const std::uint8_t* row) override {
    // The library may turn the bytes of its rows.
    std::copy_n(row, row_.size(), row_.begin());
    check(TIFFWriteScanline(tiff_.get(), row_.data(), rows_++, 0) == 1);
  }

  void finish() override {
    check(TIFFFlushData(tiff_.get()) == 1);
    if (!big_) {
      appendDirectory(TIFFTAG_EXIFIFD, &ExifForTiff::exifDirectory);
      appendDirectory(TIFFTAG_GPSIFD, &ExifForTiff::gpsDirectory);
    }
    check(TIFFWriteDirectory(tiff_.get()) == 1);
    file_.flushOrFail();
  }

 private:
  void check(bool succeeded) {
    if (succeeded) return;
    if (file_.code() != 0) failWithCode(file_.code());
    throw CodecFailure("the TIFF cannot be written (" + message_ + ")");
  }

  void setBytes(std::uint32_t tag, const Data& note) {
    if (note.empty()) return;
    TIFFSetField(tiff_.get(), tag, static_cast<std::uint32_t>(note.size()), note.data());
  }

  void appendDirectory(std::uint32_t tag, Data (ExifForTiff::*directory)(std::uint32_t) const) {
    std::int64_t end = file_.seek(0, SEEK_END);
    if (end % 2 != 0) {
      file_.writeOrFail("", 1);
      ++end;
    }
    const Data content = (exif_.*directory)(static_cast<std::uint32_t>(end));
    if (content.empty() || end + static_cast<std::int64_t>(content.size()) > UINT32_MAX) return;
    file_.writeOrFail(content.data(), content.size());
    check(TIFFSetField(tiff_.get(), tag, static_cast<std::uint64_t>(end)) == 1);
  }

  OutputStream& file_;
  std::string message_;
  TiffPtr tiff_;
  Data row_;
  ExifForTiff exif_;
  bool big_ = false;
  std::uint32_t rows_ = 0;
};

}  // namespace

std::unique_ptr<RowReader> openTiffRows(InputStream& file) {
  auto reader = std::make_unique<TiffReader>(file);
  if (!reader->open()) return nullptr;
  return reader;
}

std::unique_ptr<RowWriter> writeTiffRows(OutputStream& file, const PictureShape& shape,
                                         const PictureNotes& notes) {
  return std::make_unique<TiffWriter>(file, shape, notes);
}

std::vector<TiffPage> tiffPages(InputStream& file, std::size_t most) {
  std::string message;
  const TiffPtr tiff = openInput(file, message);
  if (tiff == nullptr) failAsDamaged(message);
  std::vector<TiffPage> pages;
  for (int directory = 0;; ++directory) {
    if (isCameraRaw(tiff.get(), file)) return {};
    if (!isPreview(tiff.get())) {
      pages.push_back({directory, exifOfTiff(file, TIFFCurrentDirOffset(tiff.get()))});
    }
    if (pages.size() == most || TIFFLastDirectory(tiff.get()) != 0) return pages;
    if (directory == kMostPages) throw CodecFailure("it has too many pages");
    if (TIFFReadDirectory(tiff.get()) != 1) failAsDamaged(message);
  }
}

}  // namespace tervano
