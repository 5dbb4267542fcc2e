#include "platform/image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "archive/archiver.h"
#include "archive/property_list.h"
#include "archive/unarchiver.h"
#include "platform/bundle.h"
#include "platform/file_manager.h"
#include "platform/linux/bitmap_scaling.h"
#include "platform/linux/desktop_image_codec.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {
namespace {

using testing::IsNull;
using testing::NotNull;
using testing::Optional;
using testing::Pair;

// Counts what is decoded.
class CountingCodec : public ForwardingImageCodec {
 public:
  using ForwardingImageCodec::ForwardingImageCodec;
  std::optional<std::pair<int, int>> pixelSize(const Data& encoded) const override {
    ++headers;
    return ForwardingImageCodec::pixelSize(encoded);
  }
  std::optional<Bitmap> draw(const Data& encoded, int width, int height) const override {
    ++drawings;
    return ForwardingImageCodec::draw(encoded, width, height);
  }
  mutable std::atomic<int> headers{0};
  mutable std::atomic<int> drawings{0};
};

// Finds "icon-red" in a folder of the test.
class FolderBundle : public ForwardingBundle {
 public:
  FolderBundle(Bundle& real, std::string folder)
      : ForwardingBundle(real), folder_(std::move(folder)) {}
  std::optional<std::string> pathForImageNamed(const std::string& name) const override {
    const std::string path = folder_ + "/" + name + ".svg";
    if (!std::filesystem::exists(path)) return std::nullopt;
    return path;
  }

 private:
  std::string folder_;
};

Bitmap bitmapOf(int width, int height, std::array<std::uint8_t, 4> colour) {
  Bitmap bitmap = Bitmap::blank(width, height);
  for (std::size_t i = 0; i < bitmap.pixels.size(); ++i) bitmap.pixels[i] = colour[i % 4];
  return bitmap;
}

constexpr std::array<std::uint8_t, 4> kRed{255, 0, 0, 255};
constexpr std::array<std::uint8_t, 4> kGreen{0, 255, 0, 255};

class ImageTest : public testing::Test {
 protected:
  ImageTest() {
    platform_.services().imageCodec = &codec_;
    platform_.services().bundle = &bundle_;
    Image::registerClasses(registry_);
    std::ofstream(platform_.home().path() + "/icon-red.svg")
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"16\" height=\"16\">"
           "<rect width=\"16\" height=\"16\" fill=\"#f00\"/></svg>";
  }

  DataPtr tiffOf(const Bitmap& bitmap) const {
    return std::make_shared<const Data>(realCodec_.TIFFRepresentation(bitmap));
  }
  Data archived(const ImagePtr& image) const {
    return Archiver::archivedDataWithRootObject(Value(std::const_pointer_cast<Image>(image)),
                                                registry_);
  }
  ImagePtr unarchived(const Data& bytes) const {
    const Value root = Unarchiver::unarchiveObjectWithData(bytes, registry_);
    const auto* object = root.getIf<Value::Object>();
    return object == nullptr ? nullptr : std::dynamic_pointer_cast<Image>(*object);
  }

  // An archive of an image graph written by hand: `objects` are the entries from 2 on, entry 1 is
  // the image.
  static Data archiveOf(Value::Dictionary image, std::vector<Value> objects) {
    Value::Array table{Value("$null"), Value(std::move(image))};
    for (auto& object : objects) table.push_back(std::move(object));
    const Value::Dictionary top{{"root", Value(Uid{1})}};
    return binaryDataWithPropertyList(
        Value(Value::Dictionary{{"$version", Value(100000)},
                                {"$archiver", Value("NSKeyedArchiver")},
                                {"$top", Value(top)},
                                {"$objects", Value(std::move(table))}}));
  }
  static Value classNamed(const std::string& name, const std::vector<std::string>& chain) {
    Value::Array classes;
    for (const auto& each : chain) classes.emplace_back(each);
    return Value(Value::Dictionary{{"$classname", Value(name)}, {"$classes", Value(classes)}});
  }

  ScopedPlatform platform_;
  DesktopImageCodec realCodec_;
  CountingCodec codec_{realCodec_};
  FolderBundle bundle_{*platform_.services().bundle, platform_.home().path()};
  ClassRegistry registry_;
};

TEST_F(ImageTest, ANamedImageIsReadWhenItIsFirstDrawn) {
  const auto image = Image::imageNamed("icon-red");
  EXPECT_EQ(image->name(), "icon-red");
  EXPECT_EQ(image->size(), (Size{16, 16}));
  EXPECT_EQ(codec_.headers, 0);
  EXPECT_EQ(image->draw(32, 32), bitmapOf(32, 32, kRed));
}

TEST_F(ImageTest, AnUnknownNameIsDrawnBlank) {
  const auto image = Image::imageNamed("icon-nobody-drew");
  ASSERT_THAT(image, NotNull());
  EXPECT_EQ(image->draw(8, 8), Bitmap::blank(8, 8));
}

TEST_F(ImageTest, BytesThatAreNoPictureAreNoImage) {
  EXPECT_THAT(Image::imageWithData(nullptr), IsNull());
  EXPECT_THAT(Image::imageWithData(std::make_shared<const Data>(Data{1, 2, 3})), IsNull());
}

TEST_F(ImageTest, AnImageOfAFileHasTheSizeOfItsPixels) {
  const auto image = Image::imageWithData(tiffOf(bitmapOf(48, 24, kRed)));
  ASSERT_THAT(image, NotNull());
  EXPECT_EQ(image->size(), (Size{48, 24}));
}

TEST_F(ImageTest, AMenuIconOfALargePictureIs16By16Points) {
  const auto source = Image::imageWithData(tiffOf(bitmapOf(512, 512, kRed)));
  const auto icon = Image::menuIconFrom(source);
  EXPECT_EQ(icon->size(), (Size{16, 16}));
  EXPECT_NE(icon, source);
  EXPECT_EQ(icon->draw(16, 16), bitmapOf(16, 16, kRed));
}

TEST_F(ImageTest, AMenuIconOfNothingIsABlankOfItsOwn) {
  const auto first = Image::menuIconFrom(nullptr);
  const auto second = Image::menuIconFrom(nullptr);
  ASSERT_THAT(first, NotNull());
  EXPECT_NE(first, second);
  EXPECT_EQ(first->size(), (Size{16, 16}));
  EXPECT_EQ(first->draw(32, 32), Bitmap::blank(32, 32));
}

TEST_F(ImageTest, AMenuIconKeepsItsName) {
  EXPECT_EQ(Image::menuIconFrom(Image::imageNamed("icon-red"))->name(), "icon-red");
}

TEST_F(ImageTest, AMenuIconOfAMenuIconDrawsTheFirstSourceItself) {
  auto icon = Image::menuIconFrom(Image::imageWithData(tiffOf(bitmapOf(64, 64, kGreen))));
  const auto representation = icon->bestRepresentationForSize(32, 32);
  for (int i = 0; i < 10'000; ++i) icon = Image::menuIconFrom(icon);
  EXPECT_EQ(icon->bestRepresentationForSize(32, 32), representation);
  EXPECT_EQ(icon->draw(32, 32), bitmapOf(32, 32, kGreen));
}

TEST_F(ImageTest, MakingAMenuIconDecodesNothing) {
  const auto source = Image::imageNamed("icon-red");
  Image::menuIconFrom(Image::menuIconFrom(source));
  EXPECT_EQ(codec_.headers, 0);
  EXPECT_EQ(codec_.drawings, 0);
}

TEST_F(ImageTest, AMenuIconIsDrawnLargeFromIts32Pixels) {
  Bitmap checkers = bitmapOf(64, 64, kRed);
  for (std::size_t i = 0; i < checkers.pixels.size(); i += 8) checkers.pixels[i] = 0;
  const auto icon = Image::menuIconFrom(Image::imageWithBitmap(checkers, {64, 64}));
  EXPECT_EQ(icon->draw(64, 64), scaledBitmap(scaledBitmap(checkers, 32, 32), 64, 64));
}

TEST_F(ImageTest, ABitmapIsDrawnAtAnySize) {
  const auto image = Image::imageWithBitmap(bitmapOf(4, 4, kRed), {4, 4});
  EXPECT_EQ(image->draw(4, 4), bitmapOf(4, 4, kRed));
  EXPECT_EQ(image->draw(9, 3), bitmapOf(9, 3, kRed));
}

TEST_F(ImageTest, AnArchivedImageIsA32PixelTiffOf16Points) {
  const auto icon = Image::menuIconFrom(Image::imageNamed("icon-red"));
  const Value list = propertyListWithData(archived(icon));
  const auto& objects = *list.find("$objects")->getIf<Value::Array>();
  const auto at = [&](const Value* uid) -> const Value& {
    return objects.at(uid->getIf<Uid>()->value);
  };
  const Value& image = objects.at(1);
  EXPECT_EQ(*image.find("NSImageFlags"), Value(0x20C00000));
  EXPECT_EQ(at(image.find("NSSize")), Value("{16, 16}"));
  const Value& representations = at(image.find("NSReps"));
  EXPECT_EQ(*at(representations.find("$class")).find("$classname"), Value("NSMutableArray"));
  const Value& pair = at(&representations.find("NS.objects")->getIf<Value::Array>()->at(0));
  EXPECT_EQ(*at(pair.find("$class")).find("$classname"), Value("NSArray"));
  const auto& members = *pair.find("NS.objects")->getIf<Value::Array>();
  EXPECT_EQ(at(&members.at(0)), Value(0));
  const Value& representation = at(&members.at(1));
  EXPECT_EQ(*at(representation.find("$class")).find("$classes"),
            Value(Value::Array{Value("NSBitmapImageRep"), Value("NSImageRep"), Value("NSObject")}));
  const auto* tiff = at(representation.find("NSTIFFRepresentation")).getIf<DataPtr>();
  ASSERT_THAT(tiff, NotNull());
  EXPECT_THAT(realCodec_.pixelSize(**tiff), Optional(Pair(32, 32)));
  EXPECT_THAT(realCodec_.draw(**tiff, 32, 32), Optional(bitmapOf(32, 32, kRed)));
  const Value& colour = at(image.find("NSColor"));
  EXPECT_EQ(*colour.find("NSColorSpace"), Value(3));
  EXPECT_EQ(*colour.find("NSWhite"), Value(Data{'0', ' ', '0', 0}));
}

TEST_F(ImageTest, ABlankIconIsArchivedAsABlankTiff) {
  const auto icon = unarchived(archived(Image::menuIconFrom(nullptr)));
  ASSERT_THAT(icon, NotNull());
  const auto representation = icon->bestRepresentationForSize(32, 32);
  ASSERT_THAT(representation, NotNull());
  EXPECT_THAT(representation->pixelSize(), Optional(Pair(32, 32)));
  EXPECT_EQ(icon->draw(32, 32), Bitmap::blank(32, 32));
}

TEST_F(ImageTest, AnArchivedImageComesBackAsItWas) {
  const auto image = unarchived(
      archived(Image::imageWithBitmap(bitmapOf(32, 32, {10, 20, 30, 40}), Size{16, 16.5})));
  ASSERT_THAT(image, NotNull());
  EXPECT_EQ(image->size(), (Size{16, 16.5}));
  EXPECT_EQ(image->draw(32, 32), bitmapOf(32, 32, {10, 20, 30, 40}));
}

TEST_F(ImageTest, ATiffOf32PixelsKeepsItsVeryBytesWhenSavedAgain) {
  const auto bytes = tiffOf(bitmapOf(32, 32, kRed));
  EXPECT_EQ(Image::menuIconFrom(Image::imageWithData(bytes))->TIFFRepresentation(), bytes);
  const auto again = Image::menuIconFrom(unarchived(archived(Image::imageWithData(bytes))));
  EXPECT_EQ(*again->TIFFRepresentation(), *bytes);
  EXPECT_EQ(codec_.drawings, 0);
}

TEST_F(ImageTest, ATiffOfAnotherSizeIsRenderedAt32WhenSavedAgain) {
  const auto bytes = tiffOf(bitmapOf(48, 48, kRed));
  const auto saved = Image::menuIconFrom(Image::imageWithData(bytes))->TIFFRepresentation();
  EXPECT_NE(*saved, *bytes);
  EXPECT_THAT(realCodec_.pixelSize(*saved), Optional(Pair(32, 32)));
}

TEST_F(ImageTest, APngOf32PixelsIsRenderedAsATiff) {
  const auto png =
      std::make_shared<const Data>(realCodec_.PNGRepresentation(bitmapOf(32, 32, kRed)));
  const auto saved = Image::imageWithData(png)->TIFFRepresentation();
  EXPECT_THAT(realCodec_.draw(*saved, 32, 32), Optional(bitmapOf(32, 32, kRed)));
}

TEST_F(ImageTest, OneApplicationImageIsRenderedOnceForAllActionsThatCarryIt) {
  std::vector<ImagePtr> icons;
  for (int i = 0; i < 100; ++i) icons.push_back(Image::menuIconFrom(Image::imageNamed("icon-red")));
  for (const auto& icon : icons) icon->TIFFRepresentation();
  EXPECT_EQ(codec_.drawings, 1);
}

TEST_F(ImageTest, DecodingManyIconsDecodesNoPicture) {
  Value::Array icons;
  for (int i = 0; i < 500; ++i) {
    icons.emplace_back(std::const_pointer_cast<Image>(
        Image::imageWithData(tiffOf(bitmapOf(32, 32, {static_cast<std::uint8_t>(i), 0, 0, 255})))));
  }
  const Data archive = Archiver::archivedDataWithRootObject(Value(icons), registry_);
  codec_.headers = 0;
  codec_.drawings = 0;
  const Value root = Unarchiver::unarchiveObjectWithData(archive, registry_);
  std::vector<ImagePtr> decoded;
  for (const auto& icon : *root.getIf<Value::Array>()) {
    decoded.push_back(
        Image::menuIconFrom(std::dynamic_pointer_cast<Image>(*icon.getIf<Value::Object>())));
  }
  EXPECT_EQ(codec_.headers, 0);
  EXPECT_EQ(codec_.drawings, 0);
  EXPECT_EQ(decoded[499]->draw(32, 32), bitmapOf(32, 32, {243, 0, 0, 255}));
}

TEST_F(ImageTest, OfSeveralRepresentationsTheSmallestThatIsNotSmallerIsTaken) {
  const auto tiff = [&](int size, std::array<std::uint8_t, 4> colour) {
    return Value(tiffOf(bitmapOf(size, size, colour)));
  };
  const Data bytes = archiveOf(
      {{"$class", Value(Uid{2})}, {"NSSize", Value(Uid{3})}, {"NSReps", Value(Uid{4})}},
      {classNamed("NSImage", {"NSImage", "NSObject"}), Value("{128, 128}"),
       Value(Value::Dictionary{
           {"$class", Value(Uid{5})},
           {"NS.objects", Value(Value::Array{Value(Uid{6}), Value(Uid{7}), Value(Uid{8})})}}),
       classNamed("NSMutableArray", {"NSMutableArray", "NSArray", "NSObject"}),
       Value(Value::Dictionary{{"$class", Value(Uid{9})},
                               {"NSTIFFRepresentation", tiff(16, {1, 1, 1, 255})}}),
       Value(Value::Dictionary{{"$class", Value(Uid{9})},
                               {"NSTIFFRepresentation", tiff(128, {2, 2, 2, 255})}}),
       Value(Value::Dictionary{{"$class", Value(Uid{9})},
                               {"NSTIFFRepresentation", tiff(64, {3, 3, 3, 255})}}),
       classNamed("NSBitmapImageRep", {"NSBitmapImageRep", "NSImageRep", "NSObject"})});
  const auto decoded = unarchived(bytes);
  ASSERT_THAT(decoded, NotNull());
  EXPECT_EQ(decoded->size(), (Size{128, 128}));
  EXPECT_EQ(decoded->draw(32, 32), bitmapOf(32, 32, {3, 3, 3, 255}));
  EXPECT_EQ(decoded->draw(16, 16), bitmapOf(16, 16, {1, 1, 1, 255}));
  EXPECT_EQ(decoded->draw(256, 256), bitmapOf(256, 256, {2, 2, 2, 255}));
}

TEST_F(ImageTest, AnImageWithoutRepresentationsIsBlank) {
  const auto image = unarchived(
      archiveOf({{"$class", Value(Uid{2})}}, {classNamed("NSImage", {"NSImage", "NSObject"})}));
  ASSERT_THAT(image, NotNull());
  EXPECT_EQ(image->draw(16, 16), Bitmap::blank(16, 16));
  EXPECT_THAT(image->bestRepresentationForSize(16, 16), IsNull());
}

TEST_F(ImageTest, ARepresentationThatCannotBeDrawnIsBlank) {
  const auto image = unarchived(archiveOf(
      {{"$class", Value(Uid{2})}, {"NSReps", Value(Uid{3})}},
      {classNamed("NSImage", {"NSImage", "NSObject"}),
       Value(Value::Dictionary{{"$class", Value(Uid{4})},
                               {"NS.objects", Value(Value::Array{Value(Uid{5}), Value(Uid{7})})}}),
       classNamed("NSArray", {"NSArray", "NSObject"}),
       Value(Value::Dictionary{{"$class", Value(Uid{6})},
                               {"NSPDFRepresentation", Value(Data{'%', 'P', 'D', 'F'})}}),
       classNamed("NSPDFImageRep", {"NSPDFImageRep", "NSImageRep", "NSObject"}),
       Value(Value::Dictionary{{"$class", Value(Uid{8})}}),
       classNamed("NSBitmapImageRep", {"NSBitmapImageRep", "NSImageRep", "NSObject"})}));
  ASSERT_THAT(image, NotNull());
  EXPECT_EQ(image->draw(16, 16), Bitmap::blank(16, 16));
  EXPECT_THAT(realCodec_.pixelSize(*image->TIFFRepresentation()), Optional(Pair(32, 32)));
}

TEST_F(ImageTest, AnUnknownClassOfRepresentationIsRefused) {
  EXPECT_THROW(unarchived(archiveOf(
                   {{"$class", Value(Uid{2})}, {"NSReps", Value(Uid{3})}},
                   {classNamed("NSImage", {"NSImage", "NSObject"}),
                    Value(Value::Dictionary{{"$class", Value(Uid{4})},
                                            {"NS.objects", Value(Value::Array{Value(Uid{5})})}}),
                    classNamed("NSArray", {"NSArray", "NSObject"}),
                    Value(Value::Dictionary{{"$class", Value(Uid{6})}}),
                    classNamed("EvilRep", {"EvilRep", "NSObject"})})),
               PlatformException);
}

TEST_F(ImageTest, RepresentationsOfAWrongKindAreRefused) {
  EXPECT_THROW(
      unarchived(archiveOf({{"$class", Value(Uid{2})}, {"NSReps", Value(Uid{3})}},
                           {classNamed("NSImage", {"NSImage", "NSObject"}), Value("no array")})),
      PlatformException);
}

TEST_F(ImageTest, ASizeThatIsNoSizeIsZero) {
  for (const char* text : {"", "{16", "16, 16", "{a, b}", "{16; 16}", "{-1, 4}", "{nan, 4}"}) {
    const auto image =
        unarchived(archiveOf({{"$class", Value(Uid{2})}, {"NSSize", Value(Uid{3})}},
                             {classNamed("NSImage", {"NSImage", "NSObject"}), Value(text)}));
    ASSERT_THAT(image, NotNull());
    EXPECT_EQ(image->size(), (Size{0, 0})) << text;
  }
}

TEST_F(ImageTest, ASizeIsReadInAnySpacing) {
  for (const char* text : {"{16,20}", "{16, 20}", " { 16 , 20 } ", "{16.0, 2e1}"}) {
    const auto image =
        unarchived(archiveOf({{"$class", Value(Uid{2})}, {"NSSize", Value(Uid{3})}},
                             {classNamed("NSImage", {"NSImage", "NSObject"}), Value(text)}));
    ASSERT_THAT(image, NotNull());
    EXPECT_EQ(image->size(), (Size{16, 20})) << text;
  }
}

TEST_F(ImageTest, AnyNumberOfThreadsMayDrawOneImage) {
  const auto icon = Image::menuIconFrom(Image::imageNamed("icon-red"));
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(icon->draw(32, 32), bitmapOf(32, 32, kRed));
      EXPECT_THAT(icon->TIFFRepresentation(), NotNull());
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace tervano::test
