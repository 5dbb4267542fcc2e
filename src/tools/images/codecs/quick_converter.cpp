#include <array>
#include <cstring>
#include <new>

#include "tools/images/codecs/jpeg_rows.h"
#include "tools/images/codecs/pdf_document.h"
#include "tools/images/codecs/png_rows.h"
#include "tools/images/codecs/row_steps.h"
#include "tools/images/codecs/tiff_rows.h"
#include "tools/images/converter.h"

namespace tervano {

namespace {

// Nil when it is none of the common kinds.
std::unique_ptr<RowReader> openRows(InputStream& file) {
  std::array<char, 4> magic{};
  if (!file.readAt(0, magic.data(), magic.size())) return nullptr;
  if (std::memcmp(magic.data(), "\xff\xd8\xff", 3) == 0) return openJpegRows(file);
  if (std::memcmp(magic.data(), "\x89PNG", 4) == 0) return openPngRows(file);
  if (std::memcmp(magic.data(), "II*\0", 4) == 0 || std::memcmp(magic.data(), "MM\0*", 4) == 0) {
    return openTiffRows(file);
  }
  return nullptr;
}

bool isJpeg(InputStream& file) {
  std::array<char, 3> magic{};
  return file.readAt(0, magic.data(), magic.size()) &&
         std::memcmp(magic.data(), "\xff\xd8\xff", magic.size()) == 0;
}

// A JPEG goes into the document as it stands, once it is known to be whole.
void writeDocument(InputStream& input, OutputStream& output, RowReader& reader) {
  Data row(reader.shape().bytesPerRow());
  for (std::uint32_t y = 0; y < reader.shape().height; ++y) reader.read(row.data());
  PdfDocument document(output);
  document.addJpegPage(reader.shape(), reader.notes(), reader.orientation(), input);
  document.finish();
}

void copyRows(RowReader& reader, OutputStream& output, PictureFormat format) {
  const PictureShape& from = reader.shape();
  PictureShape to = from;
  if (format == PictureFormat::jpeg) {
    to.alpha = false;
    to.bits = 8;
  }
  const auto writer = writeRows(format, output, to, reader.notes());
  const bool same = from.alpha == to.alpha && from.bits == to.bits;
  Data row(from.bytesPerRow());
  Data converted(same ? 0 : to.bytesPerRow());
  for (std::uint32_t y = 0; y < from.height; ++y) {
    reader.read(row.data());
    if (!same) convertRow(row.data(), from, converted.data(), to);
    writer->write(same ? row.data() : converted.data());
  }
  writer->finish();
}

// The common pairs: JPEG, PNG and TIFF to each other, and a JPEG to PDF.
class QuickConverter final : public PictureConverter {
 public:
  ConversionResult convert(const Conversion& conversion) const override {
    try {
      InputStream input(conversion.input);
      const PictureFormat format = conversion.format;
      const bool toDocument = format == PictureFormat::pdf && isJpeg(input);
      if (!toDocument && format != PictureFormat::jpeg && format != PictureFormat::png &&
          format != PictureFormat::tiff) {
        return ConversionResult::declined();
      }
      auto reader = openRows(input);
      if (reader == nullptr) return ConversionResult::declined();
      checkSize(reader->shape().width, reader->shape().height, format);
      OutputStream output(conversion.output);
      if (toDocument) {
        writeDocument(input, output, *reader);
      } else {
        reader = upright(std::move(reader));
        copyRows(*reader, output, format);
      }
      return ConversionResult::done();
    } catch (const CodecFailure& failure) {
      return ConversionResult::failed(failure.what());
    } catch (const std::bad_alloc&) {
      return ConversionResult::failed(kTooLarge);
    }
  }

  std::vector<PictureFormat> writableFormats() const override {
    return {PictureFormat::jpeg, PictureFormat::png, PictureFormat::tiff};
  }
};

}  // namespace

}  // namespace tervano

extern "C" __attribute__((visibility("default"))) const tervano::PictureConverter*
tervanoPictureConverter() {
  static const tervano::QuickConverter converter;
  return &converter;
}
