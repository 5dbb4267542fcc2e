#include "tools/remove/item_removal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tools/remove/overwrite.h"

namespace tervano {

namespace {

// The item itself, whatever its name stands for meanwhile.
std::string pathOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

// Opens the regular file `place` for writing. A file of ours that may not be written to is made
// writable; it gets its mode back when it cannot be opened all the same.
class WritableFile {
 public:
  WritableFile(int place, mode_t mode) : path_(pathOfDescriptor(place)), mode_(mode & 07777) {
    open();
    if (file_ || errno != EACCES) return;
    if (chmod(path_.c_str(), mode_ | S_IWUSR) != 0) {
      errno = EACCES;
      return;
    }
    isChanged_ = true;
    open();
    if (!file_) restore();
  }

  int descriptor() const { return file_.get(); }
  explicit operator bool() const { return static_cast<bool>(file_); }
  void restore() const {
    const int keep = errno;
    if (isChanged_) chmod(path_.c_str(), mode_);
    errno = keep;
  }

 private:
  void open() { file_.reset(::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)); }

  const std::string path_;
  const mode_t mode_;
  bool isChanged_ = false;
  Descriptor file_;
};

bool isSameItem(const struct statx& one, const struct statx& other) {
  return one.stx_ino == other.stx_ino && one.stx_dev_major == other.stx_dev_major &&
         one.stx_dev_minor == other.stx_dev_minor;
}

}  // namespace

std::shared_ptr<const RemovalFolder> RemovalFolder::open(int folder) {
  Descriptor descriptor(fcntl(folder, F_DUPFD_CLOEXEC, 0));
  if (!descriptor) return nullptr;
  return std::shared_ptr<const RemovalFolder>(new RemovalFolder(std::move(descriptor)));
}

RemovalFolder::RemovalFolder(Descriptor descriptor) : descriptor_(std::move(descriptor)) {
  if (faccessat(descriptor_.get(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
    refusal_ = errno;
    return;
  }
  struct statx status {};
  if (statx(descriptor_.get(), "", AT_EMPTY_PATH, STATX_MODE | STATX_UID, &status) != 0) return;
  if ((status.stx_attributes & STATX_ATTR_APPEND) != 0) refusal_ = EPERM;
  needsOwner_ = (status.stx_mode & S_ISVTX) != 0 && geteuid() != 0 && status.stx_uid != geteuid();
}

int RemovalFolder::refusal(uid_t owner) const {
  if (refusal_ != 0) return refusal_;
  return needsOwner_ && owner != geteuid() ? EPERM : 0;
}

void IncompleteFolders::add(int folder) {
  struct stat status {};
  if (fstat(folder, &status) != 0) return;
  const std::scoped_lock lock(mutex_);
  folders_.insert({status.st_dev, status.st_ino});
}

bool IncompleteFolders::contains(int parent, const std::string& name) const {
  struct stat status {};
  if (fstatat(parent, name.c_str(), &status, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) != 0) {
    return false;
  }
  const std::scoped_lock lock(mutex_);
  return folders_.contains({status.st_dev, status.st_ino});
}

// Removes one item.
class ItemRemoval::Attempt {
 public:
  Attempt(ItemRemoval& removal, const RemovalFolder& folder, const std::string& name,
          const std::string& path)
      : removal_(removal), folder_(folder), name_(name), path_(path) {}

  void overwriteAndUnlink(RandomBytes& random) {
    place_.reset(openat(folder_.descriptor(), name_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!place_ || !look()) {
      if (errno != ENOENT) couldNotRemove(errno);
    } else if ((status_.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
      couldNotRemove("something is mounted there");
    } else if (S_ISDIR(status_.stx_mode)) {
      couldNotRemove("another item took its place meanwhile");
    } else if (const int code = folder_.refusal(status_.stx_uid); code != 0) {
      couldNotRemove(code);
    } else if (!S_ISREG(status_.stx_mode)) {
      unlinkName();
    } else if (status_.stx_nlink <= 1 || !removeOneOfSeveralNames(random)) {
      removeLastName(random);
    }
  }

  bool unlinkName() {
    if (unlinkat(folder_.descriptor(), name_.c_str(), 0) == 0) {
      removal_.report_.removed(path_);
      return true;
    }
    if (errno != ENOENT) couldNotRemove(errno);
    return false;
  }

 private:
  bool look() { return statx(place_.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS, &status_) == 0; }

  void couldNotRemove(int code) { couldNotRemove(std::generic_category().message(code)); }
  void couldNotRemove(const std::string& reason) {
    stays();
    removal_.report_.couldNotRemove(path_, reason);
  }
  void failed(const std::string& sentence) {
    stays();
    removal_.report_.failed(sentence);
  }
  void stays() { removal_.incomplete_.add(folder_.descriptor()); }

  // False when the file turns out to have one name only.
  bool removeOneOfSeveralNames(RandomBytes& random) {
    {
      const std::scoped_lock lock(removal_.names_);
      if (!look() || status_.stx_nlink <= 1) return false;
      if (!unlinkName()) return true;
      if (!look() || status_.stx_nlink > 0) return true;
    }
    // Another process removed the others at the same time.
    if (const int code = overwrite(random); code != 0) {
      removal_.report_.failed(
          "Could not overwrite " + Report::quoted(path_) +
          ", whose last name is gone: " + std::generic_category().message(code));
    }
    return true;
  }

  void removeLastName(RandomBytes& random) {
    if (const int code = overwrite(random); code != 0) {
      failed("Could not overwrite " + Report::quoted(path_) +
             ", so it was not removed: " + std::generic_category().message(code));
      return;
    }
    struct statx now {};
    if (statx(folder_.descriptor(), name_.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_INO,
              &now) == 0 &&
        !isSameItem(status_, now)) {
      couldNotRemove("another item took its place meanwhile");
      return;
    }
    unlinkName();
  }

  // Answers 0 or why the contents are not, or not wholly, overwritten.
  int overwrite(RandomBytes& random) {
    if (status_.stx_size == 0 && status_.stx_blocks == 0) return 0;
    const WritableFile file(place_.get(), status_.stx_mode);
    if (!file) return errno;
    const int code = overwriteContents(file.descriptor(), random);
    if (code != 0) file.restore();
    return code;
  }

  ItemRemoval& removal_;
  const RemovalFolder& folder_;
  const std::string& name_;
  const std::string& path_;
  Descriptor place_;
  struct statx status_ {};
};

void ItemRemoval::unlink(const RemovalFolder& folder, const std::string& name,
                         const std::string& path) {
  Attempt(*this, folder, name, path).unlinkName();
}

void ItemRemoval::overwriteAndUnlink(const RemovalFolder& folder, const std::string& name,
                                     const std::string& path, RandomBytes& random) {
  Attempt(*this, folder, name, path).overwriteAndUnlink(random);
}

}  // namespace tervano
