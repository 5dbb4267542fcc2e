#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <set>

#include "companion/job_progress.h"
#include "companion/progress_window.h"
#include "platform/user_notifications.h"

namespace tervano {

// Shows progress in one notification for each job where the desktop draws a bar with a button,
// else in a window; nothing while the preference disableActionNotifications is on. Main thread.
class DesktopProgress : public ProgressDisplay {
 public:
  // The notifications' handler of progress is this object's as long as it lives.
  DesktopProgress();
  DesktopProgress(const DesktopProgress&) = delete;
  DesktopProgress& operator=(const DesktopProgress&) = delete;
  ~DesktopProgress() override;

  void show(std::uint64_t number, const ShownProgress& progress) override;
  void hide(std::uint64_t number) override;
  void setCancelHandler(CancelHandler handler) override;

 private:
  using Clock = std::chrono::steady_clock;
  struct Notified {
    ShownProgress progress;
    Clock::time_point time;
  };
  void didHear(std::uint64_t number, ProgressEvent event);

  CancelHandler cancelHandler_;
  // What was last said of the jobs that have a notification.
  std::map<std::uint64_t, Notified> notified_;
  // Those that are shown in the window, and those that are not shown.
  std::set<std::uint64_t> inWindow_;
  std::set<std::uint64_t> silent_;
  ProgressWindow window_;
  // Told apart from those of a display that is no more.
  std::shared_ptr<DesktopProgress*> self_ = std::make_shared<DesktopProgress*>(this);
};

}  // namespace tervano
