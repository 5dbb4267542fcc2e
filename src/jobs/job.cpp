#include "jobs/job.h"

#include <algorithm>
#include <utility>

#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr std::chrono::milliseconds kProgressInterval(100);
// More than this of what processes wrote is not kept.
constexpr std::size_t kKeptOutputBytes = std::size_t{64} << 10;

thread_local std::shared_ptr<Job> threadsJob;

bool isEnd(JobState state) {
  return state != JobState::waiting && state != JobState::running;
}

}  // namespace

std::optional<double> JobProgress::fraction() const {
  const auto part = [](auto done, auto total) {
    return total == 0 ? 0 : static_cast<double>(done) / static_cast<double>(total);
  };
  const double ofBytes = part(bytes.bytesDone, bytes.bytesTotal);
  if (bytes.bytesTotal != 0 && !bytesAreOfOneItem) return ofBytes;
  if (itemsTotal == 0) return std::nullopt;
  return std::min(1.0, part(itemsDone, itemsTotal) + ofBytes / static_cast<double>(itemsTotal));
}

Job::Job(JobSubject subject) : subject_(std::move(subject)) {
  progress_.itemsTotal = subject_.paths.size();
}

WorkMonitor Job::monitor() {
  return {cancelToken_, [weak = weak_from_this()](const WorkProgress& bytes) {
            if (const auto job = weak.lock()) job->setBytesOfAllItems(bytes);
          }};
}

JobState Job::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

void Job::setState(JobState state) {
  const std::lock_guard lock(mutex_);
  state_ = state;
}

void Job::cancel() {
  if (isEnd(state()) || std::exchange(isCancelled_, true)) return;
  cancelToken_.cancel();
  if (const auto handler = cancelHandler_) handler();
}

JobProgress Job::progress() const {
  const std::lock_guard lock(mutex_);
  return progress_;
}

void Job::setBytesOfAllItems(const WorkProgress& bytes) {
  changeProgress([&](JobProgress& progress) { progress.bytes = bytes; });
}

void Job::setBytesOfOneItem(const WorkProgress& bytes) {
  changeProgress([&](JobProgress& progress) {
    progress.bytes = bytes;
    progress.bytesAreOfOneItem = true;
  });
}

void Job::addDoneItem() {
  changeProgress([](JobProgress& progress) {
    progress.itemsDone = std::min(progress.itemsDone + 1, progress.itemsTotal);
    if (progress.bytesAreOfOneItem) progress.bytes = {};
  });
}

void Job::setProgressHandler(std::function<void()> handler) {
  const std::lock_guard lock(mutex_);
  progressHandler_ = std::move(handler);
}

void Job::changeProgress(const std::function<void(JobProgress&)>& change) {
  {
    const std::lock_guard lock(mutex_);
    change(progress_);
    const auto now = std::chrono::steady_clock::now();
    if (!progressHandler_ || isTelling_ || now - told_ < kProgressInterval) return;
    isTelling_ = true;
    told_ = now;
  }
  platform().runLoop->dispatchAsyncOnMainQueue([weak = weak_from_this()] {
    const auto job = weak.lock();
    if (job == nullptr) return;
    std::function<void()> handler;
    {
      const std::lock_guard lock(job->mutex_);
      job->isTelling_ = false;
      handler = job->progressHandler_;
    }
    if (handler) handler();
  });
}

void Job::addChange(const JobChange& change) {
  ChangeHandler handler;
  std::size_t index = 0;
  {
    const std::lock_guard lock(mutex_);
    index = changes_.size();
    if (change.kind == JobChange::Kind::removed) removed_.insert(change.from);
    changes_.push_back(change);
    handler = changeHandler_;
  }
  if (handler) handler(index, change);
}

void Job::itemDidChange(const std::string& path) {
  ChangeHandler handler;
  std::size_t index = 0;
  JobChange change;
  {
    const std::lock_guard lock(mutex_);
    if (changes_.empty() || changes_.back().to != path) return;
    index = changes_.size() - 1;
    change = changes_.back();
    handler = changeHandler_;
  }
  if (handler) handler(index, change);
}

bool Job::hasRemoved(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  return removed_.contains(path);
}

void Job::setChangeHandler(ChangeHandler handler) {
  const std::lock_guard lock(mutex_);
  changeHandler_ = std::move(handler);
}

std::vector<JobChange> Job::changes() const {
  const std::lock_guard lock(mutex_);
  return changes_;
}

void Job::addOutput(const std::string& text) {
  const std::lock_guard lock(mutex_);
  output_.append(text, 0, kKeptOutputBytes - output_.size());
}

std::string Job::output() const {
  const std::lock_guard lock(mutex_);
  return output_;
}

void Job::complain(std::string sentence) {
  const std::lock_guard lock(mutex_);
  complaints_.push_back(std::move(sentence));
}

std::vector<std::string> Job::complaints() const {
  const std::lock_guard lock(mutex_);
  return complaints_;
}

void Job::processDidLaunch(const std::shared_ptr<Process>& process) {
  processes_.push_back(process);
}

void Job::processDidEnd(const Process& process) {
  std::erase_if(processes_, [&](const auto& running) { return running.get() == &process; });
  if (const auto handler = processEndHandler_) handler();
}

std::shared_ptr<Job> currentJob() {
  return threadsJob;
}

JobScope::JobScope(std::shared_ptr<Job> job) : outer_(std::exchange(threadsJob, std::move(job))) {}

JobScope::~JobScope() {
  threadsJob = std::move(outer_);
}

}  // namespace tervano
