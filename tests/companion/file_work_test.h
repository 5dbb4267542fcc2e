#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "actions/register_action_classes.h"
#include "companion/file_work.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

// Work on files in a private home, with recorded log, notifications and workspace.
class FileWorkTest : public testing::Test {
 protected:
  FileWorkTest()
      : log_(*platform_.services().log),
        notifications_(*platform_.services().userNotifications),
        workspace_(*platform_.services().workspace) {
    platform_.services().log = &log_;
    platform_.services().userNotifications = &notifications_;
    platform_.services().workspace = &workspace_;
  }

  std::string at(const std::string& name) const { return platform_.home().path() + "/" + name; }
  std::string make(const std::string& name, const std::string& text = "text") const {
    std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  std::vector<std::string> namesIn(const std::string& folder) const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(at(folder))) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  // Starts the work and waits for its one end.
  static FileWorkOutcome outcomeOf(const std::function<void(FileWorkEnd)>& start) {
    std::vector<FileWorkOutcome> ends;
    start([&](const FileWorkOutcome& outcome) { ends.push_back(outcome); });
    EXPECT_TRUE(ends.empty()) << "the end comes later";
    EXPECT_TRUE(waitUntil([&] { return !ends.empty(); }, 60));
    runPendingMainItems();
    EXPECT_EQ(ends.size(), 1U);
    return ends.empty() ? FileWorkOutcome() : ends.front();
  }
  // The text of the only notification.
  std::string told() const {
    EXPECT_EQ(notifications_.delivered().size(), 1U);
    return notifications_.delivered().empty()
               ? ""
               : notifications_.delivered().front().informativeText.value_or("");
  }

  ClassRegistry registry_ = [] {
    ClassRegistry registry;
    registerActionClasses(registry);
    return registry;
  }();
  ScopedPlatform platform_{&registry_};
  RecordingLog log_;
  RecordingUserNotifications notifications_;
  RecordingWorkspace workspace_;
  WorkMonitor monitor_;
};

}  // namespace tervano::test
