#include "prefs/vx_dictionary.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "archive/property_list.h"
#include "platform/linux/installed_bundle.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"

namespace tervano {
namespace {

using Dictionary = Value::Dictionary;

TEST(VXDictionaryTest, ReplacingSetsTheObjectUnderAKeyThatIsThere) {
  const Dictionary before = {{"a", 1}, {"b", 2}};
  EXPECT_EQ(vx_dictionaryByReplacingObject(before, "new", "a"),
            (Dictionary{{"a", "new"}, {"b", 2}}));
  EXPECT_EQ(before, (Dictionary{{"a", 1}, {"b", 2}}));
}

TEST(VXDictionaryTest, ReplacingAddsAKeyThatIsNotThere) {
  const Dictionary before = {{"a", 1}};
  EXPECT_EQ(vx_dictionaryByReplacingObject(before, 2, "b"), (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_EQ(vx_dictionaryByReplacingObject({}, 2, ""), (Dictionary{{"", 2}}));
  EXPECT_EQ(before, (Dictionary{{"a", 1}}));
}

TEST(VXDictionaryTest, ReplacingWithANilObjectGivesNil) {
  EXPECT_EQ(vx_dictionaryByReplacingObject({{"a", 1}}, nullptr, "a"), std::nullopt);
  EXPECT_EQ(vx_dictionaryByReplacingObject({{"a", 1}}, nullptr, "b"), std::nullopt);
}

TEST(VXDictionaryTest, ReplacingUnderANilKeyGivesNil) {
  EXPECT_EQ(vx_dictionaryByReplacingObject({{"a", 1}}, 2, std::nullopt), std::nullopt);
  EXPECT_EQ(vx_dictionaryByReplacingObject({{"a", 1}}, nullptr, std::nullopt), std::nullopt);
}

TEST(VXDictionaryTest, MergingTakesTheOthersValueOfAKeyInBoth) {
  const Dictionary before = {{"a", 1}, {"b", 2}};
  const Dictionary other = {{"b", 3}, {"c", 4}};
  EXPECT_EQ(vx_dictionaryByMergingWithDictionary(before, other),
            (Dictionary{{"a", 1}, {"b", 3}, {"c", 4}}));
  EXPECT_EQ(before, (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_EQ(other, (Dictionary{{"b", 3}, {"c", 4}}));
}

TEST(VXDictionaryTest, MergingIsShallow) {
  EXPECT_EQ(vx_dictionaryByMergingWithDictionary({{"x", Dictionary{{"p", 1}}}},
                                                 Dictionary{{"x", Dictionary{{"q", 2}}}}),
            (Dictionary{{"x", Dictionary{{"q", 2}}}}));
}

TEST(VXDictionaryTest, MergingWithNilOrNothingGivesTheSameEntries) {
  const Dictionary before = {{"a", 1}, {"b", nullptr}};
  EXPECT_EQ(vx_dictionaryByMergingWithDictionary(before, std::nullopt), before);
  EXPECT_EQ(vx_dictionaryByMergingWithDictionary(before, Dictionary{}), before);
  EXPECT_EQ(vx_dictionaryByMergingWithDictionary({}, before), before);
}

TEST(VXDictionaryTest, MergingTakesANullOfTheOther) {
  EXPECT_EQ(vx_dictionaryByMergingWithDictionary({{"a", 1}}, Dictionary{{"a", nullptr}}),
            (Dictionary{{"a", nullptr}}));
}

TEST(VXDictionaryTest, NullsBecomeEmptyStringsAndNoKeyIsLost) {
  const Dictionary before = {{"a", nullptr}, {"b", 1}};
  const Dictionary after = vx_dictionaryByRemovingNullValues(before);
  EXPECT_EQ(after, (Dictionary{{"a", ""}, {"b", 1}}));
  EXPECT_EQ(after.size(), 2u);
  EXPECT_EQ(before, (Dictionary{{"a", nullptr}, {"b", 1}}));
}

TEST(VXDictionaryTest, NullsDeeperInsideStay) {
  const Dictionary before = {{"list", Value::Array{nullptr, 1}},
                             {"inner", Dictionary{{"x", nullptr}}}};
  EXPECT_EQ(vx_dictionaryByRemovingNullValues(before), before);
}

TEST(VXDictionaryTest, WhatLooksEmptyButIsNoNullStays) {
  const Dictionary before = {{"a", ""}, {"b", 0}, {"c", false}, {"d", Value::Array{}}};
  EXPECT_EQ(vx_dictionaryByRemovingNullValues(before), before);
  EXPECT_EQ(vx_dictionaryByRemovingNullValues({}), Dictionary{});
}

// Files in a private home, which is also the prefix of a bundle.
class VXDictionaryFileTest : public testing::Test {
 protected:
  VXDictionaryFileTest() : log_(*platform_.services().log), bundle_(home() + "/bin/program") {
    platform_.services().log = &log_;
    std::filesystem::create_directories(home() + "/share/tervano");
  }
  ~VXDictionaryFileTest() override { EXPECT_TRUE(log_.lines().empty()) << "something was logged"; }

  const std::string& home() { return platform_.home().path(); }
  std::string make(const std::string& name, const std::string& text) {
    const std::string path = home() + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  std::string make(const std::string& name, const Data& bytes) {
    return make(name, std::string(bytes.begin(), bytes.end()));
  }

  const Dictionary content_ = {{"name", "value"},
                               {"list", Value::Array{1, true, "x"}},
                               {"inner", Dictionary{{"real", 1.5}}}};
  test::ScopedPlatform platform_;
  test::RecordingLog log_;
  InstalledBundle bundle_;
};

TEST_F(VXDictionaryFileTest, AFileOfEitherEncodingIsRead) {
  EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(make("xml", XMLDataWithPropertyList(content_))),
            content_);
  EXPECT_EQ(
      vx_dictionaryFromPropertyListAtPath(make("binary", binaryDataWithPropertyList(content_))),
      content_);
}

TEST_F(VXDictionaryFileTest, AnEmptyDictionaryIsNotNil) {
  EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(make("xml", XMLDataWithPropertyList(Dictionary{}))),
            Dictionary{});
  EXPECT_EQ(
      vx_dictionaryFromPropertyListAtPath(make("binary", binaryDataWithPropertyList(Dictionary{}))),
      Dictionary{});
}

TEST_F(VXDictionaryFileTest, ARootThatIsNoDictionaryGivesNil) {
  for (const Value& root : {Value(Value::Array{content_}), Value("text"), Value(7), Value(true),
                            Value(1.5), Value(Data{1, 2}), Value(Date{3})}) {
    EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(make("xml", XMLDataWithPropertyList(root))),
              std::nullopt);
    EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(make("binary", binaryDataWithPropertyList(root))),
              std::nullopt);
  }
}

TEST_F(VXDictionaryFileTest, AFileThatIsNoPropertyListGivesNil) {
  const Data whole = binaryDataWithPropertyList(content_);
  for (const std::string& text :
       {std::string(), std::string("no list"), std::string("<plist>"), std::string("bplist00"),
        std::string("<?xml version=\"1.0\"?><html/>"), std::string(100, '\0'),
        std::string(whole.begin(), whole.end() - 1)}) {
    EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(make("odd", text)), std::nullopt) << text;
  }
}

TEST_F(VXDictionaryFileTest, AListThatIsTooDeepGivesNil) {
  std::string text = "<plist version=\"1.0\">";
  for (int depth = 0; depth < 2 * kMaximumPropertyListDepth; ++depth) text += "<dict><key>k</key>";
  EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(make("deep", text)), std::nullopt);
}

TEST_F(VXDictionaryFileTest, AFileThatCannotBeReadGivesNil) {
  EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(home() + "/missing"), std::nullopt);
  EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(home()), std::nullopt);
  EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(""), std::nullopt);
  ASSERT_EQ(mkfifo((home() + "/pipe").c_str(), 0600), 0);
  EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(home() + "/pipe"), std::nullopt);
}

TEST_F(VXDictionaryFileTest, AFileThatMayNotBeReadGivesNil) {
  const auto path = make("secret", XMLDataWithPropertyList(content_));
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  ASSERT_EQ(chmod(home().c_str(), 0755), 0);
  constexpr uid_t kNobody = 65534;
  const uid_t user = geteuid();
  ASSERT_EQ(seteuid(user == 0 ? kNobody : user), 0);
  const auto read = vx_dictionaryFromPropertyListAtPath(path);
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_EQ(read, std::nullopt);
}

TEST_F(VXDictionaryFileTest, AFileWithAnyBytesInItsNameIsRead) {
  for (const char* const name : {"a\nb", "-rf", "$(touch x)", "\xFF\xFE", "'q' \"p\"", "%41"}) {
    EXPECT_EQ(vx_dictionaryFromPropertyListAtPath(make(name, XMLDataWithPropertyList(content_))),
              content_);
  }
}

TEST_F(VXDictionaryFileTest, ANamedListIsThatOfTheBundle) {
  make("share/tervano/List.plist", XMLDataWithPropertyList(content_));
  EXPECT_EQ(vx_dictionaryFromPropertyListWithName("List", bundle_), content_);
}

TEST_F(VXDictionaryFileTest, WithoutBundleItIsThatOfTheProduct) {
  make("share/tervano/List.plist", XMLDataWithPropertyList(content_));
  EXPECT_EQ(vx_dictionaryFromPropertyListWithName("List"), std::nullopt);
  platform_.services().bundle = &bundle_;
  EXPECT_EQ(vx_dictionaryFromPropertyListWithName("List"), content_);
}

TEST_F(VXDictionaryFileTest, ANameWithoutResourceGivesNil) {
  make("share/tervano/Other.txt", XMLDataWithPropertyList(content_));
  for (const char* const name : {"List", "Other", "Other.txt", "", "../../List"}) {
    EXPECT_EQ(vx_dictionaryFromPropertyListWithName(name, bundle_), std::nullopt) << name;
  }
}

TEST_F(VXDictionaryFileTest, ANamedListThatHoldsSomethingElseGivesNil) {
  make("share/tervano/List.plist", XMLDataWithPropertyList(Value::Array{1}));
  EXPECT_EQ(vx_dictionaryFromPropertyListWithName("List", bundle_), std::nullopt);
  make("share/tervano/List.plist", std::string("no list"));
  EXPECT_EQ(vx_dictionaryFromPropertyListWithName("List", bundle_), std::nullopt);
}

}  // namespace
}  // namespace tervano
