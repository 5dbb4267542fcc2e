#include "platform/linux/plist_defaults_stores.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <optional>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "platform/error.h"
#include "platform/linux/user_folders.h"
#include "platform/log.h"

namespace tervano {

namespace {

using Changes = std::map<std::string, std::optional<Value>>;

// A preferences file of more than this is no preferences file.
constexpr off_t kLargestStore = off_t{64} * 1024 * 1024;

// Which file a path names, and which content of it.
struct Identity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = -1;
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;

  static Identity of(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec};
  }
  friend bool operator==(const Identity&, const Identity&) = default;
};

std::string preferencesFolder() {
  return configHomeFolder() + "/tervano";
}

// Makes a folder and those above it; whether it succeeded shows when a file is made inside.
void makeFolders(const std::string& path) {
  if (mkdir(path.c_str(), 0700) == 0 || errno != ENOENT) return;
  const auto slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return;
  makeFolders(path.substr(0, slash));
  mkdir(path.c_str(), 0700);
}

}  // namespace

// The file of one suite and what this process last read from it.
class PlistDefaultsStores::SuiteFile {
 public:
  explicit SuiteFile(const std::string& suiteName)
      : folder_(preferencesFolder()),
        path_(pathForSuiteName(suiteName)),
        lockPath_(lockPathForSuiteName(suiteName)) {}

  // The values of the file as it is now; never null.
  std::shared_ptr<const Value::Dictionary> values() {
    const std::lock_guard lock(mutex_);
    refresh();
    return values_;
  }

  // Merges the changes into the file; answers whether they are in it.
  bool write(const Changes& changes) {
    const std::lock_guard lock(mutex_);
    constexpr int kLockFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    Descriptor lockFile(::open(lockPath_.c_str(), kLockFlags, 0600));
    if (!lockFile && errno == ENOENT) {
      makeFolders(folder_);
      lockFile.reset(::open(lockPath_.c_str(), kLockFlags, 0600));
    }
    if (!lockFile) return complain("Could not lock");
    while (flock(lockFile.get(), LOCK_EX) != 0) {
      if (errno != EINTR) return complain("Could not lock");
    }
    refresh();
    // What is there may be whole: it is neither replaced nor set aside.
    if (readError_ != 0) {
      errno = readError_;
      return complain("Could not merge into");
    }
    auto merged = std::make_shared<Value::Dictionary>(*values_);
    for (const auto& [key, value] : changes) {
      if (value) {
        (*merged)[key] = *value;
      } else {
        merged->erase(key);
      }
    }
    if (*merged == *values_ && !isBroken_) return true;
    if (isBroken_ && !setAside()) return complain("Could not set aside");
    return replace(std::move(merged));
  }

 private:
  bool complain(const char* what) {
    log(posixError(errno, std::string(what) + " the preferences " + path_).message);
    return false;
  }

  void become(const Identity& identity, std::shared_ptr<const Value::Dictionary> values,
              bool isBroken) {
    identity_ = identity;
    values_ = std::move(values);
    isBroken_ = isBroken;
    readError_ = 0;
  }

  // The file is there but cannot be read now: what was read last stays, and the next call tries
  // again. Told once.
  void keepForNow(int reason) {
    if (readError_ == 0) log(posixError(reason, "Could not read the preferences " + path_).message);
    readError_ = reason;
    identity_ = {};
  }

  void refresh() {
    struct stat status {};
    if (stat(path_.c_str(), &status) != 0) {
      if (errno != ENOENT && errno != ENOTDIR) return keepForNow(errno);
      become({}, std::make_shared<const Value::Dictionary>(), false);
      return;
    }
    if (Identity::of(status) != identity_) read();
  }

  void read() {
    const Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
      if (errno != ENOENT) return keepForNow(errno);
      become({}, std::make_shared<const Value::Dictionary>(), false);
      return;
    }
    std::string reason;
    int readError = 0;
    std::optional<Value::Dictionary> dictionary = parse(file.get(), status, reason, readError);
    if (readError != 0) return keepForNow(readError);
    if (!dictionary) log("Could not read the preferences " + path_ + ": " + reason);
    const bool isBroken = !dictionary.has_value();
    become(Identity::of(status),
           std::make_shared<const Value::Dictionary>(
               std::move(dictionary).value_or(Value::Dictionary{})),
           isBroken);
  }

  static std::optional<Value::Dictionary> parse(int file, const struct stat& status,
                                                std::string& reason, int& readError) {
    if (!S_ISREG(status.st_mode) || status.st_size > kLargestStore) {
      reason = "not a preferences file";
      return std::nullopt;
    }
    Data bytes(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < bytes.size()) {
      const ssize_t count = ::read(file, bytes.data() + filled, bytes.size() - filled);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) {
        readError = errno;
        return std::nullopt;
      }
      if (count == 0) break;
      filled += static_cast<std::size_t>(count);
    }
    bytes.resize(filled);
    try {
      Value value = propertyListWithData(bytes);
      if (auto* const dictionary = value.getIf<Value::Dictionary>()) return std::move(*dictionary);
      reason = "no dictionary";
    } catch (const PlatformException& exception) {
      reason = exception.reason();
    }
    return std::nullopt;
  }

  // Renames the damaged file to a name that is free.
  bool setAside() {
    constexpr int kMostBrokenFiles = 1000;
    for (int number = 1; number <= kMostBrokenFiles; ++number) {
      const std::string aside =
          path_ + ".broken" + (number == 1 ? "" : "-" + std::to_string(number));
      if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) {
        log("The unreadable preferences are kept as " + aside);
        return true;
      }
      if (errno == ENOENT) return true;
      if (errno == EINVAL && access(aside.c_str(), F_OK) != 0 &&
          rename(path_.c_str(), aside.c_str()) == 0) {
        return true;
      }
      if (errno != EEXIST && errno != EINVAL) return false;
    }
    return false;
  }

  // A time that no earlier content of this file had, so that readers see the change even when the
  // inode number and the size are those of an older file.
  timespec freshTime() const {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (identity_.size >= 0 && now.tv_sec == identity_.seconds &&
        now.tv_nsec <= identity_.nanoseconds) {
      now.tv_nsec = identity_.nanoseconds + 1;
      if (now.tv_nsec == 1000000000) now = {now.tv_sec + 1, 0};
    }
    return now;
  }

  bool replace(std::shared_ptr<const Value::Dictionary> merged) {
    const Data bytes = binaryDataWithPropertyList(*merged);
    // No reader would take it.
    if (bytes.size() > static_cast<std::size_t>(kLargestStore)) {
      errno = EFBIG;
      return complain("Could not write");
    }
    const std::string temporary = folder_ + "/." + randomFileNameSuffix() + ".tmp";
    const Descriptor file(
        ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return complain("Could not write");
    const timespec now = freshTime();
    const timespec times[2] = {now, now};
    struct stat status {};
    if (!writeFully(file.get(), bytes.data(), bytes.size()) || futimens(file.get(), times) != 0 ||
        fstat(file.get(), &status) != 0 || rename(temporary.c_str(), path_.c_str()) != 0) {
      const bool answer = complain("Could not write");
      unlink(temporary.c_str());
      return answer;
    }
    become(Identity::of(status), std::move(merged), false);
    return true;
  }

  const std::string folder_;
  const std::string path_;
  const std::string lockPath_;
  std::mutex mutex_;
  Identity identity_;
  std::shared_ptr<const Value::Dictionary> values_ = std::make_shared<const Value::Dictionary>();
  // The bytes were read and are no preferences.
  bool isBroken_ = false;
  // Why the bytes could not be read, 0 when they were.
  int readError_ = 0;
};

class PlistDefaultsStores::Store : public DefaultsStore {
 public:
  explicit Store(std::shared_ptr<SuiteFile> file) : file_(std::move(file)) {}

  Value objectForKey(const std::string& key) const override {
    const std::lock_guard lock(mutex_);
    if (const auto change = changes_.find(key); change != changes_.end()) {
      if (change->second) return *change->second;
    } else {
      const auto values = file_->values();
      if (const auto found = values->find(key); found != values->end()) return found->second;
    }
    const auto fallback = registered_.find(key);
    return fallback == registered_.end() ? Value() : fallback->second;
  }
  bool boolForKey(const std::string& key) const override { return boolValue(objectForKey(key)); }
  std::int64_t integerForKey(const std::string& key) const override {
    return longLongValue(objectForKey(key));
  }
  float floatForKey(const std::string& key) const override {
    return static_cast<float>(doubleForKey(key));
  }
  double doubleForKey(const std::string& key) const override {
    return doubleValue(objectForKey(key));
  }

  void setObject(const Value& value, const std::string& key) override {
    if (value.isNull()) {
      removeObjectForKey(key);
      return;
    }
    change(key, value);
  }
  void setBool(bool value, const std::string& key) override { change(key, value); }
  void setInteger(std::int64_t value, const std::string& key) override { change(key, value); }
  void setFloat(float value, const std::string& key) override {
    change(key, static_cast<double>(value));
  }
  void setDouble(double value, const std::string& key) override { change(key, value); }
  void removeObjectForKey(const std::string& key) override { change(key, std::nullopt); }

  void registerDefaults(const Value::Dictionary& defaults) override {
    const std::lock_guard lock(mutex_);
    for (const auto& [key, value] : defaults) registered_.insert_or_assign(key, value);
  }

  bool synchronize() override {
    const std::lock_guard lock(mutex_);
    if (changes_.empty()) return true;
    if (!file_->write(changes_)) return false;
    changes_.clear();
    return true;
  }

 private:
  // Throws for what a property list cannot hold, before it can spoil the whole suite.
  void change(const std::string& key, std::optional<Value> value) {
    binaryDataWithPropertyList(Value::Dictionary{{key, value.value_or(Value(true))}});
    const std::lock_guard lock(mutex_);
    changes_.insert_or_assign(key, std::move(value));
  }

  const std::shared_ptr<SuiteFile> file_;
  mutable std::mutex mutex_;
  Value::Dictionary registered_;
  // Set or, as nil, removed here and not yet in the file.
  Changes changes_;
};

PlistDefaultsStores::PlistDefaultsStores(std::string applicationIdentifier)
    : applicationIdentifier_(std::move(applicationIdentifier)) {}

PlistDefaultsStores::~PlistDefaultsStores() = default;

std::string PlistDefaultsStores::pathForSuiteName(const std::string& suiteName) {
  return preferencesFolder() + "/" + escapedFileName(suiteName) + ".plist";
}

std::string PlistDefaultsStores::lockPathForSuiteName(const std::string& suiteName) {
  return preferencesFolder() + "/." + escapedFileName(suiteName) + ".lock";
}

std::shared_ptr<PlistDefaultsStores::SuiteFile> PlistDefaultsStores::fileForSuiteName(
    const std::string& suiteName) {
  std::shared_ptr<SuiteFile>& file = files_[suiteName];
  if (file == nullptr) file = std::make_shared<SuiteFile>(suiteName);
  return file;
}

std::shared_ptr<DefaultsStore> PlistDefaultsStores::initWithSuiteName(
    const std::string& suiteName) {
  const std::lock_guard lock(mutex_);
  return std::make_shared<Store>(fileForSuiteName(suiteName));
}

std::shared_ptr<DefaultsStore> PlistDefaultsStores::standardUserDefaults() {
  const std::lock_guard lock(mutex_);
  if (standard_ == nullptr) {
    standard_ = std::make_shared<Store>(fileForSuiteName(applicationIdentifier_));
  }
  return standard_;
}

}  // namespace tervano
