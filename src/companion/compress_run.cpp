#include "companion/compress_run.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <memory>
#include <set>

#include "actions/next_available_path.h"
#include "actions/path_names.h"
#include "archive/url.h"
#include "packing/zip_packer.h"
#include "platform/file_manager.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/user_folders.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"
#include "prefs/tv_user_defaults.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr char kArchiveExtension[] = ".zip";
// For what lies at the top of the file system.
constexpr char kNameWithoutFolder[] = "Archive";
// How often a name that was free may be taken by somebody else before the archive has it.
constexpr int kMostArchiveNames = 100;

// Each path once, without the spellings that mean the same.
std::vector<std::string> distinctPaths(const std::vector<std::string>& paths) {
  std::vector<std::string> distinct;
  std::set<std::string> seen;
  for (const auto& path : paths) {
    std::string standard = standardizingPath(path);
    if (seen.insert(standard).second) distinct.push_back(std::move(standard));
  }
  return distinct;
}

std::vector<PackedItem> itemsOf(const std::vector<std::string>& paths) {
  std::vector<PackedItem> items;
  std::set<std::string> names;
  for (auto& path : distinctPaths(paths)) {
    std::string name = nextFreeName(
        lastPathComponent(path), [&](const std::string& tried) { return names.contains(tried); });
    names.insert(name);
    items.push_back({std::move(path), std::move(name)});
  }
  return items;
}

// So that the name, too, outlives a loss of power. Not every folder can be flushed.
void flushFolderOf(const std::string& path) {
  const Descriptor folder(
      open(deletingLastPathComponent(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder && fsync(folder.get()) != 0) errno = 0;
}

// One archive on its queue.
class CompressRun {
 public:
  CompressRun(const std::vector<std::string>& paths, const WorkMonitor& monitor)
      : wanted_(archivePathFor(paths)),
        items_(itemsOf(paths)),
        follower_(monitor, pathsOf(items_)) {}

  FileWorkOutcome run(const Secret& password) {
    const std::string folder = deletingLastPathComponent(wanted_);
    const std::string temporary =
        appendingPathComponent(folder, UnfinishedItem::kPrefix + randomFileNameSuffix());
    follower_.willMakeTemporary(temporary);
    auto error = write(temporary, password);
    if (!error) error = putInPlace(temporary);
    if (error) unlink(temporary.c_str());
    follower_.didEndTemporary();
    if (error && error->code == ECANCELED) return {false, true, std::nullopt};
    if (error) return {false, false, error};
    follower_.finish();
    report();
    return {true, false, std::nullopt};
  }

 private:
  static std::vector<std::string> pathsOf(const std::vector<PackedItem>& items) {
    std::vector<std::string> paths;
    std::transform(items.begin(), items.end(), std::back_inserter(paths),
                   [](const PackedItem& item) { return item.path; });
    return paths;
  }

  std::optional<Error> write(const std::string& temporary, const Secret& password) {
    const auto failure = [&] { return posixError(errno, "Could not write " + wanted_); };
    const Descriptor file(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    struct stat status {};
    // What the user's mask leaves of the mode is for the whole archive.
    if (!file || fstat(file.get(), &status) != 0 || fchmod(file.get(), 0600) != 0) {
      return failure();
    }
    if (auto error = packZip(items_, {file.get(), wanted_}, password, follower_, packed_)) {
      return error;
    }
    if (isNothingPacked()) {
      return Error{"Compress", 1,
                   trMark("There is nothing to pack: sockets, pipes and devices have no content.")};
    }
    if (fsync(file.get()) != 0 || fchmod(file.get(), status.st_mode & 0777) != 0) return failure();
    return std::nullopt;
  }

  bool isNothingPacked() const {
    return std::all_of(items_.begin(), items_.end(), [this](const PackedItem& item) {
      return std::find(packed_.leftOut.begin(), packed_.leftOut.end(), item.path) !=
             packed_.leftOut.end();
    });
  }

  std::optional<Error> putInPlace(const std::string& temporary) {
    for (int attempt = 1;; ++attempt) {
      made_ = vx_nextAvailablePath(wanted_);
      auto error = platform().fileManager->moveItemAtPath(temporary, made_);
      if (!error) flushFolderOf(made_);
      if (!error || error->code != EEXIST || attempt == kMostArchiveNames) return error;
    }
  }

  void report() const {
    for (const auto& path : packed_.links) log("Packed as a link: " + path);
    for (const auto& path : packed_.leftOut) log("Not packed, since it has no content: " + path);
    for (const auto& path : packed_.respelled) log("Packed under another name: " + path);
    if (TVUserDefaults::create()->disableActionNotifications()) return;
    UserNotification notification;
    notification.title = "Tervano";
    std::string text = tr("Finished compressing '{1}'", lastPathComponent(made_));
    const auto remarks = remarksOnPacked();
    for (const auto& remark : remarks) text += ". " + remark;
    if (!remarks.empty()) text += ".";
    notification.informativeText = std::move(text);
    notification.userInfo["path"] = made_;
    notification.actionButtonTitle = tr("Show");
    notification.hasActionButton = true;
    notification.soundName = kUserNotificationDefaultSoundName;
    platform().userNotifications->deliverNotification(notification);
  }

  // What the user may not expect of the archive.
  std::vector<std::string> remarksOnPacked() const {
    std::vector<std::string> remarks;
    if (!packed_.links.empty()) {
      remarks.push_back(trn("{1} item is a link and was packed as one, without what is behind",
                            "{1} items are links and were packed as such, without what is behind",
                            packed_.links.size()));
    }
    if (!packed_.leftOut.empty()) {
      remarks.push_back(trn("{1} socket, pipe or device was left out",
                            "{1} sockets, pipes or devices were left out", packed_.leftOut.size()));
    }
    if (!packed_.respelled.empty()) {
      remarks.push_back(trn("{1} name that is not UTF-8 is spelled with %",
                            "{1} names that are not UTF-8 are spelled with %",
                            packed_.respelled.size()));
    }
    return remarks;
  }

  const std::string wanted_;
  const std::vector<PackedItem> items_;
  WorkFollower follower_;
  PackReport packed_;
  // Where the archive lies in the end.
  std::string made_;
};

}  // namespace

std::string archivePathFor(const std::vector<std::string>& paths) {
  const auto distinct = distinctPaths(paths);
  const std::string folder = deletingLastPathComponent(distinct.front());
  std::string stem = lastPathComponent(distinct.size() == 1 ? distinct.front() : folder);
  if (stem.empty() || stem == "/") stem = kNameWithoutFolder;
  return appendingPathComponent(folder, nameWithEnding(stem, kArchiveExtension));
}

std::optional<Error> reasonNotToCompress(const std::vector<std::string>& paths) {
  if (paths.empty()) return Error{"Compress", EINVAL, trMark("There is no file to compress.")};
  const FileManager& files = *platform().fileManager;
  for (const auto& path : paths) {
    if (standardizingPath(path) == "/") {
      return Error{"Compress", EINVAL, trMark("The whole file system cannot be packed.")};
    }
    if (!files.itemExistsAtPath(path)) return posixError(ENOENT, "Could not pack " + path);
  }
  const std::string folder = deletingLastPathComponent(archivePathFor(paths));
  if (files.isWritableFileAtPath(folder)) return std::nullopt;
  return posixError(EACCES, "The archive would lie in " + folder + ", which cannot be written to");
}

void compressFiles(const std::vector<std::string>& paths, Secret password,
                   const WorkMonitor& monitor, FileWorkEnd finished) {
  runFileWork(
      "com.vessok.compressqueue",
      // Shared, because the work must be copyable.
      [paths, monitor, secret = std::make_shared<const Secret>(std::move(password))] {
        return CompressRun(paths, monitor).run(*secret);
      },
      std::move(finished));
}

}  // namespace tervano
