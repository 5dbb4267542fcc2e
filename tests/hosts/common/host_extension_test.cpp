#include "hosts/common/host_extension.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "actions/register_action_classes.h"
#include "hosts/common/kept_defaults.h"
#include "model/tv_action_groups.h"
#include "platform/bundle.h"
#include "store/tv_actions_manager.h"
#include "tests/support/recording_services.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

// Counts what is asked of the stores of preferences and of the bundle; both are the real ones.
class DiskWatch {
 public:
  explicit DiskWatch(Platform& services)
      : stores_(*services.defaultsStores, lookUps_), bundle_(*services.bundle, lookUps_) {
    services.defaultsStores = &stores_;
    services.bundle = &bundle_;
  }
  int lookUps() const { return lookUps_; }
  void forget() { lookUps_ = 0; }

 private:
  class Store : public KeptDefaults {
   public:
    Store(std::shared_ptr<DefaultsStore> real, int& lookUps)
        : KeptDefaults(real), watched_(std::move(real)), lookUps_(lookUps) {}
    Value objectForKey(const std::string& key) const override {
      ++lookUps_;
      return watched_->objectForKey(key);
    }

   private:
    const std::shared_ptr<DefaultsStore> watched_;
    int& lookUps_;
  };
  class Stores : public ForwardingDefaultsStores {
   public:
    Stores(DefaultsStores& real, int& lookUps)
        : ForwardingDefaultsStores(real), lookUps_(lookUps) {}
    std::shared_ptr<DefaultsStore> initWithSuiteName(const std::string& suiteName) override {
      return std::make_shared<Store>(ForwardingDefaultsStores::initWithSuiteName(suiteName),
                                     lookUps_);
    }

   private:
    int& lookUps_;
  };
  class WatchedBundle : public ForwardingBundle {
   public:
    WatchedBundle(Bundle& real, int& lookUps) : ForwardingBundle(real), lookUps_(lookUps) {}
    std::optional<std::string> pathForImageNamed(const std::string& name) const override {
      ++lookUps_;
      return ForwardingBundle::pathForImageNamed(name);
    }

   private:
    int& lookUps_;
  };

  int lookUps_ = 0;
  Stores stores_;
  WatchedBundle bundle_;
};

class HostExtensionTest : public testing::Test {
 protected:
  HostExtensionTest() : platform_(&registry_), workspace_(*platform_.services().workspace) {
    registerActionClasses(registry_);
    platform_.services().workspace = &workspace_;
  }
  void TearDown() override {
    // What was posted for it.
    runPendingMainItems();
  }

  static std::shared_ptr<TVAction> titled(const std::string& title) {
    auto action = tervano::action<TVAction>();
    action->setTitle(title);
    return action;
  }
  // As another process does it.
  static void saveList(ActionList actions) {
    const auto manager = TVActionsManager::create();
    manager->setWorkingActionsArray(std::move(actions));
    manager->actuallySave();
  }
  static std::string titlesOf(const Menu& menu) {
    std::string titles;
    for (const auto& item : menu.items) {
      titles += titles.empty() ? "" : ",";
      titles += (item.enabled ? "" : "-") + item.title;
      if (item.submenu != nullptr) titles += "[" + titlesOf(*item.submenu) + "]";
    }
    return titles;
  }
  static SelectedItem local(const std::string& path, bool isDirectory = false) {
    return {Url::fileURLWithPath(path, isDirectory), isDirectory};
  }

  ClassRegistry registry_;
  ScopedPlatform platform_;
  RecordingWorkspace workspace_;
};

TEST_F(HostExtensionTest, ChangesOfTheListAndOfPreferencesAreToldWhenTheMenuHasThem) {
  HostExtension extension(HostExtension::Icons::none);
  std::vector<std::string> told;
  extension.observeChanges(
      [&] { told.push_back(titlesOf(extension.menuForItems({local("/a.txt")}))); });
  saveList({titled("One")});
  ASSERT_TRUE(waitUntil([&] { return !told.empty(); }));
  EXPECT_EQ(told, std::vector<std::string>{"Tervano[One]"});
  TVUserDefaults::create()->setUseSubmenu(false);
  ASSERT_TRUE(waitUntil([&] { return told.size() > 1; }));
  EXPECT_EQ(told.back(), "One");
}

TEST_F(HostExtensionTest, MenusLookForNoPreferenceAndNoImageOnTheDisk) {
  saveList({titled("One")});
  DiskWatch watch(platform_.services());
  const HostExtension extension(HostExtension::Icons::files);
  EXPECT_GT(watch.lookUps(), 0);
  watch.forget();
  for (int request = 0; request < 3; ++request) {
    const Menu menu = extension.menuForItems({local("/a.txt")});
    ASSERT_EQ(titlesOf(menu), "Tervano[One]");
    EXPECT_TRUE(exists(extension.iconPathOf(menu.items.at(0).image)));
    extension.menuForFolder(local("/folder", true));
    extension.toolbarMenu({local("/a.txt")});
    EXPECT_TRUE(extension.showsToolbarItem());
    EXPECT_TRUE(exists(extension.iconPathOf(extension.toolbarImage())));
  }
  EXPECT_EQ(watch.lookUps(), 0);
  const auto preferences = TVUserDefaults::create();
  preferences->setUseSubmenu(false);
  preferences->setShowIconInToolbar(false);
  preferences->setUseBlackAndWhiteIcon(true);
  ASSERT_TRUE(
      waitUntil([&] { return titlesOf(extension.menuForItems({local("/a.txt")})) == "One"; }));
  ASSERT_TRUE(waitUntil([&] { return !extension.showsToolbarItem(); }));
  ASSERT_TRUE(
      waitUntil([&] { return extension.toolbarImage()->name() == "icon-tervano-symbolic"; }));
  runPendingMainItems();
  watch.forget();
  EXPECT_EQ(titlesOf(extension.menuForItems({local("/a.txt")})), "One");
  EXPECT_TRUE(exists(extension.iconPathOf(extension.toolbarImage())));
  EXPECT_EQ(watch.lookUps(), 0);
}

TEST_F(HostExtensionTest, IconsThatAreReadyAreTold) {
  auto action = titled("One");
  action->setIcon(Image::imageWithBitmap(Bitmap::blank(4, 4), {4, 4}));
  saveList({action});
  HostExtension extension(HostExtension::Icons::files);
  const auto iconPath = [&] {
    return extension.iconPathOf(
        extension.menuForItems({local("/a.txt")}).items.at(0).submenu->items.at(0).image);
  };
  bool isTold = false;
  extension.observeChanges([&] { isTold = true; });
  EXPECT_EQ(iconPath(), "");
  ASSERT_TRUE(waitUntil([&] { return isTold; }));
  EXPECT_TRUE(exists(iconPath()));
}

TEST_F(HostExtensionTest, AnObserverThatThrowsHarmsNoOther) {
  HostExtension extension(HostExtension::Icons::none);
  bool isTold = false;
  extension.observeChanges([] { throw std::runtime_error("the first"); });
  extension.observeChanges([&] { isTold = true; });
  saveList({titled("One")});
  EXPECT_TRUE(waitUntil([&] { return isTold; }));
}

TEST_F(HostExtensionTest, ThereAreNoIconsWhereNoneAreDrawn) {
  const HostExtension extension(HostExtension::Icons::none);
  EXPECT_EQ(extension.iconPathOf(extension.finderSync().toolbarItemImage()), "");
}

TEST_F(HostExtensionTest, TheToolbarButtonIsShownAsThePreferenceSaysAndItsMenuNeverAsks) {
  saveList({titled("One")});
  const HostExtension extension(HostExtension::Icons::none);
  for (const bool isWanted : {false, true}) {
    TVUserDefaults::create()->setShowIconInToolbar(isWanted);
    EXPECT_TRUE(waitUntil([&] { return extension.showsToolbarItem() == isWanted; }));
    EXPECT_EQ(titlesOf(extension.toolbarMenu({local("/a.txt")})), "One");
    EXPECT_EQ(titlesOf(extension.menuForItems({local("/a.txt")})), "Tervano[One]");
  }
}

TEST_F(HostExtensionTest, AnEmptyToolbarMenuSaysSo) {
  const HostExtension extension(HostExtension::Icons::none);
  EXPECT_EQ(titlesOf(extension.toolbarMenu({local("/folder", true)})), "-No Actions Enabled");
}

TEST_F(HostExtensionTest, AnEmptyWrapperStaysInThePlainMenu) {
  const HostExtension extension(HostExtension::Icons::none);
  EXPECT_EQ(titlesOf(extension.menuForItems({local("/a.txt")})), "Tervano[]");
}

TEST_F(HostExtensionTest, AChoiceHandsOverTheSelectionOfItsMenu) {
  TVUserDefaults::create()->setUseSubmenu(false);
  saveList({titled("One")});
  const HostExtension extension(HostExtension::Icons::none);
  const Menu first = extension.menuForItems({local("/a.txt"), local("/b.txt")});
  const Menu second = extension.menuForFolder(local("/folder", true));
  const std::string container = platform_.home().dataHome() + "/Q4T7N2XR8K.com.vessok.tervano/";
  for (const auto& [menu, paths] : {std::pair{&first, std::vector<std::string>{"/a.txt", "/b.txt"}},
                                    std::pair{&second, std::vector<std::string>{"/folder"}}}) {
    extension.choose(menu->items.at(0));
    const std::string url = workspace_.opened().back().absoluteString();
    const auto json = nlohmann::json::parse(contentsOf(container + url.substr(url.rfind('=') + 1)));
    EXPECT_EQ(json.at("paths").get<std::vector<std::string>>(), paths);
  }
  EXPECT_EQ(workspace_.opened().size(), 2u);
}

TEST_F(HostExtensionTest, ChoosingWhatIsDisabledOrHasNoActionDoesNothing) {
  const HostExtension extension(HostExtension::Icons::none);
  MenuItem item = extension.toolbarMenu({}).items.at(0);
  extension.choose(item);
  item.action = "tv_0123456789ABCDEF0123456789ABCDEF";
  extension.choose(item);
  item.action.reset();
  item.enabled = true;
  extension.choose(item);
  EXPECT_TRUE(workspace_.opened().empty());
}

TEST_F(HostExtensionTest, ADeletedContainerIsFollowedWhenItIsThereAgain) {
  saveList({titled("One")});
  const HostExtension extension(HostExtension::Icons::none);
  std::filesystem::remove_all(platform_.home().dataHome() + "/Q4T7N2XR8K.com.vessok.tervano");
  extension.menuForItems({local("/a.txt")});
  saveList({titled("Two")});
  EXPECT_TRUE(waitUntil(
      [&] { return titlesOf(extension.menuForItems({local("/a.txt")})) == "Tervano[Two]"; }));
}

TEST_F(HostExtensionTest, VolumesAreWatchedWhileTheyAreMounted) {
  ProgramStart start;
  start.path = TERVANO_MOUNT_PEER;
  const std::string volume = platform_.home().path() + "/volume";
  std::filesystem::create_directory(volume);
  start.arguments = {volume};
  const auto outcome = runProgram(start);
  EXPECT_EQ(outcome.output, "not watched\nwatched\nnot watched\n") << outcome.errors;
  EXPECT_EQ(outcome.status, 0);
}

}  // namespace tervano::test
