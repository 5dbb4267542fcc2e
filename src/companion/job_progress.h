#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "companion/job_runner.h"
#include "companion/progress_text.h"
#include "platform/run_loop.h"

namespace tervano {

// What is shown of a job that takes its time. No control characters.
struct ShownProgress {
  std::string title;
  std::string text;
  // From 0 to 1; nil when it is not known.
  std::optional<double> fraction;

  friend bool operator==(const ShownProgress&, const ShownProgress&) = default;
};

// Where progress is shown. Main thread.
class ProgressDisplay {
 public:
  using CancelHandler = std::function<void(std::uint64_t number)>;

  virtual ~ProgressDisplay() = default;
  // Shows the job of that number, or how far it has come now; called a few times a second, also
  // when nothing has changed.
  virtual void show(std::uint64_t number, const ShownProgress& progress) = 0;
  // Only after `show`.
  virtual void hide(std::uint64_t number) = 0;
  // To be called when the user wants the job to end.
  virtual void setCancelHandler(CancelHandler handler) = 0;
};

// Shows the jobs of a runner that last: about a second after a job has begun and nobody is asked
// any more, unless it is all but done, up to its end. Of the rest, a script for one, nothing is
// known that could be shown. Main thread.
class JobProgressListener : public JobListener,
                            public std::enable_shared_from_this<JobProgressListener> {
 public:
  static std::shared_ptr<JobProgressListener> showingOn(std::shared_ptr<ProgressDisplay> display);

  void jobWillRun(const std::shared_ptr<Job>& job) override;
  void jobDidEnd(const std::shared_ptr<Job>& job, const RunOutcome& outcome) override;

  // Use `showingOn`.
  explicit JobProgressListener(std::shared_ptr<ProgressDisplay> display)
      : display_(std::move(display)) {}
  JobProgressListener(const JobProgressListener&) = delete;
  JobProgressListener& operator=(const JobProgressListener&) = delete;
  ~JobProgressListener() override;

 private:
  using Clock = RemainingTime::Clock;
  struct Watched {
    std::shared_ptr<Job> job;
    // Nil until it runs.
    std::optional<Clock::time_point> began;
    RemainingTime remaining;
    bool isShown = false;
  };

  void look();
  void look(std::uint64_t number, Watched& watched, Clock::time_point now);
  void cancel(std::uint64_t number);

  const std::shared_ptr<ProgressDisplay> display_;
  std::uint64_t lastNumber_ = 0;
  std::map<std::uint64_t, Watched> watched_;
  // While there are jobs.
  std::shared_ptr<RunLoopTimer> timer_;
};

}  // namespace tervano
