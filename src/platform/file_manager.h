#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "archive/value.h"
#include "platform/error.h"
#include "platform/work_observer.h"

namespace tervano {

// What can be set on a file; nil leaves it as it is. Nanoseconds since 1970-01-01 00:00:00 UTC.
struct FileAttributes {
  std::optional<std::int64_t> modificationDate;
  // Kept by no Linux file system for others to change: there it stays the moment of creation.
  std::optional<std::int64_t> creationDate;
};

// A copy that somebody follows.
struct ItemCopy {
  std::string from;
  std::string to;
  // What has the name `to` makes room, once the copy is whole and not before.
  bool replaces = false;
  // Lives to the end of the copy.
  WorkObserver* observer = nullptr;
};

// A move that somebody follows.
struct ItemMove {
  std::string from;
  std::string to;
  // Hears of the bytes when they have to be copied, and may stop the move until the copy is whole.
  // Lives to the end of the move.
  WorkObserver* observer = nullptr;
};

// Files and folders by absolute path, as bytes. Blocking; any thread. An operation that can fail
// answers nullopt for success or the error.
class FileManager {
 public:
  virtual ~FileManager() = default;

  // Whether this system has group containers at all: a switch, on unless a test turns it off.
  virtual bool supportsGroupContainers() const = 0;
  // The folder shared by the processes of an application group; nil for an unknown group. Creates
  // nothing.
  virtual std::optional<Url> containerURLForSecurityApplicationGroupIdentifier(
      const std::string& groupIdentifier) const = 0;

  // Follows symbolic links: a dangling link does not exist.
  virtual bool fileExistsAtPath(const std::string& path) const = 0;
  // Whether anything has that name, a dangling link included.
  virtual bool itemExistsAtPath(const std::string& path) const = 0;
  virtual bool isDirectoryAtPath(const std::string& path) const = 0;
  // By the permissions of the effective user and the mount.
  virtual bool isWritableFileAtPath(const std::string& path) const = 0;

  // The names in a folder without "." and "..", in no defined order; empty on any error.
  virtual std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path) const = 0;
  // The bytes of a regular file; nil when it cannot be read. `error`, when given, receives why
  // (code ENOENT for a missing file).
  virtual std::optional<Data> contentsAtPath(const std::string& path,
                                             std::optional<Error>* error = nullptr) const = 0;

  // Creates a folder with mode 0700, with the missing folders above it when `withIntermediates`
  // (then an existing folder is no error).
  virtual std::optional<Error> createDirectoryAtPath(const std::string& path,
                                                     bool withIntermediates) = 0;
  // Writes a whole file with mode 0600 for a new one. Atomically: beside the target, flushed, then
  // renamed over it, keeping the mode of the file it replaces.
  virtual std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                               bool atomically) = 0;
  // Removes a file, a link (never what it points to) or a folder with all its contents. Never
  // follows links while descending.
  virtual std::optional<Error> removeItemAtPath(const std::string& path) = 0;
  // Copies a file, a link or a folder with all its contents to a path that does not exist, with
  // attributes, extended attributes, access lists, times, links and holes; an existing `to` is an
  // error. On failure nothing stays at `to`.
  virtual std::optional<Error> copyItemAtPath(const std::string& from, const std::string& to) = 0;
  // The same with what `copy` asks for besides. The name `to` is never without an item when one is
  // replaced, on file systems that can exchange names. The error names the hidden name of what was
  // replaced and could not be removed; the copy stays then.
  virtual std::optional<Error> performCopy(const ItemCopy& copy) = 0;
  // Of a link the link's own, never those of what it points to.
  virtual std::optional<Error> setAttributesOfItemAtPath(const FileAttributes& attributes,
                                                         const std::string& path) = 0;
  // Moves an item to a path that does not exist; an existing `to` is an error, also when it appears
  // in the same moment. Across file systems: copies with attributes, extended attributes, access
  // lists, times, hard and symbolic links and holes, flushes, then removes the source; on any
  // failure the source is whole and nothing stays at `to`. A folder cannot be moved into itself.
  virtual std::optional<Error> moveItemAtPath(const std::string& from, const std::string& to) = 0;
  // The same with an observer.
  virtual std::optional<Error> performMove(const ItemMove& move) = 0;
};

class ForwardingFileManager : public FileManager {
 public:
  explicit ForwardingFileManager(FileManager& real) : real_(real) {}
  bool supportsGroupContainers() const override { return real_.supportsGroupContainers(); }
  std::optional<Url> containerURLForSecurityApplicationGroupIdentifier(
      const std::string& groupIdentifier) const override {
    return real_.containerURLForSecurityApplicationGroupIdentifier(groupIdentifier);
  }
  bool fileExistsAtPath(const std::string& path) const override {
    return real_.fileExistsAtPath(path);
  }
  bool itemExistsAtPath(const std::string& path) const override {
    return real_.itemExistsAtPath(path);
  }
  bool isDirectoryAtPath(const std::string& path) const override {
    return real_.isDirectoryAtPath(path);
  }
  bool isWritableFileAtPath(const std::string& path) const override {
    return real_.isWritableFileAtPath(path);
  }
  std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path) const override {
    return real_.contentsOfDirectoryAtPath(path);
  }
  std::optional<Data> contentsAtPath(const std::string& path,
                                     std::optional<Error>* error = nullptr) const override {
    return real_.contentsAtPath(path, error);
  }
  std::optional<Error> createDirectoryAtPath(const std::string& path,
                                             bool withIntermediates) override {
    return real_.createDirectoryAtPath(path, withIntermediates);
  }
  std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                       bool atomically) override {
    return real_.writeDataToFile(data, path, atomically);
  }
  std::optional<Error> removeItemAtPath(const std::string& path) override {
    return real_.removeItemAtPath(path);
  }
  std::optional<Error> copyItemAtPath(const std::string& from, const std::string& to) override {
    return real_.copyItemAtPath(from, to);
  }
  std::optional<Error> performCopy(const ItemCopy& copy) override {
    return real_.performCopy(copy);
  }
  std::optional<Error> setAttributesOfItemAtPath(const FileAttributes& attributes,
                                                 const std::string& path) override {
    return real_.setAttributesOfItemAtPath(attributes, path);
  }
  std::optional<Error> moveItemAtPath(const std::string& from, const std::string& to) override {
    return real_.moveItemAtPath(from, to);
  }
  std::optional<Error> performMove(const ItemMove& move) override {
    return real_.performMove(move);
  }

 private:
  FileManager& real_;
};

}  // namespace tervano
