#pragma once

#include <memory>

#include "archive/coding.h"
#include "platform/linux/glib_run_loop.h"
#include "platform/linux/inotify_channel.h"
#include "platform/linux/lock_file_coordinator.h"
#include "platform/linux/plist_defaults_stores.h"
#include "platform/linux/posix_file_manager.h"
#include "platform/linux/posix_processes.h"
#include "platform/notification_center.h"
#include "platform/platform.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {

// Installs the real Linux platform for one test, with a private home and fresh stores, files,
// channel and notification centre:
//
//   ScopedPlatform platform(&registry);
//   platform.services().clock = &fakeClock;
//
// The destructor runs the main queue dry, fails the test when timers are armed, children run,
// observers are registered or queue threads live, and puts the former platform back. So declare
// whatever uses the platform after it. Main thread.
class ScopedPlatform {
 public:
  explicit ScopedPlatform(const ClassRegistry* classRegistry = nullptr);
  ScopedPlatform(const ScopedPlatform&) = delete;
  ScopedPlatform& operator=(const ScopedPlatform&) = delete;
  ~ScopedPlatform();

  // What platform() answers. Replacing a pointer takes effect at once; the replacement must live
  // as long as this object.
  Platform& services() { return services_; }
  TemporaryHome& home() { return home_; }
  const TemporaryHome& home() const { return home_; }

  // The real services, whatever stands in services().
  GlibRunLoop& runLoop() { return *runLoop_; }
  PosixProcesses& processes() { return *processes_; }
  PosixFileManager& fileManager() { return fileManager_; }
  InotifyChannel& notifyChannel() { return notifyChannel_; }
  PlistDefaultsStores& defaultsStores() { return defaultsStores_; }
  NotificationCenter& notificationCenter() { return notificationCenter_; }

 private:
  TemporaryHome home_;
  PosixFileManager fileManager_;
  LockFileCoordinator fileCoordinator_;
  InotifyChannel notifyChannel_;
  PlistDefaultsStores defaultsStores_;
  NotificationCenter notificationCenter_;
  GlibRunLoop* runLoop_;
  PosixProcesses* processes_;
  const Platform* previous_;
  Platform services_;
};

}  // namespace tervano::test
