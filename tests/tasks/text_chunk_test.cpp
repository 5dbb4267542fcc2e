#include "tasks/text_chunk.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tervano {
namespace {

bool isText(const std::string& bytes) {
  return holdsText({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

TEST(TextChunkTest, NothingIsNoText) {
  EXPECT_FALSE(isText(""));
}

TEST(TextChunkTest, TextOfEveryLengthOfCharacterIsText) {
  for (const std::string text : {"a", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x91\x8b"}) {
    EXPECT_TRUE(isText(text)) << text;
    EXPECT_TRUE(isText(" \n" + text + "\t\n")) << text;
  }
}

TEST(TextChunkTest, TheBoundsOfEveryLengthAreText) {
  for (const std::string text :
       {"\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80",
        "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(isText(text));
  }
}

TEST(TextChunkTest, ControlCharactersAndNulAreText) {
  EXPECT_TRUE(isText(std::string(1, '\0')));
  EXPECT_TRUE(isText("\x1b"));
  EXPECT_TRUE(isText("\x08"));
  EXPECT_TRUE(isText("\x0e"));
}

TEST(TextChunkTest, EveryWhiteSpaceAndLineEndAloneIsNoText) {
  for (const std::string blank : {"\t",           "\n",           "\v",
                                  "\f",           "\r",           " ",
                                  "\xc2\x85",     "\xc2\xa0",     "\xe1\x9a\x80",
                                  "\xe2\x80\x80", "\xe2\x80\x81", "\xe2\x80\x82",
                                  "\xe2\x80\x83", "\xe2\x80\x84", "\xe2\x80\x85",
                                  "\xe2\x80\x86", "\xe2\x80\x87", "\xe2\x80\x88",
                                  "\xe2\x80\x89", "\xe2\x80\x8a", "\xe2\x80\xa8",
                                  "\xe2\x80\xa9", "\xe2\x80\xaf", "\xe2\x81\x9f",
                                  "\xe3\x80\x80"}) {
    EXPECT_FALSE(isText(blank));
    EXPECT_FALSE(isText(blank + blank + "\r\n"));
    EXPECT_TRUE(isText(blank + "x" + blank));
  }
}

TEST(TextChunkTest, CharactersThatOnlyLookEmptyAreText) {
  for (const std::string text : {"\xe2\x80\x8b", "\xef\xbb\xbf", "\xe1\xa0\x8e", "\xe2\x81\xa0"}) {
    EXPECT_TRUE(isText(text));
  }
}

TEST(TextChunkTest, BytesThatAreNotUtf8AreNoText) {
  for (const std::string bytes :
       {"\x80", "\xbf", "\xc0\x80", "\xc1\xbf", "\xc3", "\xc3(", "\xe2\x82", "\xe2(\xa1",
        "\xe0\x9f\xbf", "\xed\xa0\x80", "\xed\xbf\xbf", "\xf0\x9f\x91", "\xf0\x8f\xbf\xbf",
        "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xf8\x88\x80\x80\x80", "\xfe", "\xff"}) {
    EXPECT_FALSE(isText(bytes));
    EXPECT_FALSE(isText("text before " + bytes));
    EXPECT_FALSE(isText(bytes + " text after"));
  }
}

}  // namespace
}  // namespace tervano
