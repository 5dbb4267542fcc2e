#include "companion/job_runner.h"

#include <utility>

namespace tervano {

std::shared_ptr<Job> JobRunner::run(const TVAction& action, std::vector<std::string> paths,
                                    const Askers& askers, Finished finished) {
  const auto job = std::make_shared<Job>(jobSubjectOf(action, paths));
  jobs_.push_back(job);
  for (const auto& listener : listeners_) listener->jobWillRun(job);
  runAction(
      action, std::move(paths), askers,
      [runner = shared_from_this(), job, finished = std::move(finished)](
          const RunOutcome& outcome) { runner->end(job, outcome, finished); },
      job);
  return job;
}

void JobRunner::end(const std::shared_ptr<Job>& job, const RunOutcome& outcome,
                    const Finished& finished) {
  const JobScope noJob(nullptr);
  std::erase(jobs_, job);
  for (const auto& listener : listeners_) listener->jobDidEnd(job, outcome);
  finished(outcome);
}

void JobRunner::cancelAll() {
  // A job may end at once.
  const auto jobs = jobs_;
  for (const auto& job : jobs) job->cancel();
}

}  // namespace tervano
