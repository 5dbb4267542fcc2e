#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/tv_action.h"
#include "tasks/vx_task_helper.h"

namespace tervano {

// What the actions that run tools share: the processes of one run, all at once, and its one end
// after the last of them has ended.
//
// Main thread. The end is posted to the main queue. There the block gets true and nil, whatever the
// tools wrote; only a text in the notification tells. A run that starts before the last one has
// ended terminates its processes; its block is then never called. Neither is the block of a run
// whose tool could not be started. Whoever drives a run holds the action until its end; an action
// that is gone misses it.
class ToolRun : public VXTaskHelperDelegate {
 public:
  using TaskHelpers = std::vector<std::shared_ptr<VXTaskHelper>>;

  // The helpers of the current run that have not finished; nil before the first run. One that could
  // not be launched stays.
  const std::optional<TaskHelpers>& pendingTasks() const { return pendingTasks_; }
  void setPendingTasks(std::optional<TaskHelpers> helpers) { pendingTasks_ = std::move(helpers); }
  // The block of the current run; empty once it has been called, also when the call started the
  // next run.
  const TVAction::CompletionBlock& completionBlock() const { return completionBlock_; }
  void setCompletionBlock(TVAction::CompletionBlock block) { completionBlock_ = std::move(block); }
  // Whether a tool has ever written text to its standard error. No run clears it. Neither archived
  // nor copied.
  bool hasError() const { return hasError_; }
  void setHasError(bool hasError) { hasError_ = hasError; }

  void taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>& helper,
                                  const Data& data) override;
  void taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& helper,
                                 const Data& data) override;
  void taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& helper,
                           std::int64_t terminationReason) override;

 protected:
  // Terminates what is pending, and takes the block of a run with so many tools.
  void beginRun(std::size_t toolCount, const TVAction::CompletionBlock& completionBlock);
  // Starts one tool of the run; `userInfo` tells it from the others. Throws PlatformException when
  // it cannot be started, and leaves it pending.
  void launchTool(const std::string& launchPath, std::vector<std::string> arguments,
                  const std::string& userInfo);
  // Tells the user, unless the preference `disableActionNotifications` is on.
  static void notifyUser(const std::string& informativeText,
                         const std::optional<std::string>& soundName);

  // The object that this is a part of, to hold.
  virtual std::shared_ptr<ToolRun> sharedToolRun() = 0;
  // What the log says before a tool's error text.
  virtual std::string_view errorLogPrefix() const = 0;
  // Reports the end of the run, before its block is called. `last` is the tool that ended last.
  virtual void reportEnd(const VXTaskHelper& last) const = 0;

 private:
  std::optional<TaskHelpers> pendingTasks_;
  TVAction::CompletionBlock completionBlock_;
  bool hasError_ = false;
};

}  // namespace tervano
