#include "companion/history_listener.h"

#include "companion/job_texts.h"
#include "history/job_history.h"
#include "platform/log.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"

namespace tervano {

namespace {

constexpr std::chrono::milliseconds kLastWait(1000);

void listenForCancel(const std::shared_ptr<Job>& job) {
  // It may have ended meanwhile.
  if (isEnd(static_cast<RecordedState>(job->state()))) return;
  platform().notifyChannel->addObserver(job.get(), cancelNameOf(job->number()),
                                        [weak = std::weak_ptr(job)](const std::string&) {
                                          if (const auto running = weak.lock()) running->cancel();
                                        });
}

}  // namespace

std::string cancelNameOf(std::int64_t number) {
  return "com.vessok.tervano.cancel." + std::to_string(number);
}

HistoryListener::HistoryListener() : writer_(JobHistory::path(), listenForCancel) {}

void HistoryListener::jobWillRun(const std::shared_ptr<Job>& job) {
  writer_.add(job);
}

void HistoryListener::jobDidBegin(const std::shared_ptr<Job>& /*job*/) {
  writer_.update();
}

void HistoryListener::jobDidEnd(const std::shared_ptr<Job>& job, const RunOutcome& outcome) {
  platform().notifyChannel->removeEveryObserver(job.get());
  writer_.end(job, outcome.message.english());
}

void HistoryListener::waitUntilWritten() {
  writer_.waitUntilWritten(kLastWait);
}

void tellOfInterruptedJobs() {
  try {
    const auto history = JobHistory::openExisting(JobHistory::path());
    if (history == nullptr) return;
    history->findInterruptedJobs();
    for (const auto& job : history->takeUntoldInterruptedJobs()) {
      const Sentence sentence = interruptionOf(job);
      log(sentence.english());
      UserNotification notification;
      notification.title = "Tervano";
      notification.informativeText =
          tr("{1} \"{2}\" tells more.", sentence, "tervano history " + std::to_string(job.number));
      platform().userNotifications->deliverNotification(notification);
    }
  } catch (const HistoryError& error) {
    log(std::string("Nobody can tell which jobs were interrupted: ") + error.what());
  }
}

}  // namespace tervano
