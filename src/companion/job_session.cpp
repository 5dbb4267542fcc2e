#include "companion/job_session.h"

#include <optional>

#include "jobs/job_services.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"

namespace tervano {

namespace {

// How long a short-lived command waits for the desktop to take its notifications and requests.
constexpr double kDeliveryTimeoutSeconds = 10;
constexpr double kSessionHeartbeatSeconds = 0.2;

const CancelToken* tokenOfSignals = nullptr;

// Has signals cancel the job for as long as it runs.
class CancellingListener : public JobListener {
 public:
  void jobWillRun(const std::shared_ptr<Job>& job) override {
    cancelling_.emplace(job->cancelToken());
  }
  void jobDidEnd(const std::shared_ptr<Job>& /*job*/, const RunOutcome& /*outcome*/) override {
    cancelling_.reset();
  }

 private:
  std::optional<CancelOnSignals> cancelling_;
};

}  // namespace

void installJobServices() {
  static const JobServices jobServices(platform());
  installPlatform(jobServices.services());
}

void waitForDesktop() {
  platform().runLoop->runMainLoopUntil(
      [] {
        return platform().userNotifications->pendingDeliveries() == 0 &&
               platform().workspace->pendingRequests() == 0;
      },
      kDeliveryTimeoutSeconds);
}

CancelOnSignals::CancelOnSignals(const CancelToken& token) {
  tokenOfSignals = &token;
  struct sigaction action {};
  action.sa_handler = [](int) { tokenOfSignals->cancel(); };
  action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
  for (std::size_t at = 0; at < kSignals.size(); ++at) {
    sigaction(kSignals[at], nullptr, &before_[at]);
    if (before_[at].sa_handler != SIG_IGN) sigaction(kSignals[at], &action, nullptr);
  }
}

CancelOnSignals::~CancelOnSignals() {
  for (std::size_t at = 0; at < kSignals.size(); ++at) {
    sigaction(kSignals[at], &before_[at], nullptr);
  }
  tokenOfSignals = nullptr;
}

SessionEnd runInSession(
    const std::function<std::shared_ptr<Job>(JobRunner& runner, JobRunner::Finished finished)>&
        start) {
  std::optional<RunOutcome> ended;
  const auto runner = std::make_shared<JobRunner>();
  const auto history = std::make_shared<HistoryListener>();
  runner->addListener(history);
  runner->addListener(std::make_shared<CancellingListener>());
  const auto job = start(*runner, [&](const RunOutcome& outcome) { ended = outcome; });
  // A signal wakes the loop only while it sleeps.
  const auto heartbeat = platform().runLoop->scheduleTimer(kSessionHeartbeatSeconds, true, [] {});
  platform().runLoop->runMainLoopUntil(
      [&] {
        if (job->cancelToken().isCancelled()) job->cancel();
        return ended.has_value();
      },
      -1);
  heartbeat->invalidate();
  history->waitUntilWritten();
  return {*ended, job->complaints(), job->number()};
}

}  // namespace tervano
