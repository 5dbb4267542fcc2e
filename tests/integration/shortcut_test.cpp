#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "archive/url.h"
#include "tests/integration/desktop.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr double kShortcutSeconds = 30;

// A key of the desktop that runs an action on what was copied.
class ShortcutTest : public testing::Test {
 protected:
  ShortcutTest() {
    desktop_.home().home().setVariable("GSK_RENDERER", "cairo");
    desktop_.home().home().setVariable("GTK_A11Y", "none");
  }
  ~ShortcutTest() override {
    if (owner_) owner_->kill(SIGTERM);
  }
  ShortcutTest(const ShortcutTest&) = delete;
  ShortcutTest& operator=(const ShortcutTest&) = delete;

  void own(const std::string& content, const std::string& kind, const std::string& selection) {
    owner_.emplace(startProgram(
        "/usr/bin/python3", {CLIPBOARD_OWNER, selection, "answer", kind + "=" + asWord(content)}));
    ASSERT_EQ(owner_->hear(kShortcutSeconds), "ready");
  }
  void copy(const std::vector<std::string>& paths) {
    std::string list;
    for (const auto& path : paths) list += Url::fileURLWithPath(path).absoluteString() + "\r\n";
    own(list, "text/uri-list", "CLIPBOARD");
  }
  // Asks for an application action as the desktop does.
  static ProgramOutcome activate(const std::string& name, const std::string& parameters,
                                 const std::string& platformData = "{}") {
    return callApplication("ActivateAction", {name, parameters, platformData});
  }
  static void press(const std::vector<std::string>& keys) {
    auto search = startProgram("/usr/bin/xdotool",
                               {"search", "--sync", "--onlyvisible", "--name", "^Tervano$"});
    const auto window = search.hear(kShortcutSeconds).value_or("");
    ASSERT_NE(window, "");
    auto focus = startProgram("/usr/bin/xdotool", {"windowfocus", "--sync", window});
    ASSERT_EQ(focus.waitForExit(kShortcutSeconds), 0);
    std::vector<std::string> words{"key", "--delay", "100"};
    words.insert(words.end(), keys.begin(), keys.end());
    auto pressed = startProgram("/usr/bin/xdotool", words);
    ASSERT_EQ(pressed.waitForExit(kShortcutSeconds), 0);
  }

  Desktop desktop_;
  // Before the desktop, whose end sees every child.
  std::optional<ChildProcess> owner_;
};

}  // namespace

TEST_F(ShortcutTest, TheCommandRunsTheActionOnTheCopiedFiles) {
  const auto uid = desktop_.addMove();
  copy({desktop_.home().file("a \"b\" ü"), desktop_.home().file("c")});
  desktop_.home().succeed({"shortcut", uid});
  EXPECT_TRUE(desktop_.waitForNotification("Finished moving 2 files"));
  EXPECT_TRUE(desktop_.wasMoved("a \"b\" ü"));
  EXPECT_TRUE(desktop_.wasMoved("c"));
}

TEST_F(ShortcutTest, TheMarkedTextMayNameTheFiles) {
  const auto uid = desktop_.addMove();
  own(desktop_.home().file("a") + "\n", "UTF8_STRING", "PRIMARY");
  desktop_.home().succeed({"shortcut", "--primary", uid});
  EXPECT_TRUE(waitUntil([&] { return desktop_.wasMoved("a"); }));
}

TEST_F(ShortcutTest, AnActionWhoseTypesDoNotFitIsRefusedWithTheReason) {
  const auto uid = desktop_.addMove();
  desktop_.home().succeed({"set", uid, "--types", "public.image"});
  copy({desktop_.home().file("a.txt")});
  const auto outcome = desktop_.home().tervano({"shortcut", uid});
  expectFailure(outcome);
  EXPECT_THAT(outcome.errors, HasSubstr("\"Move\" does not fit: not public.image: a.txt"));
  EXPECT_THAT(desktop_.notificationTexts(),
              ElementsAre(HasSubstr("\"Move\" does not fit: not public.image: a.txt")));
  EXPECT_TRUE(exists(desktop_.home().path() + "/a.txt"));
  EXPECT_FALSE(desktop_.companion());
  desktop_.home().succeed({"set", uid, "--types", "public.text"});
  desktop_.home().succeed({"disable", uid});
  EXPECT_THAT(desktop_.home().tervano({"shortcut", uid}).errors, HasSubstr("it is disabled"));
}

TEST_F(ShortcutTest, WhatCannotBeRunIsTold) {
  const auto uid = desktop_.addMove();
  const auto group = desktop_.home().succeed({"add", "group-move"});
  EXPECT_EQ(desktop_.home().tervano({"shortcut", uid}).errors,
            "tervano: There are no files on the clipboard.\n");
  EXPECT_THAT(desktop_.notificationTexts(), ElementsAre("There are no files on the clipboard."));
  copy({desktop_.home().path() + "/gone"});
  EXPECT_THAT(desktop_.home().tervano({"shortcut", uid}).errors,
              HasSubstr("/gone\": No such file or directory."));
  copy({desktop_.home().file("a")});
  EXPECT_THAT(desktop_.home().tervano({"shortcut", group}).errors,
              HasSubstr("a group cannot be run"));
  EXPECT_THAT(desktop_.home().tervano({"shortcut", "0123456789ABCDEF0123456789ABCDEF"}).errors,
              HasSubstr("There is no action with the uid"));
  expectUsageError(desktop_.home().tervano({"shortcut", "nonsense"}));
  expectUsageError(desktop_.home().tervano({"shortcut", "--primary", "--clipboard", uid}));
  desktop_.home().home().setVariable("DISPLAY", std::nullopt);
  EXPECT_THAT(desktop_.home().tervano({"shortcut", uid}).errors, HasSubstr("There is no display"));
}

TEST_F(ShortcutTest, AnApplicationActionOfTheBusRunsAnActionWithItsToken) {
  const auto uid = desktop_.addMove();
  copy({desktop_.home().file("a")});
  const auto outcome =
      activate("run-action", "[<'" + uid + "'>]", "{'activation-token': <'token'>}");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_TRUE(waitUntil([&] { return !desktop_.revealed().empty(); }, kShortcutSeconds));
  EXPECT_TRUE(desktop_.wasMoved("a"));
  EXPECT_THAT(desktop_.revealed(), ElementsAre(HasSubstr("/a'], 'token')")));
}

TEST_F(ShortcutTest, AnApplicationActionThatIsNoneIsRefused) {
  const auto uid = desktop_.addMove();
  for (const auto& [name, parameters] : std::vector<std::pair<std::string, std::string>>{
           {"walk", "[]"},
           {"run-action", "[]"},
           {"run-action", "[<'--help'>]"},
           {"run-action", "[<'" + uid + "'>, <'elsewhere'>]"},
           {"run-action", "[<5>]"},
           {"run-on-clipboard", "[<'" + uid + "'>]"}}) {
    const auto outcome = activate(name, parameters);
    EXPECT_NE(outcome.status, 0) << name << parameters;
    EXPECT_THAT(outcome.errors, HasSubstr("InvalidArgs")) << name << parameters;
  }
}

TEST_F(ShortcutTest, WithoutAUidTheUserChoosesAmongWhatFits) {
  // The companion waits for the button of one.
  desktop_.home().succeed({"prefs", "set", "disableActionNotifications", "yes"});
  desktop_.addMove();
  desktop_.home().succeed(
      {"add", "move", "--title", "Picture", "--to", desktop_.target(), "--types", "public.image"});
  const auto group = desktop_.home().succeed({"add", "group-move", "--title", "Group"});
  desktop_.home().succeed({"add", "move", "--title", "Inner", "--to",
                           desktop_.home().folder("inner"), "--into", group});
  copy({desktop_.home().file("a.txt")});
  EXPECT_EQ(activate("run-on-clipboard", "[]").status, 0);
  press({"i", "n", "n", "Return"});
  EXPECT_TRUE(
      waitUntil([&] { return exists(desktop_.home().path() + "/inner/a.txt"); }, kShortcutSeconds));
  // What does not fit is not there to be chosen.
  copy({desktop_.home().file("b.txt")});
  EXPECT_EQ(activate("run-on-clipboard", "[]").status, 0);
  press({"p", "i", "c", "Return", "Escape"});
  EXPECT_TRUE(desktop_.waitForNoCompanion(kShortcutSeconds));
  EXPECT_TRUE(exists(desktop_.home().path() + "/b.txt"));
}

TEST_F(ShortcutTest, SecureDeleteStillAsks) {
  const auto uid = desktop_.home().succeed({"add", "secure-delete"});
  const auto file = desktop_.home().file("secret");
  copy({file});
  desktop_.home().succeed({"shortcut", uid});
  press({"Escape"});
  EXPECT_TRUE(desktop_.waitForNoCompanion(kShortcutSeconds));
  EXPECT_TRUE(exists(file));
}

}  // namespace tervano::test
