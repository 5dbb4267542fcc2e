#include "tools/images/picture_format.h"

#include <gtest/gtest.h>

namespace tervano {

TEST(PictureFormatTest, EveryWordNamesItsOwnFormat) {
  for (const PictureFormat format : kPictureFormats) {
    EXPECT_EQ(formatOfWord(wordOf(format)), format) << wordOf(format);
  }
}

TEST(PictureFormatTest, SynonymsAreKnownWithoutRegardToCase) {
  EXPECT_EQ(formatOfWord("jpg"), PictureFormat::jpeg);
  EXPECT_EQ(formatOfWord("TIF"), PictureFormat::tiff);
  EXPECT_EQ(formatOfWord("Heif"), PictureFormat::heic);
  EXPECT_EQ(formatOfWord("public.jpeg-2000"), PictureFormat::jp2);
}

TEST(PictureFormatTest, OtherWordsAreUnknown) {
  for (const std::string_view word : {"", "psd", "jpeg ", "jpe", "jpegs", ".png", "icns", "svg"}) {
    EXPECT_EQ(formatOfWord(word), std::nullopt) << word;
  }
}

TEST(PictureFormatTest, TheListIsAPartOfASentence) {
  EXPECT_EQ(listOfWords(), "jpeg, png, tiff, gif, bmp, jp2, webp, heic, avif and pdf");
}

}  // namespace tervano
