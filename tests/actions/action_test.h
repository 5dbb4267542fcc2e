#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "actions/register_action_classes.h"
#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/linux/descriptor.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

// Actions on real files in a private home, with what the desktop would show kept instead.
class ActionTest : public testing::Test {
 protected:
  ActionTest()
      : platform_(&registry_),
        log_(*platform_.services().log),
        notifications_(*platform_.services().userNotifications),
        realWorkspace_(*platform_.services().workspace),
        workspace_(realWorkspace_) {
    registerActionClasses(registry_);
    platform_.services().log = &log_;
    platform_.services().userNotifications = &notifications_;
    platform_.services().workspace = &workspace_;
  }

  const std::string& home() { return platform_.home().path(); }
  std::string makeFolder(const std::string& name) {
    const std::string path = home() + "/" + name;
    std::filesystem::create_directories(path);
    return path;
  }
  // Answers the path; the folders above it are made.
  std::string makeFile(const std::string& name, const std::string& contents = "contents") {
    const std::string path = home() + "/" + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << contents;
    return path;
  }
  static std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  // Whether anything has that name, a dangling link included.
  static bool exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
  }

  // A named pipe in the home: a script that reads a line from it waits until the gate is opened
  // once for it. Letting go of the answer ends the wait of all that wait already.
  Descriptor makeGate(const std::string& name) {
    const std::string path = home() + "/" + name;
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    Descriptor gate(open(path.c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_TRUE(gate);
    return gate;
  }
  static void openGate(const Descriptor& gate, std::size_t times = 1) {
    const std::string lines(times, '\n');
    EXPECT_EQ(write(gate.get(), lines.data(), times), static_cast<ssize_t>(times));
  }

  Data archived(const Value& action) const {
    return Archiver::archivedDataWithRootObject(action, registry_);
  }
  template <typename T>
  std::shared_ptr<T> unarchived(const Data& archive) const {
    const Value root = Unarchiver::unarchiveObjectWithData(archive, registry_);
    const auto* object = root.getIf<Value::Object>();
    return object == nullptr ? nullptr : std::dynamic_pointer_cast<T>(*object);
  }

  ClassRegistry registry_;
  ScopedPlatform platform_;
  RecordingLog log_;
  RecordingUserNotifications notifications_;
  Workspace& realWorkspace_;
  RecordingWorkspace workspace_;
};

}  // namespace tervano::test
