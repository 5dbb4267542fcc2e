#pragma once

#include <atomic>
#include <mutex>
#include <set>
#include <string>

#include "platform/file_manager.h"

namespace tervano {

// Files by POSIX calls; paths are bytes. A path that is empty, holds a NUL, or whose last component
// is "." or ".." where a single item is meant, is refused (EINVAL). Slashes at the end do not
// count.
//
// Group containers are folders of the group's name in $XDG_DATA_HOME. What removing and moving
// promise is told with TreeRemover and TreeCopy, which do the work.
class PosixFileManager : public FileManager {
 public:
  PosixFileManager();

  bool supportsGroupContainers() const override { return supportsGroupContainers_; }
  std::optional<Url> containerURLForSecurityApplicationGroupIdentifier(
      const std::string& groupIdentifier) const override;

  bool fileExistsAtPath(const std::string& path) const override;
  bool itemExistsAtPath(const std::string& path) const override;
  bool isDirectoryAtPath(const std::string& path) const override;
  bool isWritableFileAtPath(const std::string& path) const override;

  std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path) const override;
  std::optional<Data> contentsAtPath(const std::string& path,
                                     std::optional<Error>* error = nullptr) const override;

  std::optional<Error> createDirectoryAtPath(const std::string& path,
                                             bool withIntermediates) override;
  // A symbolic link at `path` stays; the file that it points to is replaced.
  std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                       bool atomically) override;
  // Stops at the first failure. A folder on which something is mounted is refused (EBUSY).
  std::optional<Error> removeItemAtPath(const std::string& path) override;
  std::optional<Error> copyItemAtPath(const std::string& from, const std::string& to) override;
  std::optional<Error> performCopy(const ItemCopy& copy) override;
  std::optional<Error> setAttributesOfItemAtPath(const FileAttributes& attributes,
                                                 const std::string& path) override;
  // When the copy to another file system is whole but the source cannot be removed (or changed
  // meanwhile), the error says so, the copy stays, and of the source whatever was not copied.
  std::optional<Error> moveItemAtPath(const std::string& from, const std::string& to) override;
  std::optional<Error> performMove(const ItemMove& move) override;

  // Makes one more group known.
  void registerGroup(const std::string& groupIdentifier);
  void setSupportsGroupContainers(bool supports) { supportsGroupContainers_ = supports; }

 private:
  std::atomic<bool> supportsGroupContainers_{true};
  mutable std::mutex mutex_;
  std::set<std::string> groups_;
};

}  // namespace tervano
