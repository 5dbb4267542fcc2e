#include "archive/unarchiver.h"

#include <gtest/gtest.h>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "tests/archive/raw_property_list.h"
#include "tests/archive/sample_classes.h"

namespace tervano {
namespace {

using testing::archived;
using testing::classNamed;
using testing::DerivedSample;
using testing::Group;
using testing::keyedArchive;
using testing::objectOf;
using testing::Sample;
using testing::unarchived;

// Reads a keyed archive with these entries; entry 1 is the root.
Value readEntries(Value::Array objects) {
  return unarchived(binaryDataWithPropertyList(keyedArchive(std::move(objects))));
}

Value readHeader(const Value& header) {
  return unarchived(binaryDataWithPropertyList(header));
}

// The root is a Sample (class in entry 2) with these keys; further entries begin at 3.
Value::Array sampleEntries(Value::Dictionary keys, Value::Array more = {}) {
  keys.emplace("$class", Uid{2});
  Value::Array objects{"$null", std::move(keys), classNamed({"Sample", "NSObject"})};
  for (Value& value : more) objects.push_back(std::move(value));
  return objects;
}

std::shared_ptr<Sample> readSample(Value::Dictionary keys, Value::Array more = {}) {
  return objectOf<Sample>(readEntries(sampleEntries(std::move(keys), std::move(more))));
}

// The root is an object of that class, named by entry 2; further entries begin at 3.
Value readObject(const std::string& name, Value::Dictionary keys, Value::Array more = {}) {
  keys.emplace("$class", Uid{2});
  Value::Array objects{"$null", std::move(keys), classNamed({name, "NSObject"})};
  for (Value& value : more) objects.push_back(std::move(value));
  return readEntries(std::move(objects));
}

TEST(UnarchiverTest, AbsentKeysGiveFalseZeroAndNull) {
  const auto sample = readSample({});
  ASSERT_NE(sample, nullptr);
  EXPECT_FALSE(sample->enabled);
  EXPECT_EQ(sample->count, 0);
  EXPECT_EQ(sample->ratio, 0);
  EXPECT_EQ(sample->title, std::nullopt);
  EXPECT_EQ(sample->types, std::nullopt);
  EXPECT_EQ(sample->url, std::nullopt);
  EXPECT_EQ(sample->bytes, nullptr);
  EXPECT_TRUE(sample->any.isNull());
  EXPECT_EQ(sample->friendSample, nullptr);
}

TEST(UnarchiverTest, UidZeroMayStandWhereverAnObjectMay) {
  const auto sample = readSample({{"title", Uid{0}},
                                  {"types", Uid{0}},
                                  {"url", Uid{0}},
                                  {"bytes", Uid{0}},
                                  {"any", Uid{0}},
                                  {"friend", Uid{0}}});
  EXPECT_EQ(sample->title, std::nullopt);
  EXPECT_EQ(sample->types, std::nullopt);
  EXPECT_EQ(sample->url, std::nullopt);
  EXPECT_EQ(sample->bytes, nullptr);
  EXPECT_TRUE(sample->any.isNull());
  EXPECT_EQ(sample->friendSample, nullptr);
  EXPECT_EQ(readObject("NSArray", {{"NS.objects", Value::Array{Uid{0}}}}),
            Value(Value::Array{nullptr}));
  EXPECT_TRUE(readHeader(keyedArchive({"$null"}, Value::Dictionary{{"root", Uid{0}}})).isNull());
}

TEST(UnarchiverTest, AnyEntryOfTheNullTextIsNil) {
  EXPECT_EQ(readSample({{"title", Uid{3}}}, {"$null"})->title, std::nullopt);
}

TEST(UnarchiverTest, ArraysAreRead) {
  for (const char* name : {"NSArray", "NSMutableArray", "NSSet", "NSMutableSet"}) {
    EXPECT_EQ(readObject(name, {{"NS.objects", Value::Array{Uid{3}, Uid{4}}}}, {"a", 7}),
              Value(Value::Array{"a", 7}))
        << name;
  }
}

TEST(UnarchiverTest, DictionariesAreRead) {
  for (const char* name : {"NSDictionary", "NSMutableDictionary"}) {
    EXPECT_EQ(
        readObject(name, {{"NS.keys", Value::Array{Uid{3}}}, {"NS.objects", Value::Array{Uid{4}}}},
                   {"a", 7}),
        Value(Value::Dictionary{{"a", 7}}))
        << name;
  }
}

TEST(UnarchiverTest, BoxedStringsAreRead) {
  for (const char* name : {"NSString", "NSMutableString"}) {
    EXPECT_EQ(readObject(name, {{"NS.string", "a"}}), Value("a")) << name;
    EXPECT_EQ(readObject(name, {{"NS.string", Uid{3}}}, {"a"}), Value("a")) << name;
  }
}

TEST(UnarchiverTest, BoxedDataIsRead) {
  for (const char* name : {"NSData", "NSMutableData"}) {
    EXPECT_EQ(readObject(name, {{"NS.data", Data{1, 2}}}), Value(Data{1, 2})) << name;
    EXPECT_EQ(readObject(name, {{"NS.data", Uid{3}}}, {Data{1, 2}}), Value(Data{1, 2})) << name;
  }
}

TEST(UnarchiverTest, DatesAreRead) {
  EXPECT_EQ(readObject("NSDate", {{"NS.time", 12.5}}), Value(Date{12.5}));
  EXPECT_EQ(readObject("NSDate", {{"NS.time", 12}}), Value(Date{12}));
}

TEST(UnarchiverTest, UuidsAreRead) {
  const Uuid uuid = Uuid::random();
  EXPECT_EQ(readObject("NSUUID", {{"NS.uuidbytes", Data(uuid.bytes.begin(), uuid.bytes.end())}}),
            Value(uuid));
}

TEST(UnarchiverTest, NumbersAreRead) {
  EXPECT_EQ(readEntries({"$null", 7}), Value(7));
  EXPECT_EQ(readEntries({"$null", 2.5}), Value(2.5));
  EXPECT_EQ(readEntries({"$null", true}), Value(true));
  EXPECT_EQ(readObject("NSNumber", {{"NS.number", 7}}), Value(7));
  EXPECT_EQ(readObject("NSNumber", {{"NS.boolval", true}}), Value(true));
  EXPECT_EQ(readObject("NSNumber", {{"NS.intval", -7}}), Value(-7));
  EXPECT_EQ(readObject("NSNumber", {{"NS.dblval", 2.5}}), Value(2.5));
}

TEST(UnarchiverTest, TheNullObjectIsNil) {
  EXPECT_EQ(
      readEntries({"$null",
                   Value::Dictionary{{"$class", Uid{2}}, {"NS.objects", Value::Array{Uid{3}}}},
                   classNamed({"NSArray", "NSObject"}), Value::Dictionary{{"$class", Uid{4}}},
                   classNamed({"NSNull", "NSObject"})}),
      Value(Value::Array{nullptr}));
}

TEST(UnarchiverTest, AUrlWithoutABaseIsItsText) {
  for (const Value::Dictionary& keys :
       {Value::Dictionary{{"NS.base", Uid{0}}, {"NS.relative", Uid{3}}},
        Value::Dictionary{{"NS.relative", Uid{3}}},
        Value::Dictionary{{"NS.relative", "file:///a%20b/"}}}) {
    EXPECT_EQ(readObject("NSURL", keys, {"file:///a%20b/"}), Value(Url("file:///a%20b/")));
  }
}

TEST(UnarchiverTest, AUrlIsResolvedAgainstItsBase) {
  const Value base(Value::Dictionary{{"NS.relative", Uid{5}}, {"$class", Uid{2}}});
  EXPECT_EQ(readObject("NSURL", {{"NS.base", Uid{4}}, {"NS.relative", Uid{3}}},
                       {"../c%20d", base, "file:///a/b/x"}),
            Value(Url("file:///a/c%20d")));
}

TEST(UnarchiverTest, ABaseThatIsNoUrlIsRefused) {
  EXPECT_THROW(readObject("NSURL", {{"NS.base", Uid{3}}, {"NS.relative", Uid{3}}}, {"a"}),
               PlatformException);
}

TEST(UnarchiverTest, BookmarkDataOfAUrlIsIgnored) {
  EXPECT_EQ(readObject(
                "NSURL",
                {{"NS.base", Uid{0}}, {"NS.relative", Uid{3}}, {"NS.minimalBookmarkData", Uid{99}}},
                {"file:///a"}),
            Value(Url("file:///a")));
}

TEST(UnarchiverTest, MalformedObjectsOfTheFormatAreRefused) {
  const Value::Array one{Uid{3}};
  const std::pair<const char*, Value::Dictionary> cases[] = {
      {"NSArray", {}},
      {"NSArray", {{"NS.objects", Uid{3}}}},
      {"NSArray", {{"NS.objects", Value::Array{"a"}}}},
      {"NSArray", {{"NS.objects", Value::Array{Uid{99}}}}},
      {"NSDictionary", {}},
      {"NSDictionary", {{"NS.keys", one}}},
      {"NSDictionary", {{"NS.objects", one}}},
      {"NSDictionary", {{"NS.keys", one}, {"NS.objects", Value::Array()}}},
      {"NSDictionary", {{"NS.keys", Value::Array{Uid{0}}}, {"NS.objects", one}}},
      {"NSDictionary", {{"NS.keys", Value::Array{Uid{4}}}, {"NS.objects", one}}},
      {"NSDictionary",
       {{"NS.keys", Value::Array{Uid{3}, Uid{3}}}, {"NS.objects", Value::Array{Uid{3}, Uid{3}}}}},
      {"NSString", {}},
      {"NSString", {{"NS.string", 7}}},
      {"NSString", {{"NS.string", Uid{4}}}},
      {"NSData", {}},
      {"NSData", {{"NS.data", "a"}}},
      {"NSDate", {}},
      {"NSDate", {{"NS.time", "a"}}},
      {"NSDate", {{"NS.time", true}}},
      {"NSUUID", {}},
      {"NSUUID", {{"NS.uuidbytes", Data(15, 0)}}},
      {"NSUUID", {{"NS.uuidbytes", Data(17, 0)}}},
      {"NSUUID", {{"NS.uuidbytes", "0123456789abcdef"}}},
      {"NSURL", {}},
      {"NSURL", {{"NS.relative", Uid{4}}}},
      {"NSURL", {{"NS.relative", Uid{3}}, {"NS.base", "a"}}},
      {"NSNumber", {}},
      {"NSNumber", {{"NS.number", "7"}}},
  };
  for (const auto& [name, keys] : cases) {
    EXPECT_THROW(readObject(name, keys, {"text", 7}), PlatformException) << name;
  }
}

TEST(UnarchiverTest, OneEntryIsOneObjectWhereverItIsReferenced) {
  const Value list = readEntries(
      {"$null",
       Value::Dictionary{{"$class", Uid{2}}, {"NS.objects", Value::Array{Uid{3}, Uid{3}, Uid{4}}}},
       classNamed({"NSArray", "NSObject"}), Value::Dictionary{{"$class", Uid{5}}},
       Value::Dictionary{{"$class", Uid{5}}, {"friend", Uid{3}}},
       classNamed({"Sample", "NSObject"})});
  const auto& array = *list.getIf<Value::Array>();
  EXPECT_EQ(array[0], array[1]);
  EXPECT_NE(objectOf<Sample>(array[0]), nullptr);
  EXPECT_EQ(objectOf<Sample>(array[2])->friendSample, objectOf<Sample>(array[0]));
}

TEST(UnarchiverTest, TwoEqualEntriesAreTwoObjects) {
  Value root = keyedArchive(
      {"$null", Value::Dictionary{{"$class", Uid{4}}, {"NS.objects", Value::Array{Uid{2}, Uid{3}}}},
       Value::Dictionary{{"$class", Uid{5}}}, Value::Dictionary{{"$class", Uid{5}}},
       classNamed({"NSArray", "NSObject"}), classNamed({"Sample", "NSObject"})});
  const Value list = readHeader(root);
  const auto& array = *list.getIf<Value::Array>();
  EXPECT_FALSE(array[0] == array[1]);
}

TEST(UnarchiverTest, SharedDataIsNotCopied) {
  const Value list =
      readObject("NSArray", {{"NS.objects", Value::Array{Uid{3}, Uid{3}}}}, {Data(1000, 7)});
  const auto& array = *list.getIf<Value::Array>();
  EXPECT_EQ(*array[0].getIf<DataPtr>(), *array[1].getIf<DataPtr>());
}

TEST(UnarchiverTest, DecodeBoolTakesBooleansAndZeroOrOne) {
  EXPECT_TRUE(readSample({{"enabled", true}})->enabled);
  EXPECT_FALSE(readSample({{"enabled", false}})->enabled);
  EXPECT_TRUE(readSample({{"enabled", 1}})->enabled);
  EXPECT_FALSE(readSample({{"enabled", 0}})->enabled);
}

TEST(UnarchiverTest, WrongTypesUnderAKeyAreRefused) {
  const std::pair<const char*, Value> cases[] = {
      {"enabled", 2},       {"enabled", -1},
      {"enabled", 1.0},     {"enabled", "true"},
      {"enabled", Uid{0}},  {"enabled", Uid{3}},
      {"enabled", Data{1}}, {"count", true},
      {"count", 1.5},       {"count", "1"},
      {"count", Uid{4}},    {"count", UINT64_MAX},
      {"ratio", true},      {"ratio", "1"},
      {"ratio", Uid{4}},    {"title", "inline"},
      {"title", true},      {"title", Uid{4}},
      {"title", Uid{5}},    {"types", Value::Array{Uid{3}}},
      {"types", Uid{3}},    {"types", Uid{6}},
      {"url", Uid{3}},      {"url", "file:///a"},
      {"bytes", "text"},    {"bytes", Uid{3}},
      {"bytes", 7},         {"any", 7},
      {"any", "inline"},    {"any", Value::Dictionary()},
      {"friend", Uid{3}},   {"friend", Uid{5}},
      {"friend", Uid{8}},
  };
  for (const auto& [key, value] : cases) {
    // 3 text, 4 number, 5 and 6 arrays (of a number), 7 their class, 8 an object of another class.
    const Value::Array more{
        "text",
        7,
        Value::Dictionary{{"$class", Uid{7}}, {"NS.objects", Value::Array()}},
        Value::Dictionary{{"$class", Uid{7}}, {"NS.objects", Value::Array{Uid{4}}}},
        classNamed({"NSArray", "NSObject"}),
        Value::Dictionary{{"$class", Uid{9}}},
        classNamed({"Group", "NSObject"})};
    EXPECT_THROW(readSample({{key, value}}, more), PlatformException) << key;
  }
}

TEST(UnarchiverTest, DecodeIntegerAndDoubleTakeInlineNumbers) {
  EXPECT_EQ(readSample({{"count", INT64_MIN}})->count, INT64_MIN);
  EXPECT_EQ(readSample({{"ratio", 2.5}})->ratio, 2.5);
  EXPECT_EQ(readSample({{"ratio", 2}})->ratio, 2.0);
}

TEST(UnarchiverTest, BytesMayStandInlineOrByReference) {
  EXPECT_EQ(*readSample({{"bytes", Data{1}}})->bytes, Data{1});
  EXPECT_EQ(*readSample({{"bytes", Uid{3}}}, {Data{1}})->bytes, Data{1});
  EXPECT_EQ(
      *readSample({{"bytes", Uid{3}}}, {Value::Dictionary{{"$class", Uid{4}}, {"NS.data", Data{1}}},
                                        classNamed({"NSMutableData", "NSData", "NSObject"})})
           ->bytes,
      Data{1});
}

TEST(UnarchiverTest, UnknownKeysAreIgnored) {
  EXPECT_EQ(readSample({{"title", Uid{3}},
                        {"unknown", Uid{99}},
                        {"$classhints", Value::Array{"x"}},
                        {"other", Value::Dictionary{{"a", 1}}}},
                       {"a"})
                ->title,
            "a");
}

TEST(UnarchiverTest, UnknownKeysOfTheHeaderAreIgnored) {
  Value header = keyedArchive({"$null", "a"});
  header.getIf<Value::Dictionary>()->emplace("$extra", Value::Array{1});
  EXPECT_EQ(readHeader(header), Value("a"));
}

TEST(UnarchiverTest, ClassHintsOfADescriptionAreIgnored) {
  Value description = classNamed({"Sample", "NSObject"});
  description.getIf<Value::Dictionary>()->emplace("$classhints", Value::Array{"Other"});
  EXPECT_NE(
      objectOf<Sample>(readEntries({"$null", Value::Dictionary{{"$class", Uid{2}}}, description})),
      nullptr);
}

TEST(UnarchiverTest, EntriesThatNobodyRefersToAreIgnoredEvenOfUnknownClasses) {
  EXPECT_NE(
      readSample({}, {Value::Dictionary{{"$class", Uid{4}}}, classNamed({"Unknown", "NSObject"}),
                      Value::Dictionary{{"$class", Uid{99}}}, Value::Dictionary{{"no", "class"}},
                      Value::Array{Uid{77}}, Uid{66}}),
      nullptr);
}

TEST(UnarchiverTest, TheOrderOfEntriesDoesNotMatter) {
  const Value header = keyedArchive({"$null", classNamed({"Sample", "NSObject"}), "title", "other",
                                     Value::Dictionary{{"$class", Uid{1}}, {"title", Uid{2}}}},
                                    Value::Dictionary{{"root", Uid{4}}});
  EXPECT_EQ(objectOf<Sample>(readHeader(header))->title, "title");
}

TEST(UnarchiverTest, TheRootKeyIsPreferredToTheNumberedOne) {
  EXPECT_EQ(readHeader(keyedArchive({"$null", "a", "b"},
                                    Value::Dictionary{{"$0", Uid{2}}, {"root", Uid{1}}})),
            Value("a"));
  EXPECT_EQ(readHeader(keyedArchive({"$null", "a", "b"}, Value::Dictionary{{"$0", Uid{2}}})),
            Value("b"));
}

TEST(UnarchiverTest, MalformedHeadersAreRefused) {
  const auto with = [](const char* key, std::optional<Value> value) {
    Value header = keyedArchive({"$null", "a"});
    auto& keys = *header.getIf<Value::Dictionary>();
    keys.erase(key);
    if (value) keys.emplace(key, std::move(*value));
    return header;
  };
  const Value cases[] = {
      Value::Array{1},
      "text",
      Value::Dictionary{},
      with("$version", std::nullopt),
      with("$version", 100001),
      with("$version", "100000"),
      with("$version", 100000.0),
      with("$archiver", std::nullopt),
      with("$archiver", "OtherArchiver"),
      with("$archiver", 7),
      with("$top", std::nullopt),
      with("$top", Uid{1}),
      with("$top", Value::Dictionary{}),
      with("$top", Value::Dictionary{{"other", Uid{1}}}),
      with("$top", Value::Dictionary{{"root", 1}}),
      with("$top", Value::Dictionary{{"root", "a"}}),
      with("$top", Value::Dictionary{{"root", Uid{2}}}),
      with("$top", Value::Dictionary{{"root", Uid{UINT64_MAX}}}),
      with("$objects", std::nullopt),
      with("$objects", Value::Dictionary{}),
      with("$objects", Value::Array{}),
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_THROW(readHeader(cases[i]), PlatformException) << i;
  }
  EXPECT_EQ(readHeader(with("none", std::nullopt)), Value("a"));
}

TEST(UnarchiverTest, BytesThatAreNoArchiveAreRefused) {
  EXPECT_THROW(unarchived({}), PlatformException);
  EXPECT_THROW(unarchived(testing::dataOf("not an archive")), PlatformException);
}

TEST(UnarchiverTest, EveryTruncationIsRefused) {
  const Data whole = archived(Value::Array{std::make_shared<Sample>(), "a"});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Data part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_THROW(unarchived(part), PlatformException) << length;
  }
}

TEST(UnarchiverTest, AUidOutOfRangeIsRefused) {
  for (const std::uint64_t uid : {std::uint64_t{4}, std::uint64_t{1} << 32, UINT64_MAX}) {
    EXPECT_THROW(readSample({{"title", Uid{uid}}}, {"a"}), PlatformException) << uid;
  }
}

TEST(UnarchiverTest, AMissingClassDescriptionIsRefused) {
  const Value object(Value::Dictionary{{"$class", Uid{2}}});
  const Value::Array cases[] = {
      {"$null", Value::Dictionary{{"title", Uid{0}}}},
      {"$null", object},
      {"$null", object, "Sample"},
      {"$null", object, Value::Array{"Sample"}},
      {"$null", object, Value::Dictionary{}},
      {"$null", object, Value::Dictionary{{"$classes", Value::Array{"Sample"}}}},
      {"$null", object, Value::Dictionary{{"$classname", "Sample"}}},
      {"$null", object, Value::Dictionary{{"$classname", "Sample"}, {"$classes", "Sample"}}},
      {"$null", object, Value::Dictionary{{"$classname", "Sample"}, {"$classes", Value::Array{}}}},
      {"$null", object, Value::Dictionary{{"$classname", "Sample"}, {"$classes", Value::Array{7}}}},
      {"$null", object, Value::Dictionary{{"$classname", 7}, {"$classes", Value::Array{"Sample"}}}},
      {"$null", Value::Dictionary{{"$class", Uid{0}}}},
      {"$null", Value::Dictionary{{"$class", "Sample"}}},
      {"$null", Value::Dictionary{{"$class", 2}}, classNamed({"Sample", "NSObject"})},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_THROW(readEntries(cases[i]), PlatformException) << i;
  }
}

TEST(UnarchiverTest, ACircularClassDescriptionIsRefused) {
  // An object that is its own class.
  EXPECT_THROW(readEntries({"$null", Value::Dictionary{{"$class", Uid{1}}}}), PlatformException);
  EXPECT_THROW(readEntries({"$null", Value::Dictionary{{"$class", Uid{1}},
                                                       {"$classname", "Sample"},
                                                       {"$classes", Value::Array{"Sample"}}}}),
               PlatformException);
  // Two that describe each other.
  EXPECT_THROW(readEntries({"$null", Value::Dictionary{{"$class", Uid{2}}},
                            Value::Dictionary{{"$class", Uid{1}}}}),
               PlatformException);
  // A chain that comes back to its start.
  EXPECT_THROW(readEntries({"$null", Value::Dictionary{{"$class", Uid{2}}},
                            classNamed({"Sample", "NSObject", "Sample"})}),
               PlatformException);
}

TEST(UnarchiverTest, AnEndlessClassDescriptionIsRefused) {
  EXPECT_THROW(readObject(std::string(100000, 'a'), {}), PlatformException);
  std::vector<std::string> chain{"Sample"};
  for (int i = 0; i < 100000; ++i) chain.push_back("C" + std::to_string(i));
  EXPECT_THROW(readEntries({"$null", Value::Dictionary{{"$class", Uid{2}}}, classNamed(chain)}),
               PlatformException);
}

TEST(UnarchiverTest, AnUnknownClassOfAReferencedObjectIsRefused) {
  EXPECT_THROW(readObject("Unknown", {}), PlatformException);
  EXPECT_THROW(readSample({{"any", Uid{3}}}, {Value::Dictionary{{"$class", Uid{4}}},
                                              classNamed({"Unknown", "Sample", "NSObject"})}),
               PlatformException);
}

TEST(UnarchiverTest, AnAbstractClassIsRefused) {
  EXPECT_THROW(readObject("Abstract", {}), PlatformException);
}

TEST(UnarchiverTest, TheComplaintNamesTheUnknownClassAndTheWrongKey) {
  try {
    readObject("Unknown", {});
    FAIL();
  } catch (const PlatformException& exception) {
    EXPECT_EQ(exception.name(), kInvalidUnarchiveException);
    EXPECT_NE(exception.reason().find("Unknown"), std::string::npos);
  }
  try {
    readSample({{"enabled", "x"}});
    FAIL();
  } catch (const PlatformException& exception) {
    EXPECT_NE(exception.reason().find("enabled"), std::string::npos);
  }
}

TEST(UnarchiverTest, TheClassIsTakenByItsNameAndNotByTheChain) {
  EXPECT_NE(objectOf<DerivedSample>(readEntries(
                {"$null", Value::Dictionary{{"$class", Uid{2}}},
                 Value::Dictionary{{"$classname", "DerivedSample"},
                                   {"$classes", Value::Array{"Other", "Sample", "NSObject"}}}})),
            nullptr);
}

TEST(UnarchiverTest, AnEntryThatIsNoObjectIsRefused) {
  for (const Value& entry : {Value(Uid{1}), Value(Value::Array{}), Value(Value::Dictionary{})}) {
    EXPECT_THROW(readSample({{"any", Uid{3}}}, {entry}), PlatformException);
  }
}

TEST(UnarchiverTest, AnObjectThatContainsItselfIsRefusedAndDoesNotLeak) {
  static int alive = 0;
  class Counted : public Group {
   public:
    Counted() { ++alive; }
    ~Counted() override { --alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
  };
  ClassRegistry registry;
  registry.registerClass({"Group", "NSObject"}, [] { return std::make_shared<Counted>(); });
  const Data bytes = binaryDataWithPropertyList(
      keyedArchive({"$null", Value::Dictionary{{"$class", Uid{2}}, {"members", Uid{3}}},
                    classNamed({"Group", "NSObject"}),
                    Value::Dictionary{{"$class", Uid{4}}, {"NS.objects", Value::Array{Uid{1}}}},
                    classNamed({"NSMutableArray", "NSArray", "NSObject"})}));
  EXPECT_THROW(Unarchiver::unarchiveObjectWithData(bytes, registry), PlatformException);
  EXPECT_EQ(alive, 0);
}

TEST(UnarchiverTest, ContainersThatContainThemselvesAreRefused) {
  EXPECT_THROW(readObject("NSArray", {{"NS.objects", Value::Array{Uid{1}}}}), PlatformException);
  EXPECT_THROW(
      readObject("NSDictionary",
                 {{"NS.keys", Value::Array{Uid{3}}}, {"NS.objects", Value::Array{Uid{1}}}}, {"a"}),
      PlatformException);
  EXPECT_THROW(readObject("NSURL", {{"NS.base", Uid{1}}, {"NS.relative", Uid{3}}}, {"a"}),
               PlatformException);
}

TEST(UnarchiverTest, NestingBeyondTheLimitIsRefused) {
  const auto nested = [](int depth) {
    Value::Array objects{"$null"};
    for (int i = 1; i <= depth; ++i) {
      Value::Array members;
      if (i < depth) members.push_back(Uid{static_cast<std::uint64_t>(i) + 1});
      objects.push_back(Value::Dictionary{{"$class", Uid{static_cast<std::uint64_t>(depth) + 1}},
                                          {"NS.objects", std::move(members)}});
    }
    objects.push_back(classNamed({"NSArray", "NSObject"}));
    return objects;
  };
  EXPECT_NO_THROW(readEntries(nested(Unarchiver::kMaximumArchiveDepth)));
  EXPECT_THROW(readEntries(nested(Unarchiver::kMaximumArchiveDepth + 1)), PlatformException);
}

class ForgivingSample : public Sample {
 public:
  void initWithCoder(Unarchiver& coder) override {
    EXPECT_THROW(coder.decodeObject("any"), PlatformException);
    title = coder.decodeString("title");
  }
};

TEST(UnarchiverTest, AClassMayCatchAFailedFieldAndGoOn) {
  ClassRegistry registry;
  registry.registerClass({"Sample", "NSObject"},
                         [] { return std::make_shared<ForgivingSample>(); });
  const Data bytes = binaryDataWithPropertyList(keyedArchive(sampleEntries(
      {{"title", Uid{3}}, {"any", Uid{4}}},
      {"a", Value::Dictionary{{"$class", Uid{5}}}, classNamed({"Unknown", "NSObject"})})));
  EXPECT_EQ(objectOf<Sample>(Unarchiver::unarchiveObjectWithData(bytes, registry))->title, "a");
}

class AsksForKeys : public Sample {
 public:
  void initWithCoder(Unarchiver& coder) override {
    hasTitle = coder.containsValueForKey("title");
    hasNil = coder.containsValueForKey("nil");
    hasOther = coder.containsValueForKey("other");
  }
  bool hasTitle = false;
  bool hasNil = false;
  bool hasOther = false;
};

TEST(UnarchiverTest, ContainsValueForKeyTellsNilFromAbsent) {
  ClassRegistry registry;
  registry.registerClass({"Sample", "NSObject"}, [] { return std::make_shared<AsksForKeys>(); });
  const Data bytes = binaryDataWithPropertyList(
      keyedArchive(sampleEntries({{"title", Uid{3}}, {"nil", Uid{0}}}, {"a"})));
  const auto object = objectOf<AsksForKeys>(Unarchiver::unarchiveObjectWithData(bytes, registry));
  EXPECT_TRUE(object->hasTitle);
  EXPECT_TRUE(object->hasNil);
  EXPECT_FALSE(object->hasOther);
}

TEST(UnarchiverTest, KeysBeyondAsciiAreFound) {
  class Umlaut : public Sample {
   public:
    void initWithCoder(Unarchiver& coder) override { title = coder.decodeString("t\xC3\xAFtle"); }
  };
  ClassRegistry registry;
  registry.registerClass({"Sample", "NSObject"}, [] { return std::make_shared<Umlaut>(); });
  const Data bytes =
      binaryDataWithPropertyList(keyedArchive(sampleEntries({{"t\xC3\xAFtle", Uid{3}}}, {"a"})));
  EXPECT_EQ(objectOf<Sample>(Unarchiver::unarchiveObjectWithData(bytes, registry))->title, "a");
}

TEST(UnarchiverTest, AnArchiveInXMLIsReadToo) {
  auto sample = std::make_shared<Sample>();
  sample->title = "a";
  sample->types = std::vector<std::string>{"b"};
  sample->bytes = std::make_shared<const Data>(Data{1});
  const Data xml =
      XMLDataWithPropertyList(binaryPropertyListWithData(archived(Value::Array{sample})));
  const Value list = unarchived(xml);
  const auto read = objectOf<Sample>(list.getIf<Value::Array>()->front());
  EXPECT_EQ(read->title, "a");
  EXPECT_EQ(read->types, sample->types);
  EXPECT_EQ(*read->bytes, Data{1});
}

TEST(UnarchiverTest, AThousandObjectsKeepTheirOrder) {
  Value::Array list;
  for (int i = 0; i < 1000; ++i) {
    auto sample = std::make_shared<Sample>();
    sample->title = std::to_string(i);
    list.push_back(sample);
  }
  const Value read = unarchived(archived(list));
  ASSERT_EQ(read.getIf<Value::Array>()->size(), 1000U);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(objectOf<Sample>((*read.getIf<Value::Array>())[static_cast<std::size_t>(i)])->title,
              std::to_string(i));
  }
}

}  // namespace
}  // namespace tervano
