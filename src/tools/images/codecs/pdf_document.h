#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"

namespace tervano {

// A PDF 1.5 document (ISO 32000-1) with one picture on each page, which fills it: a point is the
// 72nd part of an inch by the picture's resolution, a pixel where it tells none. Samples are kept
// as they are, with profile and alpha. Functions throw CodecFailure.
class PdfDocument {
 public:
  explicit PdfDocument(OutputStream& file);

  // Adds a page whose rows the writer takes, upright. One writer at a time, none after finish().
  std::unique_ptr<RowWriter> addPage(const PictureShape& shape, const PictureNotes& notes);
  // Adds a page with a whole JPEG of that shape (gray or colour) that lies by `orientation`.
  void addJpegPage(const PictureShape& shape, const PictureNotes& notes, int orientation,
                   InputStream& jpeg);
  void finish();

 private:
  class Page;

  int reserve();
  void beginObject(int number);
  void endObject() { write("\nendobj\n"); }
  void write(const std::string& text) { file_.writeOrFail(text.data(), text.size()); }
  int writeStream(const std::string& entries, const Data& content);
  std::string colourSpace(const PictureShape& shape, const PictureNotes& notes);
  void writePage(const PictureShape& shape, const PictureNotes& notes, int orientation, int image);

  OutputStream& file_;
  // Where each object begins; its number is one more than the index.
  std::vector<std::uint64_t> objects_;
  std::vector<int> pages_;
};

}  // namespace tervano
