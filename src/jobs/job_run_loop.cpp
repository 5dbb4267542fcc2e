#include "jobs/job_run_loop.h"

#include "jobs/job.h"

namespace tervano {

namespace {

std::function<void()> withCurrentJob(std::function<void()> item) {
  auto job = currentJob();
  if (job == nullptr) return item;
  return [job = std::move(job), item = std::move(item)] {
    const JobScope scope(job);
    item();
  };
}

class JobQueue : public SerialQueue {
 public:
  explicit JobQueue(std::shared_ptr<SerialQueue> real) : real_(std::move(real)) {}
  void dispatchAsync(std::function<void()> item) override {
    real_->dispatchAsync(withCurrentJob(std::move(item)));
  }

 private:
  std::shared_ptr<SerialQueue> real_;
};

}  // namespace

void JobRunLoop::dispatchAsyncOnMainQueue(std::function<void()> item) {
  ForwardingRunLoop::dispatchAsyncOnMainQueue(withCurrentJob(std::move(item)));
}

std::shared_ptr<RunLoopTimer> JobRunLoop::scheduleTimer(double interval, bool repeats,
                                                        std::function<void()> handler) {
  return ForwardingRunLoop::scheduleTimer(interval, repeats, withCurrentJob(std::move(handler)));
}

std::shared_ptr<SerialQueue> JobRunLoop::createSerialQueue(const std::string& label) {
  return std::make_shared<JobQueue>(ForwardingRunLoop::createSerialQueue(label));
}

}  // namespace tervano
