#include "platform/linux/unfinished_items.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <sstream>

#include "archive/url.h"
#include "platform/linux/directory_cursor.h"
#include "platform/linux/tree_remove.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

constexpr std::size_t kLongestNote = std::size_t{64} * 1024;

std::string notesFolder() {
  return stateHomeFolder() + "/tervano/unfinished";
}

bool makeNotesFolder() {
  std::string folder = stateHomeFolder();
  // The folder above may be missing in a home that nothing has used yet.
  mkdir(deletingLastPathComponent(folder).c_str(), 0700);
  mkdir(folder.c_str(), 0700);
  for (const char* const name : {"/tervano", "/unfinished"}) {
    folder += name;
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  return true;
}

// What tells a folder from another that gets its path. It is the same after the disk was mounted
// again, which the number of a device is not.
struct FolderIdentity {
  // 0 where folders are numbered anew by each mount.
  std::uint64_t number = 0;
  // When the folder was made; 0 where the file system does not keep it.
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;

  friend bool operator==(const FolderIdentity&, const FolderIdentity&) = default;
};

std::optional<FolderIdentity> identityOf(int folder) {
  struct statx status {};
  struct statfs volume {};
  if (statx(folder, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &status) != 0 ||
      fstatfs(folder, &volume) != 0) {
    return std::nullopt;
  }
  FolderIdentity identity;
  const auto type = static_cast<std::uint64_t>(volume.f_type);
  if (type != MSDOS_SUPER_MAGIC && type != EXFAT_SUPER_MAGIC) identity.number = status.stx_ino;
  if ((status.stx_mask & STATX_BTIME) != 0) {
    identity.seconds = status.stx_btime.tv_sec;
    identity.nanoseconds = status.stx_btime.tv_nsec;
  }
  return identity;
}

struct NotedItem {
  FolderIdentity identity;
  std::string folder;
  std::string name;
};

std::string noteText(const FolderIdentity& folder, const std::string& path) {
  return std::to_string(folder.number) + " " + std::to_string(folder.seconds) + " " +
         std::to_string(folder.nanoseconds) + "\n" + path;
}

std::optional<NotedItem> readNote(int note) {
  std::string text(kLongestNote, '\0');
  const ssize_t length = pread(note, text.data(), text.size(), 0);
  if (length <= 0) return std::nullopt;
  text.resize(static_cast<std::size_t>(length));
  const auto lineEnd = text.find('\n');
  if (lineEnd == std::string::npos) return std::nullopt;
  NotedItem item;
  std::istringstream numbers(text.substr(0, lineEnd));
  FolderIdentity& identity = item.identity;
  if (!(numbers >> identity.number >> identity.seconds >> identity.nanoseconds)) {
    return std::nullopt;
  }
  const std::string path = text.substr(lineEnd + 1);
  item.folder = deletingLastPathComponent(path);
  item.name = lastPathComponent(path);
  if (!path.starts_with('/') || !item.name.starts_with(UnfinishedItem::kPrefix)) {
    return std::nullopt;
  }
  return item;
}

enum class LeftOver { removed, gone, kept };

LeftOver removeNoted(const NotedItem& item) {
  const Descriptor folder(open(item.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder || identityOf(folder.get()) != item.identity) return LeftOver::kept;
  struct stat status {};
  if (fstatat(folder.get(), item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? LeftOver::gone : LeftOver::kept;
  }
  if (status.st_uid != geteuid()) return LeftOver::kept;
  const auto error = removeOwnTree(folder.get(), item.name, item.folder + "/" + item.name);
  return error ? LeftOver::kept : LeftOver::removed;
}

}  // namespace

UnfinishedItem::UnfinishedItem(const std::string& path) {
  const Descriptor folder(
      open(deletingLastPathComponent(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const auto identity = folder ? identityOf(folder.get()) : std::nullopt;
  if (!identity || !makeNotesFolder()) return;
  const std::string text = noteText(*identity, path);
  if (text.size() > kLongestNote) return;
  // Somebody who looks for left-overs may take a note in the moment before it is locked.
  for (int attempt = 0; attempt < 3; ++attempt) {
    const std::string note = notesFolder() + "/" + randomFileNameSuffix();
    Descriptor file(open(note.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat status {};
    if (!file || flock(file.get(), LOCK_EX) != 0 || fstat(file.get(), &status) != 0) return;
    if (status.st_nlink == 0) continue;
    note_ = note;
    path_ = path;
    lock_ = std::move(file);
    if (!writeFully(lock_.get(), text.data(), text.size())) forget();
    return;
  }
}

UnfinishedItem& UnfinishedItem::operator=(UnfinishedItem&& other) noexcept {
  if (this == &other) return *this;
  forget();
  note_ = std::move(other.note_);
  path_ = std::move(other.path_);
  lock_ = std::move(other.lock_);
  return *this;
}

UnfinishedItem::~UnfinishedItem() {
  forget();
}

void UnfinishedItem::forget() {
  if (!lock_) return;
  struct stat status {};
  // An item that could not be removed keeps its note, for whoever looks for left-overs next.
  if (lstat(path_.c_str(), &status) != 0) unlink(note_.c_str());
  lock_.reset();
}

std::vector<std::string> UnfinishedItem::removeLeftOvers() {
  std::vector<std::string> removed;
  const Descriptor folder(open(notesFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<DirectoryEntry> notes;
  if (!folder || !readEntries(folder.get(), notes)) return removed;
  for (const auto& entry : notes) {
    const char* const name = entry.name.c_str();
    const Descriptor note(
        openat(folder.get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    // Whoever holds the lock is still at work.
    if (!note || flock(note.get(), LOCK_EX | LOCK_NB) != 0) continue;
    const auto item = readNote(note.get());
    const LeftOver what = item ? removeNoted(*item) : LeftOver::gone;
    if (what == LeftOver::kept) continue;
    unlinkat(folder.get(), name, 0);
    if (what == LeftOver::removed) removed.push_back(item->folder + "/" + item->name);
  }
  return removed;
}

}  // namespace tervano
