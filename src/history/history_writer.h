#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "jobs/job.h"

namespace tervano {

// Writes the jobs of this process to the history while they run, on a thread of its own: what they
// changed as it happens, of very many some twenty times a second, and how far they are once a
// second. Work off the main thread waits for its first changes to be written, in all for half a
// second at most. A history that is damaged, locked or has no room holds nobody up: one line is
// logged for each job that is not written. The thread ends with the last job; the object writes
// what it has when it is destroyed, for a bounded time. Main thread.
class HistoryWriter {
 public:
  // `numbered` is called on the main queue when a job has its number.
  using NumberHandler = std::function<void(const std::shared_ptr<Job>& job)>;
  HistoryWriter(std::string path, NumberHandler numbered);
  HistoryWriter(const HistoryWriter&) = delete;
  HistoryWriter& operator=(const HistoryWriter&) = delete;
  ~HistoryWriter();

  // Before the job does anything; takes its change handler. Waits until the history knows of the
  // job, for a fifth of a second at most.
  void add(const std::shared_ptr<Job>& job);
  // A job has begun: its state is written soon.
  void update();
  // After its end; `message` is a sentence when it failed.
  void end(const std::shared_ptr<Job>& job, const std::string& message);
  // Waits until everything is written, or given up; false when the time is over.
  bool waitUntilWritten(std::chrono::milliseconds limit);

 private:
  struct Entry;
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tervano
