#pragma once

#include <functional>
#include <list>
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
  // Before anything is done, and before anybody is asked. The job may have to wait for its turn.
  virtual void jobWillRun(const std::shared_ptr<Job>& job) = 0;
  // Its work has begun. Not called for one that is cancelled while it waits.
  virtual void jobDidBegin(const std::shared_ptr<Job>& job) { static_cast<void>(job); }
  // Its state says how; nothing of the job is running any more.
  virtual void jobDidEnd(const std::shared_ptr<Job>& job, const RunOutcome& outcome) = 0;
};

// Runs actions as jobs, and tells listeners of them. Main thread.
class JobRunner : public std::enable_shared_from_this<JobRunner> {
 public:
  using Finished = std::function<void(const RunOutcome&)>;
  // Begins the work of the job, and calls `finished` once, later, on the main queue. Sets the job's
  // state: running, and by then how it ended.
  using Work = std::function<void(const std::shared_ptr<Job>& job, Finished finished)>;
  // How many jobs of the action of that uid may run at once; 0 for any number.
  using QueuePolicy = std::function<std::size_t(const std::string& actionUid)>;

  // Heard in the order in which they were added.
  void addListener(std::shared_ptr<JobListener> listener) {
    listeners_.push_back(std::move(listener));
  }
  // Asked at each request and whenever a job ends. A job that is one too many waits, whole, until
  // its turn comes; those of one action take their turns in the order in which they came. Without a
  // policy nothing waits.
  void setQueuePolicy(QueuePolicy policy) { policy_ = std::move(policy); }
  // Runs the action as runAction does, as it is now; `finished` is called after the listeners have
  // heard of the end. The platform's services must be those of a JobServices, else only the run's
  // own work is seen.
  std::shared_ptr<Job> run(const TVAction& action, std::vector<std::string> paths,
                           const Askers& askers, Finished finished);
  // The same for work that is no action.
  std::shared_ptr<Job> run(JobSubject subject, Work work, Finished finished);
  // Those that have not ended, in the order in which they came.
  const std::vector<std::shared_ptr<Job>>& jobs() const { return jobs_; }
  void cancelAll();

 private:
  struct WaitingJob {
    std::shared_ptr<Job> job;
    Work work;
    Finished finished;
  };

  bool hasRoomFor(const std::string& actionUid) const;
  void begin(const WaitingJob& waiting);
  void beginWaitingJobs();
  void cancelWaiting(const std::shared_ptr<Job>& job);
  void end(const std::shared_ptr<Job>& job, const RunOutcome& outcome, const Finished& finished);

  std::vector<std::shared_ptr<JobListener>> listeners_;
  QueuePolicy policy_;
  std::vector<std::shared_ptr<Job>> jobs_;
  std::list<WaitingJob> waiting_;
};

}  // namespace tervano
