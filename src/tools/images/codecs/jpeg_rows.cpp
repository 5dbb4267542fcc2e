#include "tools/images/codecs/jpeg_rows.h"

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <jpeglib.h>

// Its numbers depend on how the library was built.
#include <jerror.h>

#include "tools/images/codecs/exif.h"

namespace tervano {

namespace {

using namespace std::string_view_literals;

constexpr int kQuality = 90;
constexpr std::size_t kJpegBlock = std::size_t{64} << 10;
constexpr std::size_t kLargestMarker = 65533;

constexpr int kExifMarker = JPEG_APP0 + 1;
constexpr int kProfileMarker = JPEG_APP0 + 2;
constexpr int kPhotoshopMarker = JPEG_APP0 + 13;
constexpr auto kExifName = "Exif\0\0"sv;
constexpr auto kJpegXmpName = "http://ns.adobe.com/xap/1.0/\0"sv;
constexpr auto kPhotoshopName = "Photoshop 3.0\0"sv;

// libjpeg's errors: a jump out of the library, and the message.
struct JpegErrors {
  jpeg_error_mgr manager{};
  std::jmp_buf out{};
  char message[JMSG_LENGTH_MAX] = "";
  // A warning that means lost pixels.
  bool damaged = false;
  bool outOfMemory = false;
};

JpegErrors& errorsOf(j_common_ptr codec) {
  return *reinterpret_cast<JpegErrors*>(codec->err);
}

void leave(j_common_ptr codec) {
  JpegErrors& errors = errorsOf(codec);
  (*codec->err->format_message)(codec, errors.message);
  errors.outOfMemory = codec->err->msg_code == JERR_OUT_OF_MEMORY;
  std::longjmp(errors.out, 1);
}

void noteWarning(j_common_ptr codec, int level) {
  if (level >= 0) return;
  const int code = codec->err->msg_code;
  if (code != JWRN_HIT_MARKER && code != JWRN_HUFF_BAD_CODE && code != JWRN_ARITH_BAD_CODE &&
      code != JWRN_MUST_RESYNC) {
    return;
  }
  JpegErrors& errors = errorsOf(codec);
  (*codec->err->format_message)(codec, errors.message);
  errors.damaged = true;
}

jpeg_error_mgr* begin(JpegErrors& errors) {
  jpeg_error_mgr* const manager = jpeg_std_error(&errors.manager);
  manager->error_exit = leave;
  manager->emit_message = noteWarning;
  return manager;
}

// Calls the library; false when it gave up. Nothing that `call` has on its stack may need a
// destructor.
template <typename Call>
bool jpegSucceeds(JpegErrors& errors, const Call& call) {
  if (setjmp(errors.out) != 0) return false;
  call();
  return true;
}

struct Source {
  jpeg_source_mgr manager{};
  InputStream* file = nullptr;
  // Only the end marker may be missing: rows are read from the only scan, whose decoder tells when
  // one of them is not there.
  bool mayLackEnd = false;
  std::uint8_t block[kJpegBlock];
};

void beginSource(j_decompress_ptr /*codec*/) {}

boolean fillSource(j_decompress_ptr codec) {
  auto* source = reinterpret_cast<Source*>(codec->src);
  std::int64_t count = source->file->read(source->block, kJpegBlock);
  if (count == 0 && source->mayLackEnd) {
    source->block[0] = 0xFF;
    source->block[1] = JPEG_EOI;
    count = 2;
  }
  if (count <= 0) ERREXIT(codec, JERR_INPUT_EOF);
  source->manager.next_input_byte = source->block;
  source->manager.bytes_in_buffer = static_cast<std::size_t>(count);
  return TRUE;
}

void skipSource(j_decompress_ptr codec, long count) {
  while (count > static_cast<long>(codec->src->bytes_in_buffer)) {
    count -= static_cast<long>(codec->src->bytes_in_buffer);
    fillSource(codec);
  }
  if (count <= 0) return;
  codec->src->next_input_byte += count;
  codec->src->bytes_in_buffer -= static_cast<std::size_t>(count);
}

// Scans of a picture that never becomes better would keep a processor busy for hours.
void boundScans(j_common_ptr codec) {
  constexpr int kMostScans = 500;
  if (reinterpret_cast<j_decompress_ptr>(codec)->input_scan_number > kMostScans) {
    ERREXIT(codec, JERR_BAD_PROGRESSION);
  }
}

class JpegReader : public RowReader {
 public:
  explicit JpegReader(InputStream& file) {
    codec_.err = begin(errors_);
    progress_.progress_monitor = boundScans;
    source_.file = &file;
    source_.manager.init_source = beginSource;
    source_.manager.fill_input_buffer = fillSource;
    source_.manager.skip_input_data = skipSource;
    source_.manager.resync_to_restart = jpeg_resync_to_restart;
    source_.manager.term_source = beginSource;
  }
  ~JpegReader() override { jpeg_destroy_decompress(&codec_); }

  // Whether this is a picture for it.
  bool open() {
    const bool opened = jpegSucceeds(errors_, [this] {
      jpeg_create_decompress(&codec_);
      codec_.src = &source_.manager;
      for (const int marker : {kExifMarker, kProfileMarker, kPhotoshopMarker}) {
        jpeg_save_markers(&codec_, marker, 0xFFFF);
      }
      jpeg_read_header(&codec_, TRUE);
    });
    if (!opened) fail();
    const bool gray = codec_.num_components == 1 && codec_.jpeg_color_space == JCS_GRAYSCALE;
    const bool colour = codec_.num_components == 3 && codec_.jpeg_color_space == JCS_YCbCr;
    if (codec_.data_precision != 8 || !(gray || colour)) return false;
    shape_ = {codec_.image_width, codec_.image_height, gray ? Colour::gray : Colour::rgb, false, 8};
    readNotes();
    return true;
  }

  void read(std::uint8_t* row) override {
    const bool read = jpegSucceeds(errors_, [this, row] {
      if (!started_) {
        source_.mayLackEnd =
            jpeg_has_multiple_scans(&codec_) == FALSE && codec_.arith_code == FALSE;
        codec_.progress = &progress_;
        started_ = true;
        jpeg_start_decompress(&codec_);
      }
      JSAMPROW rows = row;
      if (jpeg_read_scanlines(&codec_, &rows, 1) != 1) ERREXIT(&codec_, JERR_INPUT_EOF);
      if (codec_.output_scanline == codec_.output_height) jpeg_finish_decompress(&codec_);
    });
    if (!read || errors_.damaged) fail();
  }

 private:
  [[noreturn]] void fail() {
    if (source_.file->code() != 0) failWithCode(source_.file->code());
    if (errors_.outOfMemory) throw CodecFailure(kTooLarge);
    failAsDamaged(errors_.message);
  }

  void readNotes() {
    for (auto* marker = codec_.marker_list; marker != nullptr; marker = marker->next) {
      const std::string_view content(reinterpret_cast<const char*>(marker->data),
                                     marker->data_length);
      const auto take = [&](std::string_view name, Data& note) {
        if (content.starts_with(name) && note.empty()) {
          note.assign(marker->data + name.size(), marker->data + content.size());
        }
      };
      if (marker->marker == kExifMarker) {
        take(kExifName, notes_.exif);
        take(kJpegXmpName, notes_.xmp);
      } else if (marker->marker == kPhotoshopMarker) {
        take(kPhotoshopName, notes_.photoshop);
      }
    }
    JOCTET* profile = nullptr;
    unsigned length = 0;
    if (!jpegSucceeds(errors_, [&] { jpeg_read_icc_profile(&codec_, &profile, &length); })) fail();
    if (profile != nullptr) notes_.profile.assign(profile, profile + length);
    std::free(profile);
    constexpr double kCentimetres = 2.54;
    if (codec_.saw_JFIF_marker != FALSE && codec_.density_unit != 0) {
      const double unit = codec_.density_unit == 2 ? kCentimetres : 1;
      notes_.density = densityPerInch(codec_.X_density * unit, codec_.Y_density * unit);
    }
    orientation_ = orientationOfExif(notes_.exif);
  }

  JpegErrors errors_;
  Source source_;
  jpeg_progress_mgr progress_{};
  bool started_ = false;
  jpeg_decompress_struct codec_{};
};

struct Destination {
  jpeg_destination_mgr manager{};
  OutputStream* file = nullptr;
  std::uint8_t block[kJpegBlock];
};

void beginDestination(j_compress_ptr codec) {
  auto* destination = reinterpret_cast<Destination*>(codec->dest);
  destination->manager.next_output_byte = destination->block;
  destination->manager.free_in_buffer = kJpegBlock;
}

boolean emptyDestination(j_compress_ptr codec) {
  auto* destination = reinterpret_cast<Destination*>(codec->dest);
  if (!destination->file->write(destination->block, kJpegBlock)) ERREXIT(codec, JERR_FILE_WRITE);
  beginDestination(codec);
  return TRUE;
}

void endDestination(j_compress_ptr codec) {
  auto* destination = reinterpret_cast<Destination*>(codec->dest);
  if (!destination->file->write(destination->block,
                                kJpegBlock - destination->manager.free_in_buffer) ||
      !destination->file->flush()) {
    ERREXIT(codec, JERR_FILE_WRITE);
  }
}

Data marked(std::string_view name, const Data& note) {
  Data marker(name.begin(), name.end());
  marker.insert(marker.end(), note.begin(), note.end());
  return marker;
}

class JpegWriter : public RowWriter {
 public:
  JpegWriter(OutputStream& file, const PictureShape& shape, const PictureNotes& notes)
      : colour_(shape.colour), row_(shape.colour == Colour::cmyk ? shape.bytesPerRow() : 0) {
    codec_.err = begin(errors_);
    destination_.file = &file;
    destination_.manager.init_destination = beginDestination;
    destination_.manager.empty_output_buffer = emptyDestination;
    destination_.manager.term_destination = endDestination;
    const bool begun = jpegSucceeds(errors_, [&] {
      jpeg_create_compress(&codec_);
      codec_.dest = &destination_.manager;
      codec_.image_width = shape.width;
      codec_.image_height = shape.height;
      codec_.input_components = shape.channels();
      codec_.in_color_space = colour_ == Colour::gray  ? JCS_GRAYSCALE
                              : colour_ == Colour::rgb ? JCS_RGB
                                                       : JCS_CMYK;
      jpeg_set_defaults(&codec_);
      jpeg_set_quality(&codec_, kQuality, TRUE);
      for (int index = 0; index < codec_.num_components; ++index) {
        codec_.comp_info[index].h_samp_factor = 1;
        codec_.comp_info[index].v_samp_factor = 1;
      }
      setDensity(notes.density);
      jpeg_start_compress(&codec_, TRUE);
    });
    if (!begun) fail();
    writeMarker(kExifMarker, kExifName, notes.exif);
    writeMarker(kExifMarker, kJpegXmpName, notes.xmp);
    writeMarker(kPhotoshopMarker, kPhotoshopName, notes.photoshop);
    if (profileFits(notes.profile, colour_) && !jpegSucceeds(errors_, [&] {
          jpeg_write_icc_profile(&codec_, notes.profile.data(),
                                 static_cast<unsigned>(notes.profile.size()));
        })) {
      fail();
    }
  }
  ~JpegWriter() override { jpeg_destroy_compress(&codec_); }

  void write(const std::uint8_t* row) override {
    auto* source = const_cast<std::uint8_t*>(row);
    if (colour_ == Colour::cmyk) {
      // By the custom of Adobe's programs, which every reader expects: 255 is no ink.
      for (std::size_t index = 0; index < row_.size(); ++index) row_[index] = 255 - row[index];
      source = row_.data();
    }
    if (!jpegSucceeds(errors_, [this, source] {
          JSAMPROW rows = source;
          jpeg_write_scanlines(&codec_, &rows, 1);
        })) {
      fail();
    }
  }

  void finish() override {
    if (!jpegSucceeds(errors_, [this] { jpeg_finish_compress(&codec_); })) fail();
  }

 private:
  [[noreturn]] void fail() {
    if (destination_.file->code() != 0) failWithCode(destination_.file->code());
    throw CodecFailure(std::string("the JPEG cannot be written (") + errors_.message + ")");
  }

  void setDensity(const std::optional<Density>& density) {
    if (!density || density->across > UINT16_MAX || density->down > UINT16_MAX) return;
    codec_.density_unit = 1;
    codec_.X_density = static_cast<UINT16>(std::lround(density->across));
    codec_.Y_density = static_cast<UINT16>(std::lround(density->down));
  }

  void writeMarker(int marker, std::string_view name, const Data& note) {
    if (note.empty() || name.size() + note.size() > kLargestMarker) return;
    const Data content = marked(name, note);
    if (!jpegSucceeds(errors_, [&] {
          jpeg_write_marker(&codec_, marker, content.data(), static_cast<unsigned>(content.size()));
        })) {
      fail();
    }
  }

  Colour colour_;
  Data row_;
  JpegErrors errors_;
  Destination destination_;
  jpeg_compress_struct codec_{};
};

}  // namespace

std::unique_ptr<RowReader> openJpegRows(InputStream& file) {
  auto reader = std::make_unique<JpegReader>(file);
  if (!reader->open()) return nullptr;
  return reader;
}

std::unique_ptr<RowWriter> writeJpegRows(OutputStream& file, const PictureShape& shape,
                                         const PictureNotes& notes) {
  return std::make_unique<JpegWriter>(file, shape, notes);
}

}  // namespace tervano
