#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "jobs/work_monitor.h"
#include "platform/error.h"
#include "platform/linux/unfinished_items.h"
#include "platform/work_observer.h"

namespace tervano {

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
  // Why it failed, when it is known; of stopped work how far it came, when that is worth a word.
  std::optional<Error> error;
  // Where the items lie that are finished, also when the work failed or was stopped after them.
  std::vector<std::string> finished = {};
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
