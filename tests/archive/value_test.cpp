#include "archive/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

namespace tervano {
namespace {

TEST(ValueTest, TrueAndOneDiffer) {
  EXPECT_FALSE(Value(true) == Value(1));
}

TEST(ValueTest, OneAndOnePointZeroDiffer) {
  EXPECT_FALSE(Value(1) == Value(1.0));
}

TEST(ValueTest, DataIsEqualByItsBytes) {
  EXPECT_EQ(Value(Data{1, 2}), Value(Data{1, 2}));
  EXPECT_FALSE(Value(Data{1, 2}) == Value(Data{1, 3}));
}

TEST(ValueTest, CopyingAValueSharesItsData) {
  const Value original(Data{1, 2, 3});
  Value copy;
  copy = original;
  EXPECT_EQ(original.getIf<DataPtr>()->get(), copy.getIf<DataPtr>()->get());
}

TEST(ValueTest, NotANumberEqualsItself) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Value(nan), Value(nan));
  EXPECT_EQ(Value(Date{nan}), Value(Date{nan}));
}

TEST(ValueTest, UnsignedBeyondTheSignedRangeKeepsItsOwnKind) {
  EXPECT_NE(Value(UINT64_MAX).getIf<std::uint64_t>(), nullptr);
  EXPECT_NE(Value(std::uint64_t{5}).getIf<std::int64_t>(), nullptr);
}

TEST(ValueTest, AnEmptyOptionalIsNil) {
  EXPECT_TRUE(Value(std::optional<std::string>()).isNull());
  EXPECT_EQ(Value(std::optional<std::string>("a")), Value("a"));
}

TEST(ValueTest, FindGivesTheEntryOfADictionaryOnly) {
  const Value dictionary(Value::Dictionary{{"a", 1}});
  ASSERT_NE(dictionary.find("a"), nullptr);
  EXPECT_EQ(*dictionary.find("a"), Value(1));
  EXPECT_EQ(dictionary.find("b"), nullptr);
  EXPECT_EQ(Value("a").find("a"), nullptr);
}

TEST(ValueTest, BoolValueOfTextsReadsTheFirstTellingCharacter) {
  for (const char* yes : {"YES", "yes", "true", "True", "1", " \t1", "+7", "-7", "0001", "0y"}) {
    EXPECT_TRUE(boolValue(yes)) << yes;
  }
  for (const char* no : {"", "NO", "no", "false", "0", "000", "-", "nope", "x1"}) {
    EXPECT_FALSE(boolValue(no)) << no;
  }
}

TEST(ValueTest, BoolValueOfNumbersIsWhetherTheyDifferFromZero) {
  EXPECT_TRUE(boolValue(true));
  EXPECT_TRUE(boolValue(-1));
  EXPECT_TRUE(boolValue(0.5));
  EXPECT_TRUE(boolValue(UINT64_MAX));
  EXPECT_FALSE(boolValue(0));
  EXPECT_FALSE(boolValue(0.0));
}

TEST(ValueTest, ValuesWithoutANumberAreZero) {
  for (const Value& value : {Value(), Value(Data{1}), Value(Value::Array{1}), Value(Date{5})}) {
    EXPECT_FALSE(boolValue(value));
    EXPECT_EQ(longLongValue(value), 0);
    EXPECT_EQ(doubleValue(value), 0);
  }
}

TEST(ValueTest, LongLongValueOfTextsReadsTheLeadingDigits) {
  EXPECT_EQ(longLongValue("42"), 42);
  EXPECT_EQ(longLongValue("  -42 apples"), -42);
  EXPECT_EQ(longLongValue("+7"), 7);
  EXPECT_EQ(longLongValue("0x10"), 0);
  EXPECT_EQ(longLongValue("apples"), 0);
}

TEST(ValueTest, LongLongValueOfTextsStaysAtTheEndsOfTheRange) {
  EXPECT_EQ(longLongValue("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(longLongValue("9223372036854775808"), INT64_MAX);
  EXPECT_EQ(longLongValue("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(longLongValue("-99999999999999999999"), INT64_MIN);
}

TEST(ValueTest, LongLongValueOfRealsCutsTowardsZeroAndStaysInTheRange) {
  EXPECT_EQ(longLongValue(2.9), 2);
  EXPECT_EQ(longLongValue(-2.9), -2);
  EXPECT_EQ(longLongValue(1e30), INT64_MAX);
  EXPECT_EQ(longLongValue(-1e30), INT64_MIN);
  EXPECT_EQ(longLongValue(std::nan("")), 0);
}

TEST(ValueTest, DoubleValueOfTextsReadsTheLeadingNumber) {
  EXPECT_EQ(doubleValue("2.5"), 2.5);
  EXPECT_EQ(doubleValue(" -2.5e2kg"), -250);
  EXPECT_EQ(doubleValue(".5"), 0.5);
  EXPECT_EQ(doubleValue("5."), 5);
  EXPECT_EQ(doubleValue("1e"), 1);
  EXPECT_EQ(doubleValue("0x10"), 0);
  EXPECT_EQ(doubleValue("inf"), 0);
  EXPECT_EQ(doubleValue("nan"), 0);
  EXPECT_EQ(doubleValue("."), 0);
}

TEST(ValueTest, DoubleValueOfHugeTextsIsInfinite) {
  EXPECT_EQ(doubleValue("1e999"), std::numeric_limits<double>::infinity());
}

TEST(UuidTest, TheStringHas36UpperCaseCharactersInGroups) {
  Uuid uuid;
  for (std::size_t i = 0; i < uuid.bytes.size(); ++i) {
    uuid.bytes[i] = static_cast<std::uint8_t>(0xA0 + i);
  }
  EXPECT_EQ(uuid.UUIDString(), "A0A1A2A3-A4A5-A6A7-A8A9-AAABACADAEAF");
}

TEST(UuidTest, RandomOnesAreDistinctAndOfVersionFour) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = Uuid::random().UUIDString();
    EXPECT_EQ(text[14], '4');
    EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos);
    EXPECT_TRUE(seen.insert(text).second);
  }
}

}  // namespace
}  // namespace tervano
