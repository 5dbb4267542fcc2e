#include "archive/inspection.h"

#include <gtest/gtest.h>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/unarchiver.h"
#include "tests/archive/raw_property_list.h"
#include "tests/archive/sample_classes.h"

namespace tervano {
namespace {

using testing::archived;
using testing::classNamed;
using testing::keyedArchive;
using testing::Sample;

Value inspect(Value::Array objects) {
  return plainValueOfKeyedArchive(binaryDataWithPropertyList(keyedArchive(std::move(objects))));
}

TEST(InspectionTest, AnObjectOfAnUnknownClassIsADictionaryWithItsClassName) {
  EXPECT_EQ(inspect({"$null", Value::Dictionary{{"$class", Uid{2}}, {"a", Uid{3}}, {"b", true}},
                     classNamed({"Unknown", "NSObject"}), "text"}),
            Value(Value::Dictionary{{"$class", "Unknown"}, {"a", "text"}, {"b", true}}));
}

TEST(InspectionTest, PlainValuesStandForThemselves) {
  for (const Value& value :
       {Value("text"), Value("$null"), Value(7), Value(2.5), Value(true), Value(Data{1, 2}),
        Value(Date{12.5}), Value(Uuid::random()), Value(Url("file:///a")),
        Value(Value::Array{1, nullptr, "a"}), Value(Value::Dictionary{{"a", Value::Array{1}}})}) {
    EXPECT_EQ(plainValueOfKeyedArchive(archived(value)), value);
  }
}

TEST(InspectionTest, NilIsNull) {
  EXPECT_TRUE(plainValueOfKeyedArchive(archived(nullptr)).isNull());
}

TEST(InspectionTest, AllKeysOfAnObjectAreResolved) {
  auto sample = std::make_shared<Sample>();
  sample->title = "a";
  sample->types = std::vector<std::string>{"b"};
  sample->friendSample = std::make_shared<Sample>();
  sample->friendSample->count = 7;
  const Value plain = plainValueOfKeyedArchive(archived(sample));
  EXPECT_EQ(*plain.find("$class"), Value("Sample"));
  EXPECT_EQ(*plain.find("title"), Value("a"));
  EXPECT_EQ(*plain.find("types"), Value(Value::Array{"b"}));
  EXPECT_TRUE(plain.find("url")->isNull());
  EXPECT_EQ(*plain.find("friend")->find("count"), Value(7));
}

TEST(InspectionTest, AnObjectInsideItselfIsNamedByItsEntry) {
  EXPECT_EQ(inspect({"$null", Value::Dictionary{{"$class", Uid{2}}, {"me", Uid{1}}},
                     classNamed({"Unknown", "NSObject"})}),
            Value(Value::Dictionary{{"$class", "Unknown"}, {"me", "<cycle to entry 1>"}}));
}

TEST(InspectionTest, AnArrayInsideItselfIsNamedByItsEntry) {
  EXPECT_EQ(
      inspect({"$null", Value::Dictionary{{"$class", Uid{2}}, {"NS.objects", Value::Array{Uid{1}}}},
               classNamed({"NSArray", "NSObject"})}),
      Value(Value::Array{"<cycle to entry 1>"}));
}

TEST(InspectionTest, ASharedObjectIsShownInEachPlace) {
  EXPECT_EQ(
      inspect({"$null",
               Value::Dictionary{{"$class", Uid{2}}, {"NS.objects", Value::Array{Uid{3}, Uid{3}}}},
               classNamed({"NSArray", "NSObject"}), Value::Dictionary{{"$class", Uid{4}}},
               classNamed({"Unknown", "NSObject"})}),
      Value(Value::Array{Value::Dictionary{{"$class", "Unknown"}},
                         Value::Dictionary{{"$class", "Unknown"}}}));
}

TEST(InspectionTest, ManyReferencesToLargeObjectsDoNotMakeTheResultLarge) {
  // Each of ten levels holds the next one ten times: ten thousand million when written out.
  constexpr std::uint64_t kLevels = 10;
  Value::Array objects{"$null"};
  for (std::uint64_t level = 1; level <= kLevels; ++level) {
    objects.emplace_back(Value::Dictionary{
        {"$class", Uid{kLevels + 1}}, {"NS.objects", Value::Array(10, Value(Uid{level + 1}))}});
  }
  objects.emplace_back(classNamed({"NSArray", "NSObject"}));
  const Value shown = inspect(objects);
  std::size_t members = 0;
  std::vector<const Value*> left{&shown};
  bool isReferred = false;
  while (!left.empty()) {
    const auto* array = left.back()->getIf<Value::Array>();
    const auto* text = left.back()->getIf<std::string>();
    isReferred = isReferred || (text != nullptr && text->starts_with("<entry "));
    left.pop_back();
    if (array == nullptr) continue;
    members += array->size();
    for (const auto& member : *array) left.push_back(&member);
  }
  EXPECT_LT(members, 10'000U);
  EXPECT_TRUE(isReferred);
}

TEST(InspectionTest, KeysThatAreNoStringsAreDescribed) {
  const Value::Array keys{Uid{3}, Uid{4}, Uid{5}, Uid{0}, Uid{6}, Uid{7}, Uid{8}, Uid{9}};
  const Value::Array values(8, Uid{4});
  const Value plain = inspect(
      {"$null", Value::Dictionary{{"$class", Uid{2}}, {"NS.keys", keys}, {"NS.objects", values}},
       classNamed({"NSDictionary", "NSObject"}), "text", 7, 2.5, true, Data{1, 2},
       Value::Dictionary{{"$class", Uid{10}}}, UINT64_MAX, classNamed({"Unknown", "NSObject"})});
  std::vector<std::string> names;
  for (const auto& [key, value] : *plain.getIf<Value::Dictionary>()) names.push_back(key);
  EXPECT_EQ(names, (std::vector<std::string>{"<18446744073709551615>", "<2.5>", "<7>", "<Unknown>",
                                             "<data of 2 bytes>", "<nil>", "<true>", "text"}));
}

TEST(InspectionTest, KeysThatAreDescribedAlikeAreAllShown) {
  const Value plain = inspect({"$null",
                               Value::Dictionary{{"$class", Uid{2}},
                                                 {"NS.keys", Value::Array{Uid{3}, Uid{4}}},
                                                 {"NS.objects", Value::Array{Uid{3}, Uid{4}}}},
                               classNamed({"NSDictionary", "NSObject"}), 7, "<7>"});
  EXPECT_EQ(plain.getIf<Value::Dictionary>()->size(), 2U);
}

TEST(InspectionTest, ABoxedValueOfAnotherShapeIsShownAsItStands) {
  EXPECT_EQ(inspect({"$null", Value::Dictionary{{"$class", Uid{2}}, {"other", 7}},
                     classNamed({"NSArray", "NSObject"})}),
            Value(Value::Dictionary{{"$class", "NSArray"}, {"other", 7}}));
}

TEST(InspectionTest, AUrlIsResolvedAgainstItsBase) {
  EXPECT_EQ(
      inspect({"$null",
               Value::Dictionary{{"$class", Uid{2}}, {"NS.base", Uid{3}}, {"NS.relative", Uid{4}}},
               classNamed({"NSURL", "NSObject"}),
               Value::Dictionary{{"$class", Uid{2}}, {"NS.relative", Uid{5}}}, "b", "file:///a/"}),
      Value(Url("file:///a/b")));
}

TEST(InspectionTest, PlainContainersInsideObjectsAreResolved) {
  EXPECT_EQ(inspect({"$null",
                     Value::Dictionary{{"$class", Uid{2}},
                                       {"list", Value::Array{Uid{3}, 7}},
                                       {"table", Value::Dictionary{{"a", Uid{3}}}}},
                     classNamed({"Unknown", "NSObject"}), "text"}),
            Value(Value::Dictionary{{"$class", "Unknown"},
                                    {"list", Value::Array{"text", 7}},
                                    {"table", Value::Dictionary{{"a", "text"}}}}));
}

TEST(InspectionTest, WhatIsNestedTooDeeplyIsNamedByItsEntry) {
  constexpr int kDepth = Unarchiver::kMaximumArchiveDepth + 10;
  Value::Array objects{"$null"};
  for (int i = 1; i <= kDepth; ++i) {
    objects.push_back(Value::Dictionary{{"$class", Uid{kDepth + 1}},
                                        {"in", Uid{static_cast<std::uint64_t>(i % kDepth) + 1}}});
  }
  objects.push_back(classNamed({"Unknown", "NSObject"}));
  const Value plain = inspect(objects);
  const Value* inner = &plain;
  int depth = 0;
  while (const Value* next = inner->find("in")) {
    inner = next;
    ++depth;
  }
  EXPECT_EQ(depth, Unarchiver::kMaximumArchiveDepth);
  EXPECT_EQ(*inner, Value("<entry " + std::to_string(depth + 1) + ">"));
}

TEST(InspectionTest, WhatIsNoKeyedArchiveIsRefused) {
  EXPECT_THROW(plainValueOfKeyedArchive({}), PlatformException);
  EXPECT_THROW(plainValueOfKeyedArchive(binaryDataWithPropertyList(Value::Array{1})),
               PlatformException);
  EXPECT_THROW(inspect({"$null", Value::Dictionary{{"$class", Uid{9}}}}), PlatformException);
  EXPECT_THROW(inspect({"$null", Value::Dictionary{{"$class", Uid{2}}, {"a", Uid{9}}},
                        classNamed({"Unknown", "NSObject"})}),
               PlatformException);
}

}  // namespace
}  // namespace tervano
