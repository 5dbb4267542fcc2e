#include "tools/remove/worker_pool.h"

#include <system_error>

namespace tervano {

WorkerPool::~WorkerPool() {
  wait();
  {
    const std::scoped_lock lock(mutex_);
    isEnding_ = true;
  }
  workCame_.notify_all();
  for (auto& thread : threads_) thread.join();
}

void WorkerPool::run(Work work) {
  std::unique_lock lock(mutex_);
  queue_.push_back(std::move(work));
  // The calling thread is good for one piece.
  if (queue_.size() > idle_ + 1) startThread();
  workCame_.notify_one();
  if (queue_.size() <= threads_.size() + 1) return;
  if (threads_.empty()) {
    runNext(lock, random_);
  } else {
    queueShrank_.wait(lock, [this] { return isQueueShort(); });
  }
}

void WorkerPool::wait() {
  std::unique_lock lock(mutex_);
  while (!queue_.empty()) runNext(lock, random_);
  workEnded_.wait(lock, [this] { return running_ == 0; });
}

void WorkerPool::startThread() {
  if (threads_.size() >= mostThreads_ || !slots_.take()) return;
  try {
    threads_.emplace_back([this] { serve(); });
  } catch (const std::system_error&) {
    // Those that there are go on.
  }
}

void WorkerPool::serve() {
  RandomBytes random;
  std::unique_lock lock(mutex_);
  while (true) {
    ++idle_;
    workCame_.wait(lock, [this] { return !queue_.empty() || isEnding_; });
    --idle_;
    if (queue_.empty()) return;
    runNext(lock, random);
  }
}

void WorkerPool::runNext(std::unique_lock<std::mutex>& lock, RandomBytes& random) {
  {
    const Work work = std::move(queue_.front());
    queue_.pop_front();
    ++running_;
    if (isQueueShort()) queueShrank_.notify_one();
    lock.unlock();
    work(random);
  }
  lock.lock();
  if (--running_ == 0) workEnded_.notify_one();
}

}  // namespace tervano
