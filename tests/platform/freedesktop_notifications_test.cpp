#include "platform/linux/freedesktop_notifications.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "platform/linux/activation.h"
#include "platform/linux/descriptor.h"
#include "tests/support/fake_bus_service.h"
#include "tests/support/private_bus.h"
#include "tests/support/program.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/virtual_display.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kInterface[] = "org.freedesktop.Notifications";
constexpr char kInterfaceXML[] = R"(<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="as" direction="in"/><arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/></method>
  <signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
  <signal name="ActivationToken"><arg type="u"/><arg type="s"/></signal>
  <signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal>
</interface></node>)";
constexpr int kShortTimeoutMilliseconds = 200;

// A notification daemon that numbers notifications from 1 on.
class FakeDaemon {
 public:
  FakeDaemon(const PrivateBus& bus, std::vector<std::string> capabilities)
      : capabilities_(std::move(capabilities)),
        service_(bus.address(), kInterface, "/org/freedesktop/Notifications", kInterface,
                 kInterfaceXML, [this](const auto& call) { return answer(call); }) {}

  FakeBusService& service() { return service_; }
  std::vector<FakeBusService::Call> notified() const { return service_.callsOf("Notify"); }
  // The arguments of the only notification.
  std::string arguments() const {
    return notified().size() == 1 ? notified()[0].arguments : "not exactly one notification";
  }
  void press(std::uint32_t identifier, const char* action) {
    service_.emitSignal("ActionInvoked", g_variant_new("(us)", identifier, action));
  }
  void announce(std::uint32_t identifier, const char* token) {
    service_.emitSignal("ActivationToken", g_variant_new("(us)", identifier, token));
  }
  void close(std::uint32_t identifier) {
    service_.emitSignal("NotificationClosed", g_variant_new("(uu)", identifier, 2U));
  }
  void becomeMute() { mute_ = true; }

 private:
  GVariant* answer(const FakeBusService::Call& call) {
    if (mute_) return nullptr;
    if (call.method == "Notify") return g_variant_new("(u)", ++last_);
    GVariantBuilder names;
    g_variant_builder_init(&names, G_VARIANT_TYPE("as"));
    for (const auto& name : capabilities_) g_variant_builder_add(&names, "s", name.c_str());
    return g_variant_new("(as)", &names);
  }

  std::vector<std::string> capabilities_;
  std::uint32_t last_ = 0;
  bool mute_ = false;
  FakeBusService service_;
};

class FreedesktopNotificationsTest : public testing::Test {
 protected:
  FreedesktopNotificationsTest() { platform_.services().log = &log_; }

  [[nodiscard]] bool deliver(FreedesktopNotifications& notifications,
                             const UserNotification& notification) {
    notifications.deliverNotification(notification);
    return waitUntil([&] { return notifications.pendingDeliveries() == 0; });
  }

  static UserNotification withButton() {
    UserNotification notification;
    notification.title = "Tervano";
    notification.informativeText = "Finished moving 'a.txt'";
    notification.userInfo = {{"path", Value("/tmp/a.txt")}};
    notification.hasActionButton = true;
    notification.actionButtonTitle = "Show";
    return notification;
  }

  ScopedPlatform platform_;
  RecordingLog log_{*platform_.services().log};
};

TEST_F(FreedesktopNotificationsTest, ASilentNotificationAsksForNoSound) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  UserNotification notification;
  notification.title = "Tervano";
  notification.informativeText = "Started converting 2 images";
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_EQ(daemon.arguments(),
            "('Tervano', uint32 0, 'tervano', 'Tervano', 'Started converting 2 images', @as [], "
            "{'desktop-entry': <'com.vessok.tervano'>, 'suppress-sound': <true>}, -1)");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FreedesktopNotificationsTest, TheDefaultSoundIsTheOneOfTheSoundTheme) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  UserNotification notification;
  notification.title = "Tervano";
  notification.soundName = kUserNotificationDefaultSoundName;
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_EQ(daemon.arguments(),
            "('Tervano', uint32 0, 'tervano', 'Tervano', '', @as [], {'desktop-entry': "
            "<'com.vessok.tervano'>, 'sound-name': <'message-new-instant'>}, -1)");
}

TEST_F(FreedesktopNotificationsTest, AnotherSoundIsNamedAsItIs) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  UserNotification notification;
  notification.title = "Tervano";
  notification.soundName = "complete";
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_THAT(daemon.arguments(), HasSubstr("'sound-name': <'complete'>"));
}

TEST_F(FreedesktopNotificationsTest, TheBodyIsEscapedWhereTheDaemonReadsMarkup) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body", "body-markup"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  UserNotification notification;
  notification.title = "a<b>&c";
  notification.informativeText = "x<b>&amp;y";
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_THAT(daemon.arguments(), HasSubstr("'a<b>&c', 'x&lt;b&gt;&amp;amp;y'"));
}

TEST_F(FreedesktopNotificationsTest, TheBodyIsPlainWhereTheDaemonReadsNoMarkup) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  UserNotification notification;
  notification.title = "Tervano";
  notification.informativeText = "x<b>&amp;y";
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_THAT(daemon.arguments(), HasSubstr("'x<b>&amp;y'"));
}

TEST_F(FreedesktopNotificationsTest, TheActionButtonIsOfferedForThePressOnTheWholeToo) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions", "body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(daemon.arguments(), HasSubstr("['default', 'Show', 'show', 'Show']"));
  EXPECT_EQ(notifications.openNotifications(), 1);
}

TEST_F(FreedesktopNotificationsTest, AnActionButtonWithoutATitleSaysShow) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions", "body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  auto notification = withButton();
  notification.actionButtonTitle = std::nullopt;
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_THAT(daemon.arguments(), HasSubstr("'show', 'Show']"));
}

TEST_F(FreedesktopNotificationsTest, ADaemonWithoutActionsGetsNone) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(daemon.arguments(), HasSubstr("@as []"));
  EXPECT_EQ(notifications.openNotifications(), 0);
}

TEST_F(FreedesktopNotificationsTest, APressOnTheButtonHandsOutTheOriginalNotification) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  std::vector<UserNotification> activated;
  std::thread::id thread;
  notifications.setActivationHandler([&](const UserNotification& notification) {
    activated.push_back(notification);
    thread = std::this_thread::get_id();
  });
  ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.press(1, "show");
  ASSERT_TRUE(waitUntil([&] { return !activated.empty(); }));
  ASSERT_THAT(activated, SizeIs(1));
  EXPECT_EQ(activated[0].userInfo, withButton().userInfo);
  EXPECT_EQ(activated[0].informativeText, withButton().informativeText);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(FreedesktopNotificationsTest, APressOnTheNotificationItselfCountsAsThePressOnItsButton) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  int presses = 0;
  notifications.setActivationHandler([&](const UserNotification&) { ++presses; });
  ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.press(1, "default");
  EXPECT_TRUE(waitUntil([&] { return presses == 1; }));
}

TEST_F(FreedesktopNotificationsTest, APressIsARequestWithTheTokenThatWasAnnouncedForIt) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  std::vector<std::string> tokens;
  notifications.setActivationHandler(
      [&](const UserNotification&) { tokens.push_back(takeActivationToken().text()); });
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.announce(1, "first");
  daemon.press(1, "show");
  daemon.press(1, "show");
  // That of another notification.
  daemon.announce(1, "second");
  daemon.press(2, "show");
  EXPECT_TRUE(waitUntil([&] { return tokens.size() == 3; }));
  EXPECT_THAT(tokens, ElementsAre("first", "", ""));
}

TEST_F(FreedesktopNotificationsTest, APressOnAnUnknownActionOrNotificationDoesNothing) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  std::vector<Value::Dictionary> activated;
  notifications.setActivationHandler(
      [&](const UserNotification& notification) { activated.push_back(notification.userInfo); });
  ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.press(1, "other");
  daemon.press(77, "show");
  daemon.press(1, "show");
  ASSERT_TRUE(waitUntil([&] { return !activated.empty(); }));
  runPendingMainItems();
  EXPECT_THAT(activated, SizeIs(1));
}

TEST_F(FreedesktopNotificationsTest, AClosedNotificationIsForgotten) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  int presses = 0;
  notifications.setActivationHandler([&](const UserNotification&) { ++presses; });
  ASSERT_TRUE(deliver(notifications, withButton()));
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_EQ(notifications.openNotifications(), 2);
  daemon.close(1);
  ASSERT_TRUE(waitUntil([&] { return notifications.openNotifications() == 1; }));
  daemon.press(1, "show");
  daemon.press(2, "show");
  ASSERT_TRUE(waitUntil([&] { return presses > 0; }));
  runPendingMainItems();
  EXPECT_EQ(presses, 1);
}

TEST_F(FreedesktopNotificationsTest, APressAndTheCloseThatFollowsItStillActivate) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  int presses = 0;
  notifications.setActivationHandler([&](const UserNotification&) { ++presses; });
  ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.press(1, "show");
  daemon.close(1);
  EXPECT_TRUE(waitUntil([&] { return presses == 1 && notifications.openNotifications() == 0; }));
}

TEST_F(FreedesktopNotificationsTest, ARemovedHandlerIsNotCalled) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  int presses = 0;
  notifications.setActivationHandler([&](const UserNotification&) { ++presses; });
  notifications.setActivationHandler(nullptr);
  ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.press(1, "show");
  daemon.close(1);
  ASSERT_TRUE(waitUntil([&] { return notifications.openNotifications() == 0; }));
  runPendingMainItems();
  EXPECT_EQ(presses, 0);
}

TEST_F(FreedesktopNotificationsTest, ADaemonThatLeavesTakesItsNotificationsWithIt) {
  const PrivateBus bus;
  auto daemon = std::make_unique<FakeDaemon>(bus, std::vector<std::string>{"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_EQ(notifications.openNotifications(), 1);
  daemon.reset();
  EXPECT_TRUE(waitUntil([&] { return notifications.openNotifications() == 0; }));
}

TEST_F(FreedesktopNotificationsTest, ANewDaemonIsAskedForItsOwnCapabilities) {
  const PrivateBus bus;
  auto first = std::make_unique<FakeDaemon>(bus, std::vector<std::string>{"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  first.reset();
  ASSERT_TRUE(waitUntil([&] { return notifications.openNotifications() == 0; }));
  FakeDaemon second(bus, {"body", "body-markup"});
  auto notification = withButton();
  notification.informativeText = "a & b";
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_THAT(second.arguments(), HasSubstr("'a &amp; b', @as []"));
}

TEST_F(FreedesktopNotificationsTest, ANewBusIsUsedOnceTheOldOneIsGone) {
  auto first = std::make_unique<PrivateBus>();
  FreedesktopNotifications notifications("com.vessok.tervano");
  {
    FakeDaemon daemon(*first, {"actions"});
    ASSERT_TRUE(deliver(notifications, withButton()));
  }
  first.reset();
  const PrivateBus second;
  FakeDaemon daemon(second, {"actions"});
  // The end of the old connection may be noticed by the first delivery only.
  ASSERT_TRUE(waitUntil(
      [&] { return deliver(notifications, withButton()) && !daemon.notified().empty(); }));
  int presses = 0;
  notifications.setActivationHandler([&](const UserNotification&) { ++presses; });
  daemon.press(1, "show");
  EXPECT_TRUE(waitUntil([&] { return presses == 1; }));
}

TEST_F(FreedesktopNotificationsTest, WithoutABusOneLineIsLoggedAndNothingIsPending) {
  const NoBus noBus;
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(log_.lines(), ElementsAre("Could not show a notification: there is no session bus"));
  EXPECT_EQ(notifications.openNotifications(), 0);
}

TEST_F(FreedesktopNotificationsTest, WithoutADaemonOneLineIsLogged) {
  const PrivateBus bus;
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("Could not show a notification: ")));
}

TEST_F(FreedesktopNotificationsTest, AnAddressWithoutABusIsHarmless) {
  auto bus = std::make_unique<PrivateBus>();
  bus->kill();
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(log_.lines(), SizeIs(1));
}

TEST_F(FreedesktopNotificationsTest, ABusThatNeverAnswersIsGivenUp) {
  const std::string path = platform_.home().path() + "/mute";
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(socket.get(), 4), 0);
  platform_.home().setVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path);
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(log_.lines(), SizeIs(1));
}

TEST_F(FreedesktopNotificationsTest, ADaemonThatNeverAnswersIsGivenUp) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  daemon.becomeMute();
  FreedesktopNotifications notifications("com.vessok.tervano", kShortTimeoutMilliseconds);
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("Could not show a notification: ")));
}

TEST_F(FreedesktopNotificationsTest, ADaemonThatStopsAnsweringIsGivenUp) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano", kShortTimeoutMilliseconds);
  ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.becomeMute();
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("Could not show a notification: ")));
  EXPECT_EQ(notifications.openNotifications(), 1);
}

TEST_F(FreedesktopNotificationsTest, WhatWaitsBehindASilentDaemonIsGivenUpWithTheFirst) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  FreedesktopNotifications notifications("com.vessok.tervano", kShortTimeoutMilliseconds);
  ASSERT_TRUE(deliver(notifications, withButton()));
  daemon.becomeMute();
  for (std::size_t i = 0; i < FreedesktopNotifications::kMaximumNotifications; ++i) {
    notifications.deliverNotification(withButton());
  }
  ASSERT_TRUE(waitUntil([&] { return notifications.pendingDeliveries() == 0; }));
  EXPECT_LT(daemon.notified().size(), FreedesktopNotifications::kMaximumNotifications);
}

TEST_F(FreedesktopNotificationsTest, EndingWhileADaemonOwesAnAnswerDoesNotWaitForIt) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  daemon.becomeMute();
  {
    FreedesktopNotifications notifications("com.vessok.tervano", 3'600'000);
    notifications.deliverNotification(withButton());
    ASSERT_TRUE(waitUntil([&] { return !daemon.service().calls().empty(); }));
  }
  EXPECT_THAT(daemon.notified(), IsEmpty());
}

TEST_F(FreedesktopNotificationsTest, DeliveriesBeyondTheBoundAreDroppedWithALogLine) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions"});
  daemon.becomeMute();
  FreedesktopNotifications notifications("com.vessok.tervano", 3'600'000);
  for (std::size_t i = 0; i < FreedesktopNotifications::kMaximumNotifications + 2; ++i) {
    notifications.deliverNotification(withButton());
  }
  EXPECT_EQ(notifications.pendingDeliveries(),
            static_cast<int>(FreedesktopNotifications::kMaximumNotifications));
  EXPECT_THAT(log_.lines(), ElementsAre("Could not show a notification: too many are waiting",
                                        "Could not show a notification: too many are waiting"));
}

TEST_F(FreedesktopNotificationsTest, BytesThatAreNoTextAreShownAsReplacements) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"actions", "body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  auto notification = withButton();
  notification.title = "T\xff";
  notification.informativeText = std::string("a\0b\x01\xc3(", 6);
  notification.actionButtonTitle = "S\xfe";
  ASSERT_TRUE(deliver(notifications, notification));
  EXPECT_THAT(daemon.arguments(),
              HasSubstr("'T\uFFFD', 'a\uFFFDb\uFFFD\uFFFD(', ['default', 'S\uFFFD', 'show', "
                        "'S\uFFFD']"));
}

TEST_F(FreedesktopNotificationsTest, NotificationsFromManyThreadsAllArrive) {
  constexpr int kThreads = 8;
  constexpr int kEach = 20;
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < kEach; ++j) notifications.deliverNotification(withButton());
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(waitUntil([&] { return notifications.pendingDeliveries() == 0; }));
  EXPECT_EQ(daemon.notified().size(), std::size_t{kThreads * kEach});
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FreedesktopNotificationsTest, TheyArriveInTheOrderOfDelivery) {
  const PrivateBus bus;
  FakeDaemon daemon(bus, {"body"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  for (const char* title : {"1", "2", "3"}) {
    UserNotification notification;
    notification.title = title;
    notifications.deliverNotification(notification);
  }
  ASSERT_TRUE(waitUntil([&] { return notifications.pendingDeliveries() == 0; }));
  EXPECT_THAT(
      daemon.notified(),
      ElementsAre(testing::Field(&FakeBusService::Call::arguments, HasSubstr("'tervano', '1'")),
                  testing::Field(&FakeBusService::Call::arguments, HasSubstr("'tervano', '2'")),
                  testing::Field(&FakeBusService::Call::arguments, HasSubstr("'tervano', '3'"))));
}

TEST_F(FreedesktopNotificationsTest, ADaemonThatAnswersNonsenseIsOneLogLine) {
  const PrivateBus bus;
  constexpr char kNonsenseXML[] = R"(<node><interface name="org.freedesktop.Notifications">
    <method name="GetCapabilities"><arg type="i" direction="out"/></method>
    </interface></node>)";
  FakeBusService service(bus.address(), kInterface, "/org/freedesktop/Notifications", kInterface,
                         kNonsenseXML, [](const auto&) { return g_variant_new("(i)", 7); });
  FreedesktopNotifications notifications("com.vessok.tervano");
  ASSERT_TRUE(deliver(notifications, withButton()));
  EXPECT_THAT(log_.lines(), ElementsAre("Could not show a notification: unexpected answer"));
}

TEST_F(FreedesktopNotificationsTest, ARealDaemonShowsItAndAPressOnItsButtonComesBack) {
  const PrivateBus bus;
  const VirtualDisplay display;
  auto dunst = startProgram("/usr/bin/dunst", {"-conf", "/dev/null"});
  FreedesktopNotifications notifications("com.vessok.tervano");
  std::vector<UserNotification> activated;
  notifications.setActivationHandler(
      [&](const UserNotification& notification) { activated.push_back(notification); });
  ASSERT_TRUE(waitUntil([&] {
    return notifications.openNotifications() > 0 || (deliver(notifications, withButton()) && false);
  }));
  auto press = startProgram("/usr/bin/dunstctl", {"action", "0"});
  ASSERT_EQ(press.waitForExit(), 0);
  ASSERT_TRUE(waitUntil([&] { return !activated.empty(); }));
  EXPECT_EQ(activated[0].userInfo, withButton().userInfo);
  auto close = startProgram("/usr/bin/dunstctl", {"close"});
  ASSERT_EQ(close.waitForExit(), 0);
  EXPECT_TRUE(waitUntil([&] { return notifications.openNotifications() == 0; }));
}

TEST(DisplayableTextTest, TabsAndLineEndsStay) {
  EXPECT_EQ(displayableText("a\tb\nc"), "a\tb\nc");
}

TEST(DisplayableTextTest, ControlCharactersBecomeReplacements) {
  EXPECT_EQ(displayableText("a\x1b[0m\x7f"), "a\uFFFD[0m\uFFFD");
}

TEST(DisplayableTextTest, TextInAnyScriptStays) {
  EXPECT_EQ(displayableText("Größe 漢字 🗂"), "Größe 漢字 🗂");
}

}  // namespace
}  // namespace tervano::test
