#include "tools/images/result_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/linux/user_folders.h"
#include "tools/images/abrupt_end.h"

namespace tervano {

namespace {

constexpr mode_t kMode = 0666;

std::string nameInProc(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

bool lacksSupport(int code) {
  return code == EOPNOTSUPP || code == EISDIR || code == EINVAL || code == ENOENT || code == ENOSYS;
}

}  // namespace

ResultFile::ResultFile(const std::string& path) {
  const auto slash = path.rfind('/');
  name_ = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::string folder = slash == std::string::npos ? "."
                             : slash == 0               ? "/"
                                                        : path.substr(0, slash);
  if (path.empty()) {
    code_ = ENOENT;
  } else if (name_.empty() || name_ == "." || name_ == "..") {
    code_ = EISDIR;
  } else {
    folder_.reset(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder_) code_ = errno;
  }
}

ResultFile::~ResultFile() {
  if (temporary_.empty()) return;
  struct stat ours {};
  struct stat found {};
  // The name may stand for another file by now.
  if (fstat(file_.get(), &ours) == 0 &&
      fstatat(folder_.get(), temporary_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
      ours.st_dev == found.st_dev && ours.st_ino == found.st_ino) {
    unlinkat(folder_.get(), temporary_.c_str(), 0);
  }
  forgetAtAbruptEnd();
}

int ResultFile::checkPlace() const {
  if (code_ != 0) return code_;
  struct stat status {};
  if (fstatat(folder_.get(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return errno == ENOENT ? 0 : errno;
}

int ResultFile::begin() {
  if (code_ != 0) return code_;
  const bool canBeLinked = access("/proc/self/fd", X_OK) == 0;
  if (canBeLinked) {
    file_.reset(openat(folder_.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kMode));
    if (file_) return 0;
    if (!lacksSupport(errno)) return errno;
  }
  const std::string temporary = ".tervano-" + randomFileNameSuffix();
  removeAtAbruptEnd(folder_.get(), temporary);
  file_.reset(openat(folder_.get(), temporary.c_str(),
                     O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
  if (!file_) {
    forgetAtAbruptEnd();
    return errno;
  }
  temporary_ = temporary;
  return 0;
}

int ResultFile::publish() {
  // File systems that write when a file is closed tell only then that they could not.
  const int another = fcntl(file_.get(), F_DUPFD_CLOEXEC, 3);
  if (another >= 0 && close(another) != 0 && errno != EINTR) return errno;
  if (!temporary_.empty()) return publishNamed();
  if (linkat(AT_FDCWD, nameInProc(file_.get()).c_str(), folder_.get(), name_.c_str(),
             AT_SYMLINK_FOLLOW) == 0) {
    return 0;
  }
  return errno == EEXIST ? errno : copyIntoPlace();
}

int ResultFile::publishNamed() {
  if (renameat2(folder_.get(), temporary_.c_str(), folder_.get(), name_.c_str(),
                RENAME_NOREPLACE) == 0) {
    temporary_.clear();
    forgetAtAbruptEnd();
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // The hidden name goes with this object.
  if (linkat(folder_.get(), temporary_.c_str(), folder_.get(), name_.c_str(), 0) == 0) return 0;
  if (errno == EEXIST) return errno;
  return copyIntoPlace();
}

int ResultFile::copyIntoPlace() {
  Descriptor place(openat(folder_.get(), name_.c_str(),
                          O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
  if (!place) return errno;
  // From now on it is the visible name that is unfinished.
  if (!temporary_.empty()) unlinkat(folder_.get(), temporary_.c_str(), 0);
  temporary_ = name_;
  removeAtAbruptEnd(folder_.get(), temporary_);
  const Descriptor source = std::exchange(file_, std::move(place));
  std::array<char, 65536> block{};
  for (off_t offset = 0;;) {
    const ssize_t count = pread(source.get(), block.data(), block.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    if (!writeFully(file_.get(), block.data(), static_cast<std::size_t>(count))) return errno;
    offset += count;
  }
  if (fsync(file_.get()) != 0 && errno != EINVAL) return errno;
  temporary_.clear();
  forgetAtAbruptEnd();
  return 0;
}

}  // namespace tervano
