#pragma once

#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/history_listener.h"
#include "companion/job_runner.h"

namespace tervano {

// Puts the services of a JobServices before the platform's. Never taken out again: what an action
// posted may still use them until the process ends.
void installJobServices();

// Waits, for a bounded time, until the desktop has taken the notifications and requests of a
// process that is about to end.
void waitForDesktop();

// Interrupting this process from the terminal stops the work, which cleans up after itself; a
// second time ends the process. What the process was told to ignore stays ignored. For as long as
// it lives, one at a time.
class CancelOnSignals {
 public:
  explicit CancelOnSignals(const CancelToken& token);
  CancelOnSignals(const CancelOnSignals&) = delete;
  CancelOnSignals& operator=(const CancelOnSignals&) = delete;
  ~CancelOnSignals();

 private:
  static constexpr std::array<int, 3> kSignals{SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, kSignals.size()> before_{};
};

// How a job of a command ended.
struct SessionEnd {
  RunOutcome outcome;
  std::vector<std::string> complaints;
  std::int64_t number = 0;
};

// Runs one job of a command to its end: written to the history, and cancelled by signals. `start`
// starts it. Main thread.
SessionEnd runInSession(
    const std::function<std::shared_ptr<Job>(JobRunner& runner, JobRunner::Finished finished)>&
        start);

}  // namespace tervano
