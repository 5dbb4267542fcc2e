#include <nlohmann/json.hpp>

#include "tests/resources/default_script_test.h"
#include "tests/support/private_bus.h"
#include "tests/support/program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/virtual_display.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const auto& line : lines) text += (text.empty() ? "" : "\n") + line;
  return text;
}

// --- Copy Path, Copy Name

class ClipboardScriptsTest : public DefaultScriptTest {
 protected:
  ClipboardScriptsTest() { home().setVariable("KEPT", homePath()); }

  // Another program gets that from the clipboard of the display, once the one that owns it has told
  // the server so.
  static void expectClipboard(const std::string& text) {
    ProgramOutcome outcome;
    const bool arrived = waitUntil([&] {
      ProgramStart start;
      start.path = "/usr/bin/xclip";
      start.arguments = {"-selection", "clipboard", "-out"};
      outcome = runProgram(start);
      return outcome.status == 0 && outcome.output == text;
    });
    EXPECT_TRUE(arrived) << outcome.output << outcome.errors;
  }
  // A copier of that name which keeps what it gets, and where its output goes.
  void installCopier(const std::string& name) const {
    install(name,
            "cat >\"$KEPT/copied\"; printf '%s ' \"$@\" >\"$KEPT/options\"; "
            "readlink /proc/$$/fd/1 /proc/$$/fd/2 >\"$KEPT/outputs\"");
  }
  std::string kept(const std::string& name) const { return contentsOf(homePath() + "/" + name); }

  ScopedPlatform platform_;
};

TEST_F(ClipboardScriptsTest, CopyPathsOfEveryNameByXclip) {
  const VirtualDisplay display;
  const auto paths = makeHostile();
  expectSilent(run("Copy Path", paths));
  expectClipboard(joined(paths));
  expectSilent(run("Copy Path", {paths[4]}));
  // A single path has no line end.
  expectClipboard(paths[4]);
}

TEST_F(ClipboardScriptsTest, CopyNamesByXsel) {
  const VirtualDisplay display;
  leaveOnly({"xsel"});
  expectSilent(run("Copy Name", makeHostile()));
  expectClipboard(joined(hostileNames()));
}

TEST_F(ClipboardScriptsTest, PreferTheProgramForWayland) {
  home().setVariable("WAYLAND_DISPLAY", "wayland-0");
  home().setVariable("DISPLAY", ":nowhere");
  installCopier("wl-copy");
  const auto paths = makeHostile();
  expectSilent(run("Copy Path", paths));
  EXPECT_EQ(kept("copied"), joined(paths));
  EXPECT_EQ(kept("options"), "--type text/plain ");
}

TEST_F(ClipboardScriptsTest, TakeTheProgramForXWhereTheOtherIsMissing) {
  leaveOnly({"bash", "readlink"});
  home().setVariable("WAYLAND_DISPLAY", "wayland-0");
  home().setVariable("DISPLAY", ":nowhere");
  installCopier("xclip");
  expectSilent(run("Copy Path", {"/a"}));
  EXPECT_EQ(kept("options"), "-selection clipboard -in ");
}

TEST_F(ClipboardScriptsTest, LeaveNoProgramThatHoldsTheirOutputOpen) {
  home().setVariable("DISPLAY", ":nowhere");
  installCopier("xclip");
  expectSilent(run("Copy Path", {"/a"}));
  EXPECT_EQ(kept("outputs"), "/dev/null\n/dev/null\n");
}

TEST_F(ClipboardScriptsTest, TakeThousandsOfPaths) {
  home().setVariable("DISPLAY", ":nowhere");
  installCopier("xclip");
  std::vector<std::string> paths;
  for (int number = 0; number < 20000; ++number) {
    paths.push_back("/a/path/of/some/sixty/characters/or/so/" + std::to_string(number));
  }
  expectSilent(run("Copy Path", paths));
  EXPECT_EQ(kept("copied"), joined(paths));
}

TEST_F(ClipboardScriptsTest, SayThatThereIsNoSession) {
  expectProblem(run("Copy Path", {"/a"}), "Copy Path",
                "There is no graphical session whose clipboard could be used.");
}

TEST_F(ClipboardScriptsTest, SayThatTheClipboardCannotBeReached) {
  home().setVariable("DISPLAY", ":nowhere");
  expectProblem(run("Copy Name", {"/a"}), "Copy Name", "The clipboard could not be reached.");
}

TEST_F(ClipboardScriptsTest, CopyTheNameOfARelativePathAndOfTheRootFolder) {
  home().setVariable("DISPLAY", ":nowhere");
  installCopier("xclip");
  expectSilent(run("Copy Name", {"-n", "folder/", "/"}));
  EXPECT_EQ(kept("copied"), "-n\nfolder\n/");
}

// --- Open Terminal Here

class OpenTerminalTest : public DefaultScriptTest {
 protected:
  OpenTerminalTest() {
    home().setVariable("DISPLAY", ":nowhere");
    home().setVariable("KEPT", homePath());
  }

  // A terminal that keeps its arguments and where it stands.
  void installTerminal(const std::string& name) const {
    install(name, "output=$(readlink /proc/$$/fd/1)\n{ printf '%s\\0' " + name +
                      " \"$@\"; pwd -P | head -c -1; printf '\\0'; "
                      "printf '%s\\0' \"${LC_ALL-}\" \"$output\" "
                      "\"$(cut -d ' ' -f 6 /proc/$$/stat)\" \"$$\"; } >\"$KEPT/kept.$$\"\n"
                      "mv \"$KEPT/kept.$$\" \"$KEPT/terminal.$$\"");
  }
  // What the terminals kept, once so many have.
  std::vector<std::vector<std::string>> terminals(std::size_t count) {
    std::vector<std::vector<std::string>> all;
    EXPECT_TRUE(waitUntil([&] {
      all.clear();
      for (const auto& entry : fs::directory_iterator(homePath())) {
        if (!entry.path().filename().string().starts_with("terminal.")) continue;
        const auto text = contentsOf(entry.path().string());
        std::vector<std::string> words;
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = text.find('\0', begin)) != std::string::npos;
             begin = end + 1) {
          words.push_back(text.substr(begin, end - begin));
        }
        all.push_back(words);
      }
      return all.size() == count;
    }));
    return all;
  }
  const std::string title_ = "Open Terminal Here";
  ScopedPlatform platform_;
};

TEST_F(OpenTerminalTest, StandsInTheSelectedFolder) {
  installTerminal("xdg-terminal-exec");
  const auto folder = makeFolder("-a $(b) \"c\"\nd");
  expectSilent(run(title_, {folder}));
  const auto kept = terminals(1).at(0);
  ASSERT_THAT(kept, SizeIs(6));
  EXPECT_EQ(kept[0], "xdg-terminal-exec");
  EXPECT_EQ(kept[1], fs::canonical(folder).string());
}

TEST_F(OpenTerminalTest, IsDetached) {
  installTerminal("xdg-terminal-exec");
  expectSilent(run(title_, {files()}));
  const auto kept = terminals(1).at(0);
  ASSERT_THAT(kept, SizeIs(6));
  EXPECT_EQ(kept[3], "/dev/null");
  EXPECT_EQ(kept[4], kept[5]) << "it leads a session of its own";
}

TEST_F(OpenTerminalTest, SpeaksTheUsersLanguage) {
  installTerminal("xdg-terminal-exec");
  home().setVariable("LC_ALL", "C.UTF-8");
  expectSilent(run(title_, {files()}));
  EXPECT_EQ(terminals(1).at(0)[2], "C.UTF-8");
}

TEST_F(OpenTerminalTest, OpensOneForAllFilesOfAFolder) {
  installTerminal("xdg-terminal-exec");
  const auto a = make("one/a");
  const auto b = make("one/b");
  const auto folder = makeFolder("two");
  expectSilent(run(title_, {a, b, folder}));
  std::vector<std::string> places;
  for (const auto& kept : terminals(2)) places.push_back(kept[1]);
  EXPECT_THAT(places, testing::UnorderedElementsAre(fs::canonical(at("one")).string(),
                                                    fs::canonical(folder).string()));
}

TEST_F(OpenTerminalTest, TakesTheFirstThatIsThere) {
  leaveOnly({"bash", "readlink"});
  std::vector<std::string> order{"mate-terminal", "xfce4-terminal", "konsole", "gnome-terminal",
                                 "x-terminal-emulator"};
  for (const auto& name : order) {
    installTerminal(name);
    expectSilent(run(title_, {files()}));
    EXPECT_EQ(terminals(1).at(0)[0], name);
    for (const auto& entry : fs::directory_iterator(homePath())) {
      if (entry.path().filename().string().starts_with("terminal.")) fs::remove(entry);
    }
  }
}

TEST_F(OpenTerminalTest, TakesTheUsersOwnBeforeTheOthers) {
  installTerminal("x-terminal-emulator");
  installTerminal("my-terminal");
  home().setVariable("TERMINAL", "my-terminal");
  expectSilent(run(title_, {files()}));
  EXPECT_EQ(terminals(1).at(0)[0], "my-terminal");
}

TEST_F(OpenTerminalTest, GivesTheUsersOwnItsOptionsAndRunsNoShell) {
  installTerminal("my-terminal");
  home().setVariable("TERMINAL", "my-terminal --one $(touch pwned) ;x");
  expectSilent(run(title_, {files()}));
  const auto kept = terminals(1).at(0);
  EXPECT_THAT((std::vector<std::string>{kept.begin(), kept.begin() + 5}),
              ElementsAre("my-terminal", "--one", "$(touch", "pwned)", ";x"));
}

TEST_F(OpenTerminalTest, PassesOverAnOwnOneThatIsMissing) {
  installTerminal("x-terminal-emulator");
  home().setVariable("TERMINAL", "no-such-terminal");
  expectSilent(run(title_, {files()}));
  EXPECT_EQ(terminals(1).at(0)[0], "x-terminal-emulator");
}

TEST_F(OpenTerminalTest, SaysThatThereIsNone) {
  leaveOnly({});
  expectProblem(run(title_, {files()}), title_,
                "There is no terminal program; install the Debian package \"xterm\".");
}

TEST_F(OpenTerminalTest, SaysThatThereIsNoSession) {
  installTerminal("xdg-terminal-exec");
  home().setVariable("DISPLAY", std::nullopt);
  expectProblem(run(title_, {files()}), title_,
                "There is no graphical session in which a terminal could be opened.");
}

TEST_F(OpenTerminalTest, RefusesAHundredAtOnce) {
  installTerminal("xdg-terminal-exec");
  std::vector<std::string> folders;
  for (int number = 0; number < 100; ++number) {
    folders.push_back(makeFolder(std::to_string(number)));
  }
  expectProblem(run(title_, folders), title_,
                "The selection lies in 100 folders; terminals are opened in 8 at most.");
}

TEST_F(OpenTerminalTest, SaysWhichFolderItCannotEnter) {
  installTerminal("xdg-terminal-exec");
  const auto folder = makeFolder("closed");
  fs::permissions(folder, fs::perms::none);
  expectProblem(runAsNobody(title_, {folder}), title_, "No terminal can be opened in \"closed\".");
}

// --- Notifications

// A real notification daemon on a bus and a display of the test's own.
class ShownNotificationTest : public DefaultScriptTest {
 protected:
  ShownNotificationTest() {
    fs::remove(homePath() + "/programs/notify-send");
    make("dunstrc", "[global]\nidle_threshold = 0\n");
  }
  static ProgramOutcome dunstctl(const std::string& word) {
    ProgramStart start;
    start.path = "/usr/bin/dunstctl";
    start.arguments = {word};
    return runProgram(start);
  }
  ScopedPlatform platform_;
  const VirtualDisplay display_;
  const PrivateBus bus_;
};

TEST_F(ShownNotificationTest, TellsTheProblemUnderTheProductsName) {
  auto daemon = startProgram("/usr/bin/dunst", {"-conf", at("dunstrc")});
  ASSERT_TRUE(waitUntil([] { return dunstctl("count").status == 0; }));
  const auto outcome = run("Make Executable", {at("<b>& \xff\n")});
  EXPECT_EQ(outcome.errors,
            "Make Executable: \"<b>& \xef\xbf\xbd\xef\xbf\xbd\" cannot be found.\n");
  nlohmann::json shown;
  ASSERT_TRUE(waitUntil([&] {
    dunstctl("close-all");
    shown = nlohmann::json::parse(dunstctl("history").output, nullptr, false);
    return shown.is_object() && !shown["data"][0].empty();
  }));
  const auto& notification = shown["data"][0][0];
  EXPECT_EQ(notification["appname"]["data"], "Tervano");
  EXPECT_EQ(notification["summary"]["data"], "Tervano");
  EXPECT_EQ(notification["body"]["data"],
            "Make Executable: \"&lt;b&gt;&amp; \xef\xbf\xbd\xef\xbf\xbd\" cannot be "
            "found.");
}

TEST_F(ShownNotificationTest, IsNotWaitedForWithoutADaemon) {
  const auto outcome = run("Make Executable", {});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Make Executable: No file was selected.\n");
}

}  // namespace
}  // namespace tervano::test
