#include "platform/linux/bus_question.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/support/fake_bus_service.h"
#include "tests/support/private_bus.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using Outcome = BusAnswer::Outcome;

constexpr int kWaitMilliseconds = 10'000;
constexpr char kBusName[] = "org.freedesktop.DBus";

BusAnswer ask(const std::string& name, const std::string& method, int milliseconds) {
  SessionBus bus;
  return askOnBus(bus, name, "/org/freedesktop/DBus", kBusName, method, milliseconds);
}

}  // namespace

TEST(BusQuestionTest, AnAnswerIsItsStrings) {
  const PrivateBus bus;
  const auto answer = ask(kBusName, "GetId", kWaitMilliseconds);
  EXPECT_EQ(answer.outcome, Outcome::answered);
  ASSERT_EQ(answer.texts.size(), 1U);
  EXPECT_EQ(answer.texts[0].size(), 32U);
  EXPECT_THAT(answer.reason, IsEmpty());
}

TEST(BusQuestionTest, OtherValuesOfAnAnswerAreLeftOut) {
  const PrivateBus bus;
  const auto answer = ask(kBusName, "ListNames", kWaitMilliseconds);
  EXPECT_EQ(answer.outcome, Outcome::answered);
  EXPECT_THAT(answer.texts, IsEmpty());
}

TEST(BusQuestionTest, WithoutABusThereIsNone) {
  const NoBus none;
  EXPECT_EQ(ask(kBusName, "GetId", kWaitMilliseconds).outcome, Outcome::noBus);
}

TEST(BusQuestionTest, ABusThatIsGoneIsNone) {
  PrivateBus bus;
  bus.kill();
  EXPECT_EQ(ask(kBusName, "GetId", kWaitMilliseconds).outcome, Outcome::noBus);
}

TEST(BusQuestionTest, ANameThatNobodyHasIsNobody) {
  const PrivateBus bus;
  const auto answer = ask("org.example.nobody", "GetId", kWaitMilliseconds);
  EXPECT_EQ(answer.outcome, Outcome::nobody);
  EXPECT_THAT(answer.reason, HasSubstr("org.example.nobody"));
}

TEST(BusQuestionTest, AMethodThatIsRefusedHasFailed) {
  const PrivateBus bus;
  const auto answer = ask(kBusName, "NoSuchMethod", kWaitMilliseconds);
  EXPECT_EQ(answer.outcome, Outcome::failed);
  EXPECT_THAT(answer.reason, testing::Not(HasSubstr("GDBus.Error")));
}

TEST(BusQuestionTest, AServiceThatEndsAtOnceHasFailed) {
  const std::map<std::string, std::string> services{{"org.example.ending", "/bin/false"}};
  const PrivateBus bus(services);
  EXPECT_EQ(ask("org.example.ending", "GetId", kWaitMilliseconds).outcome, Outcome::failed);
}

TEST(BusQuestionTest, AServiceThatDoesNotAnswerIsSilent) {
  const PrivateBus bus;
  const FakeBusService service(
      bus.address(), "org.example.silent", "/org/freedesktop/DBus", kBusName,
      "<node><interface name='org.freedesktop.DBus'><method name='GetId'/></interface></node>",
      [](const auto&) { return nullptr; });
  EXPECT_EQ(ask("org.example.silent", "GetId", 200).outcome, Outcome::silent);
}

}  // namespace tervano::test
