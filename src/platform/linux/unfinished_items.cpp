#include "platform/linux/unfinished_items.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

// An item as a note names it: the folder by its number too, since another may get its path.
struct NotedItem {
  dev_t device = 0;
  ino_t inode = 0;
  std::string folder;
  std::string name;
};

std::string noteText(const struct stat& folder, const std::string& path) {
  return std::to_string(folder.st_dev) + " " + std::to_string(folder.st_ino) + "\n" + path;
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
  if (!(numbers >> item.device >> item.inode)) return std::nullopt;
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
  const Descriptor folder(open(item.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!folder || fstat(folder.get(), &status) != 0) return LeftOver::kept;
  if (status.st_dev != item.device || status.st_ino != item.inode) return LeftOver::kept;
  if (fstatat(folder.get(), item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? LeftOver::gone : LeftOver::kept;
  }
  if (status.st_uid != geteuid()) return LeftOver::kept;
  const auto error = removeTree(folder.get(), item.name, item.folder + "/" + item.name);
  return error ? LeftOver::kept : LeftOver::removed;
}

}  // namespace

UnfinishedItem::UnfinishedItem(const std::string& path) {
  struct stat folder {};
  if (stat(deletingLastPathComponent(path).c_str(), &folder) != 0 || !makeNotesFolder()) return;
  const std::string text = noteText(folder, path);
  if (text.size() > kLongestNote) return;
  // Somebody who looks for left-overs may take a note in the moment before it is locked.
  for (int attempt = 0; attempt < 3; ++attempt) {
    const std::string note = notesFolder() + "/" + randomFileNameSuffix();
    Descriptor file(open(note.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat status {};
    if (!file || flock(file.get(), LOCK_EX) != 0 || fstat(file.get(), &status) != 0) return;
    if (status.st_nlink == 0) continue;
    note_ = note;
    lock_ = std::move(file);
    if (!writeFully(lock_.get(), text.data(), text.size())) forget();
    return;
  }
}

UnfinishedItem& UnfinishedItem::operator=(UnfinishedItem&& other) noexcept {
  if (this == &other) return *this;
  forget();
  note_ = std::move(other.note_);
  lock_ = std::move(other.lock_);
  return *this;
}

UnfinishedItem::~UnfinishedItem() {
  forget();
}

void UnfinishedItem::forget() {
  if (lock_) unlink(note_.c_str());
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
