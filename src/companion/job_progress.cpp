#include "companion/job_progress.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "archive/printable.h"
#include "platform/platform.h"
#include "translation/translation.h"

namespace tervano {

namespace {

// At most that often something is changed.
constexpr double kLookInterval = 0.25;
constexpr std::chrono::milliseconds kUntilShown(1000);
// What is all but done gets that much longer, so that nothing flashes up.
constexpr std::chrono::seconds kUntilShownNearTheEnd(3);
constexpr double kNearTheEnd = 0.85;

constexpr std::array<std::string_view, 5> kLongWork{
    "TVMoveToAction", "TVCopyToAction", "TVConvertImageAction", "TVCompressPasswordAction",
    "TVSecureRemoveAction"};

bool isLongWork(const Job& job) {
  return job.progress().bytes.bytesTotal > 0 ||
         std::find(kLongWork.begin(), kLongWork.end(), job.subject().className) != kLongWork.end();
}

}  // namespace

std::shared_ptr<JobProgressListener> JobProgressListener::showingOn(
    std::shared_ptr<ProgressDisplay> display) {
  auto listener = std::make_shared<JobProgressListener>(std::move(display));
  listener->display_->setCancelHandler([weak = listener->weak_from_this()](std::uint64_t number) {
    if (const auto alive = weak.lock()) alive->cancel(number);
  });
  return listener;
}

JobProgressListener::~JobProgressListener() {
  if (timer_ != nullptr) timer_->invalidate();
}

void JobProgressListener::jobWillRun(const std::shared_ptr<Job>& job) {
  watched_[++lastNumber_].job = job;
  if (timer_ != nullptr) return;
  timer_ = platform().runLoop->scheduleTimer(kLookInterval, true, [weak = weak_from_this()] {
    if (const auto listener = weak.lock()) listener->look();
  });
}

void JobProgressListener::jobDidEnd(const std::shared_ptr<Job>& job,
                                    const RunOutcome& /*outcome*/) {
  const auto found = std::find_if(watched_.begin(), watched_.end(),
                                  [&](const auto& entry) { return entry.second.job == job; });
  if (found == watched_.end()) return;
  if (found->second.isShown) display_->hide(found->first);
  watched_.erase(found);
  if (!watched_.empty()) return;
  timer_->invalidate();
  timer_ = nullptr;
}

void JobProgressListener::look() {
  const auto now = Clock::now();
  for (auto& [number, watched] : watched_) look(number, watched, now);
}

void JobProgressListener::look(std::uint64_t number, Watched& watched, Clock::time_point now) {
  const Job& job = *watched.job;
  if (job.state() != JobState::running) return;
  if (!watched.began) watched.began = now;
  if (!isLongWork(job)) return;
  const auto progress = job.progress();
  // Of what is done in one step nothing is known before its end.
  const bool isKnown = progress.bytes.bytesTotal > 0 || progress.itemsDone > 0;
  const auto fraction = isKnown ? progress.fraction() : std::nullopt;
  if (fraction) watched.remaining.add(*fraction, now);
  if (!watched.isShown) {
    const auto least = fraction.value_or(0) < kNearTheEnd
                           ? kUntilShown
                           : std::chrono::milliseconds(kUntilShownNearTheEnd);
    if (now - *watched.began < least) return;
  }
  watched.isShown = true;
  std::string text = progressText(job, watched.remaining.remaining());
  if (text.empty()) text = tr("Working…");
  if (job.cancelToken().isCancelled()) text = tr("Stopping…");
  display_->show(number, {printable(job.subject().title), std::move(text), fraction});
}

void JobProgressListener::cancel(std::uint64_t number) {
  const auto found = watched_.find(number);
  if (found == watched_.end()) return;
  const auto job = found->second.job;
  job->cancel();
}

}  // namespace tervano
