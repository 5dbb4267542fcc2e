#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "companion/job_runner.h"
#include "history/history_writer.h"

namespace tervano {

// The name on the system-wide channel that cancels the job of that number, in whatever process it
// runs.
std::string cancelNameOf(std::int64_t number);

// Writes the jobs of a runner to the history, and has them cancelled by whoever knows their
// numbers.
class HistoryListener : public JobListener {
 public:
  HistoryListener();

  void jobWillRun(const std::shared_ptr<Job>& job) override;
  void jobDidBegin(const std::shared_ptr<Job>& job) override;
  void jobDidEnd(const std::shared_ptr<Job>& job, const RunOutcome& outcome) override;
  // For a process that is about to end: for a bounded time.
  void waitUntilWritten();

 private:
  HistoryWriter writer_;
};

// Jobs whose process was killed, since the last time: one log line and one notification for each.
// Blocking; any thread.
void tellOfInterruptedJobs();

}  // namespace tervano
