#include "hosts/common/menu_text.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <set>

namespace tervano::test {

TEST(MenuTextTest, MnemonicsAreDoubledAndNothingElse) {
  EXPECT_EQ(menuLabel("a_b__c &d <b>"), "a__b____c &d <b>");
  EXPECT_EQ(menuLabel("a_b && c", '&'), "a_b &&&& c");
}

TEST(MenuTextTest, ALabelStandsOnOneLine) {
  EXPECT_EQ(menuLabel("one\ntwo\r\n\tthree\x7f"), "one two   three ");
}

TEST(MenuTextTest, ALabelIsValidText) {
  const std::string label = menuLabel("bad \xff\xfe and \xc3");
  EXPECT_TRUE(g_utf8_validate(label.data(), static_cast<gssize>(label.size()), nullptr));
  EXPECT_TRUE(label.starts_with("bad "));
  EXPECT_EQ(menuLabel("工作 ünï \U0001f600"), "工作 ünï \U0001f600");
}

TEST(MenuTextTest, ANulEndsNothing) {
  const std::string label = menuLabel(std::string_view("a\0b", 3));
  EXPECT_TRUE(label.starts_with("a"));
  EXPECT_TRUE(label.ends_with("b"));
}

TEST(MenuTextTest, AnEmptyTitleHasAnEmptyLabel) {
  EXPECT_EQ(menuLabel(""), "");
}

TEST(MenuTextTest, DistinctLabelsDifferAndReadTheSame) {
  std::set<std::string> labels;
  for (int i = 0; i < 1'000; ++i) {
    const std::string label = distinctLabel("Group");
    EXPECT_TRUE(labels.insert(label).second);
    ASSERT_TRUE(label.starts_with("Group"));
    const std::string end = label.substr(5);
    for (const char* c = end.c_str(); *c != '\0'; c = g_utf8_next_char(c)) {
      const gunichar character = g_utf8_get_char(c);
      EXPECT_TRUE(character == 0x200b || character == 0x200c || character == 0x2060);
    }
    EXPECT_LT(label.size(), 100u);
  }
}

}  // namespace tervano::test
