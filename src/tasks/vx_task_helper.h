#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/notification_center.h"
#include "platform/process.h"
#include "platform/subscription.h"

namespace tervano {

class VXTaskHelper;

// Hears of a running tool. Every call is on the main thread.
class VXTaskHelperDelegate {
 public:
  virtual ~VXTaskHelperDelegate() = default;
  // One chunk of standard output or standard error as it was read: a line may arrive split, several
  // lines together. May still come after taskHelperDidFinish when it was read before.
  virtual void taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>& helper,
                                          const Data& data) = 0;
  virtual void taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& helper,
                                         const Data& data) = 0;
  // The process has ended: 1 for an exit, whatever its status, 2 for an uncaught signal.
  virtual void taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& helper,
                                   std::int64_t terminationReason) = 0;
};

// Runs one prepared process and tells a delegate what it writes and when it ends. The creator sets
// path and arguments on the process; the helper adds the two output pipes, their readers and the
// observation of the end. Main thread.
//
// Chunks that are not valid UTF-8, and chunks of only white space and line ends, are dropped.
//
// From launch until the end or cancel the readers hold the helper, so that it lives though its
// owner drops it. The delegate is not held; one that is gone misses its calls.
class VXTaskHelper : public std::enable_shared_from_this<VXTaskHelper> {
  class Birth {
    friend class VXTaskHelper;
    Birth() = default;
  };

 public:
  static std::shared_ptr<VXTaskHelper> taskHelperWithTask(std::shared_ptr<Process> task);

  explicit VXTaskHelper(Birth) {}
  VXTaskHelper(const VXTaskHelper&) = delete;
  VXTaskHelper& operator=(const VXTaskHelper&) = delete;

  // Does nothing while the process runs, and nothing without a process: a helper serves one process
  // and is not launched again after its end.
  //
  // Throws PlatformException when the process cannot be started. Then the observation and the
  // readers stay installed, and with them the helper, until `cleanup`.
  void launch();
  // Terminates a running process and detaches from it; taskHelperDidFinish never comes then. Does
  // nothing when the process is not running.
  void cancel();
  // What the process answers; false without one.
  bool suspend();
  bool resume();
  // The observer of the end. The notification's sender is the Process.
  void taskCompleted(const Notification& notification);
  // Ends the observation and the reading and lets go of the process. Output read so far is still
  // delivered, unread output is lost.
  void cleanup();

  // Null after the end, after `cancel` and after `cleanup`.
  const std::shared_ptr<Process>& task() const { return task_; }
  void setTask(std::shared_ptr<Process> task) { task_ = std::move(task); }
  // Null when none is set or it is gone.
  std::shared_ptr<VXTaskHelperDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<VXTaskHelperDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  // The owner's mark, typically the path that the process works on; never read here.
  const std::optional<std::string>& userInfo() const { return userInfo_; }
  void setUserInfo(std::optional<std::string> userInfo) { userInfo_ = std::move(userInfo); }

 private:
  using DelegateCall = void (VXTaskHelperDelegate::*)(const std::shared_ptr<VXTaskHelper>&,
                                                      const Data&);
  void installReader(FileHandle& readingEnd, DelegateCall delegateCall);
  void removeReaders();

  std::shared_ptr<Process> task_;
  std::weak_ptr<VXTaskHelperDelegate> delegate_;
  std::optional<std::string> userInfo_;
  Subscription endObservation_;
};

}  // namespace tervano
