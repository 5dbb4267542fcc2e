#include "platform/platform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "platform/log.h"

namespace tervano {

namespace {
std::atomic<const Platform*> installed{nullptr};
}  // namespace

const Platform& platform() {
  const Platform* services = installed.load(std::memory_order_acquire);
  if (services == nullptr) {
    std::fputs("tervano: the platform was used before it was installed\n", stderr);
    std::abort();
  }
  return *services;
}

void installPlatform(const Platform& services) {
  installed.store(&services, std::memory_order_release);
}

void log(std::string_view line) {
  platform().log->write(line);
}

}  // namespace tervano
