#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/log.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"

namespace tervano::test {

// Keeps what is logged, and logs it.
class RecordingLog : public ForwardingLog {
 public:
  using ForwardingLog::ForwardingLog;
  void write(std::string_view line) override {
    {
      const std::lock_guard lock(mutex_);
      lines_.emplace_back(line);
    }
    ForwardingLog::write(line);
  }
  std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

// Keeps what is delivered, instead of showing it on the desktop of whoever runs the tests.
class RecordingUserNotifications : public ForwardingUserNotifications {
 public:
  using ForwardingUserNotifications::ForwardingUserNotifications;
  void deliverNotification(const UserNotification& notification) override {
    const std::lock_guard lock(mutex_);
    delivered_.push_back(notification);
  }
  std::vector<UserNotification> delivered() const {
    const std::lock_guard lock(mutex_);
    return delivered_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<UserNotification> delivered_;
};

// Keeps what is to be opened and revealed, instead of asking the desktop.
class RecordingWorkspace : public ForwardingWorkspace {
 public:
  using ForwardingWorkspace::ForwardingWorkspace;
  bool openURL(const Url& url) override {
    const std::lock_guard lock(mutex_);
    opened_.push_back(url);
    return true;
  }
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override {
    const std::lock_guard lock(mutex_);
    revealed_.push_back(urls);
  }
  std::vector<Url> opened() const {
    const std::lock_guard lock(mutex_);
    return opened_;
  }
  std::vector<std::vector<Url>> revealed() const {
    const std::lock_guard lock(mutex_);
    return revealed_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Url> opened_;
  std::vector<std::vector<Url>> revealed_;
};

}  // namespace tervano::test
