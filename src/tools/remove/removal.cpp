#include "tools/remove/removal.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "platform/linux/tree_walk.h"

namespace tervano {

namespace {

constexpr std::size_t kMostThreads = 64;
constexpr char kMounted[] = "something is mounted there";
constexpr char kReplaced[] = "another item took its place meanwhile";

using FolderIdentity = std::pair<dev_t, ino_t>;

FolderIdentity identityOf(int folder) {
  struct stat status {};
  if (fstat(folder, &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

// A thread has two descriptors open and, like a piece of work that waits, one of a folder; others
// are needed for the walk.
std::size_t mostThreads() {
  constexpr std::size_t kForEachThread = 4;
  constexpr std::size_t kOthers = 40;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return kMostThreads;
  const auto descriptors = static_cast<std::size_t>(limit.rlim_cur);
  return std::min(kMostThreads,
                  descriptors < kOthers ? 0 : (descriptors - kOthers) / kForEachThread);
}

}  // namespace

// Removes all but folders.
class Removal::Contents : public TreeVisitor {
 public:
  explicit Contents(Removal& removal) : removal_(removal) {}

  // The folder at the top, if there is one.
  const std::optional<FolderIdentity>& top() const { return top_; }

  bool enterFolder(int folder, const std::string& path) override {
    static_cast<void>(path);
    if (!top_) top_ = identityOf(folder);
    folder_ = nullptr;
    return true;
  }

  bool visitItem(const TreeItem& item) override {
    if (folder_ == nullptr) folder_ = RemovalFolder::open(item.folder());
    if (folder_ == nullptr) return fail(item, errno);
    if (!removal_.options_.overwrites) {
      removal_.items_.unlink(*folder_, item.name(), item.path());
      return true;
    }
    removal_.pool_.run([&items = removal_.items_, folder = folder_, name = item.name(),
                        path = item.path()](RandomBytes& random) {
      items.overwriteAndUnlink(*folder, name, path, random);
    });
    return true;
  }

  bool leaveFolder(const TreeItem& item) override {
    static_cast<void>(item);
    return true;
  }

  bool visitMount(const TreeItem& item) override {
    removal_.incomplete_.add(item.folder());
    removal_.report_.couldNotRemove(item.path(), kMounted);
    return true;
  }

  bool fail(const TreeItem& item, int code) override {
    if (code == ENOENT && removal_.options_.isForced) return true;
    // A folder that may not be read can be removed all the same when it is empty.
    if (code == EACCES && unlinkat(item.folder(), item.name().c_str(), AT_REMOVEDIR) == 0) {
      removal_.report_.removed(item.path());
      return true;
    }
    removal_.incomplete_.add(item.folder());
    removal_.report_.couldNotRemove(item.path(), code);
    return true;
  }

 private:
  Removal& removal_;
  // The one whose items are being visited, once there is one.
  std::shared_ptr<const RemovalFolder> folder_;
  std::optional<FolderIdentity> top_;
};

// Removes the folders of a tree whose contents were removed. What had to stay was told of already.
class Removal::Folders : public TreeVisitor {
 public:
  // `top` is the folder whose contents were removed.
  Folders(Removal& removal, const FolderIdentity& top) : removal_(removal), top_(top) {}

  bool enterFolder(int folder, const std::string& path) override {
    if (isInside_ || identityOf(folder) == top_) return isInside_ = true;
    removal_.report_.couldNotRemove(path, kReplaced);
    return false;
  }

  bool visitItem(const TreeItem& item) override {
    static_cast<void>(item);
    return true;
  }

  bool leaveFolder(const TreeItem& item) override {
    if (unlinkat(item.folder(), item.name().c_str(), AT_REMOVEDIR) == 0) {
      // Of a deep tree the paths are longer than all the rest of the work.
      if (removal_.report_.isVerbose()) removal_.report_.removed(item.path());
    } else if (errno != ENOENT) {
      const int code = errno;
      stays(item, code, removal_.incomplete_.contains(item.folder(), item.name()));
    }
    return true;
  }

  bool visitMount(const TreeItem& item) override { return fail(item, EBUSY); }

  bool fail(const TreeItem& item, int code) override {
    if (code != ENOENT) stays(item, code, removal_.incomplete_.contains(item.folder(), ""));
    return true;
  }

 private:
  void stays(const TreeItem& item, int code, bool isToldAlready) {
    if (!isToldAlready) removal_.report_.couldNotRemove(item.path(), code);
    removal_.incomplete_.add(item.folder());
  }

  Removal& removal_;
  const FolderIdentity top_;
  bool isInside_ = false;
};

Removal::Removal(const RemovalOptions& options, Report& report)
    : options_(options), report_(report), items_(report, incomplete_), pool_(mostThreads()) {}

void Removal::remove(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/') + 1;
  const std::size_t begin = path.substr(0, end).rfind('/') + 1;
  const std::string name = path.substr(begin, end - begin);
  if (name.empty() && !path.empty()) {
    report_.couldNotRemove(path, "it holds the whole system");
    return;
  }
  if (name == "." || name == "..") {
    report_.couldNotRemove(path, "a path must not end in \".\" or \"..\"");
    return;
  }
  const Descriptor parent(
      open(begin == 0 ? "." : path.substr(0, begin).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!parent || fstatat(parent.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    const bool isMissing = errno == ENOENT || errno == ENOTDIR;
    if (!isMissing || !options_.isForced) report_.couldNotRemove(path, errno);
    return;
  }
  if (S_ISDIR(status.st_mode) && !options_.isRecursive) {
    report_.couldNotRemove(path, "it is a folder, and -r was not given");
    return;
  }
  if (!S_ISDIR(status.st_mode) && end < path.size()) {
    report_.couldNotRemove(path, ENOTDIR);
    return;
  }
  const std::string shown = path.substr(0, end);
  Contents contents(*this);
  walkTree(parent.get(), name, shown, contents);
  if (!contents.top()) return;
  pool_.wait();
  Folders folders(*this, *contents.top());
  walkTree(parent.get(), name, shown, folders);
}

}  // namespace tervano
