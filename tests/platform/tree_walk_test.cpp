#include "platform/linux/tree_walk.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

#include "platform/linux/descriptor.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

// Notes what it meets, each with a sign before its path.
class Notes : public TreeVisitor {
 public:
  bool enterFolder(int folder, const std::string& path) override {
    highestDescriptor = std::max(highestDescriptor, folder);
    return note("> " + path);
  }
  bool visitItem(const TreeItem& item) override { return note("- " + item.path()); }
  bool leaveFolder(const TreeItem& item) override { return note("< " + item.path()); }
  bool visitMount(const TreeItem& item) override { return note("m " + item.path()); }
  bool fail(const TreeItem& item, int code) override {
    return note(std::to_string(code) + " " + item.path());
  }

  std::vector<std::string> lines;
  int highestDescriptor = -1;
  // Asked after each line whether to go on.
  std::function<bool(const std::string& line)> goesOn;

 private:
  bool note(const std::string& line) {
    lines.push_back(line);
    return !goesOn || goesOn(line);
  }
};

class TreeWalkTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return home_.path() + "/" + name; }
  void make(const std::string& name) const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name)) << "text";
  }
  void walk(const std::string& name = "tree") { walkTree(parent_.get(), name, "TOP", notes_); }

  TemporaryHome home_;
  const Descriptor parent_{open(home_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
  Notes notes_;
};

TEST_F(TreeWalkTest, ItemsComeBeforeSubfoldersAndAFolderIsLeftLast) {
  make("tree/a/b/file");
  make("tree/file");
  walk();
  EXPECT_THAT(notes_.lines, ElementsAre("> TOP", "- TOP/file", "> TOP/a", "> TOP/a/b",
                                        "- TOP/a/b/file", "< TOP/a/b", "< TOP/a", "< TOP"));
}

TEST_F(TreeWalkTest, AnItemAloneIsVisited) {
  make("tree");
  walk();
  EXPECT_THAT(notes_.lines, ElementsAre("- TOP"));
}

TEST_F(TreeWalkTest, WhatIsNotThereIsAFailure) {
  walk();
  EXPECT_THAT(notes_.lines, ElementsAre("2 TOP"));
}

TEST_F(TreeWalkTest, LinksToFoldersAreItems) {
  make("elsewhere/file");
  fs::create_directory(at("tree"));
  fs::create_directory_symlink(at("elsewhere"), at("tree/link"));
  walk();
  EXPECT_THAT(notes_.lines, ElementsAre("> TOP", "- TOP/link", "< TOP"));
}

TEST_F(TreeWalkTest, AVisitorThatHasEnoughEndsTheWalk) {
  make("tree/a/file");
  notes_.goesOn = [](const std::string& line) { return line != "- TOP/a/file"; };
  walk();
  EXPECT_EQ(notes_.lines.back(), "- TOP/a/file");
}

TEST_F(TreeWalkTest, WhatIsRemovedMeanwhileIsPassedOver) {
  make("tree/a/file");
  make("tree/b/file");
  notes_.goesOn = [&](const std::string& line) {
    if (line == "> TOP") {
      fs::remove_all(at("tree/a"));
      fs::remove_all(at("tree/b"));
    }
    return true;
  };
  walk();
  EXPECT_THAT(notes_.lines, ElementsAre("> TOP", "< TOP"));
}

TEST_F(TreeWalkTest, AFolderThatBecomesALinkIsAFailureAndTheWalkGoesOn) {
  make("tree/a/file");
  make("elsewhere/secret");
  make("tree/other");
  notes_.goesOn = [&](const std::string& line) {
    if (line == "- TOP/other") {
      fs::rename(at("tree/a"), at("moved"));
      fs::create_directory_symlink(at("elsewhere"), at("tree/a"));
    }
    return true;
  };
  walk();
  ASSERT_EQ(notes_.lines.size(), 4u);
  EXPECT_THAT(notes_.lines[2], HasSubstr(" TOP/a"));
  EXPECT_EQ(notes_.lines[3], "< TOP");
}

TEST_F(TreeWalkTest, ADeepFolderThatIsMovedAwayEndsTheWalkWhereItIs) {
  std::string deep = "tree";
  for (int level = 0; level < 40; ++level) deep += "/d";
  make(deep + "/file");
  make("elsewhere/secret");
  notes_.goesOn = [&](const std::string& line) {
    if (line.ends_with("/file")) fs::rename(at("tree/d/d"), at("elsewhere/d"));
    return true;
  };
  walk();
  EXPECT_EQ(notes_.lines.back(), std::to_string(ESTALE) + " TOP/d/d");
  for (const auto& line : notes_.lines) EXPECT_EQ(line.find("secret"), std::string::npos);
}

TEST_F(TreeWalkTest, AnyDepthIsWalkedWithFewDescriptors) {
  constexpr int kLevels = 300;
  ASSERT_EQ(mkdirat(parent_.get(), "tree", 0700), 0);
  Descriptor folder(openat(parent_.get(), "tree", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int level = 0; level < kLevels; ++level) {
    const std::string name(200, 'd');
    ASSERT_EQ(mkdirat(folder.get(), name.c_str(), 0700), 0);
    folder.reset(openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  walk();
  EXPECT_EQ(notes_.lines.size(), 2u * (kLevels + 1));
  EXPECT_EQ(notes_.lines[kLevels].size(), 5u + 201 * kLevels);
  EXPECT_EQ(notes_.lines.back(), "< TOP");
  EXPECT_LT(notes_.highestDescriptor, folder.get() + 32);
}

}  // namespace
}  // namespace tervano::test
