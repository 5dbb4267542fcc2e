#include "hosts/common/icon_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "actions/register_action_classes.h"
#include "model/tv_action_groups.h"
#include "platform/file_manager.h"
#include "platform/image_codec.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace fs = std::filesystem;

// The real one; knows who draws, and may refuse.
class WatchedIconCodec : public ForwardingImageCodec {
 public:
  using ForwardingImageCodec::ForwardingImageCodec;
  mutable std::atomic<int> drawn = 0;
  mutable std::atomic<bool> drewOnMainThread = false;
  bool refuses = false;

  Data PNGRepresentation(const Bitmap& bitmap) const override {
    ++drawn;
    if (std::this_thread::get_id() == main_) drewOnMainThread = true;
    return refuses ? Data() : ForwardingImageCodec::PNGRepresentation(bitmap);
  }

 private:
  const std::thread::id main_ = std::this_thread::get_id();
};

class FillingDisk : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  std::atomic<bool> isFull = false;

  std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                       bool atomically) override {
    if (isFull) return posixError(ENOSPC, path);
    return ForwardingFileManager::writeDataToFile(data, path, atomically);
  }
};

class IconFilesTest : public testing::Test {
 protected:
  IconFilesTest()
      : platform_(&registry_),
        codec_(*platform_.services().imageCodec),
        files_(*platform_.services().fileManager) {
    registerActionClasses(registry_);
    platform_.services().imageCodec = &codec_;
    platform_.services().fileManager = &files_;
  }
  void TearDown() override {
    // Its thread uses what the test owns.
    icons_ = nullptr;
    EXPECT_TRUE(waitUntil([&] { return platform_.runLoop().activeQueueThreads() == 0; }));
    runPendingMainItems();
  }

  static ImagePtr picture(std::uint8_t shade) {
    Bitmap bitmap = Bitmap::blank(2, 2);
    for (auto& byte : bitmap.pixels) byte = shade;
    return Image::imageWithBitmap(bitmap, {2, 2});
  }
  static std::shared_ptr<TVAction> actionWith(const ImagePtr& icon) {
    auto action = tervano::action<TVAction>();
    action->setIcon(icon);
    return action;
  }
  // Prepares the list and waits until that is done.
  void prepare(const std::optional<ActionList>& actions) {
    const int before = changes_;
    icons_->prepare(actions);
    ASSERT_TRUE(waitUntil([&] { return changes_ > before; }));
  }
  std::string pathOf(const std::shared_ptr<TVAction>& action) const {
    return icons_->pathOf(action->icon());
  }
  std::string folder() const { return platform_.home().runtimeFolder() + "/tervano/icons"; }
  static void makeOld(const std::string& path) {
    const auto twoDays = std::chrono::hours(48);
    fs::last_write_time(path, fs::file_time_type::clock::now() - twoDays);
  }

  ClassRegistry registry_;
  ScopedPlatform platform_;
  WatchedIconCodec codec_;
  FillingDisk files_;
  int changes_ = 0;
  std::shared_ptr<IconFiles> icons_ = std::make_shared<IconFiles>([this] { ++changes_; });
};

TEST_F(IconFilesTest, AnApplicationImageIsTheFileOfItsDrawing) {
  const std::string path = icons_->pathOf(Image::imageNamed("icon-move"));
  EXPECT_EQ(fs::path(path).filename(), "icon-move.svg");
  EXPECT_TRUE(exists(path));
  const auto action = actionWith(Image::imageNamed("icon-move"));
  EXPECT_EQ(pathOf(action), path);
}

TEST_F(IconFilesTest, NoImageAndAnUnknownNameHaveNoFile) {
  EXPECT_EQ(icons_->pathOf(nullptr), "");
  EXPECT_EQ(icons_->pathOf(Image::imageNamed("no-such-icon")), "");
  EXPECT_EQ(icons_->pathOf(picture(1)), "");
}

TEST_F(IconFilesTest, AnyOtherIconIsDrawnIntoAPrivateFolderOffTheMainThread) {
  const auto action = actionWith(picture(200));
  icons_->prepare(ActionList{action});
  EXPECT_EQ(pathOf(action), "");
  ASSERT_TRUE(waitUntil([&] { return changes_ == 1; }));
  const std::string path = pathOf(action);
  EXPECT_EQ(fs::path(path).parent_path(), folder());
  struct stat status {};
  ASSERT_EQ(stat(folder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
  const std::string content = contentsOf(path);
  const Data data(content.begin(), content.end());
  EXPECT_TRUE(content.starts_with("\x89PNG"));
  EXPECT_EQ(platform_.services().imageCodec->pixelSize(data), std::pair(32, 32));
  EXPECT_EQ(codec_.drawn, 1);
  EXPECT_FALSE(codec_.drewOnMainThread);
}

TEST_F(IconFilesTest, MembersOfGroupsHaveTheirFiles) {
  const auto member = actionWith(picture(10));
  const auto group = tervano::action<TVMoveActionGroup>();
  group->setIcon(picture(20));
  group->updateActions(ActionList{member});
  prepare(ActionList{group});
  EXPECT_TRUE(exists(pathOf(member)));
  EXPECT_TRUE(exists(pathOf(group)));
  EXPECT_NE(pathOf(member), pathOf(group));
}

TEST_F(IconFilesTest, EqualPicturesShareOneFileThatIsDrawnOnce) {
  const auto first = actionWith(picture(10));
  const auto second = actionWith(picture(10));
  prepare(ActionList{first, second});
  EXPECT_EQ(pathOf(first), pathOf(second));
  // Another file manager's process.
  IconFiles* const others = new IconFiles([this] { ++changes_; });
  icons_.reset(others);
  prepare(ActionList{second});
  EXPECT_TRUE(exists(pathOf(second)));
  EXPECT_EQ(codec_.drawn, 1);
}

TEST_F(IconFilesTest, AnotherListForgetsTheFormerOnesIcons) {
  const auto former = actionWith(picture(10));
  const auto current = actionWith(picture(20));
  // The result for the first list comes too late.
  icons_->prepare(ActionList{former});
  prepare(ActionList{current});
  EXPECT_EQ(changes_, 1);
  EXPECT_EQ(pathOf(former), "");
  EXPECT_TRUE(exists(pathOf(current)));
  icons_->prepare(std::nullopt);
  EXPECT_EQ(pathOf(current), "");
}

TEST_F(IconFilesTest, PicturesThatNobodyNeededForADayAreRemoved) {
  const auto kept = actionWith(picture(10));
  prepare(ActionList{kept, actionWith(picture(20))});
  const std::string keptPath = pathOf(kept);
  for (const auto& file : fs::directory_iterator(folder())) makeOld(file.path());
  std::ofstream(folder() + "/fresh.png") << "of another process";
  fs::create_directory(folder() + "/folder");
  makeOld(folder() + "/folder");
  prepare(ActionList{kept});
  std::set<std::string> names;
  for (const auto& file : fs::directory_iterator(folder())) names.insert(file.path().filename());
  EXPECT_EQ(names, (std::set<std::string>{fs::path(keptPath).filename(), "folder", "fresh.png"}));
  // It is needed today, so tomorrow's look keeps it.
  EXPECT_LT(fs::file_time_type::clock::now() - fs::last_write_time(keptPath),
            std::chrono::hours(1));
}

TEST_F(IconFilesTest, AFillingDiskGivesNoIconAndTheNextListTriesAgain) {
  const auto action = actionWith(picture(10));
  files_.isFull = true;
  prepare(ActionList{action});
  EXPECT_EQ(pathOf(action), "");
  files_.isFull = false;
  prepare(ActionList{action});
  EXPECT_TRUE(exists(pathOf(action)));
}

TEST_F(IconFilesTest, WhatCannotBeDrawnHasNoFile) {
  codec_.refuses = true;
  const auto action = actionWith(picture(10));
  prepare(ActionList{action});
  EXPECT_EQ(pathOf(action), "");
  EXPECT_TRUE(fs::is_empty(folder()));
}

TEST_F(IconFilesTest, ItMayEndWhileItsIconsAreDrawn) {
  icons_->prepare(ActionList{actionWith(picture(10)), actionWith(picture(20))});
  icons_ = nullptr;
  EXPECT_TRUE(waitUntil([&] { return platform_.runLoop().activeQueueThreads() == 0; }));
  runPendingMainItems();
  EXPECT_EQ(codec_.drawn, 2);
  EXPECT_EQ(changes_, 0);
}

}  // namespace tervano::test
