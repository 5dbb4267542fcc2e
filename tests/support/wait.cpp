#include "tests/support/wait.h"

#include <chrono>

#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano::test {

bool waitUntil(const std::function<bool()>& done, double seconds) {
  constexpr double kSlice = 0.002;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!platform().runLoop->runMainLoopUntil(done, kSlice)) {
    if (std::chrono::steady_clock::now() >= deadline) return done();
  }
  return true;
}

void runPendingMainItems() {
  bool reached = false;
  platform().runLoop->dispatchAsyncOnMainQueue([&reached] { reached = true; });
  platform().runLoop->runMainLoopUntil([&reached] { return reached; }, -1);
}

}  // namespace tervano::test
