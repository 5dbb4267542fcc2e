#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/file_manager.h"
#include "platform/linux/interpreter_user_scripts.h"
#include "platform/platform.h"
#include "platform/process.h"
#include "platform/user_notifications.h"
#include "platform/user_scripts.h"
#include "platform/workspace.h"

namespace tervano {

// One thing that a run would have done.
struct RehearsedStep {
  // "run", "move", "copy", "remove", "write", "make folder", "compress", "call", "attach", "open"
  // or "show".
  std::string what;
  // For "run" the program and its arguments; for "call" the handler and the paths it gets; for
  // "open" and "attach" the application, if any, and the files; otherwise the paths, where
  // something comes from before where it goes.
  std::vector<std::string> words;

  friend bool operator==(const RehearsedStep&, const RehearsedStep&) = default;
};

// The steps in their order. Any thread.
class RehearsedSteps {
 public:
  void note(std::string what, std::vector<std::string> words);
  std::vector<RehearsedStep> all() const;

 private:
  mutable std::mutex mutex_;
  std::vector<RehearsedStep> steps_;
};

// Looks at the real files, as if the changes that were asked for had been made.
class RehearsedFileManager : public ForwardingFileManager {
 public:
  RehearsedFileManager(FileManager& real, RehearsedSteps& steps)
      : ForwardingFileManager(real), steps_(steps) {}

  bool fileExistsAtPath(const std::string& path) const override;
  bool itemExistsAtPath(const std::string& path) const override;
  bool isDirectoryAtPath(const std::string& path) const override;
  std::optional<Error> createDirectoryAtPath(const std::string& path,
                                             bool withIntermediates) override;
  std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                       bool atomically) override;
  std::optional<Error> removeItemAtPath(const std::string& path) override;
  std::optional<Error> copyItemAtPath(const std::string& from, const std::string& to) override;
  std::optional<Error> performCopy(const ItemCopy& copy) override;
  std::optional<Error> setAttributesOfItemAtPath(const FileAttributes& attributes,
                                                 const std::string& path) override;
  std::optional<Error> moveItemAtPath(const std::string& from, const std::string& to) override;
  std::optional<Error> performMove(const ItemMove& move) override {
    return moveItemAtPath(move.from, move.to);
  }

  // A file that a tool would have made.
  void noteMade(const std::string& path) { change(path, Item::file); }

 private:
  enum class Item { none, file, folder };

  std::optional<Item> changed(const std::string& path) const;
  void change(const std::string& path, Item item);
  // Why the folder of this path could not be changed; nil when nothing speaks against it.
  std::optional<Error> objectionToChange(const std::string& path) const;
  std::optional<Error> objectionToMaking(const std::string& from, const std::string& to) const;
  Item itemAt(const std::string& path) const;

  RehearsedSteps& steps_;
  mutable std::mutex mutex_;
  std::map<std::string, Item> changes_;
};

// Makes processes that end well at once without having been started.
class RehearsedProcesses : public Processes {
 public:
  // `tools` are the programs that stand for others.
  RehearsedProcesses(RehearsedSteps& steps, RehearsedFileManager& files,
                     std::map<std::string, std::string> tools)
      : steps_(steps), files_(files), tools_(std::move(tools)) {}

  std::shared_ptr<Process> createProcess() override;
  std::shared_ptr<Pipe> createPipe() override;

  void noteLaunch(const std::string& path, const std::vector<std::string>& arguments);

 private:
  RehearsedSteps& steps_;
  RehearsedFileManager& files_;
  std::map<std::string, std::string> tools_;
};

// Opens and shows nothing.
class RehearsedWorkspace : public ForwardingWorkspace {
 public:
  RehearsedWorkspace(Workspace& real, RehearsedSteps& steps)
      : ForwardingWorkspace(real), steps_(steps) {}

  bool openURL(const Url& url) override;
  std::optional<RunningApplication> openURLsWithApplicationAtURL(
      const std::vector<Url>& urls, const std::optional<Url>& applicationURL, std::uint32_t options,
      const Value::Dictionary& configuration, std::optional<Error>* error) override;
  bool selectFileInFileViewerRootedAtPath(const std::optional<std::string>& fullPath,
                                          const std::string& rootFullPath) override;
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override;

 private:
  RehearsedSteps& steps_;
};

// Finds scripts and interpreters, and calls no handler.
class RehearsedUserScripts : public UserScripts {
 public:
  RehearsedUserScripts(Processes& processes, RehearsedSteps& steps)
      : scripts_(processes), steps_(steps) {}

  std::shared_ptr<UserScriptTask> taskWithURL(const std::optional<Url>& url,
                                              std::optional<Error>* error) override;

 private:
  InterpreterUserScripts scripts_;
  RehearsedSteps& steps_;
};

// A platform on which an action can be run without anything being started, changed or shown: what
// would have been is noted. What is looked at is the real system. The steps tell what an action
// asks for, not what a program that it starts would do. Main thread.
class Rehearsal {
 public:
  explicit Rehearsal(const Platform& real);
  Rehearsal(const Rehearsal&) = delete;
  Rehearsal& operator=(const Rehearsal&) = delete;

  // To be installed; lives as long as this.
  const Platform& services() const { return services_; }
  std::vector<RehearsedStep> steps() const { return steps_.all(); }

 private:
  class Silence : public ForwardingUserNotifications {
   public:
    using ForwardingUserNotifications::ForwardingUserNotifications;
    void deliverNotification(const UserNotification& /*notification*/) override {}
    void playAlert() override {}
  };

  RehearsedSteps steps_;
  RehearsedFileManager files_;
  RehearsedProcesses processes_;
  RehearsedWorkspace workspace_;
  RehearsedUserScripts userScripts_;
  Silence notifications_;
  Platform services_;
};

}  // namespace tervano
