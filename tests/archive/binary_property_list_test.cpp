#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <optional>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "tests/archive/raw_property_list.h"

namespace tervano {
namespace {

using testing::hex;
using testing::RawPropertyList;

Value read(const Data& bytes) {
  return binaryPropertyListWithData(bytes);
}

Value readObject(std::string_view digits) {
  RawPropertyList list;
  list.objects = {hex(digits)};
  return read(list.bytes());
}

// The first object is read; all others are there for it to refer to.
Value readObjects(const std::vector<std::string>& digits) {
  RawPropertyList list;
  for (const std::string& object : digits) list.objects.push_back(hex(object));
  return read(list.bytes());
}

Value binaryRoundTrip(const Value& value) {
  return read(binaryDataWithPropertyList(value));
}

TEST(BinaryPropertyListTest, GoodObjectsAreRead) {
  const std::pair<const char*, Value> cases[] = {
      {"08", false},
      {"09", true},
      {"10 00", 0},
      {"10 FF", 255},
      {"11 FFFF", 65535},
      {"12 FFFFFFFF", 4294967295},
      {"13 7FFFFFFFFFFFFFFF", INT64_MAX},
      {"13 FFFFFFFFFFFFFFFF", -1},
      {"13 8000000000000000", INT64_MIN},
      {"14 0000000000000000 0000000000000007", 7},
      {"14 0000000000000000 FFFFFFFFFFFFFFFF", UINT64_MAX},
      {"14 FFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFE", -2},
      {"14 FFFFFFFFFFFFFFFF 8000000000000000", INT64_MIN},
      {"22 3FC00000", 1.5},
      {"23 3FF8000000000000", 1.5},
      {"33 41B0000000000000", Date{268435456}},
      {"33 C1B0000000000000", Date{-268435456}},
      {"40", Data()},
      {"42 0001", Data{0, 1}},
      {"4F 10 02 0001", Data{0, 1}},
      {"4F 11 0002 0001", Data{0, 1}},
      {"4F 12 00000002 0001", Data{0, 1}},
      {"4F 13 0000000000000002 0001", Data{0, 1}},
      {"50", ""},
      {"53 616263", "abc"},
      {"52 6100", std::string("a\0", 2)},
      {"60", ""},
      {"61 00E9", "\xC3\xA9"},
      {"62 D83D DE00", "\xF0\x9F\x98\x80"},
      {"61 D83D", "\xEF\xBF\xBD"},
      {"80 05", Uid{5}},
      {"81 0105", Uid{261}},
      {"82 000005", Uid{5}},
      {"83 00000005", Uid{5}},
      {"84 0000000005", Uid{5}},
      {"85 000000000005", Uid{5}},
      {"86 00000000000005", Uid{5}},
      {"87 FFFFFFFFFFFFFFFF", Uid{UINT64_MAX}},
      {"A0", Value::Array()},
      {"B0", Value::Array()},
      {"C0", Value::Array()},
      {"D0", Value::Dictionary()},
  };
  for (const auto& [digits, expected] : cases) EXPECT_EQ(readObject(digits), expected) << digits;
}

TEST(BinaryPropertyListTest, MalformedObjectsAreRefused) {
  for (const char* digits :
       {"00", "01", "07", "0A", "0C", "0F", "15 00", "18 0000000000000000", "20 00", "21 0000",
        "24 00000000000000000000000000000000", "30 00", "32 00000000", "70", "71 61",
        "88 000000000000000000", "8F 00000000000000000000000000000000", "90", "E0", "F0", "FF",
        "51 80", "53 61C3A9",
        // Beyond 64 bits.
        "14 0000000000000001 0000000000000000", "14 FFFFFFFFFFFFFFFF 7FFFFFFFFFFFFFFF",
        "14 8000000000000000 0000000000000000",
        // Counts that are no integers, or are integers of another width than a count has.
        "4F", "4F 50", "4F 10", "4F 11 00", "4F 14 00000000000000000000000000000000", "4F 09"}) {
    EXPECT_THROW(readObject(digits), PlatformException) << digits;
  }
}

TEST(BinaryPropertyListTest, ObjectsThatReachBeyondTheObjectAreaAreRefused) {
  for (const char* digits : {"11 00",
                             "12 000000",
                             "13 00000000000000",
                             "14 000000000000000000000000000000",
                             "22 000000",
                             "23 00000000000000",
                             "33 00000000000000",
                             "41",
                             "51",
                             "61 00",
                             "81 00",
                             "A1",
                             "B1",
                             "C1",
                             "D1 00",
                             "4F 10 01",
                             "4F 13 FFFFFFFFFFFFFFFF",
                             "4F 13 8000000000000000",
                             "5F 13 7FFFFFFFFFFFFFFF",
                             "6F 13 8000000000000000",
                             "6F 12 FFFFFFFF",
                             "AF 13 FFFFFFFFFFFFFFFF",
                             "AF 12 80000000",
                             "DF 13 8000000000000000",
                             "DF 13 7FFFFFFFFFFFFFFF",
                             "DF 12 FFFFFFFF"}) {
    EXPECT_THROW(readObject(digits), PlatformException) << digits;
  }
}

TEST(BinaryPropertyListTest, ContainersHoldWhatTheyReferTo) {
  EXPECT_EQ(readObjects({"A3 01 02 01", "10 05", "51 61"}), Value(Value::Array{5, "a", 5}));
  EXPECT_EQ(readObjects({"D2 01 02 02 03", "51 61", "51 62", "09"}),
            Value(Value::Dictionary{{"a", "b"}, {"b", true}}));
}

TEST(BinaryPropertyListTest, SetsAreReadAsArrays) {
  EXPECT_EQ(readObjects({"B1 01", "09"}), Value(Value::Array{true}));
  EXPECT_EQ(readObjects({"C1 01", "09"}), Value(Value::Array{true}));
}

TEST(BinaryPropertyListTest, AReferenceOutOfRangeIsRefused) {
  EXPECT_THROW(readObjects({"A1 01"}), PlatformException);
  EXPECT_THROW(readObjects({"D1 01 02", "51 61"}), PlatformException);
}

TEST(BinaryPropertyListTest, AReferenceOutOfRangeIsRefusedAlsoInAnObjectThatNobodyRefersTo) {
  EXPECT_THROW(readObjects({"09", "A1 07"}), PlatformException);
}

TEST(BinaryPropertyListTest, ADictionaryKeyThatIsNoStringIsRefused) {
  EXPECT_THROW(readObjects({"D1 01 02", "10 01", "09"}), PlatformException);
}

TEST(BinaryPropertyListTest, ADictionaryKeyThatStandsTwiceIsRefused) {
  EXPECT_THROW(readObjects({"D2 01 01 02 02", "51 61", "09"}), PlatformException);
  EXPECT_THROW(readObjects({"D2 01 02 03 03", "51 61", "51 61", "09"}), PlatformException);
  EXPECT_THROW(readObjects({"D2 01 02 03 03", "51 61", "61 0061", "09"}), PlatformException);
}

TEST(BinaryPropertyListTest, ADictionaryMayUseTheKeysOfAnother) {
  EXPECT_EQ(readObjects({"A2 01 02", "D1 03 04", "D1 03 05", "51 61", "08", "09"}),
            Value(Value::Array{Value::Dictionary{{"a", false}}, Value::Dictionary{{"a", true}}}));
}

TEST(BinaryPropertyListTest, AContainerThatContainsItselfIsRefused) {
  EXPECT_THROW(readObjects({"A1 00"}), PlatformException);
  EXPECT_THROW(readObjects({"D1 01 00", "51 61"}), PlatformException);
  EXPECT_THROW(readObjects({"A1 01", "A1 02", "A1 00"}), PlatformException);
}

TEST(BinaryPropertyListTest, AContainerMayStandInSeveralPlaces) {
  EXPECT_EQ(readObjects({"A2 01 01", "A1 02", "09"}),
            Value(Value::Array{Value::Array{true}, Value::Array{true}}));
}

TEST(BinaryPropertyListTest, TheRootMayBeAnyObject) {
  RawPropertyList list;
  list.objects = {hex("51 61"), hex("51 62")};
  list.root = 1;
  EXPECT_EQ(read(list.bytes()), Value("b"));
}

TEST(BinaryPropertyListTest, EveryOffsetAndReferenceWidthIsRead) {
  for (unsigned offsetWidth = 1; offsetWidth <= 8; ++offsetWidth) {
    for (unsigned referenceWidth = 1; referenceWidth <= 8; ++referenceWidth) {
      RawPropertyList list;
      list.offsetWidth = offsetWidth;
      list.referenceWidth = referenceWidth;
      list.objects = {hex("A1") + RawPropertyList::bigEndian(1, referenceWidth), hex("51 61")};
      EXPECT_EQ(read(list.bytes()), Value(Value::Array{"a"})) << offsetWidth << referenceWidth;
    }
  }
}

TEST(BinaryPropertyListTest, WrongWidthsAreRefused) {
  for (const unsigned width : {0U, 9U, 16U, 255U}) {
    RawPropertyList list;
    list.objects = {hex("09")};
    list.saidOffsetWidth = width;
    EXPECT_THROW(read(list.bytes()), PlatformException) << width;
    list.saidOffsetWidth.reset();
    list.saidReferenceWidth = width;
    EXPECT_THROW(read(list.bytes()), PlatformException) << width;
  }
}

TEST(BinaryPropertyListTest, AWrongMagicIsRefused) {
  for (const char* magic : {"bplist01", "bplist15", "bplist0", "Bplist00", "xxxxxxxx"}) {
    RawPropertyList list;
    list.objects = {hex("09")};
    list.magic = magic;
    EXPECT_THROW(read(list.bytes()), PlatformException) << magic;
  }
}

TEST(BinaryPropertyListTest, AWrongTrailerIsRefused) {
  RawPropertyList good;
  good.objects = {hex("A1 01"), hex("09")};
  ASSERT_EQ(read(good.bytes()), Value(Value::Array{true}));
  for (const std::uint64_t count :
       {std::uint64_t{0}, std::uint64_t{3}, std::uint64_t{1} << 32, UINT64_MAX}) {
    RawPropertyList list = good;
    list.objectCount = count;
    EXPECT_THROW(read(list.bytes()), PlatformException) << count;
  }
  for (const std::uint64_t root : {std::uint64_t{2}, UINT64_MAX}) {
    RawPropertyList list = good;
    list.root = root;
    EXPECT_THROW(read(list.bytes()), PlatformException) << root;
  }
  for (const std::uint64_t start : {std::uint64_t{0}, std::uint64_t{8}, std::uint64_t{12},
                                    std::uint64_t{1000}, UINT64_MAX, UINT64_MAX - 2}) {
    RawPropertyList list = good;
    list.tableStart = start;
    EXPECT_THROW(read(list.bytes()), PlatformException) << start;
  }
}

TEST(BinaryPropertyListTest, AnOffsetOutsideTheObjectAreaIsRefused) {
  // The header, the offset table, the trailer, beyond the file.
  for (const std::uint64_t offset : {0, 7, 9, 10, 20, 200}) {
    RawPropertyList list;
    list.objects = {hex("09")};
    list.offsets[0] = offset;
    EXPECT_THROW(read(list.bytes()), PlatformException) << offset;
  }
}

TEST(BinaryPropertyListTest, OverlappingObjectsAreRefused) {
  RawPropertyList list;
  list.objects = {hex("A1 01"), hex("42 0909"), hex("09")};
  ASSERT_NO_THROW(read(list.bytes()));
  for (const std::uint64_t offset : {8, 9, 10, 11, 12}) {
    list.offsets[2] = offset;
    EXPECT_THROW(read(list.bytes()), PlatformException) << offset;
  }
}

TEST(BinaryPropertyListTest, ObjectsInAnyOrderAreRead) {
  RawPropertyList list;
  list.objects = {hex("A2 01 02"), hex("51 62"), hex("51 61")};
  list.offsets = {{1, 13}, {2, 11}};
  EXPECT_EQ(read(list.bytes()), Value(Value::Array{"a", "b"}));
}

TEST(BinaryPropertyListTest, BytesThatBelongToNoObjectAreIgnored) {
  RawPropertyList list;
  list.objects = {hex("09")};
  list.gap = "junk";
  EXPECT_EQ(read(list.bytes()), Value(true));
}

TEST(BinaryPropertyListTest, EveryTruncationIsRefused) {
  const Data whole = binaryDataWithPropertyList(
      Value::Dictionary{{"a", Value::Array{1, 2.5, "text", Data{1, 2}}}, {"b", true}});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Data part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_THROW(read(part), PlatformException) << length;
  }
}

TEST(BinaryPropertyListTest, NestingUpToTheLimitIsReadAndWritten) {
  Value value = Value::Array();
  for (int depth = 1; depth < kMaximumPropertyListDepth; ++depth) {
    Value outer = depth % 2 == 0 ? Value(Value::Array()) : Value(Value::Dictionary());
    if (auto* array = outer.getIf<Value::Array>()) {
      array->push_back(std::move(value));
    } else {
      outer.getIf<Value::Dictionary>()->emplace("k", std::move(value));
    }
    value = std::move(outer);
  }
  EXPECT_EQ(binaryRoundTrip(value), value);
  EXPECT_THROW(binaryDataWithPropertyList(Value::Array{value}), PlatformException);
}

TEST(BinaryPropertyListTest, NestingBeyondTheLimitIsRefused) {
  RawPropertyList list;
  list.offsetWidth = 4;
  list.referenceWidth = 4;
  for (int i = 0; i < kMaximumPropertyListDepth; ++i) {
    list.objects.push_back(hex("A1") +
                           RawPropertyList::bigEndian(static_cast<std::uint64_t>(i) + 1, 4));
  }
  list.objects.push_back(hex("09"));
  EXPECT_NO_THROW(read(list.bytes()));
  list.objects.back() = hex("A0");
  EXPECT_THROW(read(list.bytes()), PlatformException);
}

TEST(BinaryPropertyListTest, EveryKindSurvivesWritingAndReading) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  for (const Value& value :
       {Value(true),
        Value(false),
        Value(0),
        Value(-1),
        Value(255),
        Value(256),
        Value(65535),
        Value(65536),
        Value(4294967295),
        Value(4294967296),
        Value(INT64_MAX),
        Value(INT64_MIN),
        Value(UINT64_MAX),
        Value(std::uint64_t{1} << 63),
        Value(0.0),
        Value(-2.5),
        Value(nan),
        Value(infinity),
        Value(Date{0.25}),
        Value(Date{-1e9}),
        Value(""),
        Value("a"),
        Value(std::string(14, 'x')),
        Value(std::string(15, 'x')),
        Value(std::string(255, 'x')),
        Value(std::string(256, 'x')),
        Value(std::string(70000, 'x')),
        Value("\xC3\xA9"),
        Value("\xF0\x9F\x98\x80 smile"),
        Value(std::string("nul\0inside", 10)),
        Value(Data()),
        Value(Data{0, 255}),
        Value(Data(70000, 7)),
        Value(Uid{0}),
        Value(Uid{255}),
        Value(Uid{256}),
        Value(Uid{65536}),
        Value(Uid{UINT64_MAX}),
        Value(Value::Array()),
        Value(Value::Array{1, "b", Value::Array{false}}),
        Value(Value::Dictionary()),
        Value(Value::Dictionary{{"", 1}, {"\xC3\xA9", Value::Array{Value::Dictionary{{"x", 2}}}}}),
        Value(Value::Array(300, "same")),
        Value(Value::Array{Value::Array{1, 2}, 3, Value::Array{4, Value::Array{5}}})}) {
    EXPECT_EQ(binaryRoundTrip(value), value);
  }
}

TEST(BinaryPropertyListTest, ManyObjectsWidenReferencesAndOffsets) {
  for (const int count : {250, 300, 65530, 70000}) {
    Value::Array array;
    for (int i = 0; i < count; ++i) array.push_back(i);
    EXPECT_EQ(binaryRoundTrip(array), Value(array)) << count;
  }
}

TEST(BinaryPropertyListTest, NegativeZeroKeepsItsSign) {
  const Value read = binaryRoundTrip(-0.0);
  EXPECT_TRUE(std::signbit(*read.getIf<double>()));
}

TEST(BinaryPropertyListTest, EqualScalarsAreStoredOnce) {
  const std::string text(1000, 'x');
  const Data block(1000, 7);
  const Data bytes = binaryDataWithPropertyList(Value::Array{text, text, block, block});
  EXPECT_LT(bytes.size(), 2200U);
}

TEST(BinaryPropertyListTest, EqualNumbersOfDifferentKindsStayApart) {
  const Value value(Value::Array{1, 1.0, true, Uid{1}, Date{1}, "1"});
  EXPECT_EQ(binaryRoundTrip(value), value);
}

TEST(BinaryPropertyListTest, DataOfEqualEndsStaysApart) {
  Data left(500, 7);
  Data right = left;
  right[250] = 8;
  const Value value(Value::Array{left, right});
  EXPECT_EQ(binaryRoundTrip(value), value);
}

TEST(BinaryPropertyListTest, SharedDataIsReadAsOneBlock) {
  const Value list = readObjects({"A2 01 01", "42 0102"});
  const auto& array = *list.getIf<Value::Array>();
  EXPECT_EQ(*array[0].getIf<DataPtr>(), *array[1].getIf<DataPtr>());
}

TEST(BinaryPropertyListTest, WhatNoPropertyListHoldsIsNotWritten) {
  for (const Value& value :
       {Value(), Value(Url("file:///a")), Value(Uuid{}), Value(DataPtr()),
        Value(Value::Array{nullptr}), Value(Value::Dictionary{{"a", nullptr}})}) {
    EXPECT_THROW(binaryDataWithPropertyList(value), PlatformException);
  }
}

TEST(BinaryPropertyListTest, TextThatIsNoUtf8IsWrittenWithReplacementCharacters) {
  EXPECT_EQ(binaryRoundTrip("a\xFFz"), Value("a\xEF\xBF\xBDz"));
}

TEST(BinaryPropertyListTest, AKeyThatIsNoUtf8IsNotWritten) {
  EXPECT_THROW(binaryDataWithPropertyList(Value::Dictionary{{"a\xFF", 1}}), PlatformException);
}

TEST(BinaryPropertyListTest, BothEncodingsAreToldApart) {
  const Value value(Value::Dictionary{{"a", 1}});
  EXPECT_EQ(propertyListWithData(binaryDataWithPropertyList(value)), value);
  EXPECT_EQ(propertyListWithData(XMLDataWithPropertyList(value)), value);
}

TEST(BinaryPropertyListTest, NothingAtAllIsRefused) {
  EXPECT_THROW(propertyListWithData({}), PlatformException);
  EXPECT_THROW(binaryPropertyListWithData({}), PlatformException);
  EXPECT_THROW(XMLPropertyListWithData({}), PlatformException);
}

}  // namespace
}  // namespace tervano
