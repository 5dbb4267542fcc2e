#include "messaging/vx_wormhole_file_transiting.h"

#include <string_view>

#include "archive/archiver.h"
#include "archive/platform_exception.h"
#include "archive/unarchiver.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kGroupOfNobody[] = "dev.assertion.nonDesignatedInitializer";
constexpr char kFileNameSuffix[] = ".archive";

// Whether `directory`, taken from the container, leads to a folder below it.
bool namesFolderBelowContainer(std::string_view directory) {
  int depth = 0;
  while (!directory.empty()) {
    const auto end = directory.find('/');
    const auto component = directory.substr(0, end);
    directory = end == std::string_view::npos ? std::string_view() : directory.substr(end + 1);
    if (component.empty() || component == ".") continue;
    depth += component == ".." ? -1 : 1;
    if (depth < 0) return false;
  }
  return depth > 0;
}

}  // namespace

VXWormholeFileTransiting::VXWormholeFileTransiting()
    : VXWormholeFileTransiting(kGroupOfNobody, std::nullopt) {}

VXWormholeFileTransiting::VXWormholeFileTransiting(
    std::optional<std::string> applicationGroupIdentifier, std::optional<std::string> directory)
    : applicationGroupIdentifier_(std::move(applicationGroupIdentifier)),
      directory_(std::move(directory)),
      fileManager_(std::make_shared<ForwardingFileManager>(*platform().fileManager)) {
  if (applicationGroupIdentifier_) checkAppGroupCapabilities();
}

std::optional<std::string> VXWormholeFileTransiting::messagePassingDirectoryPath() const {
  if (fileManager_ == nullptr || !applicationGroupIdentifier_) return std::nullopt;
  const auto container =
      fileManager_->containerURLForSecurityApplicationGroupIdentifier(*applicationGroupIdentifier_);
  if (!container) return std::nullopt;
  auto path = container->path();
  if (directory_) path = appendingPathComponent(path, *directory_);
  fileManager_->createDirectoryAtPath(path, true);
  return path;
}

std::optional<std::string> VXWormholeFileTransiting::filePathForIdentifier(
    const std::optional<std::string>& identifier) const {
  if (!identifier || identifier->empty()) return std::nullopt;
  const auto directoryPath = messagePassingDirectoryPath();
  if (!directoryPath) return std::nullopt;
  return appendingPathComponent(*directoryPath, *identifier + kFileNameSuffix);
}

bool VXWormholeFileTransiting::writeMessageObject(const Value& messageObject,
                                                  const std::optional<std::string>& identifier) {
  if (!identifier) return false;
  if (messageObject.isNull()) return true;
  const auto archive = archivedMessage(messageObject);
  const auto path = filePathForIdentifier(identifier);
  if (archive == nullptr || !path) return false;
  return !fileManager_->writeDataToFile(*archive, *path, true);
}

Value VXWormholeFileTransiting::messageObjectForIdentifier(
    const std::optional<std::string>& identifier) {
  const auto path = filePathForIdentifier(identifier);
  return path ? unarchivedMessage(fileManager_->contentsAtPath(*path)) : nullptr;
}

void VXWormholeFileTransiting::deleteContentForIdentifier(
    const std::optional<std::string>& identifier) {
  const auto path = filePathForIdentifier(identifier);
  if (path) fileManager_->removeItemAtPath(*path);
}

void VXWormholeFileTransiting::deleteContentForAllMessages() {
  if (!directory_ || !namesFolderBelowContainer(*directory_)) return;
  const auto path = messagePassingDirectoryPath();
  if (!path) return;
  for (const auto& name : fileManager_->contentsOfDirectoryAtPath(*path)) {
    fileManager_->removeItemAtPath(appendingPathComponent(*path, name));
  }
}

DataPtr VXWormholeFileTransiting::archivedMessage(const Value& messageObject) {
  try {
    return std::make_shared<const Data>(
        Archiver::archivedDataWithRootObject(messageObject, *platform().classRegistry));
  } catch (const PlatformException&) {
    return nullptr;
  }
}

Value VXWormholeFileTransiting::unarchivedMessage(const std::optional<Data>& bytes) {
  if (!bytes) return nullptr;
  try {
    return Unarchiver::unarchiveObjectWithData(*bytes, *platform().classRegistry);
  } catch (const PlatformException&) {
    return nullptr;
  }
}

}  // namespace tervano
