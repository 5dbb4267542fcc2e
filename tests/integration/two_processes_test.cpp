#include <gtest/gtest.h>

#include "actions/register_action_classes.h"
#include "extension/finder_sync.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

class OneFile : public FIFinderSyncController {
 public:
  SelectedItemsPtr selectedItemURLs() const override {
    return std::make_shared<const SelectedItems>(
        SelectedItems{{Url::fileURLWithPath("/a.txt"), false}});
  }
  std::optional<SelectedItem> targetedURL() const override { return std::nullopt; }
  void setDirectoryURLs(const UrlSet& /*urls*/) override {}
};

// The extension in this process, the command line in another.
class TwoProcessesTest : public testing::Test {
 protected:
  std::string titles() const {
    std::string text;
    for (const auto& item : finderSync_->menuForMenuKind(MenuKind::contextualMenuForItems).items) {
      text += (text.empty() ? "" : " ") + item.title;
    }
    return text;
  }

  ClassRegistry registry_ = [] {
    ClassRegistry registry;
    registerActionClasses(registry);
    return registry;
  }();
  ScopedPlatform platform_{&registry_};
  ProgramHome home_;
  std::shared_ptr<FinderSync> finderSync_ = FinderSync::create(std::make_shared<OneFile>());
};

}  // namespace

TEST_F(TwoProcessesTest, PreferenceSetByTheCommandLineIsSeenInTheNextMenu) {
  EXPECT_EQ(titles(), "Tervano");
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  EXPECT_TRUE(waitUntil([&] { return titles().empty(); }));
  home_.succeed({"prefs", "set", "useSubmenu", "yes"});
  EXPECT_TRUE(waitUntil([&] { return titles() == "Tervano"; }));
}

TEST_F(TwoProcessesTest, ActionAddedByTheCommandLineIsSeenInTheNextMenu) {
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  home_.succeed({"add", "move", "--title", "A"});
  EXPECT_TRUE(waitUntil([&] { return titles() == "A"; }));
  home_.succeed({"add", "move", "--title", "B"});
  EXPECT_TRUE(waitUntil([&] { return titles() == "A B"; }));
}

TEST_F(TwoProcessesTest, ARecentFolderIsSeenInTheNextMenu) {
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  home_.succeed({"add", "group-move", "--title", "Moves"});
  home_.succeed({"recent", "on"});
  EXPECT_EQ(titles(), "");
  EXPECT_EQ(home_.tervano({"move", "--to", home_.folder("to"), home_.file("a")}).status, 0);
  EXPECT_TRUE(waitUntil([&] { return titles() == "Moves"; }));
}

TEST_F(TwoProcessesTest, EveryOtherChangeOfTheListIsSeenToo) {
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  const auto a = home_.succeed({"add", "move", "--title", "A"});
  const auto b = home_.succeed({"add", "move", "--title", "B"});
  EXPECT_TRUE(waitUntil([&] { return titles() == "A B"; }));
  home_.succeed({"reorder", a, "--last"});
  EXPECT_TRUE(waitUntil([&] { return titles() == "B A"; }));
  home_.succeed({"set", a, "--title", "C"});
  EXPECT_TRUE(waitUntil([&] { return titles() == "B C"; }));
  home_.succeed({"disable", b});
  EXPECT_TRUE(waitUntil([&] { return titles() == "C"; }));
  home_.succeed({"enable", b});
  EXPECT_TRUE(waitUntil([&] { return titles() == "B C"; }));
  home_.succeed({"remove", a});
  EXPECT_TRUE(waitUntil([&] { return titles() == "B"; }));
}

}  // namespace tervano::test
