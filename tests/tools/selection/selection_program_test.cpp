#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "tests/support/program.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/temporary_home.h"
#include "tests/support/virtual_display.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

constexpr double kSeconds = 30;

// The records that the program wrote, in one line.
std::string recordsIn(std::string output) {
  for (char& character : output) {
    if (character == '\0') character = '|';
  }
  return output;
}

// A Wayland desktop in a window of an X server, whose keys it gets.
class WaylandDesktop {
 public:
  explicit WaylandDesktop(TemporaryHome& home)
      : compositor_(
            startProgram("/usr/bin/weston", {"--backend=x11-backend.so", "--socket=wayland-test",
                                             "--width=800", "--height=600", "--idle-time=0"})) {
    const std::string socket = home.runtimeFolder() + "/wayland-test";
    EXPECT_TRUE(waitUntil([&] { return exists(socket); }, kSeconds));
    // Without a window manager keys go to the window below the pointer.
    auto point = startProgram("/usr/bin/xdotool", {"mousemove", "400", "300"});
    EXPECT_EQ(point.waitForExit(kSeconds), 0);
    home.setVariable("WAYLAND_DISPLAY", "wayland-test");
  }

 private:
  ChildProcess compositor_;
};

// The program on a display of its own, with a program that owns the clipboard.
class SelectionProgramTest : public testing::Test {
 protected:
  SelectionProgramTest() {
    setenv("GSK_RENDERER", "cairo", 1);
    home_.setVariable("XDG_ACTIVATION_TOKEN", std::nullopt);
    home_.setVariable("DESKTOP_STARTUP_ID", std::nullopt);
    home_.setVariable("WAYLAND_DISPLAY", std::nullopt);
    home_.setVariable("GTK_A11Y", "none");
  }

  // Each content is a kind and its bytes.
  static ChildProcess owner(const std::vector<std::pair<std::string, std::string>>& contents,
                            const std::string& selection = "CLIPBOARD",
                            const std::string& answer = "answer") {
    std::vector<std::string> words{CLIPBOARD_OWNER, selection, answer};
    for (const auto& [kind, content] : contents) words.push_back(kind + "=" + asWord(content));
    auto child = startProgram("/usr/bin/python3", words);
    EXPECT_EQ(child.hear(kSeconds), "ready");
    return child;
  }
  static ProgramOutcome select(std::vector<std::string> words = {}) {
    ProgramStart start;
    start.path = TERVANO_SELECTION;
    start.arguments = std::move(words);
    return runProgram(start);
  }
  // Chooses among two titles with the keys.
  int choose(const std::vector<std::string>& keys) {
    std::ofstream(home_.path() + "/choices", std::ios::binary)
        << std::string("U1\0Move to \xff\0U2\0Größe › Copy\0", 32);
    auto child = startProgram(
        "/bin/sh",
        {"-c", "exec \"$0\" --choose < \"$HOME/choices\" > \"$HOME/records\"", TERVANO_SELECTION});
    auto search = startProgram("/usr/bin/xdotool",
                               {"search", "--sync", "--onlyvisible", "--name", "^Tervano$"});
    const auto window = search.hear(kSeconds).value_or("");
    EXPECT_NE(window, "");
    auto focus = startProgram("/usr/bin/xdotool", {"windowfocus", "--sync", window});
    EXPECT_EQ(focus.waitForExit(kSeconds), 0);
    std::vector<std::string> words{"key", "--delay", "100"};
    words.insert(words.end(), keys.begin(), keys.end());
    auto press = startProgram("/usr/bin/xdotool", words);
    EXPECT_EQ(press.waitForExit(kSeconds), 0);
    return child.waitForExit(kSeconds).value_or(-1);
  }
  std::string records() { return recordsIn(contentsOf(home_.path() + "/records")); }

  ScopedPlatform platform_;
  TemporaryHome& home_ = platform_.home();
  VirtualDisplay display_;
};

}  // namespace

TEST_F(SelectionProgramTest, TheCopiedFilesAreTold) {
  const auto clipboard = owner({{"text/uri-list", "file:///a%20b\r\nfile:///%FF%0A\r\n"},
                                {"text/plain;charset=utf-8", "not this"}});
  const auto outcome = select();
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(recordsIn(outcome.output), "F/a b|F/\xff\n|E|T|I|");
}

TEST_F(SelectionProgramTest, AnotherKindIsTriedWhenTheFirstNamesNoFiles) {
  const auto clipboard = owner({{"text/uri-list", "http://example.org/\r\n"},
                                {"x-special/gnome-copied-files", "copy\nfile:///a"},
                                {"application/x-kde-cutselection", "1"}});
  EXPECT_EQ(recordsIn(select().output), "F/a|E|T|I|");
}

TEST_F(SelectionProgramTest, AMarkedTextMayNameFiles) {
  const auto clipboard = owner({{"UTF8_STRING", "/on the clipboard"}});
  const auto primary = owner({{"UTF8_STRING", "/marked\nfile:///too"}}, "PRIMARY");
  EXPECT_EQ(recordsIn(select({"--primary"}).output), "F/marked|F/too|E|T|I|");
  EXPECT_EQ(recordsIn(select().output), "F/on the clipboard|E|T|I|");
}

TEST_F(SelectionProgramTest, ALongListIsWhole) {
  std::string list;
  std::string records;
  for (int i = 0; i < 20'000; ++i) {
    list += "file:///some/folder/file%20" + std::to_string(i) + "\r\n";
    records += "F/some/folder/file " + std::to_string(i) + "|";
  }
  const auto file = home_.path() + "/list";
  std::ofstream(file) << list;
  auto clipboard = startProgram(
      "/usr/bin/xclip", {"-quiet", "-selection", "clipboard", "-t", "text/uri-list", "-i", file});
  // The owner tells nobody when it has begun.
  ProgramOutcome outcome;
  for (int attempt = 0; attempt < 10; ++attempt) {
    outcome = select();
    if (outcome.status == 0) break;
  }
  EXPECT_TRUE(recordsIn(outcome.output) == records + "E|T|I|");
}

TEST_F(SelectionProgramTest, WhatIsNoFileIsTold) {
  EXPECT_EQ(select().status, 1);
  const auto clipboard = owner({{"UTF8_STRING", "some words"}, {"image/png", "\x89PNG"}});
  const auto outcome = select();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
}

TEST_F(SelectionProgramTest, AnOwnerThatSaysNothingIsGivenUp) {
  const auto clipboard = owner({{"text/uri-list", "file:///a"}}, "CLIPBOARD", "silent");
  EXPECT_EQ(select({"--timeout", "1500"}).status, 5);
}

TEST_F(SelectionProgramTest, WithoutADisplayItSaysSo) {
  home_.setVariable("DISPLAY", std::nullopt);
  EXPECT_EQ(select().status, 3);
  home_.setVariable("DISPLAY", ":999");
  EXPECT_EQ(select().status, 3);
}

TEST_F(SelectionProgramTest, WrongArgumentsAreRefused) {
  EXPECT_EQ(select({"--what"}).status, 2);
  EXPECT_EQ(select({"--timeout"}).status, 2);
  EXPECT_EQ(select({"--timeout", "soon"}).status, 2);
}

TEST_F(SelectionProgramTest, TheTokenThatNoWindowUsedIsGivenBack) {
  const auto clipboard = owner({{"text/uri-list", "file:///a"}});
  home_.setVariable("XDG_ACTIVATION_TOKEN", "token");
  home_.setVariable("DESKTOP_STARTUP_ID", "identifier");
  EXPECT_EQ(recordsIn(select().output), "F/a|E|Ttoken|Iidentifier|");
}

TEST_F(SelectionProgramTest, ReturnChoosesTheFirst) {
  const auto clipboard = owner({{"text/uri-list", "file:///a"}});
  EXPECT_EQ(choose({"Return"}), 0);
  EXPECT_THAT(records(), testing::StartsWith("F/a|E|UU1|T|Itervano_TIME"));
}

TEST_F(SelectionProgramTest, TypingSearchesWithoutRegardToCase) {
  const auto clipboard = owner({{"text/uri-list", "file:///a"}});
  EXPECT_EQ(choose({"c", "O", "p", "Return"}), 0);
  EXPECT_THAT(records(), testing::HasSubstr("|UU2|"));
}

TEST_F(SelectionProgramTest, OnWaylandAWindowLearnsWhatWasCopied) {
  const WaylandDesktop wayland(home_);
  EXPECT_EQ(select().status, 1);
  auto owner = startProgram("/usr/bin/wl-copy",
                            {"--foreground", "-t", "text/uri-list", "file:///a%20b\r\nfile:///c"});
  ProgramOutcome outcome;
  home_.setVariable("XDG_ACTIVATION_TOKEN", "of the window");
  // The owner tells nobody when it has begun.
  EXPECT_TRUE(waitUntil([&] { return (outcome = select()).status == 0; }, kSeconds));
  EXPECT_EQ(recordsIn(outcome.output), "F/a b|F/c|E|T|I|");
}

TEST_F(SelectionProgramTest, EscapeChoosesNothing) {
  const auto clipboard = owner({{"text/uri-list", "file:///a"}});
  EXPECT_EQ(choose({"x", "y", "Return", "Escape"}), 4);
  EXPECT_EQ(records(), "F/a|E|");
}

}  // namespace tervano::test
