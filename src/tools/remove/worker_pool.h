#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/remove/flush_slots.h"
#include "tools/remove/random_bytes.h"

namespace tervano {

// Does pieces of work at once that mostly wait for the disk. Threads are started when there is work
// for them, as many as are allowed and as the user's other processes leave; the calling thread
// works as well while it waits, so a single piece needs no thread at all.
class WorkerPool {
 public:
  // Gets the random data of the thread that it runs on. Must not throw.
  using Work = std::function<void(RandomBytes&)>;

  explicit WorkerPool(std::size_t mostThreads) : mostThreads_(mostThreads) {}
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  // Waits for all work.
  ~WorkerPool();

  // Queues a piece of work. Waits when many pieces are queued already.
  void run(Work work);
  // Returns when all work is done.
  void wait();

  std::size_t threads() const { return threads_.size(); }

 private:
  void serve();
  // These with the lock held.
  // Half of what may be queued, so that the calling thread does not wake up for every piece.
  bool isQueueShort() const { return queue_.size() <= threads_.size() / 2; }
  void startThread();
  void runNext(std::unique_lock<std::mutex>& lock, RandomBytes& random);

  const std::size_t mostThreads_;
  FlushSlots slots_;
  RandomBytes random_;
  std::vector<std::thread> threads_;

  std::mutex mutex_;
  std::condition_variable workCame_;
  std::condition_variable queueShrank_;
  std::condition_variable workEnded_;
  std::deque<Work> queue_;
  std::size_t running_ = 0;
  std::size_t idle_ = 0;
  bool isEnding_ = false;
};

}  // namespace tervano
