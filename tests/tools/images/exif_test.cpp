#include "tools/images/codecs/exif.h"

#include <gmock/gmock.h>

#include <string>

namespace tervano {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Data dataOf(const std::string& text) {
  return {text.begin(), text.end()};
}

// Little-endian: IFD0 with orientation 6, a maker and a pointer to a directory with the width; then
// a pointer to a thumbnail's directory.
Data littleEndianBlock() {
  return dataOf(
      std::string("II*\0\x08\0\0\0"
                  "\x03\0"
                  "\x0f\x01\x02\0\x05\0\0\0\x32\0\0\0"
                  "\x12\x01\x03\0\x01\0\0\0\x06\0\0\0"
                  "\x69\x87\x04\0\x01\0\0\0\x38\0\0\0"
                  "\x99\0\0\0"
                  "ACME\0\0"
                  "\x01\0"
                  "\x02\xa0\x04\0\x01\0\0\0\x40\0\0\0"
                  "\0\0\0\0",
                  74));
}

}  // namespace

TEST(ExifTest, TellsTheOrientation) {
  EXPECT_EQ(orientationOfExif(littleEndianBlock()), 6);
  EXPECT_EQ(orientationOfExif({}), 1);
  EXPECT_EQ(orientationOfExif(dataOf("no capture data at all")), 1);
}

TEST(ExifTest, AnOrientationThatDoesNotExistIsUpright) {
  Data exif = littleEndianBlock();
  exif[30] = 9;
  EXPECT_EQ(orientationOfExif(exif), 1);
  exif[30] = 0;
  EXPECT_EQ(orientationOfExif(exif), 1);
}

TEST(ExifTest, IsMadeUprightInPlace) {
  Data exif = littleEndianBlock();
  makeExifUpright(exif, 300, 200);
  Data expected = littleEndianBlock();
  expected[30] = 1;
  // No thumbnail any more.
  expected[46] = 0;
  expected[66] = 0x2c;
  expected[67] = 0x01;
  EXPECT_EQ(exif, expected);
}

TEST(ExifTest, GivesItsPartsForATiffFile) {
  const ExifForTiff parts(littleEndianBlock());
  EXPECT_THAT(parts.texts(), ElementsAre(Pair(271, "ACME")));
  EXPECT_EQ(parts.exifDirectory(1000),
            dataOf(std::string("\x01\0\x02\xa0\x04\0\x01\0\0\0\x40\0\0\0\0\0\0\0", 18)));
  EXPECT_THAT(parts.gpsDirectory(1000), IsEmpty());
}

TEST(ExifTest, EveryCutBlockIsTaken) {
  const Data whole = littleEndianBlock();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Data cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    makeExifUpright(cut, 300, 200);
    EXPECT_EQ(cut.size(), size);
    EXPECT_LE(ExifForTiff(cut).texts().size(), 1U);
  }
}

TEST(ExifTest, EveryChangedByteIsTaken) {
  for (std::size_t place = 0; place < littleEndianBlock().size(); ++place) {
    for (const int value : {0, 1, 0x7f, 0xff}) {
      Data exif = littleEndianBlock();
      exif[place] = static_cast<std::uint8_t>(value);
      makeExifUpright(exif, 300, 200);
      EXPECT_EQ(exif.size(), littleEndianBlock().size());
      EXPECT_LE(ExifForTiff(exif).exifDirectory(1000).size(), 100000U);
    }
  }
}

TEST(ExifTest, XmpIsMadeUprightInBothSpellings) {
  Data xmp = dataOf("<a tiff:Orientation=\"6\"/><tiff:Orientation>8</tiff:Orientation>");
  makeXmpUpright(xmp);
  EXPECT_EQ(xmp, dataOf("<a tiff:Orientation=\"1\"/><tiff:Orientation>1</tiff:Orientation>"));
  Data cut = dataOf("<a tiff:Orientation=\"");
  makeXmpUpright(cut);
  EXPECT_EQ(cut, dataOf("<a tiff:Orientation=\""));
}

}  // namespace tervano
