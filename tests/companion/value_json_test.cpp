#include "companion/value_json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tervano::test {

namespace {

Value dataValue(const std::string& bytes) {
  return Value(std::make_shared<const Data>(bytes.begin(), bytes.end()));
}

}  // namespace

TEST(ValueJsonTest, NilIsNull) {
  EXPECT_TRUE(jsonOfValue(Value()).is_null());
}

TEST(ValueJsonTest, BooleanIsNoNumber) {
  EXPECT_EQ(jsonOfValue(Value(true)).dump(), "true");
  EXPECT_EQ(jsonOfValue(Value(std::int64_t{1})).dump(), "1");
}

TEST(ValueJsonTest, IntegersKeepTheirWholeRange) {
  EXPECT_EQ(jsonOfValue(Value(std::numeric_limits<std::int64_t>::min())).dump(),
            "-9223372036854775808");
  EXPECT_EQ(jsonOfValue(Value(std::numeric_limits<std::uint64_t>::max())).dump(),
            "18446744073709551615");
}

TEST(ValueJsonTest, RealNumberIsANumber) {
  EXPECT_EQ(jsonOfValue(Value(0.5)).dump(), "0.5");
}

TEST(ValueJsonTest, RealNumbersThatJsonLacksAreNull) {
  EXPECT_TRUE(jsonOfValue(Value(std::nan(""))).is_null());
  EXPECT_TRUE(jsonOfValue(Value(std::numeric_limits<double>::infinity())).is_null());
}

TEST(ValueJsonTest, DataIsBase64WithItsPadding) {
  EXPECT_EQ(jsonOfValue(dataValue("")), "");
  EXPECT_EQ(jsonOfValue(dataValue("f")), "Zg==");
  EXPECT_EQ(jsonOfValue(dataValue("fo")), "Zm8=");
  EXPECT_EQ(jsonOfValue(dataValue("foo")), "Zm9v");
  EXPECT_EQ(jsonOfValue(dataValue("\xff\xfe\xfd")), "//79");
}

TEST(ValueJsonTest, DateIsItsSecondInUtc) {
  EXPECT_EQ(jsonOfValue(Value(Date{0})), "2001-01-01T00:00:00Z");
  EXPECT_EQ(jsonOfValue(Value(Date{-978307200})), "1970-01-01T00:00:00Z");
}

TEST(ValueJsonTest, DateOutsideOfFourDigitYearsIsNull) {
  EXPECT_TRUE(jsonOfValue(Value(Date{1e18})).is_null());
  EXPECT_TRUE(jsonOfValue(Value(Date{std::nan("")})).is_null());
}

TEST(ValueJsonTest, UidIsAnObject) {
  EXPECT_EQ(jsonOfValue(Value(Uid{7})).dump(), R"({"CF$UID":7})");
}

TEST(ValueJsonTest, UrlIsItsText) {
  EXPECT_EQ(jsonOfValue(Value(Url::fileURLWithPath("/a b", false))), "file:///a%20b");
}

TEST(ValueJsonTest, ArraysAndDictionariesNest) {
  const Value value(Value::Dictionary{
      {"list", Value(Value::Array{Value(std::int64_t{1}), Value(std::string("x"))})}});
  EXPECT_EQ(jsonOfValue(value).dump(), R"({"list":[1,"x"]})");
}

TEST(ValueJsonTest, BytesThatAreNoTextAreReplaced) {
  EXPECT_EQ(jsonText(jsonOfValue(Value(std::string("a\xff")))), "\"a\xef\xbf\xbd\"\n");
}

TEST(ValueJsonTest, TextIsIndentedByTwoAndEndsWithALine) {
  EXPECT_EQ(jsonText(nlohmann::ordered_json{{"b", 1}, {"a", 2}}),
            "{\n  \"b\": 1,\n  \"a\": 2\n}\n");
}

}  // namespace tervano::test
