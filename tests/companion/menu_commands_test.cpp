#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;

// The menu of the program for a list that has every kind of entry, compared with a file of
// tests/golden/menu. Uids differ from run to run; they stand as "UID 1", "UID 2" in the order of
// the list. With TERVANO_REBASELINE set the files are written instead (tests/golden/rebaseline).
class MenuGoldenTest : public testing::Test {
 protected:
  MenuGoldenTest() {
    home_.home().setVariable("TERVANO_REBASELINE", std::nullopt);
    note(add({"move", "--title", "Anything"}));
    note(add({"move", "--title", "Pictures", "--types", "public.image"}));
    const auto group = note(add({"group-move", "--title", "Group"}));
    note(add({"move", "--title", "Member", "--into", group}));
    note(add({"move", "--title", "Member with a filter of its own", "--into", group, "--types",
              "public.image"}));
    const auto off = note(add({"move", "--title", "Member that is off", "--into", group}));
    home_.succeed({"disable", off});
    const auto pictures =
        note(add({"group-copy", "--title", "Group for text", "--types", "public.plain-text"}));
    note(add({"copy", "--title", "Copy", "--into", pictures}));
    note(add({"group-move", "--title", "Empty group"}));
    home_.succeed({"disable", note(add({"move", "--title", "Off"}))});
    home_.tervano(
        {"set", note(add({"move", "--title", "Never"})), "--types", "public.image,public.folder"});
    note(add({"move", "--title", "Folders", "--types", "public.folder"}));
    note(add({"move", "--title", "\"Quotes\" & <marks>\n工作"}));
    home_.succeed({"prefs", "set", "useSubmenu", "no"});
    picture_ = home_.file("a.png");
    text_ = home_.file("b.txt");
    folder_ = home_.folder("folder");
  }

  std::string add(std::vector<std::string> words) {
    words.insert(words.begin(), "add");
    return home_.succeed(std::move(words));
  }
  std::string note(const std::string& uid) {
    uids_.push_back(uid);
    return uid;
  }

  void expectGolden(const std::string& name, std::vector<std::string> words) {
    words.insert(words.begin(), {"menu", "--json"});
    std::string menu = home_.succeed(std::move(words)) + "\n";
    for (std::size_t i = 0; i < uids_.size(); ++i) {
      for (auto at = menu.find(uids_[i]); at != std::string::npos; at = menu.find(uids_[i])) {
        menu.replace(at, uids_[i].size(), "UID " + std::to_string(i + 1));
      }
    }
    const std::string golden = std::string(TERVANO_GOLDEN) + "/menu/" + name + ".json";
    if (rebaseline_) std::ofstream(golden, std::ios::trunc) << menu;
    ASSERT_TRUE(exists(golden)) << "run tests/golden/rebaseline";
    EXPECT_EQ(menu, contentsOf(golden));
  }

  const bool rebaseline_ = std::getenv("TERVANO_REBASELINE") != nullptr;
  ProgramHome home_;
  std::vector<std::string> uids_;
  std::string picture_;
  std::string text_;
  std::string folder_;
};

}  // namespace

TEST_F(MenuGoldenTest, OnePicture) {
  expectGolden("one_picture", {picture_});
}
TEST_F(MenuGoldenTest, OneText) {
  expectGolden("one_text", {text_});
}
TEST_F(MenuGoldenTest, PictureAndText) {
  expectGolden("picture_and_text", {picture_, text_});
}
TEST_F(MenuGoldenTest, OneFolder) {
  expectGolden("one_folder", {folder_});
}
TEST_F(MenuGoldenTest, NothingSelected) {
  expectGolden("nothing", {});
}
TEST_F(MenuGoldenTest, BackgroundOfAFolder) {
  expectGolden("container", {"--kind", "container", folder_});
}
TEST_F(MenuGoldenTest, Sidebar) {
  expectGolden("sidebar", {"--kind", "sidebar", folder_});
}
TEST_F(MenuGoldenTest, Toolbar) {
  expectGolden("toolbar", {"--kind", "toolbar", picture_});
}
TEST_F(MenuGoldenTest, InASubmenu) {
  home_.succeed({"prefs", "set", "useSubmenu", "yes"});
  expectGolden("submenu", {text_});
}
TEST_F(MenuGoldenTest, ToolbarMenuIsNeverInASubmenu) {
  home_.succeed({"prefs", "set", "useSubmenu", "yes"});
  expectGolden("toolbar", {"--kind", "toolbar", picture_});
}
TEST_F(MenuGoldenTest, EmptyListInASubmenu) {
  std::filesystem::remove(home_.listFile());
  home_.succeed({"prefs", "set", "useSubmenu", "yes"});
  expectGolden("empty_submenu", {text_});
}
TEST_F(MenuGoldenTest, EmptyList) {
  std::filesystem::remove(home_.listFile());
  expectGolden("empty", {text_});
}
TEST_F(MenuGoldenTest, ToolbarMenuOfAnEmptyList) {
  std::filesystem::remove(home_.listFile());
  expectGolden("empty_toolbar", {"--kind", "toolbar"});
}

namespace {

class MenuCommandsTest : public testing::Test {
 protected:
  MenuCommandsTest() { home_.succeed({"prefs", "set", "useSubmenu", "no"}); }

  ProgramHome home_;
};

}  // namespace

TEST_F(MenuCommandsTest, PrintedMenuIsIndented) {
  const auto group = home_.succeed({"add", "group-move", "--title", "G"});
  home_.succeed({"add", "move", "--title", "A\nB", "--into", group});
  EXPECT_EQ(home_.succeed({"menu", "--print", "/etc/hostname"}), "G >\n    A\\nB");
}

TEST_F(MenuCommandsTest, MenuWithoutATerminalIsPrinted) {
  home_.succeed({"add", "move", "--title", "A"});
  EXPECT_EQ(home_.succeed({"menu", "/etc/hostname"}), "A");
}

TEST_F(MenuCommandsTest, DisabledItemIsMarked) {
  EXPECT_EQ(home_.succeed({"menu", "--kind", "toolbar"}), "No Actions Enabled (disabled)");
}

TEST_F(MenuCommandsTest, PathsBehindTwoHyphensMayBeginWithOne) {
  home_.succeed({"add", "move", "--title", "P", "--types", "public.image"});
  home_.file("-a.png");
  ProgramStart start;
  start.arguments = {"menu", "--print", "--", "-a.png"};
  start.folder = home_.path();
  EXPECT_EQ(home_.start(start).output, "P\n");
}

TEST_F(MenuCommandsTest, NameThatIsNoTextIsTypedByItsExtension) {
  home_.succeed({"add", "move", "--title", "P", "--types", "public.image"});
  EXPECT_EQ(home_.succeed({"menu", "--print", home_.file("\xff\n.png")}), "P");
}

TEST_F(MenuCommandsTest, FolderWithAnExtensionIsTypedByIt) {
  home_.succeed({"add", "move", "--title", "P", "--types", "public.jpeg"});
  EXPECT_EQ(home_.succeed({"menu", "--print", home_.folder("Photos.jpg")}), "P");
}

TEST_F(MenuCommandsTest, MissingPathIsTypedByItsNameToo) {
  home_.succeed({"add", "move", "--title", "P", "--types", "public.image"});
  EXPECT_EQ(home_.succeed({"menu", "--print", home_.path() + "/missing.png"}), "P");
}

TEST_F(MenuCommandsTest, TenThousandPathsAreOneMenu) {
  home_.succeed({"add", "move", "--title", "P", "--types", "public.image"});
  std::vector<std::string> words = {"menu", "--print", "--"};
  for (int i = 0; i < 10000; ++i) words.push_back("/a/" + std::to_string(i) + ".png");
  EXPECT_EQ(home_.succeed(words), "P");
}

TEST_F(MenuCommandsTest, MenuMakesNoFileAndStartsNothing) {
  std::filesystem::remove_all(home_.container());
  home_.succeed({"menu", "--json", "/etc/hostname"});
  EXPECT_FALSE(exists(home_.listFile()));
}

TEST_F(MenuCommandsTest, ChoiceWithoutARegisteredProgramFailsWithASentence) {
  home_.home().setVariable("XDG_DATA_DIRS", home_.folder("none"));
  const auto uid = home_.succeed({"add", "move", "--title", "A"});
  const auto outcome = home_.tervano({"choose", uid, home_.file("a.txt")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "tervano: Nothing is registered for tervano: URLs, so the choice could not be handed "
            "over.\n");
}

TEST_F(MenuCommandsTest, NameThatIsNoTextCannotBeChosenAndIsToldInTheLog) {
  const auto uid = home_.succeed({"add", "move", "--title", "A"});
  const auto outcome = home_.tervano({"choose", uid, home_.file("\xff")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Could not convert to JSON: "));
  EXPECT_THAT(outcome.errors, HasSubstr("tervano: The choice could not be handed over.\n"));
}

}  // namespace tervano::test
