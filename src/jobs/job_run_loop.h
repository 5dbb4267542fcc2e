#pragma once

#include "platform/run_loop.h"

namespace tervano {

// Whatever is put on a queue or a timer works for the job that was current then.
class JobRunLoop : public ForwardingRunLoop {
 public:
  using ForwardingRunLoop::ForwardingRunLoop;

  void dispatchAsyncOnMainQueue(std::function<void()> item) override;
  std::shared_ptr<RunLoopTimer> scheduleTimer(double interval, bool repeats,
                                              std::function<void()> handler) override;
  std::shared_ptr<SerialQueue> createSerialQueue(const std::string& label) override;
};

}  // namespace tervano
