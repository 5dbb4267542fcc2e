#include "companion/terminal_menu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>

#include "tests/companion/terminal.h"
#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kUp[] = "\x1b[A";
constexpr char kDown[] = "\x1b[B";
constexpr char kRight[] = "\x1b[C";
constexpr char kLeft[] = "\x1b[D";
constexpr char kEnter[] = "\r";
constexpr char kEscape[] = "\x1b";
// Ends each drawing.
constexpr char kHint[] = "q leaves";
// The menu's end: the cursor is shown again.
constexpr char kShowCursor[] = "\x1b[?25h";

// Presses keys and answers the drawing that follows.
std::string press(Terminal& terminal, const std::string& keys) {
  terminal.type(keys);
  return terminal.readUntil(kHint);
}

TerminalMenuEntry entry(const std::string& title, const std::string& choice = "") {
  TerminalMenuEntry made;
  made.title = title;
  made.choice = choice;
  return made;
}

std::vector<TerminalMenuEntry> sampleMenu() {
  std::vector<TerminalMenuEntry> menu = {entry("First", "1"), entry("Group"), entry("Last", "3")};
  menu[1].hasSubmenu = true;
  menu[1].submenu = {entry("Inner", "2a"), entry("Second inner", "2b")};
  return menu;
}

bool sameSettings(const termios& left, const termios& right) {
  return left.c_iflag == right.c_iflag && left.c_oflag == right.c_oflag &&
         left.c_cflag == right.c_cflag && left.c_lflag == right.c_lflag &&
         std::equal(std::begin(left.c_cc), std::end(left.c_cc), std::begin(right.c_cc));
}

// Runs the menu and says what was chosen, and whether the terminal is as it was.
std::function<int()> showing(const std::vector<TerminalMenuEntry>& menu) {
  return [menu] {
    termios before{};
    tcgetattr(STDIN_FILENO, &before);
    const auto choice = runTerminalMenu("Heading", menu);
    termios after{};
    tcgetattr(STDIN_FILENO, &after);
    const std::string said = "chosen:" + choice.value_or("nothing") + ";" +
                             (sameSettings(before, after) ? "restored" : "changed") + ".";
    return write(STDOUT_FILENO, said.data(), said.size()) > 0 ? 0 : 1;
  };
}

class TerminalMenuTest : public testing::Test {
 protected:
  // Presses one key after the other, then expects what was chosen.
  static void expectChoice(const std::vector<std::string>& keys, const std::string& choice) {
    Terminal terminal(showing(sampleMenu()));
    terminal.readUntil(kHint);
    for (std::size_t i = 0; i + 1 < keys.size(); ++i) press(terminal, keys[i]);
    terminal.type(keys.back());
    const std::string end = terminal.readUntil("d.");
    EXPECT_THAT(end, HasSubstr("chosen:" + choice + ";restored."));
    EXPECT_THAT(end, HasSubstr(kShowCursor));
    EXPECT_EQ(terminal.waitForExit(), 0);
  }
};

}  // namespace

TEST_F(TerminalMenuTest, FirstEntryIsMarkedAtTheBeginning) {
  Terminal terminal(showing(sampleMenu()));
  const auto drawn = terminal.readUntil(kHint);
  EXPECT_THAT(drawn, HasSubstr("Heading"));
  EXPECT_THAT(drawn, HasSubstr("\x1b[7m > First"));
  EXPECT_THAT(drawn, HasSubstr("   Group \u25b8"));
}

TEST_F(TerminalMenuTest, EnterChooses) {
  expectChoice({kEnter}, "1");
}
TEST_F(TerminalMenuTest, RightChooses) {
  expectChoice({kRight}, "1");
}
TEST_F(TerminalMenuTest, DownMoves) {
  expectChoice({kDown, kDown, kEnter}, "3");
}
TEST_F(TerminalMenuTest, UpFromTheFirstGoesToTheLast) {
  expectChoice({kUp, kEnter}, "3");
}
TEST_F(TerminalMenuTest, DownFromTheLastGoesToTheFirst) {
  expectChoice({kDown, kDown, kDown, kEnter}, "1");
}
TEST_F(TerminalMenuTest, ArrowsOfApplicationModeWorkToo) {
  expectChoice({"\x1bOB", "\x1bOB", "\x1bOA", "\x1bOC", "\x1bOB", kEnter}, "2b");
}
TEST_F(TerminalMenuTest, LettersMoveAsTheArrowsDo) {
  expectChoice({"j", "l", "j", "k", "h", "j", "l"}, "3");
}
TEST_F(TerminalMenuTest, EnterOpensASubmenuAndChoosesInIt) {
  expectChoice({kDown, kEnter, kDown, kEnter}, "2b");
}
TEST_F(TerminalMenuTest, LeftGoesBackToTheEntryOfTheSubmenu) {
  expectChoice({kDown, kRight, kDown, kLeft, kDown, kEnter}, "3");
}
TEST_F(TerminalMenuTest, EscapeGoesBackToo) {
  expectChoice({kDown, kRight, kEscape, kUp, kEnter}, "1");
}
TEST_F(TerminalMenuTest, EscapeAtTheTopLeavesWithoutAChoice) {
  expectChoice({kEscape}, "nothing");
}
TEST_F(TerminalMenuTest, QLeavesFromAnywhere) {
  expectChoice({"q"}, "nothing");
  expectChoice({kDown, kEnter, "q"}, "nothing");
}
TEST_F(TerminalMenuTest, ControlCAndControlDLeave) {
  expectChoice({"\x03"}, "nothing");
  expectChoice({"\x04"}, "nothing");
}
TEST_F(TerminalMenuTest, OtherKeysChangeNothing) {
  expectChoice({"x", "\x1b[H", "\t", kEnter}, "1");
}

TEST_F(TerminalMenuTest, LongEscapeSequenceIsReadWhole) {
  // Delete, a function key and Control-Right: nothing of them is taken for a letter.
  expectChoice({kDown, "\x1b[3~", "\x1b[15~", "\x1b[1;5C", kDown, kEnter}, "3");
}

TEST_F(TerminalMenuTest, SubmenuIsDrawnUnderItsOwnHeading) {
  Terminal terminal(showing(sampleMenu()));
  terminal.readUntil(kHint);
  press(terminal, kDown);
  const auto drawn = press(terminal, kEnter);
  EXPECT_THAT(drawn, HasSubstr("\x1b[1mGroup"));
  EXPECT_THAT(drawn, HasSubstr("\x1b[7m > Inner"));
  EXPECT_THAT(drawn, Not(HasSubstr("First")));
}

TEST_F(TerminalMenuTest, DisabledEntryCannotBeChosen) {
  auto menu = sampleMenu();
  menu[0].enabled = false;
  Terminal terminal(showing(menu));
  terminal.readUntil(kHint);
  EXPECT_THAT(press(terminal, kEnter), HasSubstr(" > "));
  terminal.type("q");
  EXPECT_THAT(terminal.readUntil("d."), HasSubstr("chosen:nothing"));
}

TEST_F(TerminalMenuTest, EmptyMenuSaysSoAndIsLeft) {
  Terminal terminal(showing({}));
  EXPECT_THAT(terminal.readUntil(kHint), HasSubstr("(nothing here)"));
  for (const char* key : {kDown, kUp, kEnter}) press(terminal, key);
  terminal.type(kEscape);
  EXPECT_THAT(terminal.readUntil("d."), HasSubstr("chosen:nothing;restored"));
}

TEST_F(TerminalMenuTest, EmptySubmenuIsOpenedAndLeft) {
  auto menu = sampleMenu();
  menu[1].submenu.clear();
  Terminal terminal(showing(menu));
  terminal.readUntil(kHint);
  press(terminal, kDown);
  EXPECT_THAT(press(terminal, kEnter), HasSubstr("(nothing here)"));
  EXPECT_THAT(press(terminal, kLeft), HasSubstr("First"));
}

TEST_F(TerminalMenuTest, LongMenuScrollsAndEveryEntryCanBeChosen) {
  std::vector<TerminalMenuEntry> menu;
  for (int i = 0; i < 1000; ++i)
    menu.push_back(entry("Entry " + std::to_string(i), std::to_string(i)));
  Terminal terminal(showing(menu), 10);
  auto drawn = terminal.readUntil(kHint);
  EXPECT_THAT(drawn, HasSubstr("Entry 6 "));
  EXPECT_THAT(drawn, Not(HasSubstr("Entry 7 ")));
  for (int i = 0; i < 7; ++i) drawn = press(terminal, kDown);
  EXPECT_THAT(drawn, HasSubstr(" > Entry 7 "));
  EXPECT_THAT(drawn, Not(HasSubstr("Entry 0 ")));
  for (int i = 0; i < 8; ++i) drawn = press(terminal, kUp);
  EXPECT_THAT(drawn, HasSubstr(" > Entry 999 "));
  EXPECT_THAT(drawn, HasSubstr("Entry 993 "));
  terminal.type(kEnter);
  EXPECT_THAT(terminal.readUntil("d."), HasSubstr("chosen:999;"));
}

TEST_F(TerminalMenuTest, TerminalOfThreeRowsStillShowsTheCurrentEntry) {
  std::vector<TerminalMenuEntry> menu;
  for (int i = 0; i < 9; ++i) menu.push_back(entry("Entry " + std::to_string(i)));
  Terminal terminal(showing(menu), 3);
  auto drawn = terminal.readUntil(kHint);
  EXPECT_THAT(drawn, HasSubstr(" > Entry 0 "));
  EXPECT_THAT(drawn, Not(HasSubstr("Entry 1 ")));
  drawn = press(terminal, kDown);
  EXPECT_THAT(drawn, HasSubstr(" > Entry 1 "));
}

TEST_F(TerminalMenuTest, LongTitleStaysInOneLine) {
  // A line that wraps is two lines, and the next drawing would leave one behind.
  Terminal terminal(
      showing({entry(std::string(300, 'x')), entry(std::string(200, 'y') + "\u5de5")}));
  std::string drawn = terminal.readUntil(kHint);
  EXPECT_THAT(drawn, Not(HasSubstr(std::string(80, 'x'))));
  EXPECT_THAT(drawn, HasSubstr("\u2026"));
}

TEST_F(TerminalMenuTest, WideCharactersCountTwice) {
  std::string title;
  for (int i = 0; i < 60; ++i) title += "\u5de5";
  Terminal terminal(showing({entry(title)}));
  const std::string drawn = terminal.readUntil(kHint);
  std::size_t count = 0;
  for (auto at = drawn.find("\u5de5"); at != std::string::npos; at = drawn.find("\u5de5", at + 1)) {
    ++count;
  }
  EXPECT_LE(count, 38U);
  EXPECT_GE(count, 30U);
}

TEST_F(TerminalMenuTest, TitleCannotControlTheTerminal) {
  Terminal terminal(
      showing({entry("a\x1b[2J\nb\xc2\x9b"
                     "2J")}));
  EXPECT_THAT(terminal.readUntil(kHint), HasSubstr("a\\x1b[2J\\nb\\xc2\\x9b2J"));
}

TEST_F(TerminalMenuTest, HangUpEndsTheMenu) {
  Terminal terminal(showing(sampleMenu()));
  terminal.readUntil(kHint);
  terminal.hangUp();
  const int status = terminal.waitForExit();
  EXPECT_TRUE(status == -SIGHUP || status == 0 || status == 1) << status;
}

TEST_F(TerminalMenuTest, TerminationRestoresTheTerminal) {
  // The parent of the menu keeps the terminal, as a shell does, and says what it is worth.
  int menuIdentifier[2];
  ASSERT_EQ(pipe(menuIdentifier), 0);
  Terminal terminal([&] {
    termios before{};
    tcgetattr(STDIN_FILENO, &before);
    const pid_t menu = fork();
    if (menu == 0) {
      runTerminalMenu("Heading", sampleMenu());
      _exit(0);
    }
    int status = 0;
    if (write(menuIdentifier[1], &menu, sizeof menu) != sizeof menu) return 1;
    waitpid(menu, &status, 0);
    termios after{};
    tcgetattr(STDIN_FILENO, &after);
    const std::string said = std::string(WIFSIGNALED(status) ? "killed;" : "ended;") +
                             (sameSettings(before, after) ? "restored." : "changed.");
    return write(STDOUT_FILENO, said.data(), said.size()) > 0 ? 0 : 1;
  });
  terminal.readUntil(kHint);
  pid_t menu = 0;
  ASSERT_EQ(read(menuIdentifier[0], &menu, sizeof menu), static_cast<ssize_t>(sizeof menu));
  ASSERT_EQ(kill(menu, SIGTERM), 0);
  const std::string end = terminal.readUntil("d.");
  EXPECT_THAT(end, HasSubstr("killed;restored."));
  EXPECT_THAT(end, HasSubstr(kShowCursor));
  close(menuIdentifier[0]);
  close(menuIdentifier[1]);
}

namespace {

class MenuOnATerminalTest : public testing::Test {
 protected:
  MenuOnATerminalTest() {
    home_.succeed({"prefs", "set", "useSubmenu", "no"});
    home_.home().setVariable("XDG_DATA_DIRS", home_.folder("none"));
    home_.home().setVariable("TERM", "xterm");
  }
  ProgramHome home_;
};

}  // namespace

TEST_F(MenuOnATerminalTest, ChoiceWritesTheHandOffFile) {
  const auto folder = home_.folder("to");
  home_.succeed({"add", "move", "--title", "Away", "--to", folder});
  Terminal terminal(becomingTervano({"menu", home_.file("a.txt")}));
  EXPECT_THAT(terminal.readUntil(kHint), HasSubstr(" > Away"));
  terminal.type(kEnter);
  // Nothing is registered in this home, which is told.
  EXPECT_THAT(terminal.readUntil("handed over."), HasSubstr("Nothing is registered"));
  EXPECT_EQ(terminal.waitForExit(), 1);
}

TEST_F(MenuOnATerminalTest, LeavingIsNoFailureAndHandsNothingOver) {
  home_.succeed({"add", "move", "--title", "Away"});
  Terminal terminal(becomingTervano({"menu", home_.file("a.txt")}));
  terminal.readUntil(kHint);
  terminal.type("q");
  EXPECT_EQ(terminal.waitForExit(), 0);
}

TEST_F(MenuOnATerminalTest, PrintShowsTheMenuAlsoOnATerminal) {
  home_.succeed({"add", "move", "--title", "Away"});
  Terminal terminal(becomingTervano({"menu", "--print", home_.file("a.txt")}));
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_EQ(terminal.rest(), "Away\r\n");
}

TEST_F(MenuOnATerminalTest, DisabledItemOfTheToolbarMenuCannotBeChosen) {
  Terminal terminal(becomingTervano({"menu", "--kind", "toolbar"}));
  EXPECT_THAT(terminal.readUntil(kHint), HasSubstr("No Actions Enabled"));
  EXPECT_THAT(press(terminal, kEnter), HasSubstr("No Actions Enabled"));
  terminal.type("q");
  EXPECT_EQ(terminal.waitForExit(), 0);
}

}  // namespace tervano::test
