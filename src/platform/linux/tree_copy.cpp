#include "platform/linux/tree_copy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string_view>
#include <vector>

#include "platform/linux/directory_cursor.h"
#include "platform/linux/tree_remove.h"

namespace tervano {

namespace {

constexpr std::size_t kCopyBufferSize = std::size_t{256} * 1024;
// Between two looks at whether the copy is to stop.
constexpr off_t kLongestStep = off_t{16} * 1024 * 1024;
constexpr int kMostAttempts = 3;
constexpr char kAccessList[] = "system.posix_acl_access";
constexpr char kDefaultAccessList[] = "system.posix_acl_default";

bool isNotSupported(int code) {
  return code == ENOTSUP || code == EOPNOTSUPP || code == ENOSYS || code == EINVAL || code == EXDEV;
}

bool sameContent(const struct stat& left, const struct stat& right) {
  return left.st_size == right.st_size && left.st_mtim.tv_sec == right.st_mtim.tv_sec &&
         left.st_mtim.tv_nsec == right.st_mtim.tv_nsec;
}

// The contents of one file. Functions answer false with errno set.
class ContentCopy {
 public:
  ContentCopy(int source, int target, std::vector<char>& buffer, WorkObserver* observer)
      : source_(source), target_(target), buffer_(buffer), observer_(observer) {}

  bool copy(const struct stat& status) {
    const off_t size = status.st_size;
    if (ioctl(target_, FICLONE, source_) == 0) return advance(size);
    const bool hasHoles = status.st_blocks < size / 512;
    off_t next = 0;
    while (hasHoles && next < size) {
      const off_t data = lseek(source_, next, SEEK_DATA);
      if (data < 0 && errno == ENXIO) {
        if (!advance(size - next)) return false;
        next = size;
        break;
      }
      const off_t hole = data < 0 ? -1 : lseek(source_, data, SEEK_HOLE);
      if (hole < 0) break;
      const off_t end = std::min(hole, size);
      if (!advance(data - next)) return false;
      if (data < end && !copyRange(data, end)) return false;
      next = end;
    }
    if (next < size && !copyRange(next, size)) return false;
    return ftruncate(target_, size) == 0;
  }

 private:
  // Tells of bytes that are done; false when the copy is to stop.
  bool advance(off_t bytes) const {
    if (observer_ == nullptr) return true;
    observer_->didProcess(static_cast<std::uint64_t>(bytes));
    errno = ECANCELED;
    return !observer_->isCancelled();
  }

  // Copies from `offset` to `end`; less when the source ends before.
  bool copyRange(off_t offset, off_t end) {
    while (offset < end) {
      off_t from = offset;
      off_t to = offset;
      const off_t wanted = std::min(end - offset, kLongestStep);
      const ssize_t count =
          copy_file_range(source_, &from, target_, &to, static_cast<std::size_t>(wanted), 0);
      if (count < 0 && errno == EINTR) continue;
      // Some pairs of file systems cannot do it, some say so only by copying nothing.
      if (count <= 0) break;
      offset += count;
      if (!advance(count)) return false;
    }
    if (offset < end && buffer_.empty()) buffer_.resize(kCopyBufferSize);
    while (offset < end) {
      const auto wanted = static_cast<std::size_t>(
          std::min<off_t>(end - offset, static_cast<off_t>(buffer_.size())));
      const ssize_t count = pread(source_, buffer_.data(), wanted, offset);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return false;
      if (count == 0) return true;
      if (!writeAt(offset, static_cast<std::size_t>(count))) return false;
      offset += count;
      if (!advance(count)) return false;
    }
    return true;
  }

  bool writeAt(off_t offset, std::size_t length) const {
    std::size_t written = 0;
    while (written < length) {
      const ssize_t step = pwrite(target_, buffer_.data() + written, length - written,
                                  offset + static_cast<off_t>(written));
      if (step < 0 && errno == EINTR) continue;
      if (step < 0) return false;
      written += static_cast<std::size_t>(step);
    }
    return true;
  }

  int source_;
  int target_;
  std::vector<char>& buffer_;
  WorkObserver* observer_;
};

// Gives the open `target` one extended attribute of the open `source`. False with errno set when
// the attribute would be lost although the target's file system has such attributes.
bool copyAttribute(int source, int target, const char* name) {
  std::vector<char> value(256);
  ssize_t size = fgetxattr(source, name, value.data(), value.size());
  while (size < 0 && errno == ERANGE) {
    size = fgetxattr(source, name, nullptr, 0);
    if (size < 0) break;
    value.resize(static_cast<std::size_t>(size) + 1);
    size = fgetxattr(source, name, value.data(), value.size());
  }
  if (size < 0) return errno == ENODATA || isNotSupported(errno);
  if (fsetxattr(target, name, value.data(), static_cast<std::size_t>(size), 0) == 0) return true;
  const bool isUsers = std::string_view(name).starts_with("user.");
  const bool isDenied = errno == EPERM || errno == EACCES;
  return isNotSupported(errno) || (!isUsers && isDenied);
}

bool isAccessList(std::string_view name) {
  return name == kAccessList || name == kDefaultAccessList;
}

bool copyAttributes(int source, int target) {
  std::vector<char> names(4096);
  ssize_t size = flistxattr(source, names.data(), names.size());
  while (size < 0 && errno == ERANGE) {
    size = flistxattr(source, nullptr, 0);
    if (size < 0) break;
    names.resize(static_cast<std::size_t>(size) + 1);
    size = flistxattr(source, names.data(), names.size());
  }
  if (size < 0) return isNotSupported(errno);
  for (const char* name = names.data(); name < names.data() + size;
       name += std::string_view(name).size() + 1) {
    if (!isAccessList(name) && !copyAttribute(source, target, name)) return false;
  }
  return true;
}

// The access lists, and none that the target took over from the folder it was made in.
bool copyAccessLists(int source, int target, bool isFolder) {
  for (const char* const name : {kAccessList, kDefaultAccessList}) {
    if (name == kDefaultAccessList && !isFolder) continue;
    if (fgetxattr(source, name, nullptr, 0) < 0) {
      fremovexattr(target, name);
    } else if (!copyAttribute(source, target, name)) {
      return false;
    }
  }
  return true;
}

// The mode to give after the owner was set as far as permitted.
mode_t modeAfterOwner(const struct stat& status, bool ownerKept) {
  return status.st_mode & (ownerKept ? 07777u : 01777u);
}

bool keepOwner(int target, const struct stat& status) {
  if (fchown(target, status.st_uid, status.st_gid) == 0) return true;
  // The owner is for the superuser; the group may still be one of ours.
  if (fchown(target, static_cast<uid_t>(-1), status.st_gid) != 0) return false;
  return status.st_uid == geteuid();
}

// Everything but the contents. Extended attributes come before a mode that may forbid writing.
bool copyProperties(int source, int target, const struct stat& status) {
  const bool ownerKept = keepOwner(target, status);
  if (!copyAttributes(source, target)) return false;
  if (fchmod(target, modeAfterOwner(status, ownerKept)) != 0 && errno != EPERM &&
      !isNotSupported(errno)) {
    return false;
  }
  if (!copyAccessLists(source, target, S_ISDIR(status.st_mode))) return false;
  const timespec times[2] = {status.st_atim, status.st_mtim};
  return futimens(target, times) == 0;
}

class TreeCopier {
 public:
  TreeCopier(const TreePlace& source, const TreePlace& target, CopiedItems* copied,
             WorkObserver* observer)
      : source_(source), target_(target), copied_(copied), observer_(observer) {}

  std::optional<Error> copy() {
    struct stat status {};
    if (fstatat(source_.parent, source_.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return failure("");
    }
    if (!S_ISDIR(status.st_mode)) {
      return copyItem(source_.parent, source_.name, target_.parent, target_.name, status, "", true);
    }
    if (isMountPoint(source_.parent, source_.name)) return failure("", EBUSY);
    if (auto error = enter(source_.name, true)) return error;
    while (!folders_.empty()) {
      if (observer_ != nullptr && observer_->isCancelled()) return failure("", ECANCELED);
      Folder& folder = folders_.back();
      if (folder.next == folder.entries.size()) {
        if (auto error = leave()) return error;
      } else {
        // Taken out, since entering a folder moves the list.
        const std::string name = std::move(folder.entries[folder.next++]);
        if (auto error = copyEntry(name)) return error;
      }
    }
    return std::nullopt;
  }

 private:
  struct Folder {
    std::string name;
    struct stat status;
    std::vector<std::string> entries;
    std::size_t next = 0;
  };

  std::string pathOf(const std::string& name) const {
    std::string path = source_.path;
    for (std::size_t at = 1; at < folders_.size(); ++at) path += "/" + folders_[at].name;
    return name.empty() ? path : path + "/" + name;
  }

  // Of the item in the current folder, or of that folder itself.
  Error failure(const std::string& name, int code = errno) const {
    const std::string path = pathOf(name);
    Error error = posixError(code, path);
    // Whoever copies the source names it.
    if (name.empty() && folders_.size() <= 1) error.message.erase(0, path.size() + 2);
    return error;
  }

  std::optional<Error> enter(const std::string& name, bool isTop) {
    const int targetParent = isTop ? target_.parent : to_.current();
    const std::string& targetName = isTop ? target_.name : name;
    const std::string shown = isTop ? "" : name;
    if (!(isTop ? from_.begin(source_.parent, name) : from_.enter(name))) return failure(shown);
    Folder folder{shown, {}, {}, 0};
    std::vector<DirectoryEntry> entries;
    if (fstat(from_.current(), &folder.status) != 0 || !readEntries(from_.current(), entries)) {
      return failure(shown);
    }
    for (DirectoryEntry& entry : entries) folder.entries.push_back(std::move(entry.name));
    if (mkdirat(targetParent, targetName.c_str(), 0700) != 0 ||
        !(isTop ? to_.begin(targetParent, targetName) : to_.enter(targetName))) {
      return failure(shown);
    }
    fremovexattr(to_.current(), kDefaultAccessList);
    folders_.push_back(std::move(folder));
    return std::nullopt;
  }

  // Completes the folder that the walk is in and goes up.
  std::optional<Error> leave() {
    const bool isTop = folders_.size() == 1;
    const Descriptor from(fcntl(from_.current(), F_DUPFD_CLOEXEC, 0));
    const Descriptor to(fcntl(to_.current(), F_DUPFD_CLOEXEC, 0));
    if (!from || !to) return failure("");
    // Up first: the mode that the folder gets now may forbid searching it.
    if (!isTop && (!from_.leave() || !to_.leave())) return failure("");
    if (!copyProperties(from.get(), to.get(), folders_.back().status)) return failure("");
    // One flush of the file system costs less than one for each file.
    if (isTop && syncfs(to.get()) != 0) return failure("");
    folders_.pop_back();
    return std::nullopt;
  }

  std::optional<Error> copyEntry(const std::string& name) {
    struct stat status {};
    if (fstatat(from_.current(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return failure(name);
    }
    if (S_ISDIR(status.st_mode)) {
      if (isMountPoint(from_.current(), name)) return failure(name, EBUSY);
      return enter(name, false);
    }
    return copyItem(from_.current(), name, to_.current(), name, status, name, false);
  }

  std::optional<Error> copyItem(int from, const std::string& fromName, int to,
                                const std::string& toName, const struct stat& status,
                                const std::string& shown, bool flush) {
    if (status.st_nlink > 1 && !folders_.empty()) {
      const auto [first, isFirst] =
          hardLinks_.try_emplace({status.st_dev, status.st_ino}, folderNames(), toName);
      if (!isFirst) return linkItem(first->second, to, toName, shown);
    }
    if (S_ISREG(status.st_mode)) return copyFile(from, fromName, to, toName, shown, flush);
    if (copied_ != nullptr) copied_->add(status);
    bool made = false;
    if (S_ISLNK(status.st_mode)) {
      made = copySymbolicLink(from, fromName, to, toName, status);
    } else {
      made = mknodat(to, toName.c_str(), (status.st_mode & S_IFMT) | 0600, status.st_rdev) == 0;
    }
    if (!made) return failure(shown);
    return copyNodeProperties(to, toName, status, shown);
  }

  std::optional<Error> copyFile(int from, const std::string& fromName, int to,
                                const std::string& toName, const std::string& shown, bool flush) {
    const Descriptor source(
        openat(from, fromName.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!source || fstat(source.get(), &status) != 0) return failure(shown);
    if (!S_ISREG(status.st_mode)) return failure(shown, EBUSY);
    const Descriptor target(
        openat(to, toName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!target) return failure(shown);
    for (int attempt = 1;; ++attempt) {
      if (!ContentCopy(source.get(), target.get(), buffer_, observer_).copy(status)) {
        return failure(shown);
      }
      struct stat after {};
      if (fstat(source.get(), &after) != 0) return failure(shown);
      if (sameContent(status, after)) break;
      if (attempt == kMostAttempts) {
        Error error = failure(shown, EBUSY);
        error.message += " (it keeps changing)";
        return error;
      }
      status = after;
      if (ftruncate(target.get(), 0) != 0) return failure(shown);
    }
    if (copied_ != nullptr) copied_->add(status);
    if (!copyProperties(source.get(), target.get(), status)) return failure(shown);
    if (flush && fsync(target.get()) != 0) return failure(shown);
    return std::nullopt;
  }

  static bool copySymbolicLink(int from, const std::string& fromName, int to,
                               const std::string& toName, const struct stat& status) {
    std::string text(std::max<std::size_t>(static_cast<std::size_t>(status.st_size) + 1, PATH_MAX),
                     '\0');
    const ssize_t length = readlinkat(from, fromName.c_str(), text.data(), text.size());
    if (length < 0) return false;
    text.resize(static_cast<std::size_t>(length));
    return symlinkat(text.c_str(), to, toName.c_str()) == 0;
  }

  // Owner, mode and times of what cannot be opened.
  std::optional<Error> copyNodeProperties(int to, const std::string& toName,
                                          const struct stat& status, const std::string& shown) {
    const bool ownerKept =
        fchownat(to, toName.c_str(), status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) == 0;
    if (!S_ISLNK(status.st_mode) &&
        fchmodat(to, toName.c_str(), modeAfterOwner(status, ownerKept), 0) != 0) {
      return failure(shown);
    }
    const timespec times[2] = {status.st_atim, status.st_mtim};
    if (utimensat(to, toName.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) return failure(shown);
    return std::nullopt;
  }

  // The names of the folders from the top of the copy to the current one, the top left out.
  std::vector<std::string> folderNames() const {
    std::vector<std::string> names;
    for (std::size_t at = 1; at < folders_.size(); ++at) names.push_back(folders_[at].name);
    return names;
  }

  struct FirstLink {
    FirstLink(std::vector<std::string> folders, std::string name)
        : folders(std::move(folders)), name(std::move(name)) {}
    std::vector<std::string> folders;
    std::string name;
  };

  std::optional<Error> linkItem(const FirstLink& first, int to, const std::string& toName,
                                const std::string& shown) {
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor folder(openat(target_.parent, target_.name.c_str(), kFlags));
    for (const std::string& name : first.folders) {
      if (folder) folder.reset(openat(folder.get(), name.c_str(), kFlags));
    }
    if (!folder || linkat(folder.get(), first.name.c_str(), to, toName.c_str(), 0) != 0) {
      return failure(shown);
    }
    return std::nullopt;
  }

  const TreePlace& source_;
  const TreePlace& target_;
  CopiedItems* const copied_;
  WorkObserver* const observer_;
  DirectoryCursor from_;
  DirectoryCursor to_;
  std::vector<Folder> folders_;
  // Where the first of several links to one file was copied to.
  std::map<std::pair<dev_t, ino_t>, FirstLink> hardLinks_;
  std::vector<char> buffer_;
};

}  // namespace

void CopiedItems::add(const struct stat& status) {
  contents_.insert_or_assign(
      {status.st_dev, status.st_ino},
      Content{status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec});
}

bool CopiedItems::contains(const struct stat& status) const {
  const auto found = contents_.find({status.st_dev, status.st_ino});
  return found != contents_.end() &&
         found->second == Content{status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

std::optional<Error> copyTree(const TreePlace& source, const TreePlace& target, CopiedItems* copied,
                              WorkObserver* observer) {
  struct stat existing {};
  if (fstatat(target.parent, target.name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
    return posixError(EEXIST, target.path);
  }
  auto error = TreeCopier(source, target, copied, observer).copy();
  if (error) removeOwnTree(target.parent, target.name, target.path);
  return error;
}

}  // namespace tervano
