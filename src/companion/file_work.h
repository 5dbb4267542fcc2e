#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/linux/unfinished_items.h"
#include "platform/work_observer.h"

namespace tervano {

// Stops long work. Copies of one token are one and the same. Any thread; `cancel` also in a signal
// handler.
class CancelToken {
 public:
  void cancel() const { isCancelled_->store(true, std::memory_order_relaxed); }
  bool isCancelled() const { return isCancelled_->load(std::memory_order_relaxed); }

 private:
  std::shared_ptr<std::atomic<bool>> isCancelled_ = std::make_shared<std::atomic<bool>>(false);
};

// How far work on files has come, in bytes of their contents.
struct WorkProgress {
  std::uint64_t bytesDone = 0;
  std::uint64_t bytesTotal = 0;
};

// Whoever starts long work may follow it and stop it.
struct WorkMonitor {
  CancelToken cancel;
  // Called on the main queue, some ten times a second and, when the work succeeds, at its end with
  // all bytes done. Empty: nobody looks, and nothing is counted.
  std::function<void(const WorkProgress&)> progress;
};

// The size of the contents of all files in and below the paths, links not followed; what cannot be
// read counts nothing. Stops counting when cancelled. Blocking; any thread.
std::uint64_t contentSizeOf(const std::vector<std::string>& paths, const CancelToken& cancel);

// The monitor's side of the work of one run on one thread.
class WorkFollower : public WorkObserver {
 public:
  // `paths` are what the work is about.
  WorkFollower(const WorkMonitor& monitor, const std::vector<std::string>& paths);

  void willMakeTemporary(const std::string& path) override { unfinished_ = UnfinishedItem(path); }
  void didProcess(std::uint64_t bytes) override;
  bool isCancelled() const override { return monitor_.cancel.isCancelled(); }
  // The temporary item is gone or has its own name.
  void didEndTemporary() { unfinished_ = UnfinishedItem(); }
  // Everything is done.
  void finish();

 private:
  void tell();

  WorkMonitor monitor_;
  WorkProgress progress_;
  std::chrono::steady_clock::time_point told_;
  UnfinishedItem unfinished_;
};

// How the work of a run ended.
struct FileWorkOutcome {
  bool success = false;
  // Stopped by the monitor.
  bool cancelled = false;
  // Why it failed, when it is known.
  std::optional<Error> error;
};
using FileWorkEnd = std::function<void(const FileWorkOutcome&)>;

// Does the work on a new serial queue of that name, and calls `finished` with its outcome on the
// main queue, once. An exception of the work is its failure.
void runFileWork(const std::string& label, std::function<FileWorkOutcome()> work,
                 FileWorkEnd finished);

// Removes what runs that were killed have left behind, with a log line for each. Blocking; any
// thread.
void removeUnfinishedItems();

}  // namespace tervano
