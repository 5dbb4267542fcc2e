#include "platform/linux/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "platform/linux/directory_cursor.h"

namespace tervano {

namespace {

class TreeWalk {
 public:
  TreeWalk(int parent, const std::string& name, const std::string& path, TreeVisitor& visitor)
      : parent_(parent), name_(name), top_(path), visitor_(visitor) {}

  void walk() {
    const TreeItem top(parent_, name_, top_, true);
    struct stat status {};
    if (fstatat(parent_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      visitor_.fail(top, errno);
      return;
    }
    if (!S_ISDIR(status.st_mode)) {
      visitor_.visitItem(top);
      return;
    }
    if (!enter(top)) return;
    while (!folders_.empty()) {
      auto& subfolders = folders_.back().subfolders;
      if (subfolders.empty()) {
        if (!leave()) return;
      } else {
        const std::string name = std::move(subfolders.back());
        subfolders.pop_back();
        if (!enter(TreeItem(cursor_.current(), name, path_, false))) return;
      }
    }
  }

 private:
  struct Folder {
    std::string name;
    // Of the path of the folder above.
    std::size_t pathLength;
    // Those that are still to be walked.
    std::vector<std::string> subfolders;
  };

  bool enter(const TreeItem& item) {
    if (isMountPoint(item.folder(), item.name())) return visitor_.visitMount(item);
    visitor_.willEnterFolder(item);
    const bool entered =
        item.isTop() ? cursor_.begin(item.folder(), item.name()) : cursor_.enter(item.name());
    if (!entered) return errno == ENOENT && !item.isTop() ? true : visitor_.fail(item, errno);
    // Something may have been mounted since it was looked at.
    if (isMountRoot(cursor_.current())) {
      return (item.isTop() || cursor_.leave()) && visitor_.visitMount(item);
    }
    folders_.push_back({item.name(), path_.size(), {}});
    path_ += item.isTop() ? top_ : "/" + item.name();
    return visitor_.enterFolder(cursor_.current(), path_) && list();
  }

  // Visits the items of the folder just entered, and remembers its subfolders.
  bool list() {
    std::vector<DirectoryEntry> entries;
    if (!readEntries(cursor_.current(), entries)) return abandon(errno);
    for (DirectoryEntry& entry : entries) {
      const TreeItem item(cursor_.current(), entry.name, path_, false);
      bool isFolder = entry.type == DT_DIR;
      if (entry.type == DT_UNKNOWN) {
        struct stat status {};
        if (fstatat(item.folder(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
          if (errno != ENOENT && !visitor_.fail(item, errno)) return false;
          continue;
        }
        isFolder = S_ISDIR(status.st_mode);
      }
      if (isFolder) {
        folders_.back().subfolders.push_back(std::move(entry.name));
      } else if (!visitor_.visitItem(item)) {
        return false;
      }
    }
    return true;
  }

  bool leave() {
    const Folder left = std::move(folders_.back());
    if (!ascend(left)) return false;
    return visitor_.leaveFolder(itemOf(left));
  }

  // Leaves the folder that the walk is in because of a failure.
  bool abandon(int code) {
    const Folder left = std::move(folders_.back());
    if (!ascend(left)) return false;
    return visitor_.fail(itemOf(left), code);
  }

  bool ascend(const Folder& left) {
    folders_.pop_back();
    path_.resize(left.pathLength);
    if (folders_.empty() || cursor_.leave()) return true;
    const int code = errno;
    visitor_.fail(TreeItem(cursor_.current(), left.name, path_, false), code);
    return false;
  }

  TreeItem itemOf(const Folder& folder) const {
    return folders_.empty() ? TreeItem(parent_, name_, top_, true)
                            : TreeItem(cursor_.current(), folder.name, path_, false);
  }

  const int parent_;
  const std::string& name_;
  const std::string& top_;
  TreeVisitor& visitor_;
  DirectoryCursor cursor_;
  // The folders from the top to the one the walk is in, and the path of that.
  std::vector<Folder> folders_;
  std::string path_;
};

}  // namespace

void walkTree(int parent, const std::string& name, const std::string& path, TreeVisitor& visitor) {
  TreeWalk(parent, name, path, visitor).walk();
}

}  // namespace tervano
