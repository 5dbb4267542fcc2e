#include "archive/archiver.h"

#include <gtest/gtest.h>

#include "archive/object_table.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "tests/archive/sample_classes.h"

namespace tervano {
namespace {

using testing::archived;
using testing::DerivedSample;
using testing::Group;
using testing::Sample;
using testing::unarchived;

// What an archive of `root` looks like as a plain property list.
Value listOf(const Value& root) {
  return binaryPropertyListWithData(archived(root));
}

Value::Array objectsOf(const Value& root) {
  return *listOf(root).find("$objects")->getIf<Value::Array>();
}

Value at(const Value& object, std::string_view key) {
  const Value* found = object.find(key);
  return found == nullptr ? Value("missing") : *found;
}

// The entry that a key of an object refers to.
Value follow(const Value::Array& objects, const Value& object, std::string_view key) {
  const Value reference = at(object, key);
  const auto* uid = reference.getIf<Uid>();
  return uid == nullptr ? Value("no UID") : objects.at(uid->value);
}

Value classOf(const Value::Array& objects, const Value& object) {
  return follow(objects, object, "$class");
}

std::vector<std::string> keysInTheFile(const Data& bytes, ObjectTable::Index dictionary) {
  const ObjectTable table = ObjectTable::readBinary(bytes);
  std::vector<std::string> keys;
  for (std::uint32_t i = 0; i < table.count(dictionary); ++i) {
    keys.push_back(table.string(table.key(dictionary, i)));
  }
  return keys;
}

std::string classNameOf(const Value& description) {
  return *at(description, "$classname").getIf<std::string>();
}

TEST(ArchiverTest, TheFileIsABinaryPropertyList) {
  const Data bytes = archived("a");
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 8), "bplist00");
}

TEST(ArchiverTest, TheHeaderHoldsItsKeysInThePublishedOrder) {
  const Data bytes = archived(std::make_shared<Sample>());
  EXPECT_EQ(keysInTheFile(bytes, ObjectTable::readBinary(bytes).root()),
            (std::vector<std::string>{"$version", "$archiver", "$top", "$objects"}));
}

TEST(ArchiverTest, TheHeaderHoldsVersionArchiverAndRoot) {
  const Value list = listOf("a");
  EXPECT_EQ(at(list, "$version"), Value(100000));
  EXPECT_EQ(at(list, "$archiver"), Value("NSKeyedArchiver"));
  EXPECT_EQ(at(list, "$top"), Value(Value::Dictionary{{"root", Uid{1}}}));
}

TEST(ArchiverTest, EntryZeroIsTheNullText) {
  EXPECT_EQ(objectsOf("a").front(), Value("$null"));
}

TEST(ArchiverTest, TheRootMayBeAnyValue) {
  for (const Value& root :
       {Value(), Value("text"), Value(""), Value("\xC3\xA9"), Value(7), Value(-7),
        Value(UINT64_MAX), Value(2.5), Value(true), Value(false), Value(Data{1, 2}), Value(Data()),
        Value(Date{12.5}), Value(Uuid::random()), Value(Url("file:///a%20b/")),
        Value(Value::Array()), Value(Value::Array{1, nullptr, "a"}), Value(Value::Dictionary()),
        Value(Value::Dictionary{{"a", Value::Array{Value::Dictionary{{"b", nullptr}}}}})}) {
    EXPECT_EQ(unarchived(archived(root)), root);
  }
}

TEST(ArchiverTest, ANilRootIsUidZero) {
  EXPECT_EQ(at(listOf(nullptr), "$top"), Value(Value::Dictionary{{"root", Uid{0}}}));
}

TEST(ArchiverTest, StringsNumbersAndDataAreEntriesWithoutAClass) {
  const Value::Array objects = objectsOf(Value::Array{"text", 7, 2.5, true, Data{1}});
  EXPECT_EQ(objects[2], Value("text"));
  EXPECT_EQ(objects[3], Value(7));
  EXPECT_EQ(objects[4], Value(2.5));
  EXPECT_EQ(objects[5], Value(true));
  EXPECT_EQ(objects[6], Value(Data{1}));
}

TEST(ArchiverTest, AnObjectRefersToItsClassDescription) {
  const Value::Array objects = objectsOf(std::make_shared<DerivedSample>());
  EXPECT_EQ(
      classOf(objects, objects[1]),
      Value(Value::Dictionary{{"$classname", "DerivedSample"},
                              {"$classes", Value::Array{"DerivedSample", "Sample", "NSObject"}}}));
}

TEST(ArchiverTest, EachClassIsDescribedOnce) {
  Value::Array list;
  for (int i = 0; i < 3; ++i) list.push_back(std::make_shared<Sample>());
  int descriptions = 0;
  for (const Value& object : objectsOf(list)) {
    if (at(object, "$classname") == Value("Sample")) ++descriptions;
  }
  EXPECT_EQ(descriptions, 1);
}

TEST(ArchiverTest, UidsAreHandedOutDepthFirstAndTheClassFollowsTheContents) {
  auto first = std::make_shared<Sample>();
  first->title = "one";
  first->any = Value::Array{"two"};
  auto second = std::make_shared<Sample>();
  second->title = "three";
  const Value::Array objects = objectsOf(Value::Array{first, second});
  ASSERT_EQ(objects.size(), 10U);
  EXPECT_EQ(at(objects[1], "NS.objects"), Value(Value::Array{Uid{2}, Uid{8}}));
  EXPECT_EQ(at(objects[2], "title"), Value(Uid{3}));
  EXPECT_EQ(objects[3], Value("one"));
  EXPECT_EQ(at(objects[4], "NS.objects"), Value(Value::Array{Uid{5}}));
  EXPECT_EQ(objects[5], Value("two"));
  EXPECT_EQ(classNameOf(objects[6]), "NSArray");
  EXPECT_EQ(classNameOf(objects[7]), "Sample");
  EXPECT_EQ(at(objects[8], "title"), Value(Uid{9}));
  EXPECT_EQ(objects[9], Value("three"));
  EXPECT_EQ(at(objects[1], "$class"), Value(Uid{6}));
}

TEST(ArchiverTest, OneObjectIsOneUidWhereverItAppears) {
  auto shared = std::make_shared<Sample>();
  auto holder = std::make_shared<Sample>();
  holder->friendSample = shared;
  holder->any = shared;
  const Value::Array objects = objectsOf(Value::Array{holder, shared, shared});
  const Value::Array members = *at(objects[1], "NS.objects").getIf<Value::Array>();
  EXPECT_EQ(members[1], members[2]);
  EXPECT_EQ(at(objects[2], "any"), members[1]);
  EXPECT_EQ(at(objects[2], "friend"), members[1]);
}

TEST(ArchiverTest, EqualObjectsStayTwoObjects) {
  const Value::Array objects =
      objectsOf(Value::Array{std::make_shared<Sample>(), std::make_shared<Sample>()});
  EXPECT_EQ(at(objects[1], "NS.objects"), Value(Value::Array{Uid{2}, Uid{4}}));
}

// Writes a temporary object whose memory is free again before the next one is made.
class MakesTemporaries : public Coding {
 public:
  std::string_view className() const override { return "Group"; }
  void initWithCoder(Unarchiver&) override {}
  void encodeWithCoder(Archiver& coder) const override {
    for (const char* key : {"a", "b", "c", "d"}) {
      auto temporary = std::make_shared<Sample>();
      temporary->title = key;
      coder.encodeObject(temporary, key);
    }
  }
};

TEST(ArchiverTest, ATemporaryObjectIsNotTakenForAnEarlierOneAtItsAddress) {
  const Value::Array objects = objectsOf(std::make_shared<MakesTemporaries>());
  for (const char* key : {"a", "b", "c", "d"}) {
    EXPECT_EQ(follow(objects, follow(objects, objects[1], key), "title"), Value(key));
  }
}

TEST(ArchiverTest, KeyedBooleansIntegersAndRealsStandInline) {
  auto sample = std::make_shared<Sample>();
  sample->enabled = true;
  sample->count = 7;
  sample->ratio = 2.5;
  const Value object = objectsOf(sample)[1];
  EXPECT_EQ(at(object, "enabled"), Value(true));
  EXPECT_EQ(at(object, "count"), Value(7));
  EXPECT_EQ(at(object, "ratio"), Value(2.5));
}

TEST(ArchiverTest, BooleansAreNeverZeroOrOne) {
  auto sample = std::make_shared<Sample>();
  EXPECT_EQ(at(objectsOf(sample)[1], "enabled"), Value(false));
  sample->enabled = true;
  EXPECT_EQ(at(objectsOf(sample)[1], "enabled"), Value(true));
}

TEST(ArchiverTest, ObjectsAreAlwaysWrittenByUid) {
  auto sample = std::make_shared<Sample>();
  sample->title = "a";
  sample->any = 7;
  const Value object = objectsOf(sample)[1];
  EXPECT_NE(at(object, "title").getIf<Uid>(), nullptr);
  EXPECT_NE(at(object, "any").getIf<Uid>(), nullptr);
}

TEST(ArchiverTest, NilIsUidZeroAndItsKeyIsWritten) {
  const Value object = objectsOf(std::make_shared<Sample>())[1];
  for (const char* key : {"title", "types", "url", "bytes", "any", "friend"}) {
    EXPECT_EQ(at(object, key), Value(Uid{0})) << key;
  }
}

TEST(ArchiverTest, AFreshObjectHasAllItsKeys) {
  const Value object = objectsOf(std::make_shared<Sample>())[1];
  EXPECT_EQ(object.getIf<Value::Dictionary>()->size(), 10U);
}

TEST(ArchiverTest, KeysStandInTheOrderOfEncodingAndTheClassLast) {
  const Data bytes = archived(std::make_shared<Sample>());
  const ObjectTable table = ObjectTable::readBinary(bytes);
  const auto objects = *table.find(table.root(), "$objects");
  EXPECT_EQ(keysInTheFile(bytes, table.element(objects, 1)),
            (std::vector<std::string>{"enabled", "count", "ratio", "title", "types", "url", "bytes",
                                      "any", "friend", "$class"}));
}

TEST(ArchiverTest, AnArrayHoldsUidsUnderItsObjectsKey) {
  const Value::Array objects = objectsOf(Value::Array{"a", nullptr, "a"});
  EXPECT_EQ(at(objects[1], "NS.objects"), Value(Value::Array{Uid{2}, Uid{0}, Uid{2}}));
  EXPECT_EQ(at(classOf(objects, objects[1]), "$classes"),
            Value(Value::Array{"NSArray", "NSObject"}));
}

TEST(ArchiverTest, AMutableArrayNamesItsOwnClass) {
  auto group = std::make_shared<Group>();
  group->members = Value::Array{"a"};
  const Value::Array objects = objectsOf(group);
  const Value members = follow(objects, objects[1], "members");
  EXPECT_EQ(at(members, "NS.objects"), Value(Value::Array{Uid{3}}));
  EXPECT_EQ(at(classOf(objects, members), "$classes"),
            Value(Value::Array{"NSMutableArray", "NSArray", "NSObject"}));
}

TEST(ArchiverTest, ADictionaryHoldsKeysAndObjects) {
  const Value::Array objects = objectsOf(Value::Dictionary{{"a", 1}, {"b", nullptr}});
  EXPECT_EQ(at(objects[1], "NS.keys"), Value(Value::Array{Uid{2}, Uid{3}}));
  EXPECT_EQ(at(objects[1], "NS.objects"), Value(Value::Array{Uid{4}, Uid{0}}));
  EXPECT_EQ(objects[2], Value("a"));
  EXPECT_EQ(objects[4], Value(1));
  EXPECT_EQ(at(classOf(objects, objects[1]), "$classes"),
            Value(Value::Array{"NSDictionary", "NSObject"}));
}

TEST(ArchiverTest, ADateHoldsItsSecondsSince2001) {
  const Value::Array objects = objectsOf(Date{12.5});
  EXPECT_EQ(at(objects[1], "NS.time"), Value(12.5));
  EXPECT_EQ(classNameOf(classOf(objects, objects[1])), "NSDate");
}

TEST(ArchiverTest, AUuidHoldsItsBytes) {
  const Uuid uuid = Uuid::random();
  const Value::Array objects = objectsOf(uuid);
  EXPECT_EQ(at(objects[1], "NS.uuidbytes"), Value(Data(uuid.bytes.begin(), uuid.bytes.end())));
  EXPECT_EQ(classNameOf(classOf(objects, objects[1])), "NSUUID");
}

TEST(ArchiverTest, AUrlHasNoBaseAndItsAbsoluteEscapedString) {
  const Value::Array objects = objectsOf(Url::fileURLWithPath("/a b", true));
  EXPECT_EQ(at(objects[1], "NS.base"), Value(Uid{0}));
  EXPECT_EQ(follow(objects, objects[1], "NS.relative"), Value("file:///a%20b/"));
  EXPECT_EQ(classNameOf(classOf(objects, objects[1])), "NSURL");
}

TEST(ArchiverTest, TheVeryTextOfNullIsBoxed) {
  const Value::Array objects = objectsOf("$null");
  EXPECT_EQ(at(objects[1], "NS.string"), Value("$null"));
  EXPECT_EQ(at(classOf(objects, objects[1]), "$classes"),
            Value(Value::Array{"NSMutableString", "NSString", "NSObject"}));
  EXPECT_EQ(unarchived(archived("$null")), Value("$null"));
  EXPECT_EQ(unarchived(archived(Value::Array{"$null", nullptr})),
            Value(Value::Array{"$null", nullptr}));
}

TEST(ArchiverTest, EqualStringsAndNumbersAreOneEntry) {
  EXPECT_EQ(objectsOf(Value::Array{"a", "a", 7, 7, 2.5, 2.5}).size(), 6U);
}

TEST(ArchiverTest, NumbersOfDifferentKindsAreEntriesOfTheirOwn) {
  const Value root(Value::Array{1, 1.0, true, "1"});
  EXPECT_EQ(unarchived(archived(root)), root);
}

TEST(ArchiverTest, OneBlockOfDataIsOneEntry) {
  const auto block = std::make_shared<const Data>(Data{1, 2});
  EXPECT_EQ(objectsOf(Value::Array{DataPtr(block), DataPtr(block)}).size(), 4U);
}

TEST(ArchiverTest, BytesStandInlineWithoutAnEntry) {
  auto sample = std::make_shared<Sample>();
  sample->bytes = std::make_shared<const Data>(Data{1, 2});
  EXPECT_EQ(at(objectsOf(sample)[1], "bytes"), Value(Data{1, 2}));
}

class DollarKey : public Coding {
 public:
  std::string_view className() const override { return "Group"; }
  void initWithCoder(Unarchiver& coder) override { text = coder.decodeString("$class"); }
  void encodeWithCoder(Archiver& coder) const override { coder.encodeObject(text, "$class"); }
  std::optional<std::string> text;
};

TEST(ArchiverTest, AKeyThatBeginsWithADollarGetsOneMore) {
  auto object = std::make_shared<DollarKey>();
  object->text = "a";
  const Data bytes = archived(object);
  const Value::Array objects = objectsOf(object);
  EXPECT_EQ(follow(objects, objects[1], "$$class"), Value("a"));
  ClassRegistry registry;
  registry.registerClass({"Group", "NSObject"}, [] { return std::make_shared<DollarKey>(); });
  const Value read = Unarchiver::unarchiveObjectWithData(bytes, registry);
  EXPECT_EQ(testing::objectOf<DollarKey>(read)->text, "a");
}

TEST(ArchiverTest, AnUnregisteredClassIsNotWritten) {
  const ClassRegistry empty;
  EXPECT_THROW(Archiver::archivedDataWithRootObject(std::make_shared<Sample>(), empty),
               PlatformException);
}

TEST(ArchiverTest, ABareUidIsNotWritten) {
  EXPECT_THROW(archived(Uid{1}), PlatformException);
}

TEST(ArchiverTest, AnObjectThatContainsItselfIsNotWritten) {
  auto group = std::make_shared<Group>();
  group->members = Value::Array{group};
  EXPECT_THROW(archived(group), PlatformException);
  group->members.reset();
}

TEST(ArchiverTest, WhatIsNestedTooDeeplyToBeReadAgainIsNotWritten) {
  const auto nested = [](int depth) {
    Value value = Value::Array();
    for (int i = 1; i < depth; ++i) {
      Value outer = Value::Array();
      outer.getIf<Value::Array>()->push_back(std::move(value));
      value = std::move(outer);
    }
    return value;
  };
  const Value deepest = nested(Unarchiver::kMaximumArchiveDepth);
  EXPECT_EQ(unarchived(archived(deepest)), deepest);
  EXPECT_THROW(archived(nested(Unarchiver::kMaximumArchiveDepth + 1)), PlatformException);
}

class SameKeyTwice : public Group {
 public:
  void encodeWithCoder(Archiver& coder) const override {
    coder.encodeBool(true, "a");
    coder.encodeInteger(1, "a");
  }
};

TEST(ArchiverTest, AKeyIsNotEncodedTwice) {
  EXPECT_THROW(archived(std::make_shared<SameKeyTwice>()), PlatformException);
}

class CatchesItsField : public Group {
 public:
  void encodeWithCoder(Archiver& coder) const override {
    EXPECT_THROW(coder.encodeObject(Value::Array{Uid{1}}, "a"), PlatformException);
  }
};

TEST(ArchiverTest, AnObjectThatCatchesAFailedFieldLeavesNoHalfWrittenFile) {
  EXPECT_THROW(archived(std::make_shared<CatchesItsField>()), PlatformException);
}

TEST(ArchiverTest, TextThatIsNoUtf8IsWrittenWithReplacementCharacters) {
  EXPECT_EQ(unarchived(archived("a\xFFz")), Value("a\xEF\xBF\xBDz"));
}

TEST(ArchiverTest, ADictionaryKeyThatIsNoUtf8IsNotWritten) {
  EXPECT_THROW(archived(Value::Dictionary{{"a\xFF", 1}}), PlatformException);
}

TEST(ArchiverTest, EveryFieldSurvives) {
  auto friendSample = std::make_shared<DerivedSample>();
  friendSample->title = "friend";
  Sample sample;
  sample.enabled = true;
  sample.count = INT64_MIN;
  sample.ratio = -0.5;
  sample.title = "\xF0\x9F\x98\x80";
  sample.types = std::vector<std::string>{"public.image", ""};
  sample.url = Url("file:///a%20b");
  sample.bytes = std::make_shared<const Data>(Data(5000, 7));
  sample.any = Value::Dictionary{{"a", Value::Array{1, nullptr}}};
  sample.friendSample = friendSample;
  const auto read =
      testing::objectOf<Sample>(unarchived(archived(std::make_shared<Sample>(sample))));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->enabled, sample.enabled);
  EXPECT_EQ(read->count, sample.count);
  EXPECT_EQ(read->ratio, sample.ratio);
  EXPECT_EQ(read->title, sample.title);
  EXPECT_EQ(read->types, sample.types);
  EXPECT_EQ(read->url, sample.url);
  EXPECT_EQ(*read->bytes, *sample.bytes);
  EXPECT_EQ(read->any, sample.any);
  ASSERT_NE(std::dynamic_pointer_cast<DerivedSample>(read->friendSample), nullptr);
  EXPECT_EQ(read->friendSample->title, "friend");
}

TEST(ArchiverTest, WritingTwiceGivesTheSameBytes) {
  const Value root(Value::Array{"a", Value::Dictionary{{"b", 1}}, std::make_shared<Sample>()});
  EXPECT_EQ(archived(root), archived(root));
}

}  // namespace
}  // namespace tervano
