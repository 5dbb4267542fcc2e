#pragma once

#include <memory>
#include <optional>
#include <string>

#include "messaging/vx_wormhole_transiting.h"
#include "platform/file_manager.h"

namespace tervano {

// Messages as files: the keyed archive of the object in the file IDENTIFIER.archive of a directory
// inside the application group's container. Readers never see half a file, because a file is
// written beside its target and then renamed over it.
//
// The identifier is used as it stands: one with "/" names a file in a subdirectory, which must
// exist. An identifier with a NUL byte can name no file.
class VXWormholeFileTransiting : public VXWormholeTransiting {
 public:
  // For nobody: names the group "dev.assertion.nonDesignatedInitializer", which has no container,
  // so that every write fails and every read gives null.
  VXWormholeFileTransiting();
  // Creates nothing on disk. A nil directory stands for the container itself.
  VXWormholeFileTransiting(std::optional<std::string> applicationGroupIdentifier,
                           std::optional<std::string> directory);

  // A hook of the construction when there is a group identifier. Does nothing.
  void checkAppGroupCapabilities() const {}

  // The directory of the message files, created (mode 0700) when missing; errors of that show as
  // failed writes later. Nil when the group has no container.
  std::optional<std::string> messagePassingDirectoryPath() const;
  // The message file; creates the directory. Nil for a nil or empty identifier, or without a
  // container.
  std::optional<std::string> filePathForIdentifier(
      const std::optional<std::string>& identifier) const;

  bool writeMessageObject(const Value& messageObject,
                          const std::optional<std::string>& identifier) override;
  Value messageObjectForIdentifier(const std::optional<std::string>& identifier) override;
  void deleteContentForIdentifier(const std::optional<std::string>& identifier) override;
  // Removes every entry of the directory, whatever its name or kind. Does nothing when the
  // directory is nil or names the container itself or something outside it: what else lives in the
  // container is no message.
  void deleteContentForAllMessages() override;

  const std::optional<std::string>& applicationGroupIdentifier() const {
    return applicationGroupIdentifier_;
  }
  void setApplicationGroupIdentifier(std::optional<std::string> identifier) {
    applicationGroupIdentifier_ = std::move(identifier);
  }
  const std::optional<std::string>& directory() const { return directory_; }
  void setDirectory(std::optional<std::string> directory) { directory_ = std::move(directory); }
  // The transport's own way to the file system; while it is null nothing is written or read.
  const std::shared_ptr<FileManager>& fileManager() const { return fileManager_; }
  void setFileManager(std::shared_ptr<FileManager> fileManager) {
    fileManager_ = std::move(fileManager);
  }

 protected:
  // The archive of a message; null when it holds what no archive can hold.
  static DataPtr archivedMessage(const Value& messageObject);
  // The root object of a message file's bytes; null when they are no archive.
  static Value unarchivedMessage(const std::optional<Data>& bytes);

 private:
  std::optional<std::string> applicationGroupIdentifier_;
  std::optional<std::string> directory_;
  std::shared_ptr<FileManager> fileManager_;
};

}  // namespace tervano
