#include "companion/copy_run.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "actions/next_available_path.h"
#include "actions/path_relations.h"
#include "actions/transfer_report.h"
#include "platform/file_manager.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

namespace {

// How often a name that was free may be taken by somebody else before the copy has it.
constexpr int kMostNames = 100;

// What a run is about, and therefore must not replace: the items to be copied and their copies.
class ItemsOfRun {
 public:
  explicit ItemsOfRun(const std::vector<std::string>& sources) {
    std::set<std::string> folders;
    for (const auto& source : sources) {
      add(source);
      const std::string folder = deletingLastPathComponent(source);
      if (folders.insert(folder).second) addFoldersFrom(folder);
    }
  }

  void add(const std::string& path) {
    paths_.emplace(withoutTrailingSlashes(path));
    if (const auto identity = identityOf(path)) identities_.insert(*identity);
  }

  // Whether the item at the path is one of them, or a folder that holds one.
  bool areIn(const std::string& path) const {
    const auto identity = identityOf(path);
    return paths_.contains(path) || (identity && identities_.contains(*identity));
  }

 private:
  using Identity = std::pair<dev_t, ino_t>;

  static std::optional<Identity> identityOf(const std::string& path) {
    struct stat status {};
    const std::string item(withoutTrailingSlashes(path));
    if (lstat(item.c_str(), &status) != 0) return std::nullopt;
    return Identity{status.st_dev, status.st_ino};
  }

  void addFoldersFrom(const std::string& folder) {
    std::error_code error;
    std::string above = std::filesystem::canonical(folder, error).string();
    while (!error) {
      if (const auto identity = identityOf(above)) identities_.insert(*identity);
      if (above == "/") return;
      above = deletingLastPathComponent(above);
    }
  }

  // By both, since some file systems spell one name in several ways, and some number their items
  // anew.
  std::set<std::string> paths_;
  std::set<Identity> identities_;
};

// One run of a copy, on its queue.
class CopyRun {
 public:
  CopyRun(const Url& destination, const std::vector<std::string>& paths, const WorkMonitor& monitor)
      : destination_(destination),
        destinationPath_(destination.path()),
        paths_(paths),
        follower_(monitor, paths) {}

  FileWorkOutcome run() {
    for (const auto& source : paths_) {
      error_ = follower_.isCancelled() ? posixError(ECANCELED, source) : copyItem(source);
      if (error_) break;
    }
    if (error_ && error_->code == ECANCELED) {
      error_->message = countOfCopied();
      return {false, true, paths_.size() > 1 ? error_ : std::nullopt, copied_};
    }
    if (error_ && paths_.size() > 1) error_->message += "; " + countOfCopied();
    if (error_) log("Could not copy because of error: " + error_->message);
    if (!error_) follower_.finish();
    report();
    return {!error_, false, error_, copied_};
  }

 private:
  std::optional<Error> copyItem(const std::string& source) {
    if (source == destinationPath_) {
      log("Skipping: " + source);
      return std::nullopt;
    }
    const std::string target =
        destination_.URLByAppendingPathComponent(lastPathComponent(source)).path();
    if (!defaults_->overwriteDestinationFile()) return copyToFreeName(source, target);
    if (source == target) {
      log("Skipping: " + source);
    } else {
      const FileManager& files = *platform().fileManager;
      if (files.itemExistsAtPath(target) && files.itemExistsAtPath(source)) {
        if (auto error = reasonNotToReplace(target, source, destinationPath_)) return error;
      }
      if (files.itemExistsAtPath(target) && isOfThisRun(target)) {
        return copyToFreeName(source, target);
      }
      if (auto error = copyTo(source, target, true)) return error;
    }
    addCopied(target);
    return std::nullopt;
  }

  bool isOfThisRun(const std::string& path) {
    if (!items_) {
      items_.emplace(paths_);
      for (const auto& copied : copied_) items_->add(copied);
    }
    return items_->areIn(path);
  }

  void addCopied(const std::string& target) {
    copied_.push_back(target);
    if (items_) items_->add(target);
  }

  std::string countOfCopied() const {
    return std::to_string(copied_.size()) + " of " + std::to_string(paths_.size()) +
           (copied_.size() == 1 ? " items was copied before" : " items were copied before");
  }

  // Somebody else, such as another copy of the same file, may take the name meanwhile.
  std::optional<Error> copyToFreeName(const std::string& source, const std::string& wanted) {
    for (int attempt = 1;; ++attempt) {
      const std::string target = vx_nextAvailablePath(wanted);
      auto error = copyTo(source, target, false);
      if (!error) addCopied(target);
      if (!error || error->code != EEXIST || attempt == kMostNames) return error;
    }
  }

  std::optional<Error> copyTo(const std::string& source, const std::string& target, bool replaces) {
    auto error = platform().fileManager->performCopy({source, target, replaces, &follower_});
    follower_.didEndTemporary();
    return error;
  }

  void report() const {
    if (!defaults_->disableActionNotifications()) {
      auto notification = transferNotification(!error_, "copying", copied_);
      if (error_) *notification.informativeText += " " + error_->message;
      platform().userNotifications->deliverNotification(notification);
    }
    if (defaults_->showFileOnMoveCopyComplete()) {
      std::vector<Url> urls;
      for (const auto& path : copied_) urls.push_back(Url::fileURLWithPath(path));
      platform().workspace->activateFileViewerSelectingURLs(urls);
    }
  }

  const Url& destination_;
  const std::string destinationPath_;
  const std::vector<std::string>& paths_;
  WorkFollower follower_;
  std::shared_ptr<TVUserDefaults> defaults_ = TVUserDefaults::create();
  // Made when something is first to be replaced.
  std::optional<ItemsOfRun> items_;
  // Where the items lie that were copied.
  std::vector<std::string> copied_;
  std::optional<Error> error_;
};

}  // namespace

void copyFiles(const std::optional<Url>& destination, const std::vector<std::string>& paths,
               const WorkMonitor& monitor, FileWorkEnd finished) {
  runFileWork(
      "com.vessok.copyqueue",
      [destination, paths, monitor]() -> FileWorkOutcome {
        const FileManager& files = *platform().fileManager;
        const std::string path = destination ? destination->path() : "";
        if (path.empty() || !files.fileExistsAtPath(path) || !files.isWritableFileAtPath(path)) {
          return {};
        }
        return CopyRun(*destination, paths, monitor).run();
      },
      std::move(finished));
}

}  // namespace tervano
