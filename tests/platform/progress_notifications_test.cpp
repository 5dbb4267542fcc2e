#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/freedesktop_notifications.h"
#include "tests/support/fake_bus_service.h"
#include "tests/support/private_bus.h"
#include "tests/support/program.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/virtual_display.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kBarInterface[] = "org.freedesktop.Notifications";
constexpr char kBarInterfaceXML[] = R"(<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="GetServerInformation"><arg type="s" direction="out"/>
    <arg type="s" direction="out"/><arg type="s" direction="out"/><arg type="s" direction="out"/></method>
  <method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="as" direction="in"/><arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/></method>
  <method name="CloseNotification"><arg type="u" direction="in"/></method>
  <signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
  <signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal>
</interface></node>)";

// A daemon of that name; what replaces keeps its number.
class BarDaemon {
 public:
  BarDaemon(const PrivateBus& bus, std::vector<std::string> capabilities,
            std::string name = "some daemon")
      : capabilities_(std::move(capabilities)),
        name_(std::move(name)),
        service_(bus.address(), kBarInterface, "/org/freedesktop/Notifications", kBarInterface,
                 kBarInterfaceXML, [this](const auto& call) { return answer(call); }) {}

  std::vector<std::string> callsOf(const std::string& method) const {
    std::vector<std::string> arguments;
    for (const auto& call : service_.callsOf(method)) arguments.push_back(call.arguments);
    return arguments;
  }
  void press(std::uint32_t number, const char* action) {
    service_.emitSignal("ActionInvoked", g_variant_new("(us)", number, action));
  }
  void close(std::uint32_t number) {
    service_.emitSignal("NotificationClosed", g_variant_new("(uu)", number, 2U));
  }

 private:
  GVariant* answer(const FakeBusService::Call& call) {
    if (call.method == "CloseNotification") return g_variant_new("()");
    if (call.method == "GetServerInformation") {
      return g_variant_new("(ssss)", name_.c_str(), "vendor", "1", "1.2");
    }
    if (call.method == "Notify") {
      const bool replaces = call.arguments.find("uint32 0,") == std::string::npos;
      return g_variant_new("(u)", replaces ? last_ : ++last_);
    }
    GVariantBuilder names;
    g_variant_builder_init(&names, G_VARIANT_TYPE("as"));
    for (const auto& name : capabilities_) g_variant_builder_add(&names, "s", name.c_str());
    return g_variant_new("(as)", &names);
  }

  std::vector<std::string> capabilities_;
  std::string name_;
  std::uint32_t last_ = 0;
  FakeBusService service_;
};

const std::vector<std::string> kBarCapabilities{"actions", "body",
                                                "x-canonical-private-synchronous"};

class ProgressNotificationsTest : public testing::Test {
 protected:
  using Events = std::vector<std::pair<std::uint64_t, ProgressEvent>>;

  ProgressNotificationsTest() {
    notifications_.setProgressHandler(
        [this](std::uint64_t number, ProgressEvent event) { events_.emplace_back(number, event); });
  }
  ~ProgressNotificationsTest() override { notifications_.setProgressHandler(nullptr); }

  static ProgressNotification half(const std::string& text = "1 of 2 items") {
    return {"Copy", text, 0.5, "Cancel"};
  }

  Events events_;
  ScopedPlatform platform_;
  PrivateBus bus_;
  FreedesktopNotifications notifications_{"com.vessok.tervano"};
};

TEST_F(ProgressNotificationsTest, ItHasABarAButtonAndNoSound) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.showProgress(7, half());
  ASSERT_TRUE(waitUntil([&] { return !daemon.callsOf("Notify").empty(); }));
  EXPECT_THAT(
      daemon.callsOf("Notify"),
      ElementsAre("('Tervano', uint32 0, 'tervano', 'Copy', '1 of 2 items', ['cancel', 'Cancel'], "
                  "{'desktop-entry': <'com.vessok.tervano'>, 'suppress-sound': <true>, "
                  "'transient': <true>, 'urgency': <byte 0x00>, 'category': <'transfer'>, "
                  "'value': <50>}, 15000)"));
  EXPECT_EQ(notifications_.pendingDeliveries(), 0);
  EXPECT_EQ(notifications_.openNotifications(), 0);
}

TEST_F(ProgressNotificationsTest, WithoutAFractionThereIsNoValue) {
  BarDaemon daemon(bus_, kBarCapabilities);
  auto unknown = half();
  unknown.fraction = std::nullopt;
  notifications_.showProgress(1, unknown);
  ASSERT_TRUE(waitUntil([&] { return !daemon.callsOf("Notify").empty(); }));
  EXPECT_THAT(daemon.callsOf("Notify").front(), testing::Not(HasSubstr("'value'")));
}

TEST_F(ProgressNotificationsTest, AChangeReplacesTheOneThatIsShown) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.showProgress(1, half());
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 1; }));
  notifications_.showProgress(1, half("2 of 2 items"));
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 2; }));
  EXPECT_THAT(daemon.callsOf("Notify").back(), HasSubstr("uint32 1, 'tervano', 'Copy', '2 of 2"));
}

TEST_F(ProgressNotificationsTest, TwoJobsHaveTwoNotifications) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.showProgress(1, half());
  notifications_.showProgress(2, half("other"));
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 2; }));
  EXPECT_THAT(daemon.callsOf("Notify").back(), HasSubstr("uint32 0, 'tervano', 'Copy', 'other'"));
}

TEST_F(ProgressNotificationsTest, WhatChangesWhileTheDaemonIsBusyIsToldOnceAndWhole) {
  BarDaemon daemon(bus_, kBarCapabilities);
  for (int step = 0; step < 50; ++step) {
    notifications_.showProgress(1, half("step " + std::to_string(step)));
  }
  ASSERT_TRUE(waitUntil([&] {
    const auto calls = daemon.callsOf("Notify");
    return !calls.empty() && calls.back().find("step 49") != std::string::npos;
  }));
  EXPECT_LT(daemon.callsOf("Notify").size(), 50U);
}

TEST_F(ProgressNotificationsTest, TheEndTakesItAwayAndCountsUntilThen) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.showProgress(1, half());
  ASSERT_TRUE(waitUntil([&] { return !daemon.callsOf("Notify").empty(); }));
  notifications_.endProgress(1);
  EXPECT_EQ(notifications_.pendingDeliveries(), 1);
  ASSERT_TRUE(waitUntil([&] { return notifications_.pendingDeliveries() == 0; }));
  EXPECT_THAT(daemon.callsOf("CloseNotification"), ElementsAre("(uint32 1,)"));
}

TEST_F(ProgressNotificationsTest, WhatEndsBeforeTheDaemonIsKnownIsNotShown) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.showProgress(1, half());
  notifications_.endProgress(1);
  ASSERT_TRUE(waitUntil([&] { return notifications_.pendingDeliveries() == 0; }));
  EXPECT_THAT(daemon.callsOf("Notify"), IsEmpty());
}

TEST_F(ProgressNotificationsTest, TheEndOfWhatIsNotShownIsHarmless) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.endProgress(5);
  ASSERT_TRUE(waitUntil([&] { return notifications_.pendingDeliveries() == 0; }));
  EXPECT_THAT(daemon.callsOf("CloseNotification"), IsEmpty());
}

TEST_F(ProgressNotificationsTest, APressOnTheButtonIsToldWithTheCallersNumber) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.showProgress(7, half());
  ASSERT_TRUE(waitUntil([&] { return !daemon.callsOf("Notify").empty(); }));
  notifications_.showProgress(7, half("more"));
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 2; }));
  daemon.press(1, "other");
  daemon.press(9, "cancel");
  daemon.press(1, "cancel");
  ASSERT_TRUE(waitUntil([&] { return !events_.empty(); }));
  EXPECT_EQ(events_, (Events{{7, ProgressEvent::cancelled}}));
}

TEST_F(ProgressNotificationsTest, OneThatTheUserClosedStaysClosedAndCancelsNothing) {
  BarDaemon daemon(bus_, kBarCapabilities);
  notifications_.showProgress(1, half());
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 1; }));
  daemon.close(1);
  // What the daemon answers after the signal is heard after it, and is needed to change the other.
  notifications_.showProgress(2, half("other"));
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 2; }));
  notifications_.showProgress(2, half("other still"));
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 3; }));
  notifications_.showProgress(1, half("more"));
  notifications_.showProgress(2, half("other at last"));
  ASSERT_TRUE(waitUntil([&] { return daemon.callsOf("Notify").size() == 4; }));
  EXPECT_THAT(daemon.callsOf("Notify").back(), HasSubstr("other at last"));
  notifications_.endProgress(1);
  ASSERT_TRUE(waitUntil([&] { return notifications_.pendingDeliveries() == 0; }));
  EXPECT_THAT(daemon.callsOf("CloseNotification"), IsEmpty());
  EXPECT_THAT(events_, IsEmpty());
}

TEST_F(ProgressNotificationsTest, ADaemonThatIsKnownByItsNameIsEnough) {
  BarDaemon daemon(bus_, {"actions", "body"}, "Xfce Notify Daemon");
  notifications_.showProgress(1, half());
  ASSERT_TRUE(waitUntil([&] { return !daemon.callsOf("Notify").empty(); }));
  EXPECT_THAT(events_, IsEmpty());
}

TEST_F(ProgressNotificationsTest, ADaemonWithoutABarShowsNothingAndThatIsTold) {
  BarDaemon daemon(bus_, {"actions", "body"}, "gnome-shell");
  notifications_.showProgress(3, half());
  ASSERT_TRUE(waitUntil([&] { return !events_.empty(); }));
  EXPECT_EQ(events_, (Events{{3, ProgressEvent::notShown}}));
  EXPECT_THAT(daemon.callsOf("Notify"), IsEmpty());
}

TEST_F(ProgressNotificationsTest, ADaemonWithoutButtonsShowsNothing) {
  BarDaemon daemon(bus_, {"body", "x-canonical-private-synchronous"}, "Xfce Notify Daemon");
  notifications_.showProgress(3, half());
  ASSERT_TRUE(waitUntil([&] { return !events_.empty(); }));
  EXPECT_EQ(events_, (Events{{3, ProgressEvent::notShown}}));
  EXPECT_THAT(daemon.callsOf("Notify"), IsEmpty());
}

TEST_F(ProgressNotificationsTest, WithoutADaemonThatIsTold) {
  notifications_.showProgress(3, half());
  ASSERT_TRUE(waitUntil([&] { return !events_.empty(); }));
  EXPECT_EQ(events_, (Events{{3, ProgressEvent::notShown}}));
}

TEST_F(ProgressNotificationsTest, ANewDaemonGetsAWholeNotification) {
  auto first = std::make_unique<BarDaemon>(bus_, kBarCapabilities);
  notifications_.showProgress(1, half());
  ASSERT_TRUE(waitUntil([&] { return first->callsOf("Notify").size() == 1; }));
  // Whatever comes after its answer.
  first->press(1, "cancel");
  ASSERT_TRUE(waitUntil([&] { return !events_.empty(); }));
  events_.clear();
  first.reset();
  BarDaemon second(bus_, kBarCapabilities);
  ASSERT_TRUE(waitUntil([&] {
    notifications_.showProgress(1, half("again"));
    return !second.callsOf("Notify").empty() || !events_.empty();
  }));
  EXPECT_THAT(events_, IsEmpty());
  ASSERT_THAT(second.callsOf("Notify"), testing::Not(IsEmpty()));
  EXPECT_THAT(second.callsOf("Notify").front(), HasSubstr("uint32 0, 'tervano'"));
}

TEST_F(ProgressNotificationsTest, ARealDaemonShowsTheBarAndItsButtonCancels) {
  const VirtualDisplay display;
  auto dunst = startProgram("/usr/bin/dunst", {"-conf", "/dev/null"});
  const auto count = [](const std::string& what) {
    const auto outcome = runProgram({"/usr/bin/dunstctl", {"count", what}});
    return outcome.status == 0 ? outcome.output : "";
  };
  ASSERT_TRUE(waitUntil([&] { return count("displayed") != ""; }, 30));
  notifications_.showProgress(4, half());
  ASSERT_TRUE(waitUntil([&] { return count("displayed") == "1\n"; }, 30));
  notifications_.showProgress(4, half("more"));
  runPendingMainItems();
  EXPECT_EQ(count("displayed"), "1\n");
  ASSERT_TRUE(waitUntil(
      [&] {
        const auto press = runProgram({"/usr/bin/dunstctl", {"action", "0"}});
        return !events_.empty();
      },
      30));
  EXPECT_EQ(events_.front(), std::pair(std::uint64_t{4}, ProgressEvent::cancelled));
  notifications_.endProgress(4);
  ASSERT_TRUE(waitUntil([&] { return notifications_.pendingDeliveries() == 0; }));
  EXPECT_TRUE(waitUntil([&] { return count("displayed") == "0\n"; }, 30));
}

}  // namespace
}  // namespace tervano::test
