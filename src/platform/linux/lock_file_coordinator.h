#pragma once

#include "platform/file_coordinator.h"

namespace tervano {

// File coordination by lock files (flock(2)) in the user's runtime folder, "tervano/locks", named
// by the SHA-256 of the path: shared for reading, exclusive for writing. Two spellings of one
// folder lead to one lock; the last component is taken as it stands, since the file need not exist.
//
// Excludes threads of one process as well as processes; the kernel releases the lock of a process
// that dies. Not recursive: an accessor that coordinates the same path for writing waits for
// itself. Lock files are empty and stay.
class LockFileCoordinator : public FileCoordinator {
 public:
  std::optional<Error> coordinateWriting(const std::string& path,
                                         const Accessor& accessor) override;
  std::optional<Error> coordinateReading(const std::string& path,
                                         const Accessor& accessor) override;
};

}  // namespace tervano
