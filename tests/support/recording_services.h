#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/log.h"
#include "platform/process.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"

namespace tervano::test {

// Keeps what is logged, and logs it.
class RecordingLog : public ForwardingLog {
 public:
  using ForwardingLog::ForwardingLog;
  // Recorded last: a test that has seen the line may end, and this with it.
  void write(std::string_view line) override {
    ForwardingLog::write(line);
    const std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
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
  void playAlert() override {
    const std::lock_guard lock(mutex_);
    ++alerts_;
  }
  void showProgress(std::uint64_t number, const ProgressNotification& notification) override {
    const std::lock_guard lock(mutex_);
    progress_.emplace_back(number, notification);
  }
  void endProgress(std::uint64_t number) override {
    const std::lock_guard lock(mutex_);
    progress_.emplace_back(number, std::nullopt);
  }
  void setProgressHandler(ProgressHandler handler) override {
    const std::lock_guard lock(mutex_);
    progressHandler_ = std::move(handler);
  }
  // As the desktop would: called on the main thread.
  void tellProgress(std::uint64_t number, ProgressEvent event) {
    if (const auto handler = progressHandler_) handler(number, event);
  }
  // What was shown as progress, in its order; nil for an end.
  std::vector<std::pair<std::uint64_t, std::optional<ProgressNotification>>> progress() const {
    const std::lock_guard lock(mutex_);
    return progress_;
  }
  int alerts() const {
    const std::lock_guard lock(mutex_);
    return alerts_;
  }
  std::vector<UserNotification> delivered() const {
    const std::lock_guard lock(mutex_);
    return delivered_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<UserNotification> delivered_;
  std::vector<std::pair<std::uint64_t, std::optional<ProgressNotification>>> progress_;
  ProgressHandler progressHandler_;
  int alerts_ = 0;
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
  std::optional<Url> URLForApplicationToOpenURL(const Url& url) const override {
    const std::lock_guard lock(mutex_);
    handlerQuestions_.push_back(url);
    return handler_;
  }
  std::optional<RunningApplication> openURLsWithApplicationAtURL(
      const std::vector<Url>& urls, const std::optional<Url>& applicationURL, std::uint32_t options,
      const Value::Dictionary& configuration, std::optional<Error>* error) override {
    const std::lock_guard lock(mutex_);
    openings_.push_back({urls, applicationURL, options, configuration});
    if (!refusesOpenings_) return RunningApplication{"org.example.Opener"};
    if (error != nullptr) *error = refusal_;
    return std::nullopt;
  }

  // A request to open files with an application.
  struct Opening {
    std::vector<Url> urls;
    std::optional<Url> applicationURL;
    std::uint32_t options = 0;
    Value::Dictionary configuration;
  };
  std::vector<Opening> openings() const {
    const std::lock_guard lock(mutex_);
    return openings_;
  }
  // From now on no application can be asked to open files, for that reason.
  void refuseOpenings(std::optional<Error> reason) {
    const std::lock_guard lock(mutex_);
    refusesOpenings_ = true;
    refusal_ = std::move(reason);
  }
  // The URLs for which somebody asked who would open them.
  std::vector<Url> handlerQuestions() const {
    const std::lock_guard lock(mutex_);
    return handlerQuestions_;
  }
  // The application that is answered from now on; at first there is none.
  void setHandler(std::optional<Url> application) {
    const std::lock_guard lock(mutex_);
    handler_ = std::move(application);
  }
  bool selectFileInFileViewerRootedAtPath(const std::optional<std::string>& fullPath,
                                          const std::string& rootFullPath) override {
    const std::lock_guard lock(mutex_);
    viewers_.push_back({fullPath, rootFullPath});
    return !refusesViewers_;
  }

  // A file viewer that was asked for.
  struct Viewer {
    std::optional<std::string> fullPath;
    std::string rootFullPath;
    friend bool operator==(const Viewer&, const Viewer&) = default;
  };
  std::vector<Viewer> viewers() const {
    const std::lock_guard lock(mutex_);
    return viewers_;
  }
  // From now on nobody can be asked for a viewer.
  void refuseViewers() {
    const std::lock_guard lock(mutex_);
    refusesViewers_ = true;
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
  std::vector<Opening> openings_;
  bool refusesOpenings_ = false;
  std::optional<Error> refusal_;
  mutable std::vector<Url> handlerQuestions_;
  std::optional<Url> handler_;
  std::vector<Viewer> viewers_;
  bool refusesViewers_ = false;
};

// Keeps the processes that are made; they are real ones and really run. Main thread.
class KeepingProcesses : public ForwardingProcesses {
 public:
  using ForwardingProcesses::ForwardingProcesses;
  std::shared_ptr<Process> createProcess() override {
    made_.push_back(ForwardingProcesses::createProcess());
    return made_.back();
  }
  const std::vector<std::shared_ptr<Process>>& made() const { return made_; }

 private:
  std::vector<std::shared_ptr<Process>> made_;
};

}  // namespace tervano::test
