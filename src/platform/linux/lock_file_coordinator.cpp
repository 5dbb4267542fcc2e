#include "platform/linux/lock_file_coordinator.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <vector>

#include "archive/url.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

constexpr char kLocksFolder[] = "locks";

std::string lockName(const std::string& path) {
  const std::string folder = deletingLastPathComponent(path);
  const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(folder.c_str(), nullptr),
                                                             std::free);
  const std::string canonical =
      resolved == nullptr ? path : appendingPathComponent(resolved.get(), lastPathComponent(path));
  const std::unique_ptr<gchar, decltype(&g_free)> digest(
      g_compute_checksum_for_data(
          G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(canonical.data()), canonical.size()),
      g_free);
  return digest.get();
}

// A held lock; empty, with errno, when it cannot be had.
Descriptor lockFile(int folder, const std::string& name, int operation) {
  Descriptor lock(openat(folder, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  while (lock && flock(lock.get(), operation) != 0) {
    if (errno != EINTR) return {};
  }
  return lock;
}

// Takes the lock in the first folder that can be used and in every other one that exists, since
// not all processes of a session see the same first one; in the order of their paths, so that two
// processes never wait for each other.
std::optional<Error> takeLocks(const std::string& path, int operation,
                               std::vector<Descriptor>& locks) {
  std::vector<RuntimeFolders::Candidate> candidates = RuntimeFolders::usable();
  std::vector<std::pair<std::string, Descriptor>> folders;
  int failure = ENOENT;
  for (const auto& candidate : candidates) {
    Descriptor folder = RuntimeFolders::open(candidate, kLocksFolder, folders.empty());
    if (folder) {
      folders.emplace_back(candidate.path(), std::move(folder));
    } else if (folders.empty()) {
      failure = errno;
    }
  }
  if (folders.empty()) return posixError(failure, "No folder for the lock of " + path);
  std::sort(folders.begin(), folders.end(),
            [](const auto& left, const auto& right) { return left.first < right.first; });
  const std::string name = lockName(path);
  for (const auto& [folderPath, folder] : folders) {
    // Whoever waits for the lock holds the gate, so that readers who come later queue behind a
    // writer instead of passing it for ever.
    const Descriptor gate = lockFile(folder.get(), name + ".gate", LOCK_EX);
    if (!gate) return posixError(errno, "The lock of " + path);
    Descriptor lock = lockFile(folder.get(), name, operation);
    if (!lock) return posixError(errno, "The lock of " + path);
    locks.push_back(std::move(lock));
  }
  return std::nullopt;
}

std::optional<Error> coordinate(const std::string& path, int operation,
                                const FileCoordinator::Accessor& accessor) {
  std::vector<Descriptor> locks;
  if (auto error = takeLocks(path, operation, locks)) return error;
  if (accessor) accessor(path);
  return std::nullopt;
}

}  // namespace

std::optional<Error> LockFileCoordinator::coordinateWriting(const std::string& path,
                                                            const Accessor& accessor) {
  return coordinate(path, LOCK_EX, accessor);
}

std::optional<Error> LockFileCoordinator::coordinateReading(const std::string& path,
                                                            const Accessor& accessor) {
  return coordinate(path, LOCK_SH, accessor);
}

}  // namespace tervano
