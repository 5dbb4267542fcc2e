#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "archive/url.h"
#include "tests/integration/desktop.h"
#include "tests/support/program.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;
using testing::StartsWith;

// A name that every tool could take for something else.
constexpr char kOddName[] = "a 'b' \"c\" $(d) -e.txt";

// Every kind on its whole way: added by the command line, in the menu of real files, chosen,
// carried by the bus to the companion, and done.
class EveryKindTest : public testing::Test {
 protected:
  EveryKindTest() { home().succeed({"prefs", "set", "useSubmenu", "no"}); }

  ProgramHome& home() { return desktop_.home(); }

  // Adds an action, finds it in the menu of the paths and chooses it there.
  void choose(std::vector<std::string> words, const std::vector<std::string>& paths) {
    words.insert(words.begin(), "add");
    const std::string uid = home().succeed(std::move(words));
    std::vector<std::string> menuWords = {"menu", "--json"};
    menuWords.insert(menuWords.end(), paths.begin(), paths.end());
    const auto menu = home().json(menuWords);
    ASSERT_EQ(menu["items"].size(), 1U);
    ASSERT_EQ(menu["items"][0]["uid"], uid);
    std::vector<std::string> choice = {"choose", uid};
    choice.insert(choice.end(), paths.begin(), paths.end());
    home().succeed(choice);
  }
  // A program that notes its arguments, one a line, and an application that starts it.
  std::string addApplication(const std::string& id, const std::string& more = "") {
    const std::string program =
        home().file("bin/" + id, "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"" + notes() +
                                     ".new\"\nmv \"" + notes() + ".new\" \"" + notes() + "\"\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    return home().file(
        ".local/share/applications/" + id + ".desktop",
        "[Desktop Entry]\nType=Application\nName=" + id + "\nExec=" + program + " %F\n" + more);
  }
  std::string notes() { return home().path() + "/notes"; }
  bool waitForNotes() {
    return waitUntil([this] { return exists(notes()); }, kSeconds);
  }
  bool waitForText(const std::string& text) {
    return waitUntil(
        [&] {
          for (const auto& shown : desktop_.notificationTexts()) {
            if (shown.find(text) != std::string::npos) return true;
          }
          return false;
        },
        kSeconds);
  }
  bool waitForFile(const std::string& path) {
    return waitUntil([&] { return exists(path); }, kSeconds);
  }

  // Waits for the companion's window and gives it the keyboard.
  static void focusWindow() {
    auto window = startProgram("/usr/bin/xdotool",
                               {"search", "--sync", "--onlyvisible", "--name", "^Tervano$"});
    const auto id = window.hear(kSeconds);
    ASSERT_TRUE(id);
    EXPECT_EQ(
        startProgram("/usr/bin/xdotool", {"windowfocus", "--sync", *id}).waitForExit(kSeconds), 0);
  }
  static void typeKeys(std::vector<std::string> keys) {
    keys.insert(keys.begin(), {"key", "--delay", "50"});
    EXPECT_EQ(startProgram("/usr/bin/xdotool", keys).waitForExit(kSeconds), 0);
  }

  static constexpr double kSeconds = 30;
  Desktop desktop_;
};

}  // namespace

TEST_F(EveryKindTest, OpenWithGivesTheApplicationAllFilesAtOnce) {
  addApplication("org.example.Viewer");
  const auto first = home().file(kOddName);
  const auto second = home().file("b.txt");
  choose({"open-with", "--app", "org.example.Viewer"}, {first, second});
  ASSERT_TRUE(waitForNotes());
  EXPECT_EQ(contentsOf(notes()), first + "\n" + second + "\n");
}

TEST_F(EveryKindTest, MailAttachesTheFileByTheMailProgramsOwnOption) {
  addApplication("thunderbird", "MimeType=x-scheme-handler/mailto;\n");
  home().file(".config/mimeapps.list",
              "[Default Applications]\nx-scheme-handler/mailto=thunderbird.desktop\n");
  const auto file = home().file("report.txt");
  choose({"mail"}, {file});
  ASSERT_TRUE(waitForNotes());
  EXPECT_THAT(contentsOf(notes()), StartsWith("-compose\n"));
  EXPECT_THAT(contentsOf(notes()), HasSubstr("attachment="));
  EXPECT_THAT(contentsOf(notes()), HasSubstr("file://" + file));
}

TEST_F(EveryKindTest, MailWithoutAMailProgramIsTold) {
  choose({"mail"}, {home().file("report.txt")});
  EXPECT_TRUE(waitForText("There is no mail program"));
}

TEST_F(EveryKindTest, NewFileStandsBesideTheSelectedOne) {
  const auto file = home().file("folder/" + std::string(kOddName));
  choose({"new-file", "--template", "Markdown Document.md", "--name", "Notes"}, {file});
  const std::string made = home().path() + "/folder/Notes.md";
  ASSERT_TRUE(waitForFile(made));
  EXPECT_TRUE(waitUntil([this] { return !desktop_.revealed().empty(); }, kSeconds));
  EXPECT_EQ(desktop_.revealed().front(), "(['file://" + made + "'], '')");
}

TEST_F(EveryKindTest, ConvertMakesAPictureOfTheOtherFormat) {
  const std::string picture = home().path() + "/photo.png";
  ProgramStart draw;
  draw.path = "/usr/bin/rsvg-convert";
  draw.arguments = {"--width=64", "--height=64", "--output=" + picture,
                    std::string(TERVANO_SOURCE) + "/resources/icons/icon-image.svg"};
  ASSERT_EQ(runProgram(draw).status, 0);
  choose({"convert", "--format", "jpeg"}, {picture});
  const std::string made = home().path() + "/photo.jpg";
  ASSERT_TRUE(waitForText("Finished converting 'photo.jpg'"));
  EXPECT_THAT(contentsOf(made), StartsWith("\xff\xd8\xff"));
  EXPECT_TRUE(exists(picture));
  EXPECT_TRUE(waitUntil([this] { return !desktop_.revealed().empty(); }, kSeconds));
}

TEST_F(EveryKindTest, AShellScriptGetsThePathsAsItsArguments) {
  const auto script = home().file("my script.sh", "printf '%s\\n' \"$@\" > \"" + notes() + "\"\n");
  const auto file = home().file(kOddName);
  choose({"script", "--file", script}, {file});
  ASSERT_TRUE(waitForNotes());
  EXPECT_TRUE(waitUntil([&] { return contentsOf(notes()) == file + "\n"; }, kSeconds));
}

TEST_F(EveryKindTest, ABundledScriptDoesItsWork) {
  const auto file = home().file(kOddName);
  choose({"bundled", "Make Executable"}, {file});
  EXPECT_TRUE(waitUntil(
      [&] {
        struct stat status {};
        return stat(file.c_str(), &status) == 0 && (status.st_mode & S_IXUSR) != 0;
      },
      kSeconds));
}

TEST_F(EveryKindTest, AUserScriptIsCalledWithTheListOfPaths) {
  const auto script =
      home().file("tell.py", "def runWithPaths(paths):\n    with open('" + notes() +
                                 "', 'w') as notes:\n        notes.write(repr(paths))\n");
  const auto file = home().file("plain.txt");
  choose({"user-script", "--file", script}, {file});
  ASSERT_TRUE(waitForNotes());
  EXPECT_TRUE(waitUntil([&] { return contentsOf(notes()) == "['" + file + "']"; }, kSeconds));
}

TEST_F(EveryKindTest, AUserScriptsOwnErrorIsTold) {
  const auto script =
      home().file("fail.py", "def runWithPaths(paths):\n    raise ValueError('no such colour')\n");
  choose({"user-script", "--file", script}, {home().file("plain.txt")});
  EXPECT_TRUE(waitForText("no such colour"));
}

TEST_F(EveryKindTest, SecureDeleteAsksAndThenRemoves) {
  const auto file = home().file(kOddName);
  choose({"secure-delete"}, {file});
  focusWindow();
  EXPECT_TRUE(exists(file)) << "nothing happens before the answer";
  typeKeys({"Tab", "Return"});
  EXPECT_TRUE(waitForText("Successfully removed"));
  EXPECT_FALSE(exists(file));
}

TEST_F(EveryKindTest, ResetRemovesTheApplicationsPreferences) {
  const auto entry = addApplication("org.example.Viewer");
  const auto preferences =
      home().file(".config/tervano/org.example.Viewer.plist",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                  "<key>zoom</key><integer>3</integer></dict></plist>\n");
  choose({"reset-app"}, {entry});
  EXPECT_TRUE(waitForText("Preferences for org.example.Viewer.desktop have been reset."));
  EXPECT_FALSE(exists(preferences));
}

TEST_F(EveryKindTest, OpenFolderShowsTheFolderInANewWindow) {
  const auto folder = home().folder("Music & more");
  choose({"open-folder", "--to", folder}, {home().file("plain.txt")});
  EXPECT_TRUE(waitUntil([this] { return !desktop_.opened().empty(); }, kSeconds));
  ASSERT_FALSE(desktop_.opened().empty());
  EXPECT_THAT(desktop_.opened().front(), HasSubstr("Music%20%26%20more"));
}

TEST_F(EveryKindTest, CopyLeavesTheFileAndShowsItsCopy) {
  const auto file = home().file(kOddName, "content");
  choose({"copy", "--to", home().folder("to")}, {file});
  const std::string made = home().path() + "/to/" + kOddName;
  EXPECT_TRUE(waitForText("Finished copying"));
  EXPECT_EQ(contentsOf(made), "content");
  EXPECT_EQ(contentsOf(file), "content");
  EXPECT_TRUE(waitUntil([this] { return !desktop_.revealed().empty(); }, kSeconds));
}

TEST_F(EveryKindTest, ACopyThatFailsSaysWhy) {
  const auto folder = home().folder("outer/to");
  choose({"copy", "--to", folder}, {home().path() + "/outer"});
  EXPECT_TRUE(waitForText("a folder cannot be copied into itself"));
}

TEST_F(EveryKindTest, CompressAsksForThePasswordAndMakesTheArchive) {
  const auto file = home().file(kOddName, "content");
  choose({"compress"}, {file});
  focusWindow();
  typeKeys({"a", "b", "c", "Tab", "a", "b", "c", "Return"});
  EXPECT_TRUE(waitForText("Finished compressing"));
  const std::string archive = home().path() + "/" + kOddName + ".zip";
  ASSERT_TRUE(exists(archive));
  EXPECT_EQ(runProgram({"/usr/bin/bsdtar", {"-xO", "--passphrase", "abc", "-f", archive}}).output,
            "content");
}

TEST_F(EveryKindTest, CompressThatIsRefusedMakesNothing) {
  const auto file = home().file("plain.txt");
  choose({"compress"}, {file});
  focusWindow();
  typeKeys({"a", "Tab", "a", "Escape"});
  EXPECT_TRUE(desktop_.waitForNoCompanion()) << "the request has ended";
  EXPECT_FALSE(exists(file + ".zip"));
  EXPECT_TRUE(desktop_.notificationTexts().empty());
}

}  // namespace tervano::test
