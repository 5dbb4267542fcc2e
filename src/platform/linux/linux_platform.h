#pragma once

#include <string>

#include "archive/coding.h"
#include "platform/platform.h"

namespace tervano {

// How a process wants its Linux platform.
struct LinuxPlatformOptions {
  // The domain of standardUserDefaults and the sender name of notifications.
  std::string applicationIdentifier = "com.vessok.tervano";
  // Archivable classes; kept, not owned, never destroyed.
  const ClassRegistry* classRegistry = nullptr;
};

// Makes the GLib/GIO/POSIX services and answers them; the first call decides. They are never
// destroyed and start no thread, connection or file access before they are used. Main thread.
const Platform& linuxPlatform(const LinuxPlatformOptions& options);

}  // namespace tervano
