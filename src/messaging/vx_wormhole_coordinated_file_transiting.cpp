#include "messaging/vx_wormhole_coordinated_file_transiting.h"

#include "platform/file_coordinator.h"
#include "platform/platform.h"

namespace tervano {

bool VXWormholeCoordinatedFileTransiting::writeMessageObject(
    const Value& messageObject, const std::optional<std::string>& identifier) {
  if (!identifier) return false;
  if (messageObject.isNull()) return true;
  const auto archive = archivedMessage(messageObject);
  const auto path = filePathForIdentifier(identifier);
  if (archive == nullptr || !path) return false;
  const auto options = additionalFileWritingOptions_ | kDataWritingAtomic;
  bool written = false;
  platform().fileCoordinator->coordinateWriting(*path, [&](const std::string& coordinatedPath) {
    if ((options & kDataWritingWithoutOverwriting) != 0 &&
        fileManager()->itemExistsAtPath(coordinatedPath)) {
      return;
    }
    written = !fileManager()->writeDataToFile(*archive, coordinatedPath,
                                              (options & kDataWritingAtomic) != 0);
  });
  return written;
}

Value VXWormholeCoordinatedFileTransiting::messageObjectForIdentifier(
    const std::optional<std::string>& identifier) {
  const auto path = filePathForIdentifier(identifier);
  if (!path) return nullptr;
  std::optional<Data> bytes;
  platform().fileCoordinator->coordinateReading(*path, [&](const std::string& coordinatedPath) {
    bytes = fileManager()->contentsAtPath(coordinatedPath);
  });
  return unarchivedMessage(bytes);
}

}  // namespace tervano
