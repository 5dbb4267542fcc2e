#include "archive/printable.h"

#include <gtest/gtest.h>

namespace tervano::test {

TEST(PrintableTest, ControlCharactersAreEscaped) {
  EXPECT_EQ(printable("a\nb\tc\x1b[2J\x7f"), "a\\nb\\x09c\\x1b[2J\\x7f");
}

TEST(PrintableTest, CharactersThatTurnTheDirectionOfWritingAreShownEscaped) {
  EXPECT_EQ(printable("photo\u202egpj.exe"), "photo\\xe2\\x80\\xaegpj.exe");
  EXPECT_EQ(printable("a\u2067b\u200fc\u2028d"),
            "a\\xe2\\x81\\xa7b\\xe2\\x80\\x8fc\\xe2\\x80\\xa8d");
}

TEST(PrintableTest, TextOfOtherAlphabetsStays) {
  EXPECT_EQ(printable("Ордер 工作 é"), "Ордер 工作 é");
}

TEST(PrintableTest, EightBitControlCharactersAreEscaped) {
  // U+009B begins a terminal's control sequence as Escape and "[" do.
  EXPECT_EQ(printable("a\xc2\x9b"
                      "2Jb"),
            "a\\xc2\\x9b"
            "2Jb");
}

TEST(PrintableTest, BytesThatAreNoTextAreEscaped) {
  EXPECT_EQ(printable("a\xff"
                      "b"),
            "a\\xff"
            "b");
}

}  // namespace tervano::test
