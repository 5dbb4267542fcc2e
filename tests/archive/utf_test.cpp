#include "archive/utf.h"

#include <gtest/gtest.h>

namespace tervano {
namespace {

const std::string kReplacement = "\xEF\xBF\xBD";

std::string fromUnits(std::initializer_list<unsigned> units) {
  std::vector<std::uint8_t> bytes;
  for (const unsigned unit : units) {
    bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    bytes.push_back(static_cast<std::uint8_t>(unit));
  }
  return utf8FromUtf16BE(bytes);
}

TEST(UtfTest, ASurrogatePairIsOneCharacter) {
  EXPECT_EQ(fromUnits({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");
}

TEST(UtfTest, LoneSurrogatesBecomeReplacementCharacters) {
  EXPECT_EQ(fromUnits({0xD83D}), kReplacement);
  EXPECT_EQ(fromUnits({0xDE00}), kReplacement);
  EXPECT_EQ(fromUnits({0xD83D, 'a'}), kReplacement + "a");
  EXPECT_EQ(fromUnits({0xDE00, 0xD83D}), kReplacement + kReplacement);
  EXPECT_EQ(fromUnits({0xD83D, 0xD83D, 0xDE00}), kReplacement + "\xF0\x9F\x98\x80");
}

TEST(UtfTest, EveryCharacterSurvivesBothWays) {
  for (char32_t code = 1; code <= 0x10FFFF; code += code < 0x3000 ? 1 : 0x101) {
    if (code >= 0xD800 && code <= 0xDFFF) continue;
    const std::string text =
        code < 0x10000
            ? fromUnits({code})
            : fromUnits({0xD800 + ((code - 0x10000) >> 10), 0xDC00 + ((code - 0x10000) & 0x3FF)});
    ASSERT_TRUE(isValidUtf8(text)) << std::hex << static_cast<unsigned>(code);
    ASSERT_EQ(utf8FromUtf16BE(utf16BEFromUtf8(text)), text) << static_cast<unsigned>(code);
  }
}

TEST(UtfTest, BrokenUtf8IsNotValid) {
  for (const char* text :
       {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82", "a\xC3(", "\xFE"}) {
    EXPECT_FALSE(isValidUtf8(text)) << text;
    EXPECT_TRUE(isValidUtf8(validUtf8(text))) << text;
    EXPECT_EQ(utf8FromUtf16BE(utf16BEFromUtf8(text)), validUtf8(text)) << text;
  }
}

TEST(UtfTest, EachMaximalBrokenPartIsOneReplacement) {
  EXPECT_EQ(validUtf8("a\xE2\x82z"), "a" + kReplacement + "z");
  EXPECT_EQ(validUtf8("\xFF\xFE"), kReplacement + kReplacement);
  EXPECT_EQ(validUtf8("\xED\xA0\x80"), kReplacement + kReplacement + kReplacement);
}

TEST(UtfTest, AsciiIsSeenAtEveryPosition) {
  for (std::size_t length = 0; length < 40; ++length) {
    std::string text(length, 'a');
    EXPECT_TRUE(isAscii(text));
    for (std::size_t i = 0; i < length; ++i) {
      text[i] = '\x80';
      EXPECT_FALSE(isAscii(text));
      text[i] = 'a';
    }
  }
}

}  // namespace
}  // namespace tervano
