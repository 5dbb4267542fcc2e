#include "platform/image.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/bundle.h"
#include "platform/file_manager.h"
#include "platform/platform.h"

namespace tervano {

namespace {

// A menu icon's pixels: twice its size in points, for screens of double density.
constexpr int kMenuIconPixels = 32;
constexpr std::int64_t kImageFlags = 0x20C00000;
constexpr std::int64_t kWhiteColorSpace = 3;

bool isTiff(const Data& bytes) {
  using namespace std::string_view_literals;
  if (bytes.size() < 4) return false;
  const std::string_view magic(reinterpret_cast<const char*>(bytes.data()), 4);
  return magic == "II*\0"sv || magic == "MM\0*"sv;
}

DataPtr shared(Data bytes) {
  return std::make_shared<const Data>(std::move(bytes));
}

// A representation that remembers what archiving writes for it, since the same drawing stands in
// many actions.
class MenuRepresentation : public ImageRepresentation {
 public:
  DataPtr menuIconTIFF() const {
    std::call_once(rendered_, [this] { menuIconTIFF_ = render(); });
    return menuIconTIFF_;
  }

 private:
  DataPtr render() const {
    DataPtr own = encoded();
    if (own != nullptr && isTiff(*own) &&
        pixelSize() == std::optional(std::pair(kMenuIconPixels, kMenuIconPixels))) {
      return own;
    }
    return shared(
        platform().imageCodec->TIFFRepresentation(draw(kMenuIconPixels, kMenuIconPixels)));
  }

  mutable std::once_flag rendered_;
  mutable DataPtr menuIconTIFF_;
};

Bitmap drawnOrBlank(const DataPtr& encoded, int width, int height) {
  if (encoded != nullptr) {
    if (auto bitmap = platform().imageCodec->draw(*encoded, width, height)) {
      return *std::move(bitmap);
    }
  }
  return Bitmap::blank(width, height);
}

// The bytes of a picture file.
class EncodedRepresentation : public MenuRepresentation {
 public:
  explicit EncodedRepresentation(DataPtr encoded) : encoded_(std::move(encoded)) {}

  std::optional<std::pair<int, int>> pixelSize() const override {
    std::call_once(sizeRead_, [this] { size_ = platform().imageCodec->pixelSize(*encoded_); });
    return size_;
  }
  bool isVector() const override { return platform().imageCodec->isVector(*encoded_); }
  Bitmap draw(int width, int height) const override {
    return drawnOrBlank(encoded_, width, height);
  }
  DataPtr encoded() const override { return encoded_; }

 private:
  DataPtr encoded_;
  mutable std::once_flag sizeRead_;
  mutable std::optional<std::pair<int, int>> size_;
};

// An application image, read when it is first drawn.
class NamedRepresentation : public MenuRepresentation {
 public:
  explicit NamedRepresentation(std::string name) : name_(std::move(name)) {}

  std::optional<std::pair<int, int>> pixelSize() const override {
    const DataPtr bytes = encoded();
    return bytes == nullptr ? std::nullopt : platform().imageCodec->pixelSize(*bytes);
  }
  bool isVector() const override {
    const DataPtr bytes = encoded();
    return bytes != nullptr && platform().imageCodec->isVector(*bytes);
  }
  Bitmap draw(int width, int height) const override {
    return drawnOrBlank(encoded(), width, height);
  }
  DataPtr encoded() const override {
    std::call_once(read_, [this] {
      const auto path = platform().bundle->pathForImageNamed(name_);
      if (!path) return;
      if (auto bytes = platform().fileManager->contentsAtPath(*path)) {
        encoded_ = shared(*std::move(bytes));
      }
    });
    return encoded_;
  }

 private:
  std::string name_;
  mutable std::once_flag read_;
  mutable DataPtr encoded_;
};

class BitmapRepresentation : public MenuRepresentation {
 public:
  explicit BitmapRepresentation(Bitmap bitmap) : bitmap_(std::move(bitmap)) {}

  std::optional<std::pair<int, int>> pixelSize() const override {
    return std::pair(bitmap_.width, bitmap_.height);
  }
  bool isVector() const override { return false; }
  Bitmap draw(int width, int height) const override {
    if (bitmap_.width == width && bitmap_.height == height) return bitmap_;
    return drawnOrBlank(shared(platform().imageCodec->TIFFRepresentation(bitmap_)), width, height);
  }
  DataPtr encoded() const override { return nullptr; }

 private:
  Bitmap bitmap_;
};

// One representation per application image while anybody uses it.
std::shared_ptr<const ImageRepresentation> representationNamed(const std::string& name) {
  static std::mutex mutex;
  static auto* const known = new std::map<std::string, std::weak_ptr<const ImageRepresentation>>;
  const std::lock_guard lock(mutex);
  auto& entry = (*known)[name];
  auto representation = entry.lock();
  if (representation == nullptr) {
    representation = std::make_shared<const NamedRepresentation>(name);
    entry = representation;
  }
  return representation;
}

// A representation as an archive holds it. Our own archives hold bitmaps only; what other systems
// may have written is read as far as its bytes are a picture.
class ArchivedRepresentation : public Coding {
 public:
  explicit ArchivedRepresentation(std::string_view className) : className_(className) {}
  explicit ArchivedRepresentation(DataPtr bytes)
      : className_("NSBitmapImageRep"), bytes_(std::move(bytes)) {}

  const DataPtr& bytes() const { return bytes_; }

  std::string_view className() const override { return className_; }
  void initWithCoder(Unarchiver& coder) override {
    for (const char* key : kPictureKeys) {
      bytes_ = coder.decodeBytes(key);
      if (bytes_ != nullptr) return;
    }
  }
  void encodeWithCoder(Archiver& coder) const override {
    coder.encodeObject(Value(bytes_), kPictureKeys[0]);
  }

 private:
  static constexpr const char* kPictureKeys[] = {"NSTIFFRepresentation", "NSPNGRepresentation",
                                                 "NSPDFRepresentation",  "NSEPSRepresentation",
                                                 "NSPICTRepresentation", "NSData"};
  std::string_view className_;
  DataPtr bytes_;
};

// The clear background colour of every archived image. Another one is read and means nothing here.
class ArchivedColor : public Coding {
 public:
  std::string_view className() const override { return "NSColor"; }
  void initWithCoder(Unarchiver& /*coder*/) override {}
  void encodeWithCoder(Archiver& coder) const override {
    using namespace std::string_view_literals;
    static constexpr auto kClearWhite = "0 0\0"sv;
    coder.encodeInteger(kWhiteColorSpace, "NSColorSpace");
    coder.encodeBytes(shared(Data(kClearWhite.begin(), kClearWhite.end())), "NSWhite");
  }
};

void collectRepresentations(const Value& value,
                            std::vector<std::shared_ptr<const ImageRepresentation>>& found) {
  if (const auto* object = value.getIf<Value::Object>()) {
    const auto archived = std::dynamic_pointer_cast<ArchivedRepresentation>(*object);
    if (archived != nullptr && archived->bytes() != nullptr) {
      found.push_back(std::make_shared<const EncodedRepresentation>(archived->bytes()));
    }
  } else if (const auto* pair = value.getIf<Value::Array>()) {
    for (const auto& element : *pair) {
      if (element.getIf<Value::Object>() != nullptr) collectRepresentations(element, found);
    }
  }
}

// "{16, 16}" in any locale; anything else is no size.
Size sizeFromText(std::string_view text) {
  const auto number = [&text](char before) -> std::optional<double> {
    const auto skipBlanks = [&text] {
      text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    };
    skipBlanks();
    if (!text.starts_with(before)) return std::nullopt;
    text.remove_prefix(1);
    skipBlanks();
    double value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc{} || !(value >= 0)) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
  };
  const auto width = number('{');
  const auto height = width ? number(',') : std::nullopt;
  return height ? Size{*width, *height} : Size{};
}

std::string textOfSize(const Size& size) {
  const auto text = [](double number) {
    std::array<char, 32> buffer{};
    return std::string(buffer.data(),
                       std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr);
  };
  return "{" + text(size.width) + ", " + text(size.height) + "}";
}

}  // namespace

ImagePtr Image::imageNamed(const std::string& name) {
  auto image = std::make_shared<Image>();
  image->name_ = name;
  image->representations_.push_back(representationNamed(name));
  return image;
}

ImagePtr Image::imageWithData(DataPtr encoded) {
  if (encoded == nullptr) return nullptr;
  auto representation = std::make_shared<const EncodedRepresentation>(std::move(encoded));
  const auto pixels = representation->pixelSize();
  if (!pixels) return nullptr;
  auto image = std::make_shared<Image>();
  image->size_ = {static_cast<double>(pixels->first), static_cast<double>(pixels->second)};
  image->representations_.push_back(std::move(representation));
  return image;
}

ImagePtr Image::imageWithBitmap(const Bitmap& bitmap, Size size) {
  auto image = std::make_shared<Image>();
  image->size_ = size;
  image->representations_.push_back(std::make_shared<const BitmapRepresentation>(bitmap));
  return image;
}

ImagePtr Image::menuIconFrom(const ImagePtr& source) {
  auto image = std::make_shared<Image>();
  image->isMenuIcon_ = true;
  if (source != nullptr) {
    image->name_ = source->name_;
    // Which one fits best is found out when it is drawn: that reads their headers.
    image->representations_ = source->representations_;
  }
  return image;
}

std::shared_ptr<const ImageRepresentation> Image::bestRepresentationForSize(int width,
                                                                            int height) const {
  if (representations_.size() == 1) return representations_.front();
  std::shared_ptr<const ImageRepresentation> best;
  std::pair<int, int> bestPixels{0, 0};
  bool bestIsEnough = false;
  const auto area = [](std::pair<int, int> pixels) {
    return static_cast<std::int64_t>(pixels.first) * pixels.second;
  };
  for (const auto& representation : representations_) {
    const auto pixels = representation->pixelSize();
    if (!pixels) continue;
    if (representation->isVector()) return representation;
    const bool isEnough = pixels->first >= width && pixels->second >= height;
    const bool isBetter =
        best == nullptr || (isEnough && !bestIsEnough) ||
        (isEnough == bestIsEnough &&
         (isEnough ? area(*pixels) < area(bestPixels) : area(*pixels) > area(bestPixels)));
    if (!isBetter) continue;
    best = representation;
    bestPixels = *pixels;
    bestIsEnough = isEnough;
  }
  return best;
}

Bitmap Image::draw(int width, int height) const {
  if (isMenuIcon_ && (width > kMenuIconPixels || height > kMenuIconPixels)) {
    const Bitmap icon = draw(kMenuIconPixels, kMenuIconPixels);
    return drawnOrBlank(shared(platform().imageCodec->TIFFRepresentation(icon)), width, height);
  }
  const auto representation = isMenuIcon_
                                  ? bestRepresentationForSize(kMenuIconPixels, kMenuIconPixels)
                                  : bestRepresentationForSize(width, height);
  return representation == nullptr ? Bitmap::blank(width, height)
                                   : representation->draw(width, height);
}

DataPtr Image::TIFFRepresentation() const {
  const auto representation = bestRepresentationForSize(kMenuIconPixels, kMenuIconPixels);
  if (const auto* known = dynamic_cast<const MenuRepresentation*>(representation.get())) {
    return known->menuIconTIFF();
  }
  return shared(
      platform().imageCodec->TIFFRepresentation(Bitmap::blank(kMenuIconPixels, kMenuIconPixels)));
}

void Image::initWithCoder(Unarchiver& coder) {
  if (const auto text = coder.decodeString("NSSize")) size_ = sizeFromText(*text);
  const auto archived = coder.decodeArray("NSReps");
  if (!archived) return;
  for (const auto& element : *archived) collectRepresentations(element, representations_);
}

void Image::encodeWithCoder(Archiver& coder) const {
  coder.encodeInteger(kImageFlags, "NSImageFlags");
  coder.encodeObject(textOfSize(size_), "NSSize");
  const Value representation(std::make_shared<ArchivedRepresentation>(TIFFRepresentation()));
  coder.encodeMutableArray({Value(Value::Array{Value(0), representation})}, "NSReps");
  coder.encodeObject(Value(std::make_shared<ArchivedColor>()), "NSColor");
}

void Image::registerClasses(ClassRegistry& registry) {
  registry.registerClass({"NSImage", "NSObject"}, [] { return std::make_shared<Image>(); });
  registry.registerClass({"NSColor", "NSObject"}, [] { return std::make_shared<ArchivedColor>(); });
  static constexpr std::string_view kRepresentations[] = {
      "NSBitmapImageRep", "NSCachedImageRep", "NSCIImageRep",  "NSCustomImageRep",
      "NSEPSImageRep",    "NSPDFImageRep",    "NSPICTImageRep"};
  for (const auto name : kRepresentations) {
    registry.registerClass({std::string(name), "NSImageRep", "NSObject"},
                           [name] { return std::make_shared<ArchivedRepresentation>(name); });
  }
}

}  // namespace tervano
