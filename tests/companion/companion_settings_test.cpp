#include "companion/companion_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "companion/action_store.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

namespace {

class CompanionSettingsTest : public testing::Test {
 protected:
  void write(const std::string& text) {
    std::filesystem::create_directories(platform_.home().configHome() + "/tervano");
    std::ofstream(file_) << text;
  }

  ScopedPlatform platform_;
  std::string file_ = platform_.home().configHome() + "/tervano/companion.conf";
};

}  // namespace

TEST_F(CompanionSettingsTest, WithoutAFileThereAreNone) {
  EXPECT_TRUE(companionSettings("queue").empty());
  EXPECT_EQ(queueLimitOf("UID"), 0U);
}

TEST_F(CompanionSettingsTest, WhatIsSetIsThereAndCanBeRemoved) {
  setCompanionSetting("queue", "A", "1");
  setCompanionSetting("other", "A", "2");
  setCompanionSetting("queue", "B", "3");
  setCompanionSetting("queue", "A", "4");
  EXPECT_EQ(contentsOf(file_), "[queue]\nB = 3\nA = 4\n[other]\nA = 2\n");
  setCompanionSetting("queue", "A", std::nullopt);
  EXPECT_EQ(companionSettings("queue"), (std::map<std::string, std::string>{{"B", "3"}}));
  struct stat status {};
  ASSERT_EQ(stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(CompanionSettingsTest, WhatItDoesNotKnowStays) {
  write("# mine\n[future]\nkey=value\n\n[queue]\n  A =  one  \nnonsense\n");
  EXPECT_EQ(queueLimitOf("A"), 1U);
  setCompanionSetting("queue", "B", "2");
  EXPECT_EQ(contentsOf(file_),
            "# mine\n[future]\nkey=value\n\n[queue]\n  A =  one  \nnonsense\nB = 2\n");
}

TEST_F(CompanionSettingsTest, AWordThatIsNoLimitHoldsNothingBack) {
  write("[queue]\nA = many\nB = 0\nC = 100\nD = -1\nE = 99\nF =\n");
  for (const std::string uid : {"A", "B", "C", "D", "F", "G", ""}) EXPECT_EQ(queueLimitOf(uid), 0U);
  EXPECT_EQ(queueLimitOf("E"), 99U);
}

TEST_F(CompanionSettingsTest, AFileThatCannotBeReadIsNotReplaced) {
  std::filesystem::create_directories(file_);
  EXPECT_THROW(setCompanionSetting("queue", "A", "1"), CommandError);
  EXPECT_TRUE(std::filesystem::is_directory(file_));
}

}  // namespace tervano::test
