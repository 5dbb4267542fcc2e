#include "platform/linux/tree_remove.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/tree_walk.h"

namespace tervano {

namespace {

// Ends the walk at the first failure.
class TreeRemover : public TreeVisitor {
 public:
  explicit TreeRemover(const RemovalFilter& filter, bool opensFolders = false)
      : filter_(filter), opensFolders_(opensFolders) {}

  void willEnterFolder(const TreeItem& item) override {
    struct stat status {};
    if (!opensFolders_ ||
        fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        status.st_uid != geteuid() || (status.st_mode & S_IRWXU) == S_IRWXU) {
      return;
    }
    // A failure shows when the folder is entered or emptied.
    [[maybe_unused]] const int changed =
        fchmodat(item.folder(), item.name().c_str(), S_IRWXU, AT_SYMLINK_NOFOLLOW);
  }

  bool visitItem(const TreeItem& item) override {
    if (filter_) {
      struct stat status {};
      if (fstatat(item.folder(), item.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return (errno == ENOENT && !item.isTop()) || fail(item, errno);
      }
      if ((error_ = filter_(status, item.path()))) return false;
    }
    return unlinkat(item.folder(), item.name().c_str(), 0) == 0 ||
           (errno == ENOENT && !item.isTop()) || fail(item, errno);
  }

  bool leaveFolder(const TreeItem& item) override {
    return unlinkat(item.folder(), item.name().c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT ||
           fail(item, errno);
  }

  bool visitMount(const TreeItem& item) override { return fail(item, EBUSY); }

  bool fail(const TreeItem& item, int code) override {
    error_ = posixError(code, "Could not remove " + item.path());
    return false;
  }

  std::optional<Error> error() { return std::move(error_); }

 private:
  const RemovalFilter& filter_;
  const bool opensFolders_;
  std::optional<Error> error_;
};

}  // namespace

std::optional<Error> removeTree(int parent, const std::string& name, const std::string& path,
                                const RemovalFilter& filter) {
  TreeRemover remover(filter);
  walkTree(parent, name, path, remover);
  return remover.error();
}

std::optional<Error> removeOwnTree(int parent, const std::string& name, const std::string& path) {
  const RemovalFilter none;
  TreeRemover remover(none, true);
  walkTree(parent, name, path, remover);
  return remover.error();
}

}  // namespace tervano
