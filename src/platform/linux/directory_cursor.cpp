#include "platform/linux/directory_cursor.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace tervano {

namespace {

constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Levels further up are closed and found again through "..".
constexpr std::size_t kOpenLevels = 16;

}  // namespace

bool DirectoryCursor::begin(int parent, const std::string& name) {
  levels_.clear();
  return push(Descriptor(openat(parent, name.c_str(), kOpenFlags)));
}

bool DirectoryCursor::enter(const std::string& name) {
  return push(Descriptor(openat(current(), name.c_str(), kOpenFlags)));
}

bool DirectoryCursor::push(Descriptor folder) {
  struct stat status {};
  if (!folder || fstat(folder.get(), &status) != 0) return false;
  levels_.push_back({std::move(folder), status.st_dev, status.st_ino});
  if (levels_.size() > kOpenLevels) levels_[levels_.size() - 1 - kOpenLevels].folder.reset();
  return true;
}

bool DirectoryCursor::leave() {
  Level& above = levels_[levels_.size() - 2];
  if (!above.folder) {
    Descriptor folder(openat(current(), "..", kOpenFlags));
    struct stat status {};
    if (!folder || fstat(folder.get(), &status) != 0) return false;
    if (status.st_dev != above.device || status.st_ino != above.inode) {
      errno = ESTALE;
      return false;
    }
    above.folder = std::move(folder);
  }
  levels_.pop_back();
  return true;
}

bool readEntries(int folder, std::vector<DirectoryEntry>& entries) {
  Descriptor copy(fcntl(folder, F_DUPFD_CLOEXEC, 0));
  if (!copy) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(copy.get()), closedir);
  if (stream == nullptr) return false;
  copy.release();
  rewinddir(stream.get());
  while (true) {
    errno = 0;
    const dirent* const entry = readdir(stream.get());
    if (entry == nullptr) return errno == 0;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") entries.push_back({std::string(name), entry->d_type});
  }
}

bool isMountPoint(int parent, const std::string& name) {
  struct statx status {};
  return statx(parent, name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, 0, &status) == 0 &&
         (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool isMountRoot(int item) {
  struct statx status {};
  return statx(item, "", AT_EMPTY_PATH, 0, &status) == 0 &&
         (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool isSameOrBelow(int folder, const struct stat& status) {
  Descriptor place(openat(folder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat here {};
  if (!place || fstat(place.get(), &here) != 0) return false;
  while (true) {
    if (here.st_dev == status.st_dev && here.st_ino == status.st_ino) return true;
    place.reset(openat(place.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat above {};
    if (!place || fstat(place.get(), &above) != 0) return false;
    if (above.st_dev == here.st_dev && above.st_ino == here.st_ino) return false;
    here = above;
  }
}

}  // namespace tervano
