#include "tools/images/codecs/full_load.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "tools/images/codecs/exif.h"
#include "tools/images/codecs/jp2_profile.h"
#include "tools/images/codecs/png_rows.h"
#include "tools/images/codecs/row_steps.h"

namespace tervano {

namespace {

// Scalable pages become pictures of this many pixels an inch.
constexpr double kDocumentDensity = 150;
constexpr std::uint64_t kLargestForPixbuf = std::uint64_t{256} << 20;

// What the library reads by itself. Its other loaders take text and scientific data for pictures,
// or other programs to help.
constexpr std::string_view kLoaders[] = {
    "VipsForeignLoadJpegSource",  "VipsForeignLoadPngSource",  "VipsForeignLoadTiffSource",
    "VipsForeignLoadNsgifSource", "VipsForeignLoadWebpSource", "VipsForeignLoadHeifSource",
    "VipsForeignLoadJp2kSource",  "VipsForeignLoadJxlSource",  "VipsForeignLoadSvgSource",
    "VipsForeignLoadPdfSource",   "VipsForeignLoadPpmSource",  "VipsForeignLoadRadSource",
};

gint64 readSource(VipsSourceCustom* /*source*/, void* bytes, gint64 count, InputStream* file) {
  return file->read(bytes, static_cast<std::size_t>(count));
}

gint64 seekSource(VipsSourceCustom* /*source*/, gint64 offset, int whence, InputStream* file) {
  return file->seek(offset, whence);
}

Data blobOf(VipsImage* image, const char* name) {
  const void* bytes = nullptr;
  std::size_t count = 0;
  if (vips_image_get_typeof(image, name) == 0 ||
      vips_image_get_blob(image, name, &bytes, &count) != 0) {
    vips_error_clear();
    return {};
  }
  const auto* first = static_cast<const std::uint8_t*>(bytes);
  return {first, first + count};
}

Data withoutName(Data data, std::string_view name) {
  if (data.size() >= name.size() && std::memcmp(data.data(), name.data(), name.size()) == 0) {
    data.erase(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(name.size()));
  }
  return data;
}

// The library keeps the XMP of a HEIC or AVIF under the number of its item.
Data xmpOfHeif(VipsImage* image) {
  constexpr std::string_view kNamespace = "adobe:ns:meta";
  constexpr int kMostItems = 100;
  for (int item = 0; item < kMostItems; ++item) {
    Data content = blobOf(image, ("heif-mime-" + std::to_string(item)).c_str());
    if (std::search(content.begin(), content.end(), kNamespace.begin(), kNamespace.end()) !=
        content.end()) {
      return content;
    }
  }
  return {};
}

// ---- What gdk-pixbuf reads

struct PreparedSize {
  PictureFormat target = PictureFormat::png;
  bool known = false;
  std::string complaint;
};

void sizePrepared(GdkPixbufLoader* loader, int width, int height, PreparedSize* size) {
  size->known = true;
  try {
    checkSize(static_cast<std::uint64_t>(std::max(width, 0)),
              static_cast<std::uint64_t>(std::max(height, 0)), size->target);
  } catch (const CodecFailure& failure) {
    size->complaint = failure.what();
    // Loaders allocate nothing for an empty picture and stop.
    gdk_pixbuf_loader_set_size(loader, 0, 0);
  }
}

std::uint32_t littleEndian(const Data& data, std::size_t at, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t index = size; index-- > 0;) value = value << 8 | data[at + index];
  return value;
}

// Whether the pixels of a bitmap that are written as runs reach the mark of their end.
bool runsEnd(const Data& data, std::uint64_t at, bool halfBytes) {
  while (at + 2 <= data.size()) {
    const std::uint8_t count = data[at];
    const std::uint8_t value = data[at + 1];
    at += 2;
    if (count != 0 || value == 0) continue;
    if (value == 1) return true;
    if (value == 2) {
      at += 2;
    } else {
      const std::uint64_t bytes = halfBytes ? (value + 1) / 2 : value;
      at += (bytes + 1) / 2 * 2;
    }
  }
  return false;
}

bool bitmapEndsEarly(const Data& data) {
  enum Compression : std::uint32_t { plain, bytes, halfBytes, bitFields };
  const std::uint64_t begin = littleEndian(data, 10, 4);
  const bool oldHeader = littleEndian(data, 14, 4) == 12;
  const std::uint64_t width = littleEndian(data, 18, oldHeader ? 2 : 4);
  // Negative for rows that begin at the top.
  const auto signedHeight =
      static_cast<std::int32_t>(littleEndian(data, oldHeader ? 20 : 22, oldHeader ? 2 : 4));
  const auto height = static_cast<std::uint64_t>(std::abs(std::int64_t{signedHeight}));
  const std::uint64_t bits = littleEndian(data, oldHeader ? 24 : 28, 2);
  const std::uint32_t compression = oldHeader ? plain : littleEndian(data, 30, 4);
  if (data.size() <= begin || height == 0) return true;
  if (compression == bytes || compression == halfBytes) {
    return !runsEnd(data, begin, compression == halfBytes);
  }
  const std::uint64_t stride = (width * bits + 31) / 32 * 4;
  return (compression == plain || compression == bitFields) &&
         (data.size() - begin) / height < stride;
}

// Of a file that ends too early, its readers make what they can.
bool endsEarly(const Data& data) {
  constexpr std::size_t kBmpHeader = 34;
  if (data.size() >= kBmpHeader && data[0] == 'B' && data[1] == 'M') return bitmapEndsEarly(data);
  constexpr std::size_t kEntry = 16;
  if (data.size() >= 6 && data[0] == 0 && data[1] == 0 && (data[2] == 1 || data[2] == 2) &&
      data[3] == 0) {
    const std::size_t count = littleEndian(data, 4, 2);
    for (std::size_t index = 0; index < count; ++index) {
      const std::size_t entry = 6 + index * kEntry;
      if (entry + kEntry > data.size() ||
          std::uint64_t{littleEndian(data, entry + 8, 4)} + littleEndian(data, entry + 12, 4) >
              data.size()) {
        return true;
      }
    }
  }
  return false;
}

bool isTiff(InputStream& file) {
  std::array<char, 4> magic{};
  return file.readAt(0, magic.data(), magic.size()) &&
         (std::memcmp(magic.data(), "II*\0", 4) == 0 || std::memcmp(magic.data(), "MM\0*", 4) == 0);
}

}  // namespace

void failWithVips(const InputStream& file) {
  if (file.code() != 0) failWithCode(file.code());
  const std::string all = vips_error_buffer();
  vips_error_clear();
  if (all.find("out of memory") != std::string::npos ||
      all.find("Insufficient memory") != std::string::npos) {
    throw CodecFailure(kTooLarge);
  }
  failAsDamaged(all);
}

PictureSource::PictureSource(InputStream& file, PictureFormat target)
    : file_(file), target_(target) {
  const auto probe = source();
  const char* const found = vips_foreign_find_load_source(probe.get());
  vips_error_clear();
  if (found != nullptr &&
      std::find(std::begin(kLoaders), std::end(kLoaders), found) != std::end(kLoaders)) {
    loader_ = found;
  }
  // A TIFF that lacks its directory is one nevertheless.
  if (loader_.empty() && isTiff(file)) loader_ = "VipsForeignLoadTiffSource";
  if (loader_ != "VipsForeignLoadTiffSource") return;
  pages_ = tiffPages(file, target == PictureFormat::pdf ? SIZE_MAX : 1);
  if (pages_.empty()) throw CodecFailure("a camera's raw data cannot be read");
}

GObjectPtr<VipsSource> PictureSource::source() {
  file_.seek(0, SEEK_SET);
  VipsSourceCustom* const custom = vips_source_custom_new();
  g_signal_connect(custom, "read", G_CALLBACK(readSource), &file_);
  g_signal_connect(custom, "seek", G_CALLBACK(seekSource), &file_);
  return GObjectPtr<VipsSource>(VIPS_SOURCE(custom));
}

LoadedPicture PictureSource::load(std::size_t page) {
  if (loader_.empty()) return loadWithPixbuf();
  const auto from = source();
  const bool animation =
      (loader_ == "VipsForeignLoadNsgifSource" || loader_ == "VipsForeignLoadWebpSource") &&
      (target_ == PictureFormat::gif || target_ == PictureFormat::webp);
  VipsImage* image = nullptr;
  if (isDocument()) {
    image = vips_image_new_from_source(from.get(), "", "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                                       VIPS_FAIL_ON_ERROR, "dpi", kDocumentDensity, nullptr);
  } else if (animation) {
    image = vips_image_new_from_source(from.get(), "", "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                                       VIPS_FAIL_ON_ERROR, "n", -1, nullptr);
  } else if (!pages_.empty()) {
    image = vips_image_new_from_source(from.get(), "", "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                                       VIPS_FAIL_ON_ERROR, "page", pages_[page].number, nullptr);
  } else {
    image = vips_image_new_from_source(from.get(), "", "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
                                       VIPS_FAIL_ON_ERROR, nullptr);
  }
  if (image == nullptr) failWithVips(file_);
  LoadedPicture picture;
  picture.image.reset(image);
  checkClaim(image);
  picture.animated = animation && vips_image_get_page_height(image) < vips_image_get_height(image);
  takeNotes(picture, page);
  return picture;
}

void PictureSource::checkClaim(VipsImage* image) const {
  // Twelve bits stand for 4,096 pixels at most.
  constexpr std::uint64_t kMostPerByte = 4096;
  const auto frame = static_cast<std::uint64_t>(vips_image_get_page_height(image)) *
                     static_cast<std::uint64_t>(vips_image_get_width(image));
  if (loader_ == "VipsForeignLoadNsgifSource" && frame / kMostPerByte > file_.size()) {
    failAsDamaged("");
  }
}

void PictureSource::takeNotes(LoadedPicture& picture, std::size_t page) {
  using namespace std::string_view_literals;
  VipsImage* const image = picture.image.get();
  PictureNotes& notes = picture.notes;
  notes.profile = blobOf(image, VIPS_META_ICC_NAME);
  notes.exif = withoutName(blobOf(image, VIPS_META_EXIF_NAME), "Exif\0\0"sv);
  notes.xmp = blobOf(image, VIPS_META_XMP_NAME);
  notes.photoshop = blobOf(image, VIPS_META_PHOTOSHOP_NAME);
  if (const double across = vips_image_get_xres(image); across > 0 && across != 1) {
    constexpr double kMillimetresPerMetre = 1000;
    notes.density = densityPerMetre(across * kMillimetresPerMetre,
                                    vips_image_get_yres(image) * kMillimetresPerMetre);
  }
  if (loader_ == "VipsForeignLoadHeifSource") notes.xmp = xmpOfHeif(image);
  if (loader_ == "VipsForeignLoadPngSource") readPngNotes(file_, notes);
  if (loader_ == "VipsForeignLoadJp2kSource") notes.profile = profileOfJp2(file_);
  if (!pages_.empty()) {
    notes.exif = pages_[page].exif;
    picture.orientation = vips_image_get_orientation(image);
  } else if (loader_ != "VipsForeignLoadHeifSource" && loader_ != "VipsForeignLoadJxlSource") {
    // Those two formats have an orientation of their own, which has been heeded.
    picture.orientation = orientationOfExif(notes.exif);
  }
}

LoadedPicture PictureSource::loadWithPixbuf() {
  if (file_.size() > kLargestForPixbuf) {
    throw CodecFailure("it is no picture of a kind that can be read");
  }
  const Data data = file_.dataAt(0, file_.size(), kLargestForPixbuf);
  if (data.empty()) failWithCode(file_.code() != 0 ? file_.code() : EIO);
  if (endsEarly(data)) failAsDamaged("");
  const GObjectPtr<GdkPixbufLoader> loader(gdk_pixbuf_loader_new());
  PreparedSize size{target_, false, {}};
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(sizePrepared), &size);
  GError* error = nullptr;
  bool complete = gdk_pixbuf_loader_write(loader.get(), data.data(), data.size(), &error) != FALSE;
  complete =
      gdk_pixbuf_loader_close(loader.get(), complete ? &error : nullptr) != FALSE && complete;
  const GErrorPtr errorOwner(error);
  if (!size.complaint.empty()) throw CodecFailure(size.complaint);
  if (error != nullptr && error->domain == GDK_PIXBUF_ERROR &&
      error->code == GDK_PIXBUF_ERROR_INSUFFICIENT_MEMORY) {
    throw CodecFailure(kTooLarge);
  }
  GdkPixbuf* const pixbuf = gdk_pixbuf_loader_get_pixbuf(loader.get());
  if (gdk_pixbuf_loader_get_format(loader.get()) == nullptr || (!complete && !size.known)) {
    throw CodecFailure("it is no picture of a kind that can be read");
  }
  if (!complete || pixbuf == nullptr) {
    failAsDamaged(error == nullptr ? "" : error->message);
  }
  const auto width = static_cast<std::size_t>(gdk_pixbuf_get_width(pixbuf));
  const auto height = static_cast<std::size_t>(gdk_pixbuf_get_height(pixbuf));
  const int bands = gdk_pixbuf_get_n_channels(pixbuf);
  const std::size_t row = width * static_cast<std::size_t>(bands);
  const auto stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(pixbuf));
  Data pixels(row * height);
  for (std::size_t y = 0; y < height; ++y) {
    std::memcpy(pixels.data() + y * row, gdk_pixbuf_read_pixels(pixbuf) + y * stride, row);
  }
  VipsImage* const plain =
      vips_image_new_from_memory_copy(pixels.data(), pixels.size(), static_cast<int>(width),
                                      static_cast<int>(height), bands, VIPS_FORMAT_UCHAR);
  if (plain == nullptr) failWithVips(file_);
  const VipsImagePtr owner(plain);
  LoadedPicture picture;
  VipsImage* image = nullptr;
  if (vips_copy(plain, &image, "interpretation", VIPS_INTERPRETATION_sRGB, nullptr) != 0) {
    failWithVips(file_);
  }
  picture.image.reset(image);
  return picture;
}

}  // namespace tervano
