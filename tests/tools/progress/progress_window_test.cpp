#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"
#include "tests/support/virtual_display.h"

namespace tervano::test {

namespace {

constexpr double kWindowSeconds = 30;

// The window program on a display of its own.
class ProgressWindowProgramTest : public testing::Test {
 protected:
  ProgressWindowProgramTest() { setenv("GSK_RENDERER", "cairo", 1); }

  static int runTool(const std::vector<std::string>& arguments) {
    auto child = startProgram("/usr/bin/xdotool", arguments);
    return child.waitForExit(kWindowSeconds).value_or(-1);
  }
  // The X window, once it is there.
  static std::string window() {
    auto search = startProgram("/usr/bin/xdotool",
                               {"search", "--sync", "--onlyvisible", "--name", "^Tervano$"});
    return search.hear(kWindowSeconds).value_or("");
  }
  static void press(const std::vector<std::string>& keys) {
    const std::string id = window();
    ASSERT_NE(id, "");
    ASSERT_EQ(runTool({"windowfocus", "--sync", id}), 0);
    std::vector<std::string> arguments{"key", "--delay", "50"};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    ASSERT_EQ(runTool(arguments), 0);
  }

  TemporaryHome home_;
  VirtualDisplay display_;
};

}  // namespace

TEST_F(ProgressWindowProgramTest, TheButtonSaysTheNumberOfItsRow) {
  auto program = startProgram(TERVANO_PROGRESS);
  program.say("show\t41\t250\tCopy <b>to</b>\t1 of 4 items");
  program.say("nonsense");
  program.say("show\t42\t-\tCompress\t\xff");
  press({"Tab", "space"});
  EXPECT_EQ(program.hear(kWindowSeconds), "cancel 42");
}

TEST_F(ProgressWindowProgramTest, TheWindowGoesWithItsLastRowAndComesWithTheNext) {
  auto program = startProgram(TERVANO_PROGRESS);
  program.say("show\t1\t250\tCopy\t1 of 4 items");
  const std::string id = window();
  ASSERT_NE(id, "");
  program.say("hide\t1");
  auto gone = startProgram("/bin/sh", {"-c",
                                       "while xdotool search --onlyvisible --name '^Tervano$' "
                                       ">/dev/null 2>&1; do sleep 0.05; done"});
  EXPECT_EQ(gone.waitForExit(kWindowSeconds), 0);
  program.say("show\t2\t0\tMove\t");
  EXPECT_NE(window(), "");
}

TEST_F(ProgressWindowProgramTest, TheEndOfItsInputEndsIt) {
  const auto outcome = runProgram({TERVANO_PROGRESS, {}});
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(ProgressWindowProgramTest, ClosingTheWindowEndsItAndCancelsNothing) {
  auto program = startProgram(TERVANO_PROGRESS);
  program.say("show\t1\t250\tCopy\t1 of 4 items");
  press({"Escape"});
  EXPECT_EQ(program.waitForExit(kWindowSeconds), 0);
  EXPECT_EQ(program.hear(kWindowSeconds), std::nullopt);
}

TEST_F(ProgressWindowProgramTest, WithoutADisplayItSaysSo) {
  const std::string display = std::getenv("DISPLAY");
  unsetenv("DISPLAY");
  auto program = startProgram(TERVANO_PROGRESS);
  EXPECT_EQ(program.waitForExit(kWindowSeconds), 3);
  setenv("DISPLAY", display.c_str(), 1);
}

TEST_F(ProgressWindowProgramTest, AnyArgumentIsWrong) {
  auto program = startProgram(TERVANO_PROGRESS, {"/home/name.txt"});
  EXPECT_EQ(program.waitForExit(kWindowSeconds), 2);
}

}  // namespace tervano::test
