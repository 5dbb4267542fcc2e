#pragma once

#include <functional>

namespace tervano::test {

// Runs the main loop until `done` answers true, at most `seconds`; answers whether it did. `done`
// is also asked when nothing happens on the main loop, so it may read what another thread or
// process changes. Main thread.
[[nodiscard]] bool waitUntil(const std::function<bool()>& done, double seconds = 10);

// Runs what the main loop has ready now: everything posted before this call.
void runPendingMainItems();

}  // namespace tervano::test
