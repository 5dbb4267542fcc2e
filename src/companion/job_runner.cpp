#include "companion/job_runner.h"

#include <algorithm>
#include <set>
#include <utility>

#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

std::shared_ptr<Job> JobRunner::run(const TVAction& action, std::vector<std::string> paths,
                                    const Askers& askers, Finished finished) {
  return run(
      jobSubjectOf(action, std::move(paths)),
      [copy = action.copy(), askers](const std::shared_ptr<Job>& job, Finished ended) {
        runAction(*copy, job->subject().paths, askers, std::move(ended), job);
      },
      std::move(finished));
}

std::shared_ptr<Job> JobRunner::run(JobSubject subject, Work work, Finished finished) {
  auto job = std::make_shared<Job>(std::move(subject));
  const auto& uid = job->subject().actionUid;
  const bool isOneWaiting = std::any_of(waiting_.begin(), waiting_.end(), [&](const auto& waiting) {
    return waiting.job->subject().actionUid == uid;
  });
  const bool waits = isOneWaiting || !hasRoomFor(uid);
  jobs_.push_back(job);
  for (const auto& listener : listeners_) listener->jobWillRun(job);
  if (waits) {
    job->setCancelHandler([weak = weak_from_this(), weakJob = std::weak_ptr(job)] {
      const auto runner = weak.lock();
      if (runner != nullptr) runner->cancelWaiting(weakJob.lock());
    });
    waiting_.push_back({job, std::move(work), std::move(finished)});
  } else {
    begin({job, std::move(work), std::move(finished)});
  }
  return job;
}

bool JobRunner::hasRoomFor(const std::string& actionUid) const {
  const std::size_t limit = policy_ ? policy_(actionUid) : 0;
  if (limit == 0) return true;
  const auto isOfAction = [&](const Job& job) { return job.subject().actionUid == actionUid; };
  const auto all =
      std::count_if(jobs_.begin(), jobs_.end(), [&](const auto& job) { return isOfAction(*job); });
  const auto waiting = std::count_if(waiting_.begin(), waiting_.end(),
                                     [&](const auto& job) { return isOfAction(*job.job); });
  return static_cast<std::size_t>(all - waiting) < limit;
}

void JobRunner::begin(const WaitingJob& waiting) {
  const auto job = waiting.job;
  job->setCancelHandler(nullptr);
  waiting.work(job, [runner = shared_from_this(), job, finished = waiting.finished](
                        const RunOutcome& outcome) { runner->end(job, outcome, finished); });
}

void JobRunner::beginWaitingJobs() {
  // Of an action whose first one has to go on waiting none begins.
  std::set<std::string> blocked;
  for (auto at = waiting_.begin(); at != waiting_.end();) {
    const std::string& uid = at->job->subject().actionUid;
    if (blocked.contains(uid) || !hasRoomFor(uid)) {
      blocked.insert(uid);
      ++at;
      continue;
    }
    const WaitingJob next = std::move(*at);
    at = waiting_.erase(at);
    begin(next);
    // Beginning calls others, who may have cancelled one that waits.
    at = waiting_.begin();
  }
}

void JobRunner::cancelWaiting(const std::shared_ptr<Job>& job) {
  const auto at = std::find_if(waiting_.begin(), waiting_.end(),
                               [&](const auto& waiting) { return waiting.job == job; });
  if (at == waiting_.end()) return;
  const Finished finished = std::move(at->finished);
  waiting_.erase(at);
  job->setState(JobState::cancelled);
  platform().runLoop->dispatchAsyncOnMainQueue([runner = shared_from_this(), job, finished] {
    runner->end(
        job,
        {false, tr("{1} was cancelled{2}.", tr("\"{1}\"", job->subject().title), ""), true, true},
        finished);
  });
}

void JobRunner::end(const std::shared_ptr<Job>& job, const RunOutcome& outcome,
                    const Finished& finished) {
  const JobScope noJob(nullptr);
  std::erase(jobs_, job);
  for (const auto& listener : listeners_) listener->jobDidEnd(job, outcome);
  finished(outcome);
  beginWaitingJobs();
}

void JobRunner::cancelAll() {
  // A job may end at once, and one that waits must not take its turn then.
  const auto jobs = jobs_;
  std::for_each(jobs.rbegin(), jobs.rend(), [](const auto& job) { job->cancel(); });
}

}  // namespace tervano
