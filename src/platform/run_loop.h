#pragma once

#include <functional>
#include <memory>
#include <string>

namespace tervano {

// A scheduled timer of a run loop. The run loop owns the armed timer's handler until it fires for
// the last time or is invalidated; both release the handler.
class RunLoopTimer {
 public:
  virtual ~RunLoopTimer() = default;
  // Idempotent. On the timer's own thread; after it the handler never runs.
  virtual void invalidate() = 0;
};

// A private queue that runs its items one at a time, first in first out, on a thread of its own
// choosing. Items already posted run even when the last handle is gone.
class SerialQueue {
 public:
  virtual ~SerialQueue() = default;
  virtual void dispatchAsync(std::function<void()> item) = 0;
};

// The main queue, run-loop timers and serial queues.
class RunLoop {
 public:
  virtual ~RunLoop() = default;

  // Appends `item` to the main queue, one first-in-first-out queue on the process's default main
  // loop. Never in-line, also when called on the main thread. Any thread.
  virtual void dispatchAsyncOnMainQueue(std::function<void()> item) = 0;

  // Schedules `handler` on the run loop of the calling thread, after `interval` seconds and, when
  // `repeats`, every `interval` seconds from then on.
  virtual std::shared_ptr<RunLoopTimer> scheduleTimer(double interval, bool repeats,
                                                      std::function<void()> handler) = 0;

  // A new serial queue; `label` names its thread in debuggers.
  virtual std::shared_ptr<SerialQueue> createSerialQueue(const std::string& label) = 0;

  // Runs the main loop until `done` answers true (asked after every turn) or `timeout` seconds have
  // passed; a negative timeout waits for ever. Answers whether `done` did. Main thread.
  virtual bool runMainLoopUntil(const std::function<bool()>& done, double timeout) = 0;
};

class ForwardingRunLoop : public RunLoop {
 public:
  explicit ForwardingRunLoop(RunLoop& real) : real_(real) {}
  void dispatchAsyncOnMainQueue(std::function<void()> item) override {
    real_.dispatchAsyncOnMainQueue(std::move(item));
  }
  std::shared_ptr<RunLoopTimer> scheduleTimer(double interval, bool repeats,
                                              std::function<void()> handler) override {
    return real_.scheduleTimer(interval, repeats, std::move(handler));
  }
  std::shared_ptr<SerialQueue> createSerialQueue(const std::string& label) override {
    return real_.createSerialQueue(label);
  }
  bool runMainLoopUntil(const std::function<bool()>& done, double timeout) override {
    return real_.runMainLoopUntil(done, timeout);
  }

 private:
  RunLoop& real_;
};

}  // namespace tervano
