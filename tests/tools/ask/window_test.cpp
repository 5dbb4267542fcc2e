#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"
#include "tests/support/virtual_display.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

constexpr double kSeconds = 30;

// The window program on a display of its own, driven by its keyboard.
class WindowTest : public testing::Test {
 protected:
  WindowTest() { setenv("GSK_RENDERER", "cairo", 1); }

  ChildProcess ask(const std::vector<std::string>& items = {"/home/a.txt"}) {
    std::vector<std::string> arguments{"--question", "Delete 'a_b' for good?", "--consent",
                                       "Delete", "--"};
    arguments.insert(arguments.end(), items.begin(), items.end());
    return startProgram(TERVANO_ASK, arguments);
  }
  static int run(const std::string& program, const std::vector<std::string>& arguments) {
    auto child = startProgram(program, arguments);
    return child.waitForExit(kSeconds).value_or(-1);
  }
  // The X window, once it is there.
  static std::string window() {
    auto search = startProgram("/usr/bin/xdotool",
                               {"search", "--sync", "--onlyvisible", "--name", "^Tervano$"});
    return search.hear(kSeconds).value_or("");
  }
  static void press(const std::vector<std::string>& keys) {
    const std::string id = window();
    ASSERT_NE(id, "");
    ASSERT_EQ(run("/usr/bin/xdotool", {"windowfocus", "--sync", id}), 0);
    std::vector<std::string> arguments{"key", "--delay", "50"};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    ASSERT_EQ(run("/usr/bin/xdotool", arguments), 0);
  }

  TemporaryHome home_;
  VirtualDisplay display_;
};

}  // namespace

TEST_F(WindowTest, EscapeRefuses) {
  auto asking = ask();
  press({"Escape"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 1);
}

TEST_F(WindowTest, ReturnRefusesSinceTheRefusingButtonHasTheFocus) {
  auto asking = ask();
  press({"Return"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 1);
}

TEST_F(WindowTest, TheSecondButtonConsents) {
  auto asking = ask({"/home/a.txt", "/home/<b>&amp;\xff\n.txt"});
  press({"Tab", "Return"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 0);
}

TEST_F(WindowTest, ManyItemsFitOnTheScreen) {
  auto asking = ask(std::vector<std::string>(101, "/home/a long folder/" + std::string(200, 'n')));
  const std::string id = window();
  auto geometry = startProgram("/usr/bin/xdotool", {"getwindowgeometry", "--shell", id});
  std::optional<int> height;
  while (const auto line = geometry.hear(kSeconds)) {
    if (line->starts_with("HEIGHT=")) height = std::atoi(line->c_str() + 7);
  }
  ASSERT_TRUE(height);
  EXPECT_GT(*height, 100);
  EXPECT_LT(*height, 600);
  press({"Escape"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 1);
}

TEST_F(WindowTest, WithoutADisplayItSaysSo) {
  const std::string display = std::getenv("DISPLAY");
  unsetenv("DISPLAY");
  EXPECT_EQ(ask().waitForExit(kSeconds), 3);
  setenv("DISPLAY", display.c_str(), 1);
}

TEST_F(WindowTest, WrongArgumentsAreRefused) {
  EXPECT_EQ(run(TERVANO_ASK, {}), 2);
  EXPECT_EQ(run(TERVANO_ASK, {"--question", "Why?"}), 2);
  EXPECT_EQ(run(TERVANO_ASK, {"--question"}), 2);
  EXPECT_EQ(run(TERVANO_ASK, {"--what", "x", "--consent", "Yes"}), 2);
}

// The window with its two fields. What it writes arrives in a file.
class PasswordWindowTest : public WindowTest {
 protected:
  ChildProcess askForPassword(const std::vector<std::string>& items = {"/home/a.txt"}) {
    // Only a shell can give it descriptor 3.
    std::vector<std::string> arguments{"-c",
                                       "exec \"$0\" \"$@\" 3> \"$PASSWORD_FILE\"",
                                       TERVANO_ASK,
                                       "--question",
                                       "Compress \"a.txt\" with a password",
                                       "--detail",
                                       "Names can be read by anyone.",
                                       "--consent",
                                       "Compress",
                                       "--password",
                                       "--"};
    arguments.insert(arguments.end(), items.begin(), items.end());
    home_.setVariable("PASSWORD_FILE", file_);
    return startProgram("/bin/sh", arguments);
  }
  static void type(const std::string& text) {
    ASSERT_EQ(run("/usr/bin/xdotool", {"type", "--delay", "50", text}), 0);
  }

  const std::string file_ = home_.path() + "/password";
};

TEST_F(PasswordWindowTest, TheSameTextTwiceIsWrittenWithoutALineEnd) {
  auto asking = askForPassword();
  press({"p"});
  type("ass 'w\"ord");
  press({"Tab"});
  type("pass 'w\"ord");
  press({"Return"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 0);
  EXPECT_EQ(contentsOf(file_), "pass 'w\"ord");
}

TEST_F(PasswordWindowTest, DifferentTextsAreNotTakenAndCanBeCorrected) {
  auto asking = askForPassword();
  press({"a", "b", "Tab", "a", "b", "c", "Return", "shift+Tab", "End", "c", "Return"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 0);
  EXPECT_EQ(contentsOf(file_), "abc");
}

TEST_F(PasswordWindowTest, NoTextIsNotTaken) {
  auto asking = askForPassword();
  press({"Return", "Tab", "Return", "a", "shift+Tab", "a", "Return"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 0);
  EXPECT_EQ(contentsOf(file_), "a");
}

TEST_F(PasswordWindowTest, EscapeRefusesAndWritesNothing) {
  auto asking = askForPassword();
  press({"a", "Tab", "a", "Escape"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 1);
  EXPECT_EQ(contentsOf(file_), "");
}

TEST_F(PasswordWindowTest, WithoutTheDescriptorItIsWrongArguments) {
  auto asking = startProgram("/bin/sh", {"-c", "exec \"$0\" \"$@\" 3>&-", TERVANO_ASK, "--question",
                                         "Q", "--consent", "C", "--password"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 2);
}

}  // namespace tervano::test
