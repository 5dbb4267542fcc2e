#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
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
    return askAbout({"Delete 'a_b' for good?", "", "Delete"}, items, "");
  }
  // Starts the window by a shell, and by `launcher`, with its texts and what else `words` says.
  ChildProcess askAbout(std::vector<std::string> texts, const std::vector<std::string>& items,
                        const std::string& words, const std::string& launcher = "") {
    texts.insert(texts.end(), items.begin(), items.end());
    std::ofstream question(question_, std::ios::binary | std::ios::trunc);
    for (const auto& text : texts) question << text << '\0';
    question.close();
    home_.setVariable("QUESTION_FILE", question_);
    return startProgram(
        "/bin/sh",
        {"-c", "exec " + launcher + "\"$0\" " + words + " < \"$QUESTION_FILE\"", TERVANO_ASK});
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
  const std::string question_ = home_.path() + "/question";
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
  const std::vector<std::string> texts{"Why?", "", "Yes"};
  EXPECT_EQ(askAbout(texts, {}, "--what").waitForExit(kSeconds), 2);
  EXPECT_EQ(askAbout(texts, {}, "--password --password").waitForExit(kSeconds), 2);
  EXPECT_EQ(askAbout(texts, {}, "Why?").waitForExit(kSeconds), 2);
}

TEST_F(WindowTest, WhatIsNoQuestionIsRefused) {
  EXPECT_EQ(askAbout({}, {}, "").waitForExit(kSeconds), 2);
  EXPECT_EQ(askAbout({"Why?", ""}, {}, "").waitForExit(kSeconds), 2);
  EXPECT_EQ(askAbout({"", "", "Yes"}, {}, "").waitForExit(kSeconds), 2);
  EXPECT_EQ(askAbout({"Why?", "", ""}, {}, "").waitForExit(kSeconds), 2);
  std::ofstream(question_) << "Why?" << '\0' << '\0' << "Yes";
  auto unended = startProgram("/bin/sh", {"-c", "exec \"$0\" < \"$1\"", TERVANO_ASK, question_});
  EXPECT_EQ(unended.waitForExit(kSeconds), 2);
  auto endless = startProgram("/bin/sh", {"-c", "exec \"$0\" < /dev/zero", TERVANO_ASK});
  EXPECT_EQ(endless.waitForExit(kSeconds), 2);
  auto none = startProgram("/bin/sh", {"-c", "exec \"$0\" <&-", TERVANO_ASK});
  EXPECT_EQ(none.waitForExit(kSeconds), 2);
}

TEST_F(WindowTest, NoNameIsAnArgumentThatOtherUsersSee) {
  auto asking = ask({"/home/secret.txt"});
  ASSERT_NE(window(), "");
  const auto arguments = contentsOf("/proc/" + std::to_string(asking.pid()) + "/cmdline");
  EXPECT_EQ(arguments, std::string(TERVANO_ASK) + '\0');
  press({"Escape"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 1);
}

// The window with its two fields. What it writes arrives in a file.
class PasswordWindowTest : public WindowTest {
 protected:
  ChildProcess askForPassword(const std::vector<std::string>& items = {"/home/a.txt"}) {
    home_.setVariable("PASSWORD_FILE", file_);
    return askAbout(
        {"Compress \"a.txt\" with a password", "Names can be read by anyone.", "Compress"}, items,
        "--password 3> \"$PASSWORD_FILE\"");
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
  auto asking = askAbout({"Q", "", "C"}, {}, "--password 3>&-");
  EXPECT_EQ(asking.waitForExit(kSeconds), 2);
}

TEST_F(PasswordWindowTest, NothingThatItStartsGetsTheDescriptor) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser sees its descriptors";
  auto asking = askForPassword();
  press({"a"});
  const auto information = contentsOf("/proc/" + std::to_string(asking.pid()) + "/fdinfo/3");
  const auto at = information.find("flags:");
  ASSERT_NE(at, std::string::npos) << information;
  EXPECT_NE(std::stol(information.substr(at + 6), nullptr, 8) & O_CLOEXEC, 0) << information;
  press({"Escape"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 1);
}

TEST_F(PasswordWindowTest, NobodyElseLooksIntoItsMemory) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  giveToNobody(home_.path());
  auto asking = askAbout({"Q", "", "C"}, {}, "--password 3> /dev/null",
                         "setpriv --reuid 65534 --regid 65534 --clear-groups ");
  press({"a"});
  struct stat status {};
  const std::string memory = "/proc/" + std::to_string(asking.pid()) + "/mem";
  ASSERT_EQ(stat(memory.c_str(), &status), 0);
  // What may be looked into belongs to its user there.
  EXPECT_EQ(status.st_uid, 0U);
  press({"Escape"});
  EXPECT_EQ(asking.waitForExit(kSeconds), 1);
}

}  // namespace tervano::test
