#pragma once

#include <vips/vips.h>

#include <string>
#include <vector>

#include "platform/linux/glib_handles.h"
#include "tools/images/codecs/picture.h"
#include "tools/images/codecs/streams.h"
#include "tools/images/codecs/tiff_rows.h"
#include "tools/images/picture_format.h"

namespace tervano {

using VipsImagePtr = GObjectPtr<VipsImage>;

// A picture as its file has it. Pixels are read when they are asked for, from the top once.
struct LoadedPicture {
  VipsImagePtr image;
  PictureNotes notes;
  // How it lies, 1 to 8.
  int orientation = 1;
  // Several frames, one below the other.
  bool animated = false;
};

// Everything that can be read. Functions throw CodecFailure. `file` must outlive what is loaded.
class PictureSource {
 public:
  PictureSource(InputStream& file, PictureFormat target);

  // How many pictures of the file the target takes: several only for the pages of a TIFF that
  // becomes a document.
  std::size_t pages() const { return pages_.empty() ? 1 : pages_.size(); }
  LoadedPicture load(std::size_t page);
  // Whether the file is a document already.
  bool isDocument() const { return loader_ == "VipsForeignLoadPdfSource"; }

 private:
  GObjectPtr<VipsSource> source();
  LoadedPicture loadWithPixbuf();
  // Fails for a picture that has more pixels than its file can hold.
  void checkClaim(VipsImage* image) const;
  void takeNotes(LoadedPicture& picture, std::size_t page);

  InputStream& file_;
  PictureFormat target_;
  std::string loader_;
  std::vector<TiffPage> pages_;
};

// Why a call into the library failed, as a CodecFailure.
[[noreturn]] void failWithVips(const InputStream& file);

}  // namespace tervano
