#include "platform/linux/pictures/picture_codec.h"

#include <cairo.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <librsvg/rsvg.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "platform/linux/bitmap_scaling.h"
#include "platform/linux/desktop_image_codec.h"
#include "platform/linux/glib_handles.h"

namespace tervano {

namespace {

enum class Format { unknown, tiff, svg, png, jpeg, gif, bmp, ico, webp };

constexpr std::size_t kChannels = 4;

bool isAcceptableSize(std::int64_t width, std::int64_t height) {
  return width > 0 && height > 0 && width <= DesktopImageCodec::kMaximumPixels &&
         height <= DesktopImageCodec::kMaximumPixels / width;
}

bool beginsWith(const Data& encoded, std::string_view magic, std::size_t offset = 0) {
  return encoded.size() >= offset + magic.size() &&
         std::memcmp(encoded.data() + offset, magic.data(), magic.size()) == 0;
}

// An SVG is XML whose root element is "svg", perhaps after comments, or gzipped XML.
bool looksLikeDrawing(const Data& encoded) {
  constexpr std::size_t kLookedAt = 4096;
  const std::string_view text(reinterpret_cast<const char*>(encoded.data()),
                              std::min(encoded.size(), kLookedAt));
  const auto start = text.find_first_not_of("\xef\xbb\xbf \t\r\n");
  if (start == std::string_view::npos || text[start] != '<') return false;
  const auto root = text.find("<svg");
  if (root != std::string_view::npos) return true;
  return text.find(":svg") != std::string_view::npos;
}

Format formatOf(const Data& encoded) {
  using namespace std::string_view_literals;
  if (beginsWith(encoded, "II*\0"sv) || beginsWith(encoded, "MM\0*"sv) ||
      beginsWith(encoded, "II+\0"sv) || beginsWith(encoded, "MM\0+"sv)) {
    return Format::tiff;
  }
  if (beginsWith(encoded, "\x89PNG\r\n\x1a\n"sv)) return Format::png;
  if (beginsWith(encoded, "\xff\xd8\xff"sv)) return Format::jpeg;
  if (beginsWith(encoded, "GIF87a"sv) || beginsWith(encoded, "GIF89a"sv)) return Format::gif;
  if (beginsWith(encoded, "RIFF"sv) && beginsWith(encoded, "WEBP"sv, 8)) return Format::webp;
  if (beginsWith(encoded, "\0\0\1\0"sv) || beginsWith(encoded, "\0\0\2\0"sv)) return Format::ico;
  if (beginsWith(encoded, "BM"sv)) return Format::bmp;
  if (looksLikeDrawing(encoded)) return Format::svg;
  return Format::unknown;
}

Bitmap straightFromPremultiplied(Bitmap bitmap) {
  for (std::size_t i = 0; i < bitmap.pixels.size(); i += kChannels) {
    const unsigned alpha = bitmap.pixels[i + 3];
    if (alpha == 255) continue;
    for (std::size_t channel = i; channel < i + 3; ++channel) {
      const unsigned value = bitmap.pixels[channel];
      bitmap.pixels[channel] = static_cast<std::uint8_t>(
          alpha == 0 ? 0 : std::min(255U, (value * 255 + alpha / 2) / alpha));
    }
  }
  return bitmap;
}

// ---- TIFF

struct MemoryFile {
  const Data* readable = nullptr;
  Data* writable = nullptr;
  std::uint64_t position = 0;

  const Data& bytes() const { return writable != nullptr ? *writable : *readable; }
};

tmsize_t readMemory(thandle_t handle, void* buffer, tmsize_t count) {
  auto* file = static_cast<MemoryFile*>(handle);
  const Data& bytes = file->bytes();
  if (count <= 0 || file->position >= bytes.size()) return 0;
  const auto taken =
      std::min<std::uint64_t>(static_cast<std::uint64_t>(count), bytes.size() - file->position);
  std::memcpy(buffer, bytes.data() + file->position, taken);
  file->position += taken;
  return static_cast<tmsize_t>(taken);
}

tmsize_t writeMemory(thandle_t handle, void* buffer, tmsize_t count) {
  auto* file = static_cast<MemoryFile*>(handle);
  if (file->writable == nullptr || count <= 0) return 0;
  const auto end = file->position + static_cast<std::uint64_t>(count);
  if (end > file->writable->size()) file->writable->resize(end);
  std::memcpy(file->writable->data() + file->position, buffer, static_cast<std::size_t>(count));
  file->position = end;
  return count;
}

toff_t seekMemory(thandle_t handle, toff_t offset, int whence) {
  auto* file = static_cast<MemoryFile*>(handle);
  if (whence == SEEK_CUR) offset += file->position;
  if (whence == SEEK_END) offset += file->bytes().size();
  file->position = offset;
  return offset;
}

int closeMemory(thandle_t /*handle*/) {
  return 0;
}

toff_t sizeOfMemory(thandle_t handle) {
  return static_cast<MemoryFile*>(handle)->bytes().size();
}

int ignoreMessage(TIFF* /*tiff*/, void* /*data*/, const char* /*module*/, const char* /*format*/,
                  va_list /*arguments*/) {
  return 1;
}

struct TiffClose {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffClose>;

// `mode` "r" or "w"; 'm' keeps libtiff from mapping memory.
TiffPtr openTiff(MemoryFile& file, const char* mode) {
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  if (options == nullptr) return nullptr;
  TIFFOpenOptionsSetErrorHandlerExtR(options, ignoreMessage, nullptr);
  TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreMessage, nullptr);
  TiffPtr tiff(TIFFClientOpenExt("memory", mode, &file, readMemory, writeMemory, seekMemory,
                                 closeMemory, sizeOfMemory, nullptr, nullptr, options));
  TIFFOpenOptionsFree(options);
  return tiff;
}

std::optional<std::pair<int, int>> sizeOfTiff(TIFF* tiff) {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) != 1 ||
      TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height) != 1 || !isAcceptableSize(width, height)) {
    return std::nullopt;
  }
  return std::pair(static_cast<int>(width), static_cast<int>(height));
}

// Whether the rows are just what a Bitmap holds. libtiff's own conversion multiplies by alpha.
bool hasStraightRows(TIFF* tiff) {
  std::uint16_t bits = 0;
  std::uint16_t samples = 0;
  std::uint16_t planes = 0;
  std::uint16_t photometric = 0;
  std::uint16_t orientation = 0;
  std::uint16_t extraCount = 0;
  std::uint16_t* extra = nullptr;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planes);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
  return TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric) == 1 && bits == 8 &&
         samples == kChannels && planes == PLANARCONFIG_CONTIG && photometric == PHOTOMETRIC_RGB &&
         orientation == ORIENTATION_TOPLEFT && extraCount == 1 &&
         extra[0] == EXTRASAMPLE_UNASSALPHA && TIFFIsTiled(tiff) == 0;
}

std::optional<Bitmap> decodeTiff(const Data& encoded) {
  MemoryFile file;
  file.readable = &encoded;
  const TiffPtr tiff = openTiff(file, "rm");
  if (tiff == nullptr) return std::nullopt;
  const auto size = sizeOfTiff(tiff.get());
  if (!size) return std::nullopt;
  // A strip or tile of a hostile file may claim more than the picture has.
  constexpr std::uint64_t kLargestBlock = 4 * DesktopImageCodec::kMaximumPixels;
  if ((TIFFIsTiled(tiff.get()) != 0 ? TIFFTileSize64(tiff.get()) : TIFFStripSize64(tiff.get())) >
      kLargestBlock) {
    return std::nullopt;
  }
  Bitmap bitmap = Bitmap::blank(size->first, size->second);
  if (hasStraightRows(tiff.get())) {
    const auto row = static_cast<std::size_t>(size->first) * kChannels;
    if (TIFFScanlineSize64(tiff.get()) != row) return std::nullopt;
    for (int y = 0; y < size->second; ++y) {
      if (TIFFReadScanline(tiff.get(), bitmap.pixels.data() + static_cast<std::size_t>(y) * row,
                           static_cast<std::uint32_t>(y), 0) != 1) {
        return std::nullopt;
      }
    }
    return bitmap;
  }
  static_assert(std::endian::native == std::endian::little, "libtiff packs ABGR into 32-bit words");
  if (TIFFReadRGBAImageOriented(tiff.get(), static_cast<std::uint32_t>(size->first),
                                static_cast<std::uint32_t>(size->second),
                                reinterpret_cast<std::uint32_t*>(bitmap.pixels.data()),
                                ORIENTATION_TOPLEFT, 1) != 1) {
    return std::nullopt;
  }
  return straightFromPremultiplied(std::move(bitmap));
}

// ---- SVG

GObjectPtr<RsvgHandle> openDrawing(const Data& encoded) {
  if (encoded.size() > DesktopImageCodec::kMaximumDrawingBytes) return nullptr;
  // Without a base address no other file is read.
  return GObjectPtr<RsvgHandle>(rsvg_handle_new_from_data(encoded.data(), encoded.size(), nullptr));
}

std::optional<std::pair<int, int>> sizeOfDrawing(RsvgHandle* drawing) {
  constexpr double kDefaultSize = 16;
  double width = 0;
  double height = 0;
  if (!rsvg_handle_get_intrinsic_size_in_pixels(drawing, &width, &height)) {
    gboolean hasViewBox = FALSE;
    RsvgRectangle viewBox{};
    rsvg_handle_get_intrinsic_dimensions(drawing, nullptr, nullptr, nullptr, nullptr, &hasViewBox,
                                         &viewBox);
    width = hasViewBox ? viewBox.width : kDefaultSize;
    height = hasViewBox ? viewBox.height : kDefaultSize;
  }
  if (!(width > 0 && height > 0 && width < INT32_MAX && height < INT32_MAX)) return std::nullopt;
  return std::pair(static_cast<int>(std::ceil(width)), static_cast<int>(std::ceil(height)));
}

struct CairoDestroy {
  void operator()(cairo_t* context) const { cairo_destroy(context); }
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};

std::optional<Bitmap> drawDrawing(const Data& encoded, int width, int height) {
  const auto drawing = openDrawing(encoded);
  if (drawing == nullptr) return std::nullopt;
  const std::unique_ptr<cairo_surface_t, CairoDestroy> surface(
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return std::nullopt;
  const std::unique_ptr<cairo_t, CairoDestroy> context(cairo_create(surface.get()));
  // The whole drawing fills the bitmap, also when their shapes differ.
  double naturalWidth = width;
  double naturalHeight = height;
  if (const auto natural = sizeOfDrawing(drawing.get())) {
    naturalWidth = natural->first;
    naturalHeight = natural->second;
  }
  cairo_scale(context.get(), width / naturalWidth, height / naturalHeight);
  const RsvgRectangle viewport{0, 0, naturalWidth, naturalHeight};
  if (!rsvg_handle_render_document(drawing.get(), context.get(), &viewport, nullptr)) {
    return std::nullopt;
  }
  cairo_surface_flush(surface.get());
  const std::uint8_t* rows = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  Bitmap bitmap = Bitmap::blank(width, height);
  std::uint8_t* out = bitmap.pixels.data();
  for (int y = 0; y < height; ++y) {
    const std::uint8_t* row = rows + static_cast<std::ptrdiff_t>(y) * stride;
    for (int x = 0; x < width; ++x, out += kChannels) {
      std::uint32_t pixel = 0;
      std::memcpy(&pixel, row + static_cast<std::ptrdiff_t>(x) * 4, sizeof pixel);
      out[0] = static_cast<std::uint8_t>(pixel >> 16);
      out[1] = static_cast<std::uint8_t>(pixel >> 8);
      out[2] = static_cast<std::uint8_t>(pixel);
      out[3] = static_cast<std::uint8_t>(pixel >> 24);
    }
  }
  return straightFromPremultiplied(std::move(bitmap));
}

// ---- What gdk-pixbuf reads

const char* loaderNameOf(Format format) {
  switch (format) {
    case Format::png:
      return "png";
    case Format::jpeg:
      return "jpeg";
    case Format::gif:
      return "gif";
    case Format::bmp:
      return "bmp";
    case Format::ico:
      return "ico";
    case Format::webp:
      return "webp";
    default:
      return nullptr;
  }
}

// How many pixels a byte of that format can stand for at most: a file that claims more is cut
// short, and would cost its claim in memory and time.
std::int64_t pixelsPerByteOf(Format format) {
  switch (format) {
    case Format::bmp:
      return 256;
    case Format::gif:
      return 4096;
    default:
      return DesktopImageCodec::kMaximumPixels;
  }
}

struct LoadedSize {
  bool headerOnly = false;
  std::int64_t maximumPixels = DesktopImageCodec::kMaximumPixels;
  // What the result is drawn into; a JPEG is decoded no larger than that needs.
  int wantedWidth = 0;
  int wantedHeight = 0;
  bool shrinksWhileDecoding = false;
  int width = 0;
  int height = 0;
  bool accepted = false;
};

void sizePrepared(GdkPixbufLoader* loader, int width, int height, gpointer data) {
  auto* size = static_cast<LoadedSize*>(data);
  size->width = width;
  size->height = height;
  size->accepted =
      isAcceptableSize(width, height) && std::int64_t{width} * height <= size->maximumPixels;
  if (size->headerOnly || !size->accepted) {
    // Loaders allocate nothing for an empty picture and stop.
    gdk_pixbuf_loader_set_size(loader, 0, 0);
    return;
  }
  if (!size->shrinksWhileDecoding) return;
  int divisor = 1;
  while (divisor < 8 && width / (divisor * 2) >= 2 * size->wantedWidth &&
         height / (divisor * 2) >= 2 * size->wantedHeight) {
    divisor *= 2;
  }
  if (divisor > 1) {
    gdk_pixbuf_loader_set_size(loader, (width + divisor - 1) / divisor,
                               (height + divisor - 1) / divisor);
  }
}

GObjectPtr<GdkPixbuf> loadPixbuf(const Data& encoded, Format format, LoadedSize& size) {
  size.shrinksWhileDecoding = format == Format::jpeg;
  size.maximumPixels = std::min(DesktopImageCodec::kMaximumPixels,
                                static_cast<std::int64_t>(std::min<std::size_t>(
                                    encoded.size(), DesktopImageCodec::kMaximumPixels)) *
                                    pixelsPerByteOf(format));
  const GObjectPtr<GdkPixbufLoader> loader(
      gdk_pixbuf_loader_new_with_type(loaderNameOf(format), nullptr));
  if (loader == nullptr) return nullptr;
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(sizePrepared), &size);
  constexpr std::size_t kChunk = std::size_t{64} << 10;
  bool complete = true;
  for (std::size_t offset = 0; offset < encoded.size() && complete; offset += kChunk) {
    complete = gdk_pixbuf_loader_write(loader.get(), encoded.data() + offset,
                                       std::min(kChunk, encoded.size() - offset), nullptr);
    const bool sizeKnown = size.width > 0;
    if (sizeKnown && (size.headerOnly || !size.accepted)) complete = false;
  }
  if (!gdk_pixbuf_loader_close(loader.get(), nullptr)) complete = false;
  if (!complete) return nullptr;
  GdkPixbuf* pixbuf = gdk_pixbuf_loader_get_pixbuf(loader.get());
  return GObjectPtr<GdkPixbuf>(pixbuf == nullptr ? nullptr
                                                 : GDK_PIXBUF(g_object_ref(G_OBJECT(pixbuf))));
}

std::optional<Bitmap> decodeWithPixbuf(const Data& encoded, Format format, int wantedWidth,
                                       int wantedHeight) {
  LoadedSize size;
  size.wantedWidth = wantedWidth;
  size.wantedHeight = wantedHeight;
  auto pixbuf = loadPixbuf(encoded, format, size);
  if (pixbuf == nullptr) return std::nullopt;
  // A photograph's orientation is part of the picture.
  if (GdkPixbuf* upright = gdk_pixbuf_apply_embedded_orientation(pixbuf.get())) {
    pixbuf.reset(upright);
  }
  const int width = gdk_pixbuf_get_width(pixbuf.get());
  const int height = gdk_pixbuf_get_height(pixbuf.get());
  const int channels = gdk_pixbuf_get_n_channels(pixbuf.get());
  const int stride = gdk_pixbuf_get_rowstride(pixbuf.get());
  const guint8* rows = gdk_pixbuf_read_pixels(pixbuf.get());
  if (!isAcceptableSize(width, height) || channels < 3) return std::nullopt;
  Bitmap bitmap = Bitmap::blank(width, height);
  std::uint8_t* out = bitmap.pixels.data();
  for (int y = 0; y < height; ++y) {
    const guint8* pixel = rows + static_cast<std::ptrdiff_t>(y) * stride;
    for (int x = 0; x < width; ++x, pixel += channels, out += kChannels) {
      std::copy_n(pixel, 3, out);
      out[3] = channels == 4 ? pixel[3] : 255;
    }
  }
  return bitmap;
}

// gdk-pixbuf takes what there is of a picture that ends too early; a PNG tells by its chunks.
bool reachesLastChunk(const Data& png) {
  constexpr std::size_t kSignature = 8;
  constexpr std::size_t kAroundChunk = 12;
  for (std::size_t at = kSignature; at + kAroundChunk <= png.size();) {
    const std::size_t length = std::size_t{png[at]} << 24 | std::size_t{png[at + 1]} << 16 |
                               std::size_t{png[at + 2]} << 8 | png[at + 3];
    if (length > png.size() - at - kAroundChunk) return false;
    if (std::memcmp(png.data() + at + 4, "IEND", 4) == 0) return true;
    at += length + kAroundChunk;
  }
  return false;
}

bool isWhole(const Bitmap& bitmap) {
  return isAcceptableSize(bitmap.width, bitmap.height) &&
         bitmap.pixels.size() == static_cast<std::size_t>(bitmap.width) *
                                     static_cast<std::size_t>(bitmap.height) * kChannels;
}

}  // namespace

std::optional<std::pair<int, int>> PictureCodec::pixelSize(const Data& encoded) const {
  const Format format = formatOf(encoded);
  if (format == Format::tiff) {
    MemoryFile file;
    file.readable = &encoded;
    const TiffPtr tiff = openTiff(file, "rm");
    return tiff == nullptr ? std::nullopt : sizeOfTiff(tiff.get());
  }
  if (format == Format::svg) {
    const auto drawing = openDrawing(encoded);
    return drawing == nullptr ? std::nullopt : sizeOfDrawing(drawing.get());
  }
  if (format == Format::unknown) return std::nullopt;
  LoadedSize size;
  size.headerOnly = true;
  loadPixbuf(encoded, format, size);
  if (!size.accepted) return std::nullopt;
  return std::pair(size.width, size.height);
}

bool PictureCodec::isVector(const Data& encoded) const {
  return formatOf(encoded) == Format::svg;
}

std::optional<Bitmap> PictureCodec::draw(const Data& encoded, int width, int height) const {
  if (!isAcceptableSize(width, height)) return std::nullopt;
  const Format format = formatOf(encoded);
  if (format == Format::unknown) return std::nullopt;
  if (format == Format::svg) return drawDrawing(encoded, width, height);
  if (format == Format::png && !reachesLastChunk(encoded)) return std::nullopt;
  auto bitmap = format == Format::tiff ? decodeTiff(encoded)
                                       : decodeWithPixbuf(encoded, format, width, height);
  if (!bitmap) return std::nullopt;
  if (bitmap->width == width && bitmap->height == height) return bitmap;
  return scaledBitmap(*bitmap, width, height);
}

Data PictureCodec::TIFFRepresentation(const Bitmap& bitmap) const {
  Data bytes;
  if (!isWhole(bitmap)) return bytes;
  MemoryFile file;
  file.writable = &bytes;
  {
    const TiffPtr tiff = openTiff(file, "wl");
    if (tiff == nullptr) return {};
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(bitmap.width));
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(bitmap.height));
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(kChannels));
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(bitmap.height));
    const std::uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(tiff.get(), TIFFTAG_EXTRASAMPLES, 1, &alpha);
    // libtiff takes a buffer that it could change, and changes none for this compression.
    Data pixels = bitmap.pixels;
    if (TIFFWriteEncodedStrip(tiff.get(), 0, pixels.data(), static_cast<tmsize_t>(pixels.size())) <
        0) {
      return {};
    }
  }
  return bytes;
}

Data PictureCodec::PNGRepresentation(const Bitmap& bitmap) const {
  if (!isWhole(bitmap)) return {};
  const GObjectPtr<GdkPixbuf> pixbuf(gdk_pixbuf_new_from_data(
      bitmap.pixels.data(), GDK_COLORSPACE_RGB, TRUE, 8, bitmap.width, bitmap.height,
      bitmap.width * static_cast<int>(kChannels), nullptr, nullptr));
  gchar* buffer = nullptr;
  gsize length = 0;
  if (!gdk_pixbuf_save_to_buffer(pixbuf.get(), &buffer, &length, "png", nullptr, nullptr)) {
    return {};
  }
  const GCharPtr owner(buffer);
  return Data(buffer, buffer + length);
}

}  // namespace tervano

__attribute__((visibility("default"))) const tervano::ImageCodec* tervanoPictureCodec() {
  static const auto* const codec = new tervano::PictureCodec;
  return codec;
}
