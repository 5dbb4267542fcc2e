#include "platform/linux/posix_file_manager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

#include "platform/linux/directory_cursor.h"
#include "platform/linux/tree_copy.h"
#include "platform/linux/tree_remove.h"
#include "platform/linux/unfinished_items.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

// How often what is to be replaced may go away and come back before the copy has its name.
constexpr int kMostReplacements = 100;
constexpr char kOurGroup[] = "Q4T7N2XR8K.com.vessok.tervano";

bool isUsable(const std::string& path) {
  return !path.empty() && path.find('\0') == std::string::npos;
}

std::string temporaryName() {
  return UnfinishedItem::kPrefix + randomFileNameSuffix();
}

// A path split into its open folder and the item's own name.
class ItemPlace {
 public:
  explicit ItemPlace(const std::string& path) : path_(withoutTrailingSlashes(path)) {
    if (!isUsable(path)) {
      code_ = EINVAL;
      return;
    }
    const auto slash = path_.rfind('/');
    name_ = slash == std::string::npos ? path_ : path_.substr(slash + 1);
    const std::string folder = slash == std::string::npos ? "."
                               : slash == 0               ? "/"
                                                          : path_.substr(0, slash);
    if (name_.empty() || name_ == "." || name_ == "..") {
      // The top of the file system, or a name that is no item of its folder.
      code_ = name_.empty() ? EBUSY : EINVAL;
      return;
    }
    folder_.reset(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A folder that may be searched but not listed still serves for naming its items.
    if (!folder_ && errno == EACCES) {
      folder_.reset(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    if (!folder_) code_ = errno;
  }

  // Why there is no such place, 0 when there is.
  int code() const { return code_; }
  int folder() const { return folder_.get(); }
  const std::string& name() const { return name_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::string name_;
  Descriptor folder_;
  int code_ = 0;
};

// Renames without ever replacing. For file systems that cannot do that in one step, a link or an
// empty folder takes the new name first. Answers 0 or the reason.
int renameWithoutReplacing(int fromFolder, const std::string& from, int toFolder,
                           const std::string& to) {
  if (renameat2(fromFolder, from.c_str(), toFolder, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  struct stat status {};
  if (fstatat(fromFolder, from.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (S_ISDIR(status.st_mode)) {
    if (isSameOrBelow(toFolder, status)) return EINVAL;
    if (mkdirat(toFolder, to.c_str(), 0700) != 0) return errno;
    if (renameat(fromFolder, from.c_str(), toFolder, to.c_str()) == 0) return 0;
    const int reason = errno;
    unlinkat(toFolder, to.c_str(), AT_REMOVEDIR);
    return reason;
  }
  if (linkat(fromFolder, from.c_str(), toFolder, to.c_str(), 0) == 0) {
    if (unlinkat(fromFolder, from.c_str(), 0) == 0) return 0;
    const int reason = errno;
    unlinkat(toFolder, to.c_str(), 0);
    return reason;
  }
  if (errno == EEXIST || errno == EXDEV) return errno;
  // No hard links either, such as on FAT: the best that is left.
  if (fstatat(toFolder, to.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return renameat(fromFolder, from.c_str(), toFolder, to.c_str()) == 0 ? 0 : errno;
}

void flushFolder(int folder) {
  // Not every file system can; the rename itself has happened.
  if (fsync(folder) != 0) errno = 0;
}

std::string movePhrase(const std::string& from, const std::string& to) {
  return "Could not move " + from + " to " + to;
}

std::string copyPhrase(const std::string& from, const std::string& to) {
  return "Could not copy " + from + " to " + to;
}

// Gives the name of what lies there to the whole copy, and what lay there the hidden name
// `replaced`. Answers 0 or the reason; then `replaced` is empty unless what lay there has that name
// now.
int takeName(const ItemPlace& to, const std::string& temporary, std::string& replaced) {
  const int folder = to.folder();
  const char* const name = to.name().c_str();
  if (renameat2(folder, temporary.c_str(), folder, name, RENAME_EXCHANGE) == 0) {
    replaced = temporary;
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // In two steps where the file system has no exchange.
  const std::string aside = temporaryName();
  if (const int code = renameWithoutReplacing(folder, to.name(), folder, aside)) return code;
  const int code = renameWithoutReplacing(folder, temporary, folder, to.name());
  if (code == 0 || renameWithoutReplacing(folder, aside, folder, to.name()) != 0) replaced = aside;
  return code;
}

std::optional<Error> removeReplaced(const ItemPlace& to, const std::string& temporary,
                                    const std::string& replaced, const std::string& phrase) {
  auto error = removeTree(to.folder(), replaced, to.path());
  if (!error) return std::nullopt;
  std::string kept = replaced;
  // The copy's hidden name is noted as unfinished work of ours, and this is the user's.
  if (kept == temporary) {
    const std::string aside = temporaryName();
    if (renameWithoutReplacing(to.folder(), kept, to.folder(), aside) == 0) kept = aside;
  }
  error->message = phrase + ": what it replaces is now called " + kept + ". " + error->message;
  return error;
}

// Gives the whole copy its own name.
std::optional<Error> putInPlace(const ItemPlace& to, const std::string& temporary, bool replaces,
                                const std::string& phrase) {
  for (int attempt = 1;; ++attempt) {
    std::string replaced;
    int code = renameWithoutReplacing(to.folder(), temporary, to.folder(), to.name());
    if (code == EEXIST && replaces) {
      code = takeName(to, temporary, replaced);
      // What had the name went away in between.
      if (code == ENOENT && attempt < kMostReplacements) continue;
    }
    if (code == 0) {
      flushFolder(to.folder());
      return replaced.empty() ? std::nullopt : removeReplaced(to, temporary, replaced, phrase);
    }
    removeOwnTree(to.folder(), temporary, to.path());
    Error error = posixError(code, phrase);
    if (!replaced.empty()) error.message += "; what it replaces is now called " + replaced;
    return error;
  }
}

// Copies under a hidden name, then renames into place. An observer notes the hidden name, else it
// is done here.
std::optional<Error> copyIntoPlace(const ItemPlace& from, const ItemPlace& to,
                                   const std::string& phrase, CopiedItems* copied,
                                   const ItemCopy& copy) {
  const std::string temporary = temporaryName();
  const std::string hidden =
      appendingPathComponent(deletingLastPathComponent(to.path()), temporary);
  UnfinishedItem note;
  if (copy.observer != nullptr) {
    copy.observer->willMakeTemporary(hidden);
  } else {
    note = UnfinishedItem(hidden);
  }
  if (auto error = copyTree({from.folder(), from.name(), from.path()},
                            {to.folder(), temporary, to.path()}, copied, copy.observer)) {
    error->message = phrase + ": " + error->message;
    return error;
  }
  return putInPlace(to, temporary, copy.replaces, phrase);
}

// Moves between file systems: a copy under a hidden name, flushed, then renamed into place, then
// the source removed as far as it was copied.
std::optional<Error> moveByCopying(const ItemPlace& from, const ItemPlace& to,
                                   WorkObserver* observer) {
  // Would leave both, so it is better found out before anything is copied.
  if (faccessat(from.folder(), ".", W_OK | X_OK, AT_EACCESS) != 0) {
    return posixError(errno, movePhrase(from.path(), to.path()));
  }
  CopiedItems copied;
  if (auto error = copyIntoPlace(from, to, movePhrase(from.path(), to.path()), &copied,
                                 {from.path(), to.path(), false, observer})) {
    return error;
  }
  const RemovalFilter onlyCopied = [&copied](const struct stat& status, const std::string& path) {
    return copied.contains(status)
               ? std::nullopt
               : std::optional(Error{"POSIX", EBUSY, path + " changed while it was being moved"});
  };
  if (auto error = removeTree(from.folder(), from.name(), from.path(), onlyCopied)) {
    error->message = "Copied " + from.path() + " to " + to.path() +
                     ", but the original is still there. " + error->message;
    return error;
  }
  return std::nullopt;
}

std::optional<Error> writeInPlace(const Data& data, const std::string& path) {
  const Descriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY | O_CLOEXEC, 0600));
  if (!file || !writeFully(file.get(), data.data(), data.size())) {
    return posixError(errno, "Could not write " + path);
  }
  return std::nullopt;
}

// Fills the new file; false with errno set.
bool fillReplacement(int file, const Data& data, const struct stat* replaced) {
  if (!writeFully(file, data.data(), data.size())) return false;
  if (replaced != nullptr) {
    // Another owner's file keeps its owner where that is permitted; the mode stays in any case.
    if (fchown(file, replaced->st_uid, replaced->st_gid) != 0) errno = 0;
    if (fchmod(file, replaced->st_mode & 07777) != 0) return false;
  }
  return fsync(file) == 0;
}

std::optional<Error> writeByReplacing(const Data& data, const std::string& path) {
  struct stat linkStatus {};
  std::string target = path;
  if (lstat(path.c_str(), &linkStatus) == 0 && S_ISLNK(linkStatus.st_mode)) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr),
                                                               std::free);
    if (resolved != nullptr) target = resolved.get();
  }
  const ItemPlace place(target);
  const auto failure = [&](int code) { return posixError(code, "Could not write " + path); };
  if (place.code() != 0) return failure(place.code());
  struct stat replaced {};
  const bool replaces =
      fstatat(place.folder(), place.name().c_str(), &replaced, AT_SYMLINK_NOFOLLOW) == 0;
  if (replaces && S_ISDIR(replaced.st_mode)) return failure(EISDIR);
  const std::string temporary = temporaryName();
  Descriptor file(openat(place.folder(), temporary.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) return failure(errno);
  const bool keepsMode = replaces && S_ISREG(replaced.st_mode);
  if (!fillReplacement(file.get(), data, keepsMode ? &replaced : nullptr) ||
      renameat(place.folder(), temporary.c_str(), place.folder(), place.name().c_str()) != 0) {
    const int code = errno;
    unlinkat(place.folder(), temporary.c_str(), 0);
    return failure(code);
  }
  flushFolder(place.folder());
  return std::nullopt;
}

std::optional<Error> readAll(int file, off_t expected, const std::string& path, Data& data) {
  constexpr std::size_t kLeastRoom = 4096;
  data.resize(static_cast<std::size_t>(expected) + 1);
  std::size_t filled = 0;
  while (true) {
    if (filled == data.size()) data.resize(data.size() + std::max(data.size(), kLeastRoom));
    const ssize_t count = read(file, data.data() + filled, data.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return posixError(errno, "Could not read " + path);
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  data.resize(filled);
  return std::nullopt;
}

std::optional<Error> readRegularFile(const std::string& path, Data& data) {
  if (!isUsable(path)) return posixError(EINVAL, "Could not read " + path);
  // Opening a named pipe must not wait for its writer.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    return posixError(errno, "Could not read " + path);
  }
  if (S_ISDIR(status.st_mode)) return posixError(EISDIR, "Could not read " + path);
  if (!S_ISREG(status.st_mode)) return posixError(EINVAL, "Could not read " + path);
  try {
    return readAll(file.get(), status.st_size, path, data);
  } catch (const std::bad_alloc&) {
    return posixError(ENOMEM, "Could not read " + path);
  } catch (const std::length_error&) {
    return posixError(EFBIG, "Could not read " + path);
  }
}

}  // namespace

PosixFileManager::PosixFileManager() : groups_{kOurGroup} {}

void PosixFileManager::registerGroup(const std::string& groupIdentifier) {
  const std::lock_guard lock(mutex_);
  groups_.insert(groupIdentifier);
}

std::optional<Url> PosixFileManager::containerURLForSecurityApplicationGroupIdentifier(
    const std::string& groupIdentifier) const {
  {
    const std::lock_guard lock(mutex_);
    if (!supportsGroupContainers_ || groups_.count(groupIdentifier) == 0) return std::nullopt;
  }
  return Url::fileURLWithPath(appendingPathComponent(dataHomeFolder(), groupIdentifier), true);
}

bool PosixFileManager::fileExistsAtPath(const std::string& path) const {
  return isUsable(path) && access(path.c_str(), F_OK) == 0;
}

bool PosixFileManager::itemExistsAtPath(const std::string& path) const {
  struct stat status {};
  return isUsable(path) && lstat(std::string(withoutTrailingSlashes(path)).c_str(), &status) == 0;
}

bool PosixFileManager::isDirectoryAtPath(const std::string& path) const {
  struct stat status {};
  return isUsable(path) && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool PosixFileManager::isWritableFileAtPath(const std::string& path) const {
  return isUsable(path) && faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

std::vector<std::string> PosixFileManager::contentsOfDirectoryAtPath(
    const std::string& path) const {
  std::vector<DirectoryEntry> entries;
  std::vector<std::string> names;
  if (!isUsable(path)) return names;
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder || !readEntries(folder.get(), entries)) return names;
  names.reserve(entries.size());
  for (DirectoryEntry& entry : entries) names.push_back(std::move(entry.name));
  return names;
}

std::optional<Data> PosixFileManager::contentsAtPath(const std::string& path,
                                                     std::optional<Error>* error) const {
  Data data;
  std::optional<Error> reason = readRegularFile(path, data);
  const bool isRead = !reason;
  if (error != nullptr) *error = std::move(reason);
  return isRead ? std::optional(std::move(data)) : std::nullopt;
}

std::optional<Error> PosixFileManager::createDirectoryAtPath(const std::string& path,
                                                             bool withIntermediates) {
  const auto failure = [](int code, const std::string& folder) {
    return posixError(code, "Could not create the folder " + folder);
  };
  if (!isUsable(path)) return failure(EINVAL, path);
  const std::string folder(withoutTrailingSlashes(path));
  if (mkdir(folder.c_str(), 0700) == 0) return std::nullopt;
  const int reason = errno;
  if (!withIntermediates) return failure(reason, folder);
  if (isDirectoryAtPath(folder)) return std::nullopt;
  if (reason != ENOENT) return failure(reason, folder);
  for (auto slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
    const std::string part = folder.substr(0, slash);
    if (mkdir(part.c_str(), 0700) != 0) {
      const int code = errno;
      if (!isDirectoryAtPath(part)) return failure(code, part);
    }
    if (slash == std::string::npos) return std::nullopt;
  }
}

std::optional<Error> PosixFileManager::writeDataToFile(const Data& data, const std::string& path,
                                                       bool atomically) {
  if (!isUsable(path)) return posixError(EINVAL, "Could not write " + path);
  return atomically ? writeByReplacing(data, path) : writeInPlace(data, path);
}

std::optional<Error> PosixFileManager::removeItemAtPath(const std::string& path) {
  const ItemPlace place(path);
  if (place.code() != 0) return posixError(place.code(), "Could not remove " + path);
  return removeTree(place.folder(), place.name(), place.path());
}

std::optional<Error> PosixFileManager::copyItemAtPath(const std::string& from,
                                                      const std::string& to) {
  return performCopy({from, to});
}

std::optional<Error> PosixFileManager::performCopy(const ItemCopy& copy) {
  const ItemPlace source(copy.from);
  const ItemPlace target(copy.to);
  const std::string phrase = copyPhrase(copy.from, copy.to);
  if (source.code() != 0) return posixError(source.code(), phrase);
  if (target.code() != 0) return posixError(target.code(), phrase);
  struct stat sourceStatus {};
  struct stat targetStatus {};
  if (fstatat(source.folder(), source.name().c_str(), &sourceStatus, AT_SYMLINK_NOFOLLOW) != 0) {
    return posixError(errno, phrase);
  }
  if (!copy.replaces &&
      fstatat(target.folder(), target.name().c_str(), &targetStatus, AT_SYMLINK_NOFOLLOW) == 0) {
    return posixError(EEXIST, phrase);
  }
  if (S_ISDIR(sourceStatus.st_mode) && isSameOrBelow(target.folder(), sourceStatus)) {
    Error error = posixError(EINVAL, phrase);
    error.message = phrase + ": a folder cannot be copied into itself";
    return error;
  }
  return copyIntoPlace(source, target, phrase, nullptr, copy);
}

std::optional<Error> PosixFileManager::setAttributesOfItemAtPath(const FileAttributes& attributes,
                                                                 const std::string& path) {
  constexpr std::int64_t kNanosecondsInSecond = 1'000'000'000;
  const std::string phrase = "Could not set the dates of " + path;
  if (!isUsable(path)) return posixError(EINVAL, phrase);
  if (!attributes.modificationDate) return std::nullopt;
  std::int64_t seconds = *attributes.modificationDate / kNanosecondsInSecond;
  std::int64_t nanoseconds = *attributes.modificationDate % kNanosecondsInSecond;
  if (nanoseconds < 0) {
    nanoseconds += kNanosecondsInSecond;
    --seconds;
  }
  const struct timespec times[2] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
  const std::string item(withoutTrailingSlashes(path));
  if (utimensat(AT_FDCWD, item.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
    return posixError(errno, phrase);
  }
  return std::nullopt;
}

std::optional<Error> PosixFileManager::moveItemAtPath(const std::string& from,
                                                      const std::string& to) {
  return performMove({from, to});
}

std::optional<Error> PosixFileManager::performMove(const ItemMove& move) {
  const std::string& from = move.from;
  const std::string& to = move.to;
  // The usual case in one step; whatever stands in its way is found out below.
  if (isUsable(from) && isUsable(to) &&
      renameat2(AT_FDCWD, std::string(withoutTrailingSlashes(from)).c_str(), AT_FDCWD,
                std::string(withoutTrailingSlashes(to)).c_str(), RENAME_NOREPLACE) == 0) {
    return std::nullopt;
  }
  const ItemPlace source(from);
  const ItemPlace target(to);
  const auto failure = [&](int code) { return posixError(code, movePhrase(from, to)); };
  if (source.code() != 0) return failure(source.code());
  if (target.code() != 0) return failure(target.code());
  struct stat sourceStatus {};
  struct stat targetStatus {};
  if (fstatat(source.folder(), source.name().c_str(), &sourceStatus, AT_SYMLINK_NOFOLLOW) != 0) {
    return failure(errno);
  }
  if (fstatat(target.folder(), target.name().c_str(), &targetStatus, AT_SYMLINK_NOFOLLOW) == 0) {
    return failure(EEXIST);
  }
  if (S_ISDIR(sourceStatus.st_mode) && isSameOrBelow(target.folder(), sourceStatus)) {
    Error error = failure(EINVAL);
    error.message = movePhrase(from, to) + ": a folder cannot be moved into itself";
    return error;
  }
  const int code =
      renameWithoutReplacing(source.folder(), source.name(), target.folder(), target.name());
  if (code == 0) return std::nullopt;
  return code == EXDEV ? moveByCopying(source, target, move.observer)
                       : std::optional(failure(code));
}

}  // namespace tervano
