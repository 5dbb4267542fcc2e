#include "store/value_text.h"

#include <gtest/gtest.h>

#include "archive/coding.h"

namespace tervano::test {
namespace {

class Thing : public Coding {
 public:
  std::string_view className() const override { return "TVThing"; }
  void initWithCoder(Unarchiver& /*coder*/) override {}
  void encodeWithCoder(Archiver& /*coder*/) const override {}
};

TEST(ValueTextTest, NilIsNullInParentheses) {
  EXPECT_EQ(textOfValue(nullptr), "(null)");
}

TEST(ValueTextTest, ScalarsAreShownAsTheyAre) {
  EXPECT_EQ(textOfValue("text"), "text");
  EXPECT_EQ(textOfValue(true), "1");
  EXPECT_EQ(textOfValue(false), "0");
  EXPECT_EQ(textOfValue(-5), "-5");
  EXPECT_EQ(textOfValue(UINT64_MAX), "18446744073709551615");
  EXPECT_EQ(textOfValue(0.5), "0.5");
}

TEST(ValueTextTest, AUrlIsItsURIAndAUuidItsText) {
  EXPECT_EQ(textOfValue(Url("file:///a%20b")), "file:///a%20b");
  EXPECT_EQ(textOfValue(Uuid()), "00000000-0000-0000-0000-000000000000");
}

TEST(ValueTextTest, DataShowsItsSizeAndAnObjectItsClass) {
  EXPECT_EQ(textOfValue(Data{1, 2, 3}), "<3 bytes>");
  EXPECT_EQ(textOfValue(std::make_shared<Thing>()), "<TVThing>");
}

TEST(ValueTextTest, OtherKindsOfNumbersAreNumbers) {
  EXPECT_EQ(textOfValue(Uid{7}), "7");
  EXPECT_EQ(textOfValue(Date{1.5}), "1.5");
}

TEST(ValueTextTest, ContainersShowWhatTheyHold) {
  EXPECT_EQ(textOfValue(Value::Array{1, "a", nullptr}), "(1, a, (null))");
  EXPECT_EQ(textOfValue(Value::Dictionary{{"a", 1}, {"b", Value::Array()}}), "{a = 1; b = (); }");
}

}  // namespace
}  // namespace tervano::test
