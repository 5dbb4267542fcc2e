#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

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

  friend bool operator==(const WorkProgress&, const WorkProgress&) = default;
};

// Whoever starts long work may follow it and stop it.
struct WorkMonitor {
  CancelToken cancel;
  // Called on the main queue, some ten times a second and, when the work succeeds, at its end with
  // all bytes done. Empty: nobody looks, and nothing is counted.
  std::function<void(const WorkProgress&)> progress;
};

}  // namespace tervano
