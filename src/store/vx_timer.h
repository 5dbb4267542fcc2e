#pragma once

#include <functional>
#include <memory>
#include <string>

#include "archive/value.h"
#include "platform/run_loop.h"

namespace tervano {

// A run-loop timer that calls a block and can be armed again. Belongs to one thread: it fires on
// the run loop of the thread that called `run`.
//
// An armed timer is kept alive by its run loop until it fires for the last time or is invalidated.
class VXTimer : public std::enable_shared_from_this<VXTimer> {
 public:
  using DidFinishBlock = std::function<void(VXTimer&)>;

  // A new, armed timer of class T. `interval` is in seconds.
  template <typename T = VXTimer>
  static std::shared_ptr<T> timerWithInterval(double interval, bool repeats, Value userInfo,
                                              DidFinishBlock didFinishBlock) {
    auto timer = std::make_shared<T>();
    timer->setInterval(interval);
    timer->setRepeats(repeats);
    timer->setUserInfo(std::move(userInfo));
    timer->setDidFinishBlock(std::move(didFinishBlock));
    timer->run();
    return timer;
  }
  template <typename T = VXTimer>
  static std::shared_ptr<T> timerWithInterval(double interval, bool repeats,
                                              DidFinishBlock didFinishBlock) {
    return timerWithInterval<T>(interval, repeats, nullptr, std::move(didFinishBlock));
  }

  VXTimer() = default;
  virtual ~VXTimer();
  VXTimer(const VXTimer&) = delete;
  VXTimer& operator=(const VXTimer&) = delete;

  // "<VXTimer ADDRESS, interval=SECONDS, repeats=YES, userInfo=TEXT>".
  std::string description() const;
  // Arms the timer; an armed one starts its interval anew.
  void run();
  // Disarms the timer and drops the block: nothing is ever called again.
  void invalidate();
  // Disarms the timer; `run` arms it again.
  void invalidateTimerOnly();
  // What a firing does: calls the block, if any. A spent timer stays in `timer`.
  void timerDidFinish(RunLoopTimer* timer);

  // The scheduled timer, null when not armed.
  const std::shared_ptr<RunLoopTimer>& timer() const { return timer_; }
  // Kept for the caller; the timer itself neither sets nor reads it.
  bool running() const { return running_; }
  void setRunning(bool running) { running_ = running; }
  // Seconds; takes effect with the next `run`.
  double interval() const { return interval_; }
  void setInterval(double interval) { interval_ = interval; }
  bool repeats() const { return repeats_; }
  void setRepeats(bool repeats) { repeats_ = repeats; }
  // The caller's data.
  const Value& userInfo() const { return userInfo_; }
  void setUserInfo(Value userInfo) { userInfo_ = std::move(userInfo); }
  const DidFinishBlock& didFinishBlock() const { return didFinishBlock_; }
  void setDidFinishBlock(DidFinishBlock block) { didFinishBlock_ = std::move(block); }

 private:
  std::shared_ptr<RunLoopTimer> timer_;
  bool running_ = false;
  double interval_ = 0;
  bool repeats_ = false;
  Value userInfo_;
  DidFinishBlock didFinishBlock_;
};

}  // namespace tervano
