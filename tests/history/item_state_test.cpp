#include "history/item_state.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temporary_home.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

class ItemStateTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return home_.path() + "/" + name; }
  std::string make(const std::string& name, const std::string& text = "text") const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  static ItemState stateOf(const std::string& path, ItemDepth depth = ItemDepth::withContents) {
    const auto state = itemStateAt(path, depth);
    EXPECT_TRUE(state.has_value()) << path;
    return state.value_or(ItemState());
  }

  TemporaryHome home_;
};

}  // namespace

TEST_F(ItemStateTest, AStateIsTheSameAfterItWasWrittenDown) {
  for (const auto& path : {make("file"), home_.path()}) {
    const auto state = stateOf(path);
    EXPECT_EQ(ItemState::ofText(state.text()), state);
  }
  EXPECT_EQ(ItemState::ofText(""), std::nullopt);
  EXPECT_EQ(ItemState::ofText("- 1 2"), std::nullopt);
}

TEST_F(ItemStateTest, WhatIsNotThereHasNone) {
  EXPECT_EQ(itemStateAt(at("none"), ItemDepth::itself), std::nullopt);
  EXPECT_EQ(itemStateAt(at("none/deeper"), ItemDepth::itself), std::nullopt);
}

TEST_F(ItemStateTest, ALinkIsLookedAtItself) {
  fs::create_symlink("/nonexistent", at("link"));
  EXPECT_EQ(stateOf(at("link")).type, 'l');
}

TEST_F(ItemStateTest, ARenamedFileIsTheSame) {
  const auto then = stateOf(make("a"));
  fs::rename(at("a"), at("b"));
  EXPECT_TRUE(isSameItem(then, stateOf(at("b")), ItemDepth::itself));
}

TEST_F(ItemStateTest, AChangedFileIsNot) {
  const auto then = stateOf(make("a", "one"));
  make("a", "three");
  EXPECT_FALSE(isSameItem(then, stateOf(at("a")), ItemDepth::itself));
}

TEST_F(ItemStateTest, AnotherFileOfThatNameAndTimeIsNot) {
  const auto then = stateOf(make("a"));
  const auto time = fs::last_write_time(at("a"));
  fs::rename(at("a"), at("kept"));
  make("a");
  fs::last_write_time(at("a"), time);
  EXPECT_FALSE(isSameItem(then, stateOf(at("a")), ItemDepth::itself));
  EXPECT_TRUE(isSameContent(then, stateOf(at("a"))));
}

TEST_F(ItemStateTest, AFolderIsTheSameWhateverLiesInItUnlessThatIsLookedAt) {
  make("folder/sub/file");
  const auto itself = stateOf(at("folder"), ItemDepth::itself);
  const auto all = stateOf(at("folder"));
  EXPECT_EQ(all.count, 2U);
  EXPECT_EQ(all.size, 4U);
  EXPECT_TRUE(isSameItem(all, stateOf(at("folder")), ItemDepth::withContents));
  const auto time = fs::last_write_time(at("folder/sub/file"));
  make("folder/sub/file", "longer");
  fs::last_write_time(at("folder/sub/file"), time);
  EXPECT_TRUE(isSameItem(itself, stateOf(at("folder"), ItemDepth::itself), ItemDepth::itself));
  EXPECT_FALSE(isSameItem(all, stateOf(at("folder")), ItemDepth::withContents));
}

TEST_F(ItemStateTest, AFileOfTheSameSizeThatWasWrittenAgainBelowAFolderIsSeen) {
  make("folder/file", "one");
  fs::last_write_time(at("folder/file"), fs::file_time_type::clock::now() - std::chrono::hours(1));
  fs::last_write_time(at("folder"), fs::file_time_type::clock::now() - std::chrono::hours(1));
  const auto then = stateOf(at("folder"));
  std::ofstream(at("folder/file")) << "two";
  EXPECT_FALSE(isSameItem(then, stateOf(at("folder")), ItemDepth::withContents));
}

}  // namespace tervano::test
