#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "archive/url.h"
#include "tests/integration/desktop.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kUnknownUid[] = "0123456789ABCDEF0123456789ABCDEF";

// As the recorder writes the arguments of ShowItems.
std::string showItems(const std::vector<std::string>& paths) {
  std::string list;
  for (const auto& path : paths) {
    list += (list.empty() ? "'" : ", '") + Url::fileURLWithPath(path).absoluteString() + "'";
  }
  return "([" + list + "], '')";
}

}  // namespace

TEST(WholeRoadTest, ChoiceInAMenuMovesTheFilesTellsTheUserAndShowsThem) {
  Desktop desktop;
  auto& home = desktop.home();
  home.succeed({"prefs", "set", "useSubmenu", "no"});
  const auto uid = desktop.addMove();
  const auto first = home.file("a \"b\" & 'c'\n工作.txt");
  const auto second = home.file("b.txt");

  const auto menu = home.json({"menu", "--json", first, second});
  ASSERT_EQ(menu["items"].size(), 1U);
  EXPECT_EQ(menu["items"][0]["title"], "Move");
  ASSERT_EQ(menu["items"][0]["uid"], uid);
  EXPECT_FALSE(desktop.companion());

  EXPECT_EQ(home.succeed({"choose", menu["items"][0]["uid"], first, second}), "");
  const auto companion = desktop.companion();
  ASSERT_TRUE(companion) << "the bus has started it";
  EXPECT_TRUE(waitUntil([&] { return !desktop.revealed().empty(); }));
  EXPECT_TRUE(desktop.wasMoved("a \"b\" & 'c'\n工作.txt"));
  EXPECT_TRUE(desktop.wasMoved("b.txt"));
  EXPECT_THAT(desktop.revealed(),
              ElementsAre(showItems(
                  {desktop.target() + "/a \"b\" & 'c'\n工作.txt", desktop.target() + "/b.txt"})));
  EXPECT_TRUE(desktop.waitForNotification("Finished moving 2 files"));
  EXPECT_TRUE(waitUntil([&] { return desktop.handOffFiles().empty(); }));
  EXPECT_TRUE(desktop.waitForNoCompanion());
  EXPECT_TRUE(waitUntil([&] { return !isRunning(*companion); }));
  EXPECT_THAT(desktop.notificationTexts(), ElementsAre("Finished moving 2 files"));
}

TEST(WholeRoadTest, ServiceFileOfTheBuildTreeStartsTheCompanion) {
  Desktop desktop(std::nullopt);
  const auto uid = desktop.addMove();
  desktop.home().succeed({"choose", uid, desktop.home().file("a.txt")});
  EXPECT_TRUE(desktop.waitForNotification("Finished moving 'a.txt'"));
  EXPECT_TRUE(desktop.wasMoved("a.txt"));
  const auto companion = desktop.companion();
  ASSERT_TRUE(companion) << "it stays for the next request";
  // The end of the session ends it too, long before its time is over.
  desktop.endSession();
  EXPECT_TRUE(waitUntil([&] { return !isRunning(*companion); }, 20));
}

TEST(WholeRoadTest, RunningCompanionTakesTheNextRequest) {
  Desktop desktop(20);
  const auto uid = desktop.addMove();
  desktop.home().succeed({"choose", uid, desktop.home().file("a.txt")});
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("a.txt"); }));
  const auto companion = desktop.companion();
  desktop.home().succeed({"choose", uid, desktop.home().file("b.txt")});
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("b.txt"); }));
  ASSERT_TRUE(companion);
  EXPECT_EQ(desktop.companion(), companion);
}

TEST(WholeRoadTest, KilledCompanionIsStartedAgain) {
  Desktop desktop(20);
  const auto uid = desktop.addMove();
  desktop.home().succeed({"choose", uid, desktop.home().file("a.txt")});
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("a.txt"); }));
  const auto companion = desktop.companion();
  ASSERT_TRUE(companion);
  ASSERT_EQ(kill(*companion, SIGKILL), 0);
  EXPECT_TRUE(desktop.waitForNoCompanion());
  desktop.home().succeed({"choose", uid, desktop.home().file("b.txt")});
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("b.txt"); }));
  EXPECT_NE(desktop.companion(), companion);
}

TEST(WholeRoadTest, WithoutASessionBusTheHandlerIsStartedByItsCommandLineAndLeaves) {
  Desktop desktop;
  const auto uid = desktop.addMove();
  desktop.endSession();
  desktop.home().home().setVariable("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
  EXPECT_EQ(desktop.home().tervano({"choose", uid, desktop.home().file("a.txt")}).status, 0);
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("a.txt"); }));
  EXPECT_TRUE(waitUntil([&] { return desktop.handOffFiles().empty(); }));
  // That it leaves is seen by the end of the desktop.
}

TEST(WholeRoadTest, DeadSessionBusLosesNoChoice) {
  Desktop desktop;
  const auto uid = desktop.addMove();
  desktop.endSession();
  // The variable still names it.
  EXPECT_EQ(desktop.home().tervano({"choose", uid, desktop.home().file("a.txt")}).status, 0);
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("a.txt"); }));
}

TEST(WholeRoadTest, BusThatCannotStartTheCompanionLosesNoChoice) {
  Desktop desktop;
  const auto uid = desktop.addMove();
  desktop.home().file(".local/share/dbus-1/services/com.vessok.tervano.service",
                      "[D-BUS Service]\nName=com.vessok.tervano\nExec=/no/such/program\n");
  desktop.reloadServices();
  EXPECT_EQ(desktop.home().tervano({"choose", uid, desktop.home().file("a.txt")}).status, 0);
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("a.txt"); }));
  // That process owns the name now and takes the next one, to which the bus need not start it.
  desktop.home().succeed({"choose", uid, desktop.home().file("b.txt")});
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("b.txt"); }));
  desktop.endSession();
}

TEST(WholeRoadTest, ShowButtonOfTheNotificationRevealsTheFile) {
  Desktop desktop;
  desktop.home().succeed({"prefs", "set", "showFileOnMoveCopyComplete", "no"});
  const auto uid = desktop.addMove();
  desktop.home().succeed({"choose", uid, desktop.home().file("a.txt")});
  ASSERT_TRUE(desktop.waitForDisplayed(1));
  // The button works beyond the time after which an idle companion leaves.
  EXPECT_FALSE(desktop.waitForNoCompanion(2.5));
  EXPECT_THAT(desktop.revealed(), IsEmpty());
  desktop.pressButton();
  EXPECT_TRUE(waitUntil([&] { return !desktop.revealed().empty(); }));
  EXPECT_THAT(desktop.revealed(), ElementsAre(showItems({desktop.target() + "/a.txt"})));
  // Once the notification is gone there is nothing to wait for.
  EXPECT_THAT(desktop.notificationTexts(), ElementsAre("Finished moving 'a.txt'"));
  EXPECT_TRUE(desktop.waitForNoCompanion());
}

TEST(WholeRoadTest, NotificationsThatAreSwitchedOffAreNotShown) {
  Desktop desktop;
  desktop.home().succeed({"prefs", "set", "disableActionNotifications", "yes"});
  const auto uid = desktop.addMove();
  desktop.home().succeed({"choose", uid, desktop.home().file("a.txt")});
  EXPECT_TRUE(waitUntil([&] { return !desktop.revealed().empty(); }));
  EXPECT_TRUE(desktop.waitForNoCompanion());
  EXPECT_THAT(desktop.notificationTexts(), IsEmpty());
}

TEST(WholeRoadTest, TwoChoicesAtOnceAreBothCarriedOut) {
  Desktop desktop;
  const auto uid = desktop.addMove();
  const auto first = desktop.home().file("a.txt");
  const auto second = desktop.home().file("b.txt");
  std::thread other([&] { desktop.home().succeed({"choose", uid, first}); });
  desktop.home().succeed({"choose", uid, second});
  other.join();
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("a.txt") && desktop.wasMoved("b.txt"); }));
  EXPECT_TRUE(waitUntil([&] { return desktop.handOffFiles().empty(); }));
  EXPECT_TRUE(desktop.waitForNotification("Finished moving 'a.txt'"));
  EXPECT_TRUE(desktop.waitForNotification("Finished moving 'b.txt'"));
}

TEST(WholeRoadTest, SecondServiceGivesItsUrlToTheFirst) {
  Desktop desktop(20);
  const auto uid = desktop.addMove();
  desktop.home().succeed({"choose", uid, desktop.home().file("a.txt")});
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("a.txt"); }));
  const std::string name = "01234567-89AB-CDEF-0123-456789ABCDEF";
  std::ofstream(desktop.home().container() + "/" + name)
      << nlohmann::json({{"paths", {desktop.home().file("b.txt")}}}).dump();
  // In this home the second one could not have carried it out.
  const TemporaryHome elsewhere;
  EXPECT_EQ(desktop.home()
                .tervano({"service", "tervano://runaction?action=" + uid + "&file=" + name})
                .status,
            0);
  EXPECT_TRUE(waitUntil([&] { return desktop.wasMoved("b.txt"); }));
}

TEST(WholeRoadTest, RequestsThatArriveWhileTheCompanionLeavesAreNotLost) {
  // It leaves at once whenever nothing is under way, so most of these meet its end.
  constexpr int kRequests = 30;
  Desktop desktop(0);
  desktop.home().succeed({"prefs", "set", "disableActionNotifications", "yes"});
  const auto uid = desktop.addMove();
  for (int i = 0; i < kRequests; ++i) {
    const auto file = desktop.home().file(std::to_string(i) + ".txt");
    desktop.home().succeed({"choose", uid, file});
  }
  const auto allMoved = [&] {
    for (int i = 0; i < kRequests; ++i) {
      if (!desktop.wasMoved(std::to_string(i) + ".txt")) return false;
    }
    return true;
  };
  EXPECT_TRUE(waitUntil(allMoved));
  EXPECT_TRUE(waitUntil([&] { return desktop.handOffFiles().empty(); }));
}

TEST(WholeRoadTest, UnknownUidIsToldInOneNotification) {
  Desktop desktop;
  desktop.addMove();
  desktop.home().succeed({"choose", kUnknownUid, desktop.home().file("a.txt")});
  const std::string text =
      "The chosen action is no longer in the list (" + std::string(kUnknownUid) + ").";
  EXPECT_TRUE(desktop.waitForNotification(text));
  EXPECT_TRUE(desktop.waitForNoCompanion());
  EXPECT_THAT(desktop.notificationTexts(), ElementsAre(text));
  EXPECT_TRUE(exists(desktop.home().path() + "/a.txt"));
  EXPECT_THAT(desktop.handOffFiles(), IsEmpty());
}

TEST(WholeRoadTest, MissingHandOffFileIsToldInOneNotification) {
  Desktop desktop;
  const auto uid = desktop.addMove();
  const auto outcome = desktop.home().tervano(
      {"open", "tervano://runaction?action=" + uid + "&file=01234567-89AB-CDEF-0123-456789ABCDEF"});
  EXPECT_EQ(outcome.status, 1);
  const auto texts = desktop.notificationTexts();
  EXPECT_THAT(texts, ElementsAre(HasSubstr("The chosen files could not be read: ")));
}

TEST(WholeRoadTest, UrlOfAWebPageIsRefusedWithoutANotification) {
  Desktop desktop;
  desktop.addMove();
  EXPECT_EQ(desktop.home().tervano({"open", "tervano://runaction?action=x"}).status, 2);
  EXPECT_THAT(desktop.notificationTexts(), IsEmpty());
}

}  // namespace tervano::test
