#include "tools/images/codecs/full_heif.h"

#include <libheif/heif.h>
#include <sys/resource.h>

#include <cstring>
#include <string>

namespace tervano {

namespace {

constexpr int kHeicQuality = 65;
constexpr int kAvifQuality = 70;
constexpr int kAvifSpeed = 7;
constexpr int kDeepBits = 10;

struct HeifRelease {
  void operator()(heif_context* context) const { heif_context_free(context); }
  void operator()(heif_encoder* encoder) const { heif_encoder_release(encoder); }
  void operator()(heif_image* image) const { heif_image_release(image); }
  void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
};
template <typename Type>
using HeifPtr = std::unique_ptr<Type, HeifRelease>;

heif_compression_format compressionOf(PictureFormat format) {
  return format == PictureFormat::avif ? heif_compression_AV1 : heif_compression_HEVC;
}

// Fails for a picture for which the memory of this process cannot be enough: the library tells
// that late and as something else.
void checkMemory(const PictureShape& shape) {
  constexpr std::uint64_t kBytesPerPixel = 16;
  rlimit limit{};
  if (getrlimit(RLIMIT_DATA, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      std::uint64_t{shape.width} * shape.height > limit.rlim_cur / kBytesPerPixel) {
    throw CodecFailure(kTooLarge);
  }
}

void check(const heif_error& error) {
  if (error.code == heif_error_Ok) return;
  if (error.code == heif_error_Memory_allocation_error) throw CodecFailure(kTooLarge);
  throw CodecFailure(std::string("the codec failed (") + error.message + ")");
}

heif_error writeFile(heif_context* /*context*/, const void* bytes, std::size_t count, void* file) {
  constexpr heif_error kDone{heif_error_Ok, heif_suberror_Unspecified, ""};
  constexpr heif_error kFailed{heif_error_Encoding_error, heif_suberror_Cannot_write_output_data,
                               "the file cannot be written"};
  return static_cast<OutputStream*>(file)->write(bytes, count) ? kDone : kFailed;
}

class HeifWriter : public RowWriter {
 public:
  HeifWriter(PictureFormat format, OutputStream& file, const PictureShape& shape,
             const PictureNotes& notes)
      : format_(format), file_(file), shape_(shape), notes_(notes) {
    checkMemory(shape);
    heif_chroma chroma = shape.alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB;
    if (shape.bits == 16) {
      chroma =
          shape.alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE;
    }
    heif_image* image = nullptr;
    check(heif_image_create(static_cast<int>(shape.width), static_cast<int>(shape.height),
                            heif_colorspace_RGB, chroma, &image));
    image_.reset(image);
    check(heif_image_add_plane(image, heif_channel_interleaved, static_cast<int>(shape.width),
                               static_cast<int>(shape.height),
                               shape.bits == 16 ? kDeepBits : shape.bits));
    next_ = heif_image_get_plane(image, heif_channel_interleaved, &stride_);
    if (profileFits(notes.profile, shape.colour)) {
      check(heif_image_set_raw_color_profile(image, "prof", notes.profile.data(),
                                             notes.profile.size()));
    }
  }

  void write(const std::uint8_t* row) override {
    if (shape_.bits == 16) {
      for (std::size_t at = 0; at < shape_.bytesPerRow(); at += 2) {
        std::uint16_t sample = 0;
        std::memcpy(&sample, row + at, sizeof sample);
        sample = static_cast<std::uint16_t>(sample >> (16 - kDeepBits));
        next_[at] = static_cast<std::uint8_t>(sample);
        next_[at + 1] = static_cast<std::uint8_t>(sample >> 8);
      }
    } else {
      std::memcpy(next_, row, shape_.bytesPerRow());
    }
    next_ += stride_;
  }

  void finish() override {
    const HeifPtr<heif_context> context(heif_context_alloc());
    heif_encoder* encoder = nullptr;
    check(heif_context_get_encoder_for_format(context.get(), compressionOf(format_), &encoder));
    const HeifPtr<heif_encoder> encoderOwner(encoder);
    const bool avif = format_ == PictureFormat::avif;
    check(heif_encoder_set_lossy_quality(encoder, avif ? kAvifQuality : kHeicQuality));
    // Another encoder than the usual one may not know these.
    if (avif) {
      heif_encoder_set_parameter_integer(encoder, "speed", kAvifSpeed);
    } else {
      heif_encoder_set_parameter_string(encoder, "preset", "ultrafast");
    }
    heif_image_handle* handle = nullptr;
    check(heif_context_encode_image(context.get(), image_.get(), encoder, nullptr, &handle));
    const HeifPtr<heif_image_handle> handleOwner(handle);
    image_.reset();
    if (!notes_.exif.empty()) {
      check(heif_context_add_exif_metadata(context.get(), handle, notes_.exif.data(),
                                           static_cast<int>(notes_.exif.size())));
    }
    if (!notes_.xmp.empty()) {
      check(heif_context_add_XMP_metadata(context.get(), handle, notes_.xmp.data(),
                                          static_cast<int>(notes_.xmp.size())));
    }
    heif_writer writer{1, writeFile};
    const heif_error error = heif_context_write(context.get(), &writer, &file_);
    if (file_.code() != 0) failWithCode(file_.code());
    check(error);
    file_.flushOrFail();
  }

 private:
  PictureFormat format_;
  OutputStream& file_;
  PictureShape shape_;
  PictureNotes notes_;
  HeifPtr<heif_image> image_;
  std::uint8_t* next_ = nullptr;
  int stride_ = 0;
};

}  // namespace

bool canWriteHeif(PictureFormat format) {
  return heif_have_encoder_for_format(compressionOf(format)) != 0;
}

std::unique_ptr<RowWriter> writeHeifRows(PictureFormat format, OutputStream& file,
                                         const PictureShape& shape, const PictureNotes& notes) {
  return std::make_unique<HeifWriter>(format, file, shape, notes);
}

}  // namespace tervano
