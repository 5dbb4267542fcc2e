#include "tests/support/scoped_platform.h"

#include <gtest/gtest.h>

#include "platform/linux/linux_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

constexpr char kApplicationIdentifier[] = "com.vessok.tervano";

const Platform* innermost = nullptr;

const Platform& realPlatform() {
  LinuxPlatformOptions options;
  options.applicationIdentifier = kApplicationIdentifier;
  return linuxPlatform(options);
}

}  // namespace

ScopedPlatform::ScopedPlatform(const ClassRegistry* classRegistry)
    : defaultsStores_(kApplicationIdentifier),
      runLoop_(dynamic_cast<GlibRunLoop*>(realPlatform().runLoop)),
      processes_(dynamic_cast<PosixProcesses*>(realPlatform().processes)),
      previous_(innermost),
      services_(realPlatform()) {
  services_.classRegistry = classRegistry;
  services_.defaultsStores = &defaultsStores_;
  services_.fileCoordinator = &fileCoordinator_;
  services_.fileManager = &fileManager_;
  services_.notificationCenter = &notificationCenter_;
  services_.notifyChannel = &notifyChannel_;
  innermost = &services_;
  installPlatform(services_);
}

ScopedPlatform::~ScopedPlatform() {
  // Ends that are under way (a reaped child's report, an idle queue's thread) are no left-overs.
  const bool isQuiet = waitUntil(
      [this] {
        return runLoop_->pendingMainItems() == 0 && processes_->runningProcesses() == 0 &&
               runLoop_->activeQueueThreads() == 0;
      },
      2);
  EXPECT_TRUE(isQuiet) << "work is left over";
  EXPECT_EQ(runLoop_->activeTimers(), 0) << "timers are still armed";
  EXPECT_EQ(processes_->runningProcesses(), 0) << "children still run";
  EXPECT_EQ(runLoop_->activeQueueThreads(), 0) << "serial queues are still held or busy";
  EXPECT_EQ(runLoop_->pendingMainItems(), 0) << "the main queue does not run dry";
  EXPECT_EQ(notificationCenter_.observerCount(), 0u) << "notification observers are left over";
  EXPECT_EQ(notifyChannel_.observationCount(), 0u) << "system-wide observations are left over";
  innermost = previous_;
  installPlatform(previous_ == nullptr ? realPlatform() : *previous_);
}

}  // namespace tervano::test
