#include "tools/images/codecs/png_rows.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <csetjmp>
#include <cstring>
#include <string>
#include <string_view>

#include "tools/images/codecs/exif.h"

namespace tervano {

namespace {

using namespace std::string_view_literals;

// Stronger compression takes far longer for a few percent.
constexpr int kPngCompression = 3;
constexpr std::size_t kPngBlock = std::size_t{64} << 10;
constexpr double kMetresPerInch = 0.0254;
constexpr std::uint64_t kLargestPngNote = std::uint64_t{16} << 20;
constexpr auto kPngXmpName = "XML:com.adobe.xmp\0"sv;

// libpng's errors: a jump out of the library, and the message.
struct PngErrors {
  std::jmp_buf out{};
  char message[128] = "";
};

void leave(png_structp codec, png_const_charp message) {
  auto* errors = static_cast<PngErrors*>(png_get_error_ptr(codec));
  std::strncpy(errors->message, message, sizeof errors->message - 1);
  std::longjmp(errors->out, 1);
}

void ignoreWarning(png_structp /*codec*/, png_const_charp /*message*/) {}

// Calls the library; false when it gave up. Nothing that `call` has on its stack may need a
// destructor.
template <typename Call>
bool pngSucceeds(PngErrors& errors, const Call& call) {
  if (setjmp(errors.out) != 0) return false;
  call();
  return true;
}

void readFile(png_structp codec, png_bytep bytes, std::size_t count) {
  auto* file = static_cast<InputStream*>(png_get_io_ptr(codec));
  if (file->read(bytes, count) != static_cast<std::int64_t>(count)) {
    png_error(codec, "the file ends");
  }
}

void writeFile(png_structp codec, png_bytep bytes, std::size_t count) {
  auto* file = static_cast<OutputStream*>(png_get_io_ptr(codec));
  if (!file->write(bytes, count)) png_error(codec, "the file cannot be written");
}

void flushFile(png_structp /*codec*/) {}

class PngReader : public RowReader {
 public:
  explicit PngReader(InputStream& file) : file_(file) {}
  ~PngReader() override { png_destroy_read_struct(&codec_, &info_, nullptr); }

  bool open() {
    codec_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, &errors_, leave, ignoreWarning);
    if (codec_ != nullptr) info_ = png_create_info_struct(codec_);
    if (info_ == nullptr) throw CodecFailure(kTooLarge);
    const bool opened = pngSucceeds(errors_, [this] {
      png_set_read_fn(codec_, &file_, readFile);
      png_set_user_limits(codec_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
      // Also the profiles that are known to be odd are the picture's own.
      png_set_option(codec_, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
      png_read_info(codec_, info_);
      png_set_expand(codec_);
      if (std::endian::native == std::endian::little) png_set_swap(codec_);
      interlaced_ = png_get_interlace_type(codec_, info_) != PNG_INTERLACE_NONE;
      png_read_update_info(codec_, info_);
    });
    if (!opened) fail();
    if (interlaced_) return false;
    const int type = png_get_color_type(codec_, info_);
    shape_ = {png_get_image_width(codec_, info_), png_get_image_height(codec_, info_),
              (type & PNG_COLOR_MASK_COLOR) != 0 ? Colour::rgb : Colour::gray,
              (type & PNG_COLOR_MASK_ALPHA) != 0, png_get_bit_depth(codec_, info_)};
    if (png_get_rowbytes(codec_, info_) != shape_.bytesPerRow()) return false;
    readNotes();
    return true;
  }

  void read(std::uint8_t* row) override {
    if (!pngSucceeds(errors_, [this, row] {
          png_read_row(codec_, row, nullptr);
          if (++rows_ == shape_.height) png_read_end(codec_, nullptr);
        })) {
      fail();
    }
  }

 private:
  [[noreturn]] void fail() {
    if (file_.code() != 0) failWithCode(file_.code());
    failAsDamaged(errors_.message);
  }

  void readNotes() {
    png_charp name = nullptr;
    int method = 0;
    png_bytep profile = nullptr;
    png_uint_32 length = 0;
    if (png_get_iCCP(codec_, info_, &name, &method, &profile, &length) != 0) {
      notes_.profile.assign(profile, profile + length);
    }
    const double across = png_get_x_pixels_per_meter(codec_, info_);
    const double down = png_get_y_pixels_per_meter(codec_, info_);
    notes_.density = densityPerMetre(across, down);
    readPngNotes(file_, notes_);
    orientation_ = orientationOfExif(notes_.exif);
  }

  InputStream& file_;
  PngErrors errors_;
  png_structp codec_ = nullptr;
  png_infop info_ = nullptr;
  bool interlaced_ = false;
  std::uint32_t rows_ = 0;
};

class PngWriter : public RowWriter {
 public:
  PngWriter(OutputStream& file, const PictureShape& shape, const PictureNotes& notes)
      : file_(file) {
    codec_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, &errors_, leave, ignoreWarning);
    if (codec_ != nullptr) info_ = png_create_info_struct(codec_);
    if (info_ == nullptr) throw CodecFailure(kTooLarge);
    int type = shape.colour == Colour::gray ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB;
    if (shape.alpha) type |= PNG_COLOR_MASK_ALPHA;
    // The library rejects what does not fit its picture.
    const bool keepsProfile = profileFits(notes.profile, shape.colour);
    check(pngSucceeds(errors_, [&] {
      png_set_write_fn(codec_, &file_, writeFile, flushFile);
      png_set_user_limits(codec_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
      png_set_option(codec_, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
      png_set_benign_errors(codec_, 1);
      png_set_compression_level(codec_, kPngCompression);
      png_set_compression_buffer_size(codec_, kPngBlock);
      png_set_IHDR(codec_, info_, shape.width, shape.height, shape.bits, type, PNG_INTERLACE_NONE,
                   PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
      if (keepsProfile) {
        png_set_iCCP(codec_, info_, "ICC profile", PNG_COMPRESSION_TYPE_BASE, notes.profile.data(),
                     static_cast<png_uint_32>(notes.profile.size()));
      }
      if (!notes.exif.empty()) {
        png_set_eXIf_1(codec_, info_, static_cast<png_uint_32>(notes.exif.size()),
                       const_cast<png_bytep>(notes.exif.data()));
      }
      if (notes.density) {
        png_set_pHYs(codec_, info_,
                     static_cast<png_uint_32>(std::lround(notes.density->across / kMetresPerInch)),
                     static_cast<png_uint_32>(std::lround(notes.density->down / kMetresPerInch)),
                     PNG_RESOLUTION_METER);
      }
      png_write_info(codec_, info_);
      if (std::endian::native == std::endian::little && shape.bits == 16) png_set_swap(codec_);
    }));
    if (!notes.xmp.empty()) writeXmp(notes.xmp);
  }
  ~PngWriter() override { png_destroy_write_struct(&codec_, &info_); }

  void write(const std::uint8_t* row) override {
    check(pngSucceeds(errors_, [this, row] { png_write_row(codec_, row); }));
  }

  void finish() override {
    check(pngSucceeds(errors_, [this] { png_write_end(codec_, nullptr); }));
    file_.flushOrFail();
  }

 private:
  void check(bool succeeded) {
    if (succeeded) return;
    if (file_.code() != 0) failWithCode(file_.code());
    throw CodecFailure(std::string("the PNG cannot be written (") + errors_.message + ")");
  }

  // As the XMP specification, part 3, has it: international text, not compressed.
  void writeXmp(const Data& xmp) {
    constexpr auto kPlain = "\0\0\0\0"sv;
    std::string chunk(kPngXmpName);
    chunk += kPlain;
    chunk.append(xmp.begin(), xmp.end());
    constexpr png_byte kName[] = {'i', 'T', 'X', 't', 0};
    check(pngSucceeds(errors_, [&] {
      png_write_chunk(codec_, kName, reinterpret_cast<png_const_bytep>(chunk.data()), chunk.size());
    }));
  }

  OutputStream& file_;
  PngErrors errors_;
  png_structp codec_ = nullptr;
  png_infop info_ = nullptr;
};

// What an iTXt chunk with XMP holds; nothing when it holds something else.
Data xmpOf(const Data& chunk) {
  if (chunk.size() < kPngXmpName.size() + 2 ||
      std::memcmp(chunk.data(), kPngXmpName.data(), kPngXmpName.size()) != 0) {
    return {};
  }
  const bool compressed = chunk[kPngXmpName.size()] != 0;
  // Two texts follow, the language and the translated keyword.
  auto at = chunk.begin() + static_cast<std::ptrdiff_t>(kPngXmpName.size()) + 2;
  for (int text = 0; text < 2; ++text) {
    at = std::find(at, chunk.end(), 0);
    if (at == chunk.end()) return {};
    ++at;
  }
  return compressed ? Data() : Data(at, chunk.end());
}

}  // namespace

std::unique_ptr<RowReader> openPngRows(InputStream& file) {
  auto reader = std::make_unique<PngReader>(file);
  if (!reader->open()) return nullptr;
  return reader;
}

std::unique_ptr<RowWriter> writePngRows(OutputStream& file, const PictureShape& shape,
                                        const PictureNotes& notes) {
  return std::make_unique<PngWriter>(file, shape, notes);
}

void readPngNotes(InputStream& file, PictureNotes& notes) {
  constexpr std::uint64_t kSignature = 8;
  constexpr std::uint64_t kAround = 12;
  std::array<std::uint8_t, 8> head{};
  for (std::uint64_t at = kSignature; file.readAt(at, head.data(), head.size());) {
    const std::uint64_t length = std::uint64_t{head[0]} << 24 | std::uint64_t{head[1]} << 16 |
                                 std::uint64_t{head[2]} << 8 | head[3];
    const std::string_view name(reinterpret_cast<const char*>(head.data()) + 4, 4);
    if (name == "eXIf" && notes.exif.empty()) {
      notes.exif = file.dataAt(at + head.size(), length, kLargestPngNote);
    } else if (name == "iTXt" && notes.xmp.empty()) {
      notes.xmp = xmpOf(file.dataAt(at + head.size(), length, kLargestPngNote));
    } else if (name == "IEND") {
      return;
    }
    at += length + kAround;
  }
}

}  // namespace tervano
