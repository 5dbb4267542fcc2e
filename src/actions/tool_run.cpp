#include "actions/tool_run.h"

#include "actions/chunk_text.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_notifications.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

void ToolRun::beginRun(std::size_t toolCount, const TVAction::CompletionBlock& completionBlock) {
  if (pendingTasks_) {
    for (const auto& helper : *pendingTasks_) helper->cancel();
  }
  pendingTasks_.emplace().reserve(toolCount);
  setCompletionBlock(completionBlock);
}

void ToolRun::launchTool(const std::string& launchPath, std::vector<std::string> arguments,
                         const std::string& userInfo) {
  const auto task = platform().processes->createProcess();
  task->setLaunchPath(launchPath);
  task->setArguments(std::move(arguments));
  const auto helper = VXTaskHelper::taskHelperWithTask(task);
  helper->setDelegate(sharedToolRun());
  helper->setUserInfo(userInfo);
  pendingTasks_->push_back(helper);
  helper->launch();
}

void ToolRun::notifyUser(const std::string& informativeText,
                         const std::optional<std::string>& soundName) {
  if (TVUserDefaults::create()->disableActionNotifications()) return;
  UserNotification notification;
  notification.title = "Tervano";
  notification.informativeText = informativeText;
  notification.soundName = soundName;
  platform().userNotifications->deliverNotification(notification);
}

void ToolRun::taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                         const Data& /*data*/) {}

void ToolRun::taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                        const Data& data) {
  setHasError(true);
  log(std::string(errorLogPrefix()) + chunkText(data));
}

void ToolRun::taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& helper,
                                  std::int64_t /*terminationReason*/) {
  if (pendingTasks_) std::erase(*pendingTasks_, helper);
  if (pendingTasks_ && !pendingTasks_->empty()) return;
  platform().runLoop->dispatchAsyncOnMainQueue([self = sharedToolRun(), helper] {
    self->reportEnd(*helper);
    const TVAction::CompletionBlock block = self->completionBlock();
    if (block) block(true, std::nullopt);
    self->setCompletionBlock(nullptr);
  });
}

}  // namespace tervano
