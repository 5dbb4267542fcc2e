#include "platform/apple_event.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tervano {
namespace {

using testing::SizeIs;

AppleEventDescriptor text(const std::string& string) {
  return AppleEventDescriptor::descriptorWithString(string);
}

std::vector<std::string> textsOf(const AppleEventDescriptor& list) {
  std::vector<std::string> texts;
  for (const auto& item : *list.list()) texts.push_back(*item.string());
  return texts;
}

using Texts = std::vector<std::string>;

TEST(AppleEventTest, ACodeIsItsFourCharactersTheFirstHighest) {
  EXPECT_EQ(fourCharCode("abcd"), 0x61626364u);
  EXPECT_EQ(fourCharCode("psn "), 0x70736E20u);
  EXPECT_EQ(fourCharCode("\xFF\x80\x01\x7F"), 0xFF80017Fu);
}

TEST(AppleEventTest, TheNamedCodesAndNumbersAreThePublishedOnes) {
  EXPECT_EQ(kTypeProcessSerialNumber, fourCharCode("psn "));
  EXPECT_EQ(kASAppleScriptSuite, fourCharCode("ascr"));
  EXPECT_EQ(kASSubroutineEvent, fourCharCode("psbr"));
  EXPECT_EQ(kASSubroutineName, fourCharCode("snam"));
  EXPECT_EQ(kDirectObject, fourCharCode("----"));
  EXPECT_EQ(kAutoGenerateReturnID, -1);
  EXPECT_EQ(kAnyTransactionID, 0);
  EXPECT_EQ(kCurrentProcess, 2u);
}

TEST(AppleEventTest, ADescriptorIsOfExactlyOneForm) {
  const auto list = AppleEventDescriptor::listDescriptor();
  EXPECT_NE(list.list(), nullptr);
  EXPECT_EQ(list.string(), nullptr);
  EXPECT_EQ(list.bytes(), nullptr);
  EXPECT_NE(text("").string(), nullptr);
  EXPECT_EQ(text("").list(), nullptr);
  EXPECT_EQ(text("").bytes(), nullptr);
  const auto bytes = AppleEventDescriptor::descriptorWithDescriptorType(7, {1, 2});
  ASSERT_NE(bytes.bytes(), nullptr);
  EXPECT_EQ(bytes.list(), nullptr);
  EXPECT_EQ(bytes.string(), nullptr);
  EXPECT_EQ(bytes.bytes()->type, 7u);
  EXPECT_EQ(bytes.bytes()->bytes, (Data{1, 2}));
}

TEST(AppleEventTest, ANewListIsEmpty) {
  EXPECT_THAT(*AppleEventDescriptor::listDescriptor().list(), SizeIs(0));
}

TEST(AppleEventTest, AStringKeepsEveryByte) {
  const std::string odd("\xFF\0\n\"", 4);
  EXPECT_EQ(*text(odd).string(), odd);
}

TEST(AppleEventTest, PositionsCountFromOne) {
  auto list = AppleEventDescriptor::listDescriptor();
  list.insertDescriptor(text("b"), 1);
  list.insertDescriptor(text("a"), 1);
  list.insertDescriptor(text("c"), 3);
  EXPECT_EQ(textsOf(list), (Texts{"a", "b", "c"}));
}

TEST(AppleEventTest, AnInsertionMovesWhatStandsThereBack) {
  auto list = AppleEventDescriptor::listDescriptor();
  for (const char* const item : {"a", "c"}) list.insertDescriptor(text(item), 0);
  list.insertDescriptor(text("b"), 2);
  EXPECT_EQ(textsOf(list), (Texts{"a", "b", "c"}));
}

TEST(AppleEventTest, PositionZeroAppends) {
  auto list = AppleEventDescriptor::listDescriptor();
  for (const char* const item : {"a", "b", "c"}) list.insertDescriptor(text(item), 0);
  EXPECT_EQ(textsOf(list), (Texts{"a", "b", "c"}));
}

TEST(AppleEventTest, APositionBeyondTheEndAppends) {
  auto list = AppleEventDescriptor::listDescriptor();
  list.insertDescriptor(text("a"), 9);
  list.insertDescriptor(text("b"), SIZE_MAX);
  EXPECT_EQ(textsOf(list), (Texts{"a", "b"}));
}

TEST(AppleEventTest, NothingIsInsertedIntoWhatIsNoList) {
  auto string = text("a");
  string.insertDescriptor(text("b"), 1);
  EXPECT_EQ(string, text("a"));
}

TEST(AppleEventTest, AListInAListIsAValueOfItsOwn) {
  auto inner = AppleEventDescriptor::listDescriptor();
  auto outer = AppleEventDescriptor::listDescriptor();
  outer.insertDescriptor(inner, 1);
  inner.insertDescriptor(text("later"), 1);
  EXPECT_THAT(*outer.list()->front().list(), SizeIs(0));
}

TEST(AppleEventTest, DescriptorsAreEqualByFormAndContent) {
  EXPECT_EQ(text("a"), text("a"));
  EXPECT_NE(text("a"), text("b"));
  EXPECT_NE(text(""), AppleEventDescriptor::listDescriptor());
  EXPECT_NE(AppleEventDescriptor::descriptorWithDescriptorType(1, {1}),
            AppleEventDescriptor::descriptorWithDescriptorType(2, {1}));
  EXPECT_NE(AppleEventDescriptor::descriptorWithDescriptorType(1, {1}),
            AppleEventDescriptor::descriptorWithDescriptorType(1, {2}));
}

TEST(AppleEventTest, ANewEventHasTheUsualIdentifiersAndNoParameters) {
  const AppleEvent event;
  EXPECT_EQ(event.returnID, kAutoGenerateReturnID);
  EXPECT_EQ(event.transactionID, kAnyTransactionID);
  EXPECT_THAT(event.parameters, SizeIs(0));
  EXPECT_EQ(event.paramDescriptor(kDirectObject), nullptr);
}

TEST(AppleEventTest, ParametersStandInTheOrderInWhichTheyWereSet) {
  AppleEvent event;
  event.setParamDescriptor(text("name"), kASSubroutineName);
  event.setParamDescriptor(text("object"), kDirectObject);
  ASSERT_THAT(event.parameters, SizeIs(2));
  EXPECT_EQ(event.parameters[0].first, kASSubroutineName);
  EXPECT_EQ(event.parameters[1].first, kDirectObject);
  EXPECT_EQ(*event.paramDescriptor(kDirectObject), text("object"));
}

TEST(AppleEventTest, AParameterThatIsSetAgainKeepsItsPlace) {
  AppleEvent event;
  event.setParamDescriptor(text("old"), kASSubroutineName);
  event.setParamDescriptor(text("object"), kDirectObject);
  event.setParamDescriptor(text("new"), kASSubroutineName);
  ASSERT_THAT(event.parameters, SizeIs(2));
  EXPECT_EQ(event.parameters[0].first, kASSubroutineName);
  EXPECT_EQ(event.parameters[0].second, text("new"));
}

}  // namespace
}  // namespace tervano
