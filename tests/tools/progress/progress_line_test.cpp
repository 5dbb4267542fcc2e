#include "tools/progress/progress_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> cut(LineCutter& cutter, const std::string& text) {
  return cutter.add(text.data(), text.size());
}

}  // namespace

TEST(ProgressLineTest, ARowHasItsNumberPartTitleAndText) {
  const auto line = parseProgressLine("show\t12\t250\tCopy to \xC3\xA9\t1 of 4 items");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->number, 12U);
  EXPECT_FALSE(line->hides);
  EXPECT_EQ(line->fraction, 0.25);
  EXPECT_EQ(line->title, "Copy to \xC3\xA9");
  EXPECT_EQ(line->text, "1 of 4 items");
}

TEST(ProgressLineTest, AnUnknownPartIsADash) {
  const auto line = parseProgressLine("show\t1\t-\tCopy\t");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->fraction, std::nullopt);
  EXPECT_EQ(line->text, "");
}

TEST(ProgressLineTest, APartBeyondTheWholeIsTheWhole) {
  EXPECT_EQ(parseProgressLine("show\t1\t5000\ta\tb")->fraction, 1.0);
  EXPECT_EQ(parseProgressLine("show\t1\t-5\ta\tb")->fraction, 0.0);
}

TEST(ProgressLineTest, ARowGoesAway) {
  const auto line = parseProgressLine("hide\t3");
  ASSERT_TRUE(line);
  EXPECT_TRUE(line->hides);
  EXPECT_EQ(line->number, 3U);
}

TEST(ProgressLineTest, WhatSaysNothingIsNoLine) {
  for (const std::string text : {"", "show", "hide", "hide\tx", "hide\t1\t2", "show\t1\t2\t3",
                                 "show\t1\tx\ta\tb", "show\t1\t2\ta\tb\tc", "move\t1\t2\ta\tb",
                                 "show\t-1\t2\ta\tb", "hide\t99999999999999999999"}) {
    EXPECT_FALSE(parseProgressLine(text)) << text;
  }
}

TEST(LineCutterTest, LinesComeInAnyPieces) {
  LineCutter cutter;
  EXPECT_THAT(cut(cutter, "on"), IsEmpty());
  EXPECT_THAT(cut(cutter, "e\ntwo\nth"), ElementsAre("one", "two"));
  EXPECT_THAT(cut(cutter, "ree\n\n"), ElementsAre("three", ""));
}

TEST(LineCutterTest, ALineWithoutAnEndIsDroppedWhole) {
  LineCutter cutter;
  EXPECT_THAT(cut(cutter, std::string(1 << 20, 'x')), IsEmpty());
  EXPECT_THAT(cut(cutter, "rest\nnext\n"), ElementsAre("next"));
}

}  // namespace tervano::test
