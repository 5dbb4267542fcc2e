#include "platform/linux/tree_remove.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/linux/directory_cursor.h"

namespace tervano {

namespace {

class TreeRemover {
 public:
  TreeRemover(int parent, const std::string& name, const std::string& path,
              const RemovalFilter& filter)
      : parent_(parent), name_(name), path_(path), filter_(filter) {}

  std::optional<Error> remove() {
    struct stat status {};
    if (fstatat(parent_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return failure("");
    if (!S_ISDIR(status.st_mode)) return removeItem(parent_, name_, "", false);
    if (isMountPoint(parent_, name_)) return failure("", EBUSY);
    if (!cursor_.begin(parent_, name_)) return failure("");
    if (auto error = emptyFolder("")) return error;
    while (!folders_.empty()) {
      if (folders_.back().subfolders.empty()) {
        if (auto error = removeEmptied()) return error;
      } else {
        const std::string name = std::move(folders_.back().subfolders.back());
        folders_.back().subfolders.pop_back();
        if (auto error = enter(name)) return error;
      }
    }
    return std::nullopt;
  }

 private:
  struct Folder {
    std::string name;
    std::vector<std::string> subfolders;
  };

  // The path of `name` in the folder that the walk is in.
  std::string pathOf(const std::string& name) const {
    std::string path = path_;
    for (std::size_t at = 1; at < folders_.size(); ++at) path += "/" + folders_[at].name;
    return name.empty() ? path : path + "/" + name;
  }

  Error failure(const std::string& name, int code = errno) const {
    return posixError(code, "Could not remove " + pathOf(name));
  }

  std::optional<Error> removeItem(int folder, const std::string& name, const std::string& shown,
                                  bool mayBeGone) {
    if (filter_) {
      struct stat status {};
      if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT && mayBeGone) return std::nullopt;
        return failure(shown);
      }
      if (auto error = filter_(status, pathOf(shown))) return error;
    }
    if (unlinkat(folder, name.c_str(), 0) == 0) return std::nullopt;
    if (errno == ENOENT && mayBeGone) return std::nullopt;
    return failure(shown);
  }

  // Removes everything but folders from the folder just entered, and remembers those.
  std::optional<Error> emptyFolder(const std::string& name) {
    folders_.push_back({name, {}});
    std::vector<DirectoryEntry> entries;
    if (!readEntries(cursor_.current(), entries)) return failure("");
    for (DirectoryEntry& entry : entries) {
      bool isFolder = entry.type == DT_DIR;
      if (entry.type == DT_UNKNOWN) {
        struct stat status {};
        if (fstatat(cursor_.current(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
          if (errno == ENOENT) continue;
          return failure(entry.name);
        }
        isFolder = S_ISDIR(status.st_mode);
      }
      if (isFolder) {
        folders_.back().subfolders.push_back(std::move(entry.name));
      } else if (auto error = removeItem(cursor_.current(), entry.name, entry.name, true)) {
        return error;
      }
    }
    return std::nullopt;
  }

  std::optional<Error> enter(const std::string& name) {
    if (isMountPoint(cursor_.current(), name)) return failure(name, EBUSY);
    if (!cursor_.enter(name)) {
      if (errno == ENOENT) return std::nullopt;
      return failure(name);
    }
    return emptyFolder(name);
  }

  std::optional<Error> removeEmptied() {
    const bool isTop = folders_.size() == 1;
    if (!isTop && !cursor_.leave()) return failure("");
    const std::string& name = isTop ? name_ : folders_.back().name;
    if (unlinkat(isTop ? parent_ : cursor_.current(), name.c_str(), AT_REMOVEDIR) != 0 &&
        errno != ENOENT) {
      return failure("");
    }
    folders_.pop_back();
    return std::nullopt;
  }

  const int parent_;
  const std::string& name_;
  const std::string& path_;
  const RemovalFilter& filter_;
  DirectoryCursor cursor_;
  // The folders from the top to the one the walk is in.
  std::vector<Folder> folders_;
};

}  // namespace

std::optional<Error> removeTree(int parent, const std::string& name, const std::string& path,
                                const RemovalFilter& filter) {
  return TreeRemover(parent, name, path, filter).remove();
}

}  // namespace tervano
