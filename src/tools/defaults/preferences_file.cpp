#include "tools/defaults/preferences_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "platform/linux/plist_defaults_stores.h"
#include "platform/linux/posix_file_manager.h"
#include "platform/linux/regular_file.h"

namespace tervano {

namespace {

// As large as the stores read.
constexpr off_t kLargestPreferences = off_t{64} << 20;

std::optional<Value::Dictionary> dictionaryOf(const Data& bytes) {
  try {
    Value value = propertyListWithData(bytes);
    if (auto* const dictionary = value.getIf<Value::Dictionary>()) return std::move(*dictionary);
  } catch (const PlatformException&) {
    // Damaged.
  }
  return std::nullopt;
}

}  // namespace

PreferencesFile::PreferencesFile(const std::string& domain)
    : path_(PlistDefaultsStores::pathForSuiteName(domain)),
      lockPath_(PlistDefaultsStores::lockPathForSuiteName(domain)) {}

std::optional<Error> PreferencesFile::lock() {
  lock_.reset(::open(lockPath_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!lock_) return posixError(errno, "Could not lock the preferences " + path_);
  while (flock(lock_.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return posixError(errno, "Could not lock the preferences " + path_);
  }
  return std::nullopt;
}

std::optional<Error> PreferencesFile::read() {
  contents_ = contentsOfRegularFile(path_, kLargestPreferences);
  if (contents_ || errno == ENOENT || errno == ENOTDIR) return std::nullopt;
  return posixError(errno, "Could not read the preferences " + path_);
}

std::optional<Error> PreferencesFile::open() {
  if (access(path_.c_str(), F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
    return std::nullopt;
  }
  if (auto error = lock()) return error;
  return read();
}

std::optional<Error> PreferencesFile::remove() {
  const bool isDone = unlink(path_.c_str()) == 0 || errno == ENOENT;
  auto error = isDone
                   ? std::nullopt
                   : std::optional(posixError(errno, "Could not remove the preferences " + path_));
  lock_.reset();
  return error;
}

std::optional<Error> PreferencesFile::merge(const Data& former) {
  const auto values = dictionaryOf(former);
  if (!values) return posixError(EINVAL, "Could not read the preferences in the backup");
  PosixFileManager files;
  const std::string folder = path_.substr(0, path_.rfind('/'));
  if (auto error = files.createDirectoryAtPath(folder, true)) return error;
  if (auto error = lock()) return error;
  if (auto error = read()) return error;
  auto merged = contents_ ? dictionaryOf(*contents_) : Value::Dictionary{};
  if (!merged) return posixError(EINVAL, "Could not merge into the preferences " + path_);
  for (const auto& [key, value] : *values) merged->insert_or_assign(key, value);
  auto error = files.writeDataToFile(binaryDataWithPropertyList(*merged), path_, true);
  lock_.reset();
  return error;
}

}  // namespace tervano
