#pragma once

#include <memory>
#include <string>

#include "platform/run_loop.h"

namespace tervano {

// The run loop on GLib: the main queue is one source of default priority on the default main
// context, timers live on the thread-default context of the thread that schedules them, a serial
// queue owns a thread that starts with its first item and ends once it is idle and nobody holds
// the queue.
//
// An exception that leaves an item or a timer's handler is logged and dropped. Items posted by a
// running batch wait for the next turn of the loop, so they cannot starve other sources. An item
// that runs a nested loop does not stop the queue: later items run inside it.
class GlibRunLoop : public RunLoop {
 public:
  GlibRunLoop();
  ~GlibRunLoop() override;

  void dispatchAsyncOnMainQueue(std::function<void()> item) override;
  // An interval that is not above zero counts as 0.1 ms. A repeating timer that fell behind skips
  // the firings it missed.
  std::shared_ptr<RunLoopTimer> scheduleTimer(double interval, bool repeats,
                                              std::function<void()> handler) override;
  // The thread's name is the label's first 15 bytes.
  std::shared_ptr<SerialQueue> createSerialQueue(const std::string& label) override;
  bool runMainLoopUntil(const std::function<bool()>& done, double timeout) override;

  // Timers that can still fire. Any thread.
  int activeTimers() const;
  // Items of the main queue that have not begun. Any thread.
  int pendingMainItems() const;
  // Threads of serial queues that have not ended. Any thread.
  int activeQueueThreads() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tervano
