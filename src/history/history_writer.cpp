#include "history/history_writer.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "history/job_history.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

using WriterClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kChangesInterval(50);
constexpr std::chrono::milliseconds kProgressInterval(1000);
constexpr std::chrono::milliseconds kRetryInterval(100);
// So many changes at once are a burst, after which the interval is kept.
constexpr std::size_t kBurst = 20;
// So many changes of a job are known to be written before its work goes on, so that a killed
// process leaves no doubt; but all of that waiting takes no longer than this.
constexpr std::size_t kAwaitedChanges = 100;
constexpr std::chrono::milliseconds kAwaitingTime(500);
// So long a job may wait at its beginning until the history knows of it.
constexpr std::chrono::milliseconds kAddingTime(200);
// How long a locked history is waited for, and at the end of the process.
constexpr std::chrono::milliseconds kPatience(5000);
constexpr std::chrono::milliseconds kLastPatience(1000);

// Where the item of a change is to be looked at.
std::optional<ItemState> stateAfter(const JobChange& change) {
  switch (change.kind) {
    case JobChange::Kind::moved:
      return itemStateAt(change.to, ItemDepth::itself);
    case JobChange::Kind::copied:
    case JobChange::Kind::made:
      return itemStateAt(change.to, ItemDepth::withContents);
    case JobChange::Kind::removed:
    case JobChange::Kind::trashed:
      break;
  }
  return std::nullopt;
}

}  // namespace

struct HistoryWriter::Entry {
  std::shared_ptr<Job> job;
  std::int64_t began = 0;
  // Under the lock of the state.
  std::vector<RecordedChange> pending;
  // Whether the history knows of it, or will never.
  bool isTaken = false;
  std::size_t addedChanges = 0;
  std::size_t writtenChanges = 0;
  WriterClock::duration awaitingTime = kAwaitingTime;
  bool isIncomplete = false;
  std::int64_t ended = 0;
  std::string message;
  // Of the thread.
  std::int64_t number = 0;
  bool isGivenUp = false;
  bool isEndWritten = false;
  JobState writtenState = JobState::waiting;
  JobProgress writtenProgress;
};

struct HistoryWriter::State : std::enable_shared_from_this<HistoryWriter::State> {
  std::string path;
  NumberHandler numbered;
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::shared_ptr<Entry>> entries;
  // Whether there is something that should not wait for the next look at the progress.
  bool hasNews = false;
  // Whether somebody waits for that to be written.
  bool hasUrgent = false;
  bool isStopping = false;
  bool isRunning = false;
  std::thread thread;
  // Of the thread.
  std::unique_ptr<JobHistory> history;
  WriterClock::time_point written;
  bool isBurst = false;

  // A piece of work: what there is to be written of one job.
  struct Portion {
    std::shared_ptr<Entry> entry;
    std::vector<RecordedChange> changes;
    bool isIncomplete = false;
    std::int64_t ended = 0;
    std::string message;
  };

  void loop();
  std::vector<Portion> takePortions();
  bool write(std::vector<Portion>& portions);
  void writeOnce(std::vector<Portion>& portions);
};

void HistoryWriter::State::loop() {
  std::unique_lock lock(mutex);
  while (true) {
    changed.wait_for(lock, kProgressInterval, [this] { return hasNews || isStopping; });
    if (isBurst) {
      changed.wait_until(lock, written + kChangesInterval,
                         [this] { return hasUrgent || isStopping; });
    }
    hasNews = false;
    hasUrgent = false;
    auto portions = takePortions();
    lock.unlock();
    const bool isWritten = portions.empty() || write(portions);
    for (const auto& portion : portions) {
      if (!isWritten) portion.entry->isGivenUp = true;
      if (portion.ended != 0) portion.entry->isEndWritten = true;
    }
    written = WriterClock::now();
    lock.lock();
    isBurst = false;
    for (const auto& portion : portions) {
      portion.entry->isTaken = true;
      portion.entry->writtenChanges += portion.changes.size();
      isBurst = isBurst || portion.changes.size() > kBurst;
    }
    std::erase_if(entries, [](const auto& entry) {
      return entry->isEndWritten || (entry->isGivenUp && entry->ended != 0);
    });
    changed.notify_all();
    if (entries.empty() || (isStopping && !hasNews)) break;
  }
  history.reset();
  isRunning = false;
  changed.notify_all();
}

std::vector<HistoryWriter::State::Portion> HistoryWriter::State::takePortions() {
  std::vector<Portion> portions;
  for (const auto& entry : entries) {
    auto changes = std::exchange(entry->pending, {});
    if (entry->isGivenUp) {
      entry->writtenChanges += changes.size();
      continue;
    }
    portions.push_back(
        {entry, std::move(changes), entry->isIncomplete, entry->ended, entry->message});
  }
  return portions;
}

bool HistoryWriter::State::write(std::vector<Portion>& portions) {
  const auto begun = WriterClock::now();
  while (true) {
    try {
      if (history == nullptr) history = JobHistory::open(path);
      writeOnce(portions);
      return true;
    } catch (const HistoryError& error) {
      const auto waited = WriterClock::now() - begun;
      std::unique_lock lock(mutex);
      if (error.isBusy() && waited < (isStopping ? kLastPatience : kPatience)) {
        changed.wait_for(lock, kRetryInterval, [] { return false; });
        continue;
      }
      lock.unlock();
      history.reset();
      log(std::string("Nothing more is written to the history: ") + error.what());
      return false;
    }
  }
}

void HistoryWriter::State::writeOnce(std::vector<Portion>& portions) {
  std::vector<std::int64_t> numbers;
  const auto transaction = history->begin();
  for (auto& portion : portions) {
    Entry& entry = *portion.entry;
    const auto number = entry.number == 0 ? history->add(*entry.job, entry.began) : entry.number;
    numbers.push_back(number);
    if (!portion.changes.empty()) history->addChanges(number, portion.changes);
    if (portion.isIncomplete) history->setIncomplete(number);
    const auto state = entry.job->state();
    const auto progress = entry.job->progress();
    // Those that end say so themselves.
    const bool isOpen = !isEnd(static_cast<RecordedState>(state));
    if (isOpen && (state != entry.writtenState || progress != entry.writtenProgress)) {
      history->setProgress(number, state, progress);
      entry.writtenState = state;
      entry.writtenProgress = progress;
    }
    if (portion.ended != 0) history->end(number, *entry.job, portion.message, portion.ended);
  }
  transaction->commit();
  for (std::size_t at = 0; at < portions.size(); ++at) {
    Entry& entry = *portions[at].entry;
    if (std::exchange(entry.number, numbers[at]) != 0) continue;
    entry.job->setNumber(entry.number);
    if (numbered) {
      platform().runLoop->dispatchAsyncOnMainQueue(
          [handler = numbered, job = entry.job] { handler(job); });
    }
  }
}

HistoryWriter::HistoryWriter(std::string path, NumberHandler numbered)
    : state_(std::make_shared<State>()) {
  state_->path = std::move(path);
  state_->numbered = std::move(numbered);
}

HistoryWriter::~HistoryWriter() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->isStopping = true;
    state_->changed.notify_all();
  }
  if (state_->thread.joinable()) state_->thread.join();
}

void HistoryWriter::add(const std::shared_ptr<Job>& job) {
  auto entry = std::make_shared<Entry>();
  entry->job = job;
  entry->began = platform().clock->nowInNanoseconds();
  job->setChangeHandler(
      [weakState = std::weak_ptr(state_), weakEntry = std::weak_ptr(entry),
       mainThread = std::this_thread::get_id()](std::size_t index, const JobChange& change) {
        const auto state = weakState.lock();
        const auto changed = weakEntry.lock();
        if (state == nullptr || changed == nullptr) return;
        const bool isKept = index < JobHistory::kKeptChanges;
        RecordedChange recorded{index, change, isKept ? stateAfter(change) : std::nullopt, false};
        std::unique_lock lock(state->mutex);
        if (isKept) {
          changed->pending.push_back(std::move(recorded));
          ++changed->addedChanges;
        } else {
          changed->isIncomplete = true;
        }
        if (!std::exchange(state->hasNews, true)) state->changed.notify_all();
        if (index >= kAwaitedChanges || std::this_thread::get_id() == mainThread) return;
        const auto begun = WriterClock::now();
        state->changed.wait_for(lock, changed->awaitingTime, [&, count = changed->addedChanges] {
          return changed->writtenChanges >= count || !state->isRunning;
        });
        changed->awaitingTime -= std::min(changed->awaitingTime, WriterClock::now() - begun);
      });
  std::unique_lock lock(state_->mutex);
  state_->entries.push_back(entry);
  state_->hasNews = true;
  state_->hasUrgent = true;
  if (!state_->isRunning) {
    if (state_->thread.joinable()) state_->thread.join();
    state_->isRunning = true;
    state_->thread = std::thread([state = state_] { state->loop(); });
  }
  state_->changed.notify_all();
  state_->changed.wait_for(lock, kAddingTime, [&] { return entry->isTaken; });
}

void HistoryWriter::update() {
  const std::lock_guard lock(state_->mutex);
  state_->hasNews = true;
  state_->changed.notify_all();
}

void HistoryWriter::end(const std::shared_ptr<Job>& job, const std::string& message) {
  job->setChangeHandler(nullptr);
  const std::lock_guard lock(state_->mutex);
  for (const auto& entry : state_->entries) {
    if (entry->job != job) continue;
    entry->message = message;
    entry->ended = platform().clock->nowInNanoseconds();
  }
  state_->hasNews = true;
  state_->hasUrgent = true;
  state_->changed.notify_all();
}

bool HistoryWriter::waitUntilWritten(std::chrono::milliseconds limit) {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, limit, [this] {
    return std::all_of(state_->entries.begin(), state_->entries.end(),
                       [](const auto& entry) { return entry->ended == 0; });
  });
}

}  // namespace tervano
