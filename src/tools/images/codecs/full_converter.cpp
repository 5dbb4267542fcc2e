#include <vips/vips.h>
#include <webp/mux.h>

#include <exception>
#include <new>
#include <string>

#include "tools/images/codecs/full_heif.h"
#include "tools/images/codecs/full_load.h"
#include "tools/images/codecs/full_prepare.h"
#include "tools/images/codecs/jp2_profile.h"
#include "tools/images/codecs/pdf_document.h"
#include "tools/images/codecs/row_steps.h"
#include "tools/images/converter.h"

namespace tervano {

namespace {

constexpr int kWebpQuality = 85;
constexpr int kWebpEffort = 4;
constexpr int kGifEffort = 4;

// Once a process. False when the library cannot be used.
bool startLibrary() {
  static const bool started = [] {
    // Never a file beside the result: what does not fit into memory is refused.
    g_setenv("VIPS_DISC_THRESHOLD", "1000000m", TRUE);
    if (vips_init("tervano-images") != 0) return false;
    // Each processor has a process of its own.
    vips_concurrency_set(1);
    vips_cache_set_max(0);
    return true;
  }();
  return started;
}

// ---- Rows out of the library

struct RowSink {
  RowWriter* writer = nullptr;
  std::exception_ptr failure;
};

int takeRows(VipsRegion* region, VipsRect* area, void* data) {
  auto* sink = static_cast<RowSink*>(data);
  try {
    for (int y = 0; y < area->height; ++y) {
      sink->writer->write(VIPS_REGION_ADDR(region, area->left, area->top + y));
    }
    return 0;
  } catch (...) {
    sink->failure = std::current_exception();
    return -1;
  }
}

void writeAllRows(const LoadedPicture& picture, RowWriter& writer, const InputStream& input) {
  RowSink sink{&writer, nullptr};
  const int failed = vips_sink_disc(picture.image.get(), takeRows, &sink);
  if (sink.failure) std::rethrow_exception(sink.failure);
  if (failed != 0) failWithVips(input);
  writer.finish();
}

// ---- Files that the library writes

// A file that cannot be written is told at the end: some codecs would try for ever.
gint64 writeTarget(VipsTargetCustom* /*target*/, const void* bytes, gint64 count,
                   OutputStream* file) {
  if (file->code() == 0) file->write(bytes, static_cast<std::size_t>(count));
  return count;
}

gint64 readTarget(VipsTargetCustom* /*target*/, void* bytes, gint64 count, OutputStream* file) {
  return file->read(bytes, static_cast<std::size_t>(count));
}

gint64 seekTarget(VipsTargetCustom* /*target*/, gint64 offset, int whence, OutputStream* file) {
  const gint64 position = file->seek(offset, whence);
  return file->code() == 0 ? position : offset;
}

GObjectPtr<VipsTarget> targetOf(OutputStream& file) {
  VipsTargetCustom* const custom = vips_target_custom_new();
  g_signal_connect(custom, "write", G_CALLBACK(writeTarget), &file);
  g_signal_connect(custom, "read", G_CALLBACK(readTarget), &file);
  g_signal_connect(custom, "seek", G_CALLBACK(seekTarget), &file);
  return GObjectPtr<VipsTarget>(VIPS_TARGET(custom));
}

// Tells a file that could not be written from a picture that could not be read.
void checkSaved(int failed, const InputStream& input, const OutputStream& output) {
  if (output.code() != 0) failWithCode(output.code());
  if (failed != 0) failWithVips(input);
}

void writeGif(const LoadedPicture& picture, const InputStream& input, OutputStream& output) {
  const auto target = targetOf(output);
  checkSaved(vips_gifsave_target(picture.image.get(), target.get(), "effort", kGifEffort, nullptr),
             input, output);
  output.flushOrFail();
}

void writeJp2(const LoadedPicture& picture, const InputStream& input, OutputStream& output) {
  const auto target = targetOf(output);
  checkSaved(vips_jp2ksave_target(picture.image.get(), target.get(), "lossless", TRUE, nullptr),
             input, output);
  output.flushOrFail();
  if (!picture.notes.profile.empty() && !insertProfileIntoJp2(output, picture.notes.profile)) {
    failWithCode(output.code() != 0 ? output.code() : EIO);
  }
}

void addChunk(WebPMux* mux, const char* name, const Data& note) {
  if (note.empty()) return;
  const WebPData data{note.data(), note.size()};
  if (WebPMuxSetChunk(mux, name, &data, 0) != WEBP_MUX_OK) throw CodecFailure(kTooLarge);
}

void writeWebp(const LoadedPicture& picture, const InputStream& input, OutputStream& output) {
  void* bytes = nullptr;
  std::size_t count = 0;
  if (vips_webpsave_buffer(picture.image.get(), &bytes, &count, "Q", kWebpQuality, "effort",
                           kWebpEffort, "strip", TRUE, nullptr) != 0) {
    failWithVips(input);
  }
  const GCharPtr bytesOwner(static_cast<gchar*>(bytes));
  const WebPData plain{static_cast<const std::uint8_t*>(bytes), count};
  struct MuxDelete {
    void operator()(WebPMux* mux) const { WebPMuxDelete(mux); }
  };
  const std::unique_ptr<WebPMux, MuxDelete> mux(WebPMuxCreate(&plain, 0));
  if (mux == nullptr) throw CodecFailure(kTooLarge);
  addChunk(mux.get(), "ICCP", picture.notes.profile);
  addChunk(mux.get(), "EXIF", picture.notes.exif);
  addChunk(mux.get(), "XMP ", picture.notes.xmp);
  WebPData whole{};
  if (WebPMuxAssemble(mux.get(), &whole) != WEBP_MUX_OK) throw CodecFailure(kTooLarge);
  const bool written = output.write(whole.bytes, whole.size) && output.flush();
  WebPDataClear(&whole);
  if (!written) failWithCode(output.code());
}

// ---- One conversion

void checkPictureSize(const LoadedPicture& picture, PictureFormat format) {
  VipsImage* const image = picture.image.get();
  const auto width = static_cast<std::uint64_t>(vips_image_get_width(image));
  const auto height = static_cast<std::uint64_t>(vips_image_get_height(image));
  const auto frame = static_cast<std::uint64_t>(vips_image_get_page_height(image));
  if (width * height > kMostPixels) checkSize(width, height, format);
  checkSize(width, picture.animated ? frame : height, format);
}

void copyFile(InputStream& input, OutputStream& output) {
  Data block(std::size_t{1} << 16);
  input.seek(0, SEEK_SET);
  std::int64_t count = 0;
  while ((count = input.read(block.data(), block.size())) > 0) {
    output.writeOrFail(block.data(), static_cast<std::size_t>(count));
  }
  if (count < 0) failWithCode(input.code());
  output.flushOrFail();
}

void writeDocument(PictureSource& source, InputStream& input, OutputStream& output) {
  PdfDocument document(output);
  for (std::size_t page = 0; page < source.pages(); ++page) {
    LoadedPicture picture = source.load(page);
    checkPictureSize(picture, PictureFormat::pdf);
    prepare(picture, PictureFormat::pdf, input);
    const auto writer = document.addPage(shapeOf(picture), picture.notes);
    writeAllRows(picture, *writer, input);
  }
  document.finish();
}

void writePicture(PictureSource& source, InputStream& input, OutputStream& output,
                  PictureFormat format) {
  LoadedPicture picture = source.load(0);
  checkPictureSize(picture, format);
  prepare(picture, format, input);
  switch (format) {
    case PictureFormat::gif:
      writeGif(picture, input, output);
      return;
    case PictureFormat::jp2:
      writeJp2(picture, input, output);
      return;
    case PictureFormat::webp:
      writeWebp(picture, input, output);
      return;
    case PictureFormat::heic:
    case PictureFormat::avif:
      writeAllRows(picture, *writeHeifRows(format, output, shapeOf(picture), picture.notes), input);
      return;
    default:
      writeAllRows(picture, *writeRows(format, output, shapeOf(picture), picture.notes), input);
      return;
  }
}

bool canWrite(PictureFormat format) {
  switch (format) {
    case PictureFormat::gif:
      return vips_type_find("VipsOperation", "gifsave_target") != 0;
    case PictureFormat::jp2:
      return vips_type_find("VipsOperation", "jp2ksave_target") != 0;
    case PictureFormat::webp:
      return vips_type_find("VipsOperation", "webpsave_buffer") != 0;
    case PictureFormat::heic:
    case PictureFormat::avif:
      return canWriteHeif(format);
    default:
      return true;
  }
}

class FullConverter final : public PictureConverter {
 public:
  ConversionResult convert(const Conversion& conversion) const override {
    try {
      if (!startLibrary()) return ConversionResult::failed("the picture library does not start");
      const PictureFormat format = conversion.format;
      if (!canWrite(format)) {
        return ConversionResult::failed("this machine has no codec that writes " +
                                        std::string(wordOf(format)));
      }
      InputStream input(conversion.input);
      OutputStream output(conversion.output);
      PictureSource source(input, format);
      if (format != PictureFormat::pdf) {
        writePicture(source, input, output, format);
      } else if (source.isDocument()) {
        // Only to know that it is one: a document stays as it is.
        source.load(0);
        copyFile(input, output);
      } else {
        writeDocument(source, input, output);
      }
      return ConversionResult::done();
    } catch (const CodecFailure& failure) {
      return ConversionResult::failed(failure.what());
    } catch (const std::bad_alloc&) {
      return ConversionResult::failed(kTooLarge);
    }
  }

  std::vector<PictureFormat> writableFormats() const override {
    std::vector<PictureFormat> formats;
    if (!startLibrary()) return formats;
    for (const PictureFormat format : kPictureFormats) {
      if (canWrite(format)) formats.push_back(format);
    }
    return formats;
  }
};

}  // namespace

}  // namespace tervano

extern "C" __attribute__((visibility("default"))) const tervano::PictureConverter*
tervanoPictureConverter() {
  static const tervano::FullConverter converter;
  return &converter;
}
