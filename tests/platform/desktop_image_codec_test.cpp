#include "platform/linux/desktop_image_codec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string_view>
#include <thread>

#include "platform/linux/bitmap_scaling.h"
#include "tests/support/program.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Optional;
using testing::Pair;

Data dataOf(std::string_view text) {
  return Data(text.begin(), text.end());
}

// Every pixel differs, alphas of all kinds.
Bitmap sample(int width, int height) {
  Bitmap bitmap = Bitmap::blank(width, height);
  for (std::size_t i = 0; i < bitmap.pixels.size(); ++i) {
    bitmap.pixels[i] = static_cast<std::uint8_t>(i * 37 + i / 7);
  }
  return bitmap;
}

Bitmap filled(int width, int height, std::array<std::uint8_t, 4> colour) {
  Bitmap bitmap = Bitmap::blank(width, height);
  for (std::size_t i = 0; i < bitmap.pixels.size(); ++i) bitmap.pixels[i] = colour[i % 4];
  return bitmap;
}

std::array<std::uint8_t, 4> pixelAt(const Bitmap& bitmap, int x, int y) {
  const auto at = (static_cast<std::size_t>(y) * static_cast<std::size_t>(bitmap.width) +
                   static_cast<std::size_t>(x)) *
                  4;
  return {bitmap.pixels[at], bitmap.pixels[at + 1], bitmap.pixels[at + 2], bitmap.pixels[at + 3]};
}

void put(Data& bytes, std::uint32_t value, int count, bool bigEndian) {
  for (int i = 0; i < count; ++i) {
    const int shift = 8 * (bigEndian ? count - 1 - i : i);
    bytes.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

// A TIFF header that claims a size and holds next to nothing.
Data tiffClaiming(std::uint32_t width, std::uint32_t height, std::uint32_t rowsPerStrip) {
  Data bytes = dataOf(std::string_view("II*\0\x08\0\0\0", 8));
  const std::uint32_t fields[][4] = {
      {256, 4, 1, width}, {257, 4, 1, height},       {258, 3, 1, 8}, {259, 3, 1, 1}, {262, 3, 1, 1},
      {273, 4, 1, 8},     {278, 4, 1, rowsPerStrip}, {279, 4, 1, 4}};
  put(bytes, std::size(fields), 2, false);
  for (const auto& field : fields) {
    put(bytes, field[0], 2, false);
    put(bytes, field[1], 2, false);
    put(bytes, field[2], 4, false);
    put(bytes, field[3], 4, false);
  }
  put(bytes, 0, 4, false);
  return bytes;
}

Data pngClaiming(std::uint32_t width, std::uint32_t height) {
  Data bytes = dataOf(std::string_view("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
  put(bytes, width, 4, true);
  put(bytes, height, 4, true);
  const Data rest = dataOf(std::string_view("\x08\x06\0\0\0", 5));
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  put(bytes, 0, 4, true);
  return bytes;
}

Data gif1x1() {
  return dataOf(
      std::string_view("GIF89a\1\0\1\0\x80\0\0\xff\0\0\0\0\0,\0\0\0\0\1\0\1\0\0\2\2D\1\0;", 35));
}

Data bmp2x1() {
  Data bytes = dataOf("BM");
  put(bytes, 54 + 8, 4, false);
  put(bytes, 0, 4, false);
  put(bytes, 54, 4, false);
  put(bytes, 40, 4, false);
  put(bytes, 2, 4, false);
  put(bytes, 1, 4, false);
  put(bytes, 1, 2, false);
  put(bytes, 24, 2, false);
  for (int i = 0; i < 6; ++i) put(bytes, 0, 4, false);
  const Data pixels{0, 0, 255, 0, 255, 0, 0, 0};
  bytes.insert(bytes.end(), pixels.begin(), pixels.end());
  return bytes;
}

constexpr std::string_view kDrawing =
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"20\" height=\"10\" viewBox=\"0 0 2 1\">"
    "<rect width=\"1\" height=\"1\" fill=\"#ff0000\"/></svg>";

class DesktopImageCodecTest : public testing::Test {
 protected:
  DesktopImageCodec codec_;
};

TEST_F(DesktopImageCodecTest, ATiffOfOursGivesBackEveryPixelWithItsStraightAlpha) {
  const Bitmap bitmap = sample(32, 32);
  const Data tiff = codec_.TIFFRepresentation(bitmap);
  EXPECT_THAT(codec_.pixelSize(tiff), Optional(Pair(32, 32)));
  EXPECT_THAT(codec_.draw(tiff, 32, 32), Optional(bitmap));
}

TEST_F(DesktopImageCodecTest, APngOfOursGivesBackEveryPixelWithItsStraightAlpha) {
  const Bitmap bitmap = sample(31, 17);
  const Data png = codec_.PNGRepresentation(bitmap);
  EXPECT_THAT(codec_.pixelSize(png), Optional(Pair(31, 17)));
  EXPECT_THAT(codec_.draw(png, 31, 17), Optional(bitmap));
}

TEST_F(DesktopImageCodecTest, AnotherReaderSeesAnRGBATiffWithUnassociatedAlpha) {
  const TemporaryHome home;
  const std::string path = home.path() + "/icon.tiff";
  const Data tiff = codec_.TIFFRepresentation(sample(32, 32));
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(tiff.data()), static_cast<std::streamsize>(tiff.size()));
  auto tiffinfo = startProgram("/usr/bin/tiffinfo", {"-D", path});
  std::string report;
  while (const auto line = tiffinfo.hear()) report += *line + "\n";
  EXPECT_EQ(tiffinfo.waitForExit(), 0);
  EXPECT_THAT(report,
              AllOf(HasSubstr("Image Width: 32 Image Length: 32"), HasSubstr("Bits/Sample: 8"),
                    HasSubstr("Samples/Pixel: 4"), HasSubstr("Extra Samples: 1<unassoc-alpha>"),
                    HasSubstr("Photometric Interpretation: RGB color"),
                    HasSubstr("Planar Configuration: single image plane")));
}

TEST_F(DesktopImageCodecTest, ABitmapThatIsNotWholeHasNoRepresentation) {
  Bitmap bitmap = sample(4, 4);
  bitmap.pixels.pop_back();
  EXPECT_TRUE(codec_.TIFFRepresentation(bitmap).empty());
  EXPECT_TRUE(codec_.PNGRepresentation(bitmap).empty());
  EXPECT_TRUE(codec_.TIFFRepresentation(Bitmap{}).empty());
}

TEST_F(DesktopImageCodecTest, ADrawingAnswersItsNaturalSizeAndIsDrawnAtAnySize) {
  const Data svg = dataOf(kDrawing);
  EXPECT_TRUE(codec_.isVector(svg));
  EXPECT_THAT(codec_.pixelSize(svg), Optional(Pair(20, 10)));
  const auto bitmap = codec_.draw(svg, 64, 64);
  ASSERT_TRUE(bitmap.has_value());
  EXPECT_THAT(pixelAt(*bitmap, 10, 60), testing::ElementsAre(255, 0, 0, 255));
  EXPECT_THAT(pixelAt(*bitmap, 50, 10), testing::ElementsAre(0, 0, 0, 0));
}

TEST_F(DesktopImageCodecTest, ADrawingWithoutASizeAnswersThatOfItsView) {
  EXPECT_THAT(
      codec_.pixelSize(dataOf("<?xml version=\"1.0\"?>\n<!-- a -->\n<svg viewBox=\"0 0 48 24\" "
                              "xmlns=\"http://www.w3.org/2000/svg\"/>")),
      Optional(Pair(48, 24)));
}

TEST_F(DesktopImageCodecTest, ADrawingReadsNoOtherFile) {
  const TemporaryHome home;
  const std::string path = home.path() + "/secret.png";
  const Data png = codec_.PNGRepresentation(filled(4, 4, {255, 0, 0, 255}));
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
  const auto bitmap =
      codec_.draw(dataOf("<svg xmlns=\"http://www.w3.org/2000/svg\" "
                         "xmlns:xlink=\"http://www.w3.org/1999/xlink\" width=\"4\" height=\"4\">"
                         "<image width=\"4\" height=\"4\" xlink:href=\"file://" +
                         path + "\"/></svg>"),
                  4, 4);
  EXPECT_THAT(bitmap, Optional(Bitmap::blank(4, 4)));
}

TEST_F(DesktopImageCodecTest, GifAndBmpAreReadByTheirFirstBytes) {
  EXPECT_THAT(codec_.pixelSize(gif1x1()), Optional(Pair(1, 1)));
  EXPECT_TRUE(codec_.draw(gif1x1(), 1, 1).has_value());
  EXPECT_THAT(codec_.pixelSize(bmp2x1()), Optional(Pair(2, 1)));
  const auto bitmap = codec_.draw(bmp2x1(), 2, 1);
  ASSERT_TRUE(bitmap.has_value());
  EXPECT_THAT(pixelAt(*bitmap, 0, 0), testing::ElementsAre(255, 0, 0, 255));
  EXPECT_THAT(pixelAt(*bitmap, 1, 0), testing::ElementsAre(0, 255, 0, 255));
}

TEST_F(DesktopImageCodecTest, WhatIsNoPictureIsNil) {
  for (const std::string_view text :
       {std::string_view(""), std::string_view("hello"), std::string_view("<html></html>"),
        std::string_view("%PDF-1.4"), std::string_view("\0\0\0\0", 4), std::string_view("<svg"),
        std::string_view("II*\0", 4), std::string_view("GIF89a"), std::string_view("BM"),
        std::string_view("\x89PNG\r\n\x1a\n"), std::string_view("\xff\xd8\xff"),
        std::string_view("\0\0\1\0", 4), std::string_view("RIFF\0\0\0\0WEBP", 12)}) {
    EXPECT_EQ(codec_.pixelSize(dataOf(text)), std::nullopt) << text;
    EXPECT_EQ(codec_.draw(dataOf(text), 16, 16), std::nullopt) << text;
  }
}

TEST_F(DesktopImageCodecTest, ATiffThatIsCutShortIsNilAtEveryLength) {
  const Data tiff = codec_.TIFFRepresentation(sample(8, 8));
  for (std::size_t length = 0; length < tiff.size(); ++length) {
    const Data cut(tiff.begin(), tiff.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(codec_.draw(cut, 8, 8), std::nullopt) << length;
  }
}

TEST_F(DesktopImageCodecTest, APngThatIsCutShortIsNil) {
  const Data png = codec_.PNGRepresentation(sample(64, 64));
  const Data half(png.begin(), png.begin() + static_cast<std::ptrdiff_t>(png.size() / 2));
  EXPECT_EQ(codec_.draw(half, 64, 64), std::nullopt);
}

TEST_F(DesktopImageCodecTest, APictureOfTooManyPixelsIsNil) {
  EXPECT_EQ(codec_.pixelSize(tiffClaiming(64'001, 1'000, 1)), std::nullopt);
  EXPECT_EQ(codec_.pixelSize(tiffClaiming(0xffffffff, 0xffffffff, 1)), std::nullopt);
  EXPECT_EQ(codec_.draw(tiffClaiming(0xffffffff, 1, 1), 16, 16), std::nullopt);
  EXPECT_EQ(codec_.pixelSize(pngClaiming(100'000, 100'000)), std::nullopt);
  EXPECT_EQ(codec_.draw(pngClaiming(100'000, 100'000), 16, 16), std::nullopt);
}

TEST_F(DesktopImageCodecTest, ATinyFileThatClaimsAHugePictureIsNil) {
  EXPECT_EQ(codec_.draw(tiffClaiming(8'000, 8'000, 8'000), 16, 16), std::nullopt);
  EXPECT_EQ(codec_.draw(pngClaiming(8'000, 8'000), 16, 16), std::nullopt);
}

TEST_F(DesktopImageCodecTest, ABmpThatClaimsMoreThanItsBytesCanHoldIsNil) {
  Data bmp = bmp2x1();
  // The height, in the file's byte order.
  bmp[24] = 1;
  EXPECT_EQ(codec_.pixelSize(bmp), std::nullopt);
  EXPECT_EQ(codec_.draw(bmp, 8, 8), std::nullopt);
}

TEST_F(DesktopImageCodecTest, APictureOfNoPixelsIsNil) {
  EXPECT_EQ(codec_.pixelSize(tiffClaiming(0, 4, 1)), std::nullopt);
  EXPECT_EQ(codec_.pixelSize(pngClaiming(0, 4)), std::nullopt);
}

TEST_F(DesktopImageCodecTest, ADrawingOfTooManyBytesIsNil) {
  std::string text(kDrawing);
  text.insert(5, std::string(DesktopImageCodec::kMaximumDrawingBytes, ' '));
  EXPECT_EQ(codec_.pixelSize(dataOf(text)), std::nullopt);
}

TEST_F(DesktopImageCodecTest, ADrawingThatNestsEntitiesIsNilOrBlankAndEnds) {
  std::string text = "<!DOCTYPE svg [<!ENTITY a \"aaaaaaaaaa\">";
  for (char name = 'b'; name <= 'j'; ++name) {
    text += std::string("<!ENTITY ") + name + " \"";
    for (int i = 0; i < 10; ++i) text += std::string("&") + static_cast<char>(name - 1) + ";";
    text += "\">";
  }
  text +=
      "]><svg xmlns=\"http://www.w3.org/2000/svg\" width=\"4\" height=\"4\"><text>&j;</text></svg>";
  const auto bitmap = codec_.draw(dataOf(text), 4, 4);
  EXPECT_TRUE(!bitmap || *bitmap == Bitmap::blank(4, 4));
}

TEST_F(DesktopImageCodecTest, AGifWhoseFrameIsLargerThanItsScreenIsBounded) {
  Data gif = gif1x1();
  // The frame's width and height, after the image separator and its place.
  const std::size_t frame = 13 + 6 + 5;
  for (std::size_t i = 0; i < 4; ++i) gif[frame + i] = 0xff;
  const auto bitmap = codec_.draw(gif, 4, 4);
  EXPECT_TRUE(!bitmap || bitmap->width == 4);
}

TEST_F(DesktopImageCodecTest, DamagedPicturesNeverDoMoreThanGiveNil) {
  std::mt19937 random(7);
  const Data originals[] = {codec_.TIFFRepresentation(sample(24, 24)),
                            codec_.PNGRepresentation(sample(24, 24)), gif1x1(), bmp2x1(),
                            dataOf(kDrawing)};
  for (const auto& original : originals) {
    for (int round = 0; round < 200; ++round) {
      Data damaged = original;
      for (int i = 0; i < 3; ++i) {
        damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
      }
      const auto bitmap = codec_.draw(damaged, 8, 8);
      EXPECT_TRUE(!bitmap || bitmap->pixels.size() == 8U * 8U * 4U);
      codec_.pixelSize(damaged);
    }
  }
}

TEST_F(DesktopImageCodecTest, ARequestForNoOrTooManyPixelsIsNil) {
  const Data tiff = codec_.TIFFRepresentation(sample(2, 2));
  EXPECT_EQ(codec_.draw(tiff, 0, 4), std::nullopt);
  EXPECT_EQ(codec_.draw(tiff, -1, 4), std::nullopt);
  EXPECT_EQ(codec_.draw(tiff, 100'000, 100'000), std::nullopt);
  EXPECT_EQ(codec_.draw(dataOf(kDrawing), 40'000, 1), std::nullopt);
}

TEST_F(DesktopImageCodecTest, AnyNumberOfThreadsMayDraw) {
  const Data tiff = codec_.TIFFRepresentation(sample(32, 32));
  const Data png = codec_.PNGRepresentation(sample(32, 32));
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(codec_.draw(tiff, 32, 32), codec_.draw(png, 32, 32));
        EXPECT_TRUE(codec_.draw(dataOf(kDrawing), 16, 16).has_value());
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(DesktopImageCodecWithoutItsLibraryTest, EveryPictureIsNilAndOneLineIsLogged) {
  ScopedPlatform platform;
  RecordingLog log(*platform.services().log);
  platform.services().log = &log;
  const DesktopImageCodec codec("/nonexistent/pictures.so");
  EXPECT_EQ(codec.pixelSize(gif1x1()), std::nullopt);
  EXPECT_EQ(codec.draw(gif1x1(), 1, 1), std::nullopt);
  EXPECT_FALSE(codec.isVector(dataOf(kDrawing)));
  EXPECT_TRUE(codec.TIFFRepresentation(sample(2, 2)).empty());
  EXPECT_TRUE(codec.PNGRepresentation(sample(2, 2)).empty());
  EXPECT_THAT(log.lines(), testing::ElementsAre(HasSubstr("Could not load the picture library: ")));
}

TEST(ScaledBitmapTest, TheSameSizeIsTheSameBitmap) {
  EXPECT_EQ(scaledBitmap(sample(5, 3), 5, 3), sample(5, 3));
}

TEST(ScaledBitmapTest, OneColourStaysThatColourAtEverySize) {
  const Bitmap source = filled(13, 7, {200, 100, 50, 128});
  for (const auto& [width, height] : {std::pair(1, 1), {4, 4}, {13, 20}, {40, 3}, {100, 90}}) {
    EXPECT_EQ(scaledBitmap(source, width, height), filled(width, height, {200, 100, 50, 128}));
  }
}

TEST(ScaledBitmapTest, ShrinkingTakesTheAverageOfTheArea) {
  Bitmap source = filled(2, 2, {0, 0, 0, 255});
  source.pixels[0] = 255;
  source.pixels[4] = 255;
  EXPECT_EQ(scaledBitmap(source, 1, 1), filled(1, 1, {128, 0, 0, 255}));
}

TEST(ScaledBitmapTest, TransparentPixelsLendNoColour) {
  Bitmap source = filled(2, 1, {255, 0, 0, 255});
  // Green, and wholly transparent.
  source.pixels[4] = 0;
  source.pixels[5] = 255;
  source.pixels[7] = 0;
  EXPECT_EQ(scaledBitmap(source, 1, 1), filled(1, 1, {255, 0, 0, 128}));
}

TEST(ScaledBitmapTest, GrowingGoesSmoothlyFromOneColourToTheNext) {
  Bitmap source = filled(2, 1, {0, 0, 0, 255});
  source.pixels[4] = 200;
  const Bitmap wide = scaledBitmap(source, 4, 1);
  EXPECT_EQ(wide.pixels[0], 0);
  EXPECT_EQ(wide.pixels[4], 50);
  EXPECT_EQ(wide.pixels[8], 150);
  EXPECT_EQ(wide.pixels[12], 200);
}

TEST(ScaledBitmapTest, PicturesOfOneRowOrColumnScaleToo) {
  EXPECT_EQ(scaledBitmap(filled(1'000'000, 1, {9, 8, 7, 255}), 8, 8), filled(8, 8, {9, 8, 7, 255}));
  EXPECT_EQ(scaledBitmap(filled(1, 1'000'000, {9, 8, 7, 255}), 8, 8), filled(8, 8, {9, 8, 7, 255}));
}

TEST(ScaledBitmapTest, AnEmptyBitmapScalesToABlankOne) {
  EXPECT_EQ(scaledBitmap(Bitmap{}, 3, 2), Bitmap::blank(3, 2));
}

}  // namespace
}  // namespace tervano::test
