#pragma once

#include <memory>
#include <string>
#include <vector>

#include "archive/coding.h"
#include "archive/value.h"
#include "platform/image_codec.h"

namespace tervano {

class Image;
using ImagePtr = std::shared_ptr<const Image>;

// A size in points.
struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

// One drawable form of an image. Immutable; any thread. Its pixels are decoded when first drawn.
class ImageRepresentation {
 public:
  virtual ~ImageRepresentation() = default;
  // In pixels; nil while unknown or for a broken picture.
  virtual std::optional<std::pair<int, int>> pixelSize() const = 0;
  virtual bool isVector() const = 0;
  // The representation drawn into a bitmap of that size; blank when it cannot be drawn.
  virtual Bitmap draw(int width, int height) const = 0;
  // The encoded bytes it was made from, null when there are none.
  virtual DataPtr encoded() const = 0;
};

// A picture with a layout size in points, apart from the pixels of its representations. Immutable
// and lazy: nothing is read or decoded before it is drawn or archived. Identity is the pointer.
//
// Archived as NSImage: {NSImageFlags, NSSize, NSReps, NSColor} with one NSBitmapImageRep of a 32 by
// 32 pixel TIFF. Any graph of that class is read.
class Image : public Coding {
 public:
  // The application image of that name ("icon-move"), 16 by 16 points; drawn blank when it does not
  // exist.
  static ImagePtr imageNamed(const std::string& name);
  // From the bytes of a picture file. Null when they are no picture.
  static ImagePtr imageWithData(DataPtr encoded);
  static ImagePtr imageWithBitmap(const Bitmap& bitmap, Size size);
  // What an action's icon becomes: the best representation of `source` for a 32 by 32 point
  // rectangle, drawn lazily into 32 by 32 pixels, with a layout size of 16 by 16 points. A new
  // object every time; null draws nothing.
  static ImagePtr menuIconFrom(const ImagePtr& source);

  Size size() const { return size_; }
  // The representation whose pixels fit a rectangle of that many points best: the smallest one that
  // is not smaller, else the largest; vector drawings fit always. Null when there is none.
  std::shared_ptr<const ImageRepresentation> bestRepresentationForSize(int width, int height) const;
  // Drawn into a bitmap of that many pixels; all transparent when nothing can be drawn.
  Bitmap draw(int width, int height) const;
  // The name it was made from, empty otherwise; survives menuIconFrom and is not archived.
  const std::string& name() const { return name_; }
  // The 32 by 32 pixel TIFF that archiving writes: the best representation's own bytes when they
  // are a TIFF of just that size, else a drawing of it.
  DataPtr TIFFRepresentation() const;

  std::string_view className() const override { return "NSImage"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

  // Makes NSImage, its representations and colours known to an archive's reader and writer.
  static void registerClasses(ClassRegistry& registry);

 private:
  Size size_{16, 16};
  std::string name_;
  std::vector<std::shared_ptr<const ImageRepresentation>> representations_;
  // Set for menu icons: drawn through 32 by 32 pixels.
  bool isMenuIcon_ = false;
};

}  // namespace tervano
