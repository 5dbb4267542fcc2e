#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/action_driver.h"
#include "jobs/job.h"

namespace tervano {

// Hears of the jobs of a runner. Every call is on the main thread and for no job of its own.
class JobListener {
 public:
  virtual ~JobListener() = default;
  // Before anything is done, and before anybody is asked.
  virtual void jobWillRun(const std::shared_ptr<Job>& job) = 0;
  // Its state says how; nothing of the job is running any more.
  virtual void jobDidEnd(const std::shared_ptr<Job>& job, const RunOutcome& outcome) = 0;
};

// Runs actions as jobs, and tells listeners of them. Main thread.
class JobRunner : public std::enable_shared_from_this<JobRunner> {
 public:
  using Finished = std::function<void(const RunOutcome&)>;

  // Heard in the order in which they were added.
  void addListener(std::shared_ptr<JobListener> listener) {
    listeners_.push_back(std::move(listener));
  }
  // Runs the action as runAction does; `finished` is called after the listeners have heard of the
  // end. The platform's services must be those of a JobServices, else only the run's own work is
  // seen.
  std::shared_ptr<Job> run(const TVAction& action, std::vector<std::string> paths,
                           const Askers& askers, Finished finished);
  // Those that have not ended, in the order in which they began.
  const std::vector<std::shared_ptr<Job>>& jobs() const { return jobs_; }
  void cancelAll();

 private:
  void end(const std::shared_ptr<Job>& job, const RunOutcome& outcome, const Finished& finished);

  std::vector<std::shared_ptr<JobListener>> listeners_;
  std::vector<std::shared_ptr<Job>> jobs_;
};

}  // namespace tervano
