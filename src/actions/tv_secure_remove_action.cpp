#include "actions/tv_secure_remove_action.h"

#include "archive/url.h"
#include "platform/user_notifications.h"

namespace tervano {

void TVSecureRemoveAction::init() {
  TVAction::init();
  setTitle("Secure Delete");
  setIcon(Image::imageNamed("icon-secure-delete"));
  setIsDefault(true);
  setActionDescription("Securely and permanently removes the selected files");
}

std::optional<std::string> TVSecureRemoveAction::editorClassName() const {
  return "TVResetAppModule";
}

std::shared_ptr<TVAction> TVSecureRemoveAction::makeBlank() const {
  return std::make_shared<TVSecureRemoveAction>();
}

void TVSecureRemoveAction::beforeRunWithFilePaths(const FilePaths& /*filePaths*/,
                                                  const BeforeRunBlock& /*completionBlock*/) {}

void TVSecureRemoveAction::runWithFilePaths(const FilePaths& filePaths,
                                            const CompletionBlock& completionBlock) {
  if (filePaths.empty()) return;
  beginRun(filePaths.size(), completionBlock);
  for (const std::string& path : filePaths) {
    launchTool("/bin/rm", {"-v", "-f", "-r", "-P", path}, path);
  }
}

std::shared_ptr<ToolRun> TVSecureRemoveAction::sharedToolRun() {
  return std::static_pointer_cast<TVSecureRemoveAction>(shared_from_this());
}

std::string_view TVSecureRemoveAction::errorLogPrefix() const {
  return "[DEBUG] Delete task got error: ";
}

void TVSecureRemoveAction::reportEnd(const VXTaskHelper& last) const {
  const std::string verdict = hasError() ? "Could not remove" : "Successfully removed";
  notifyUser(verdict + " '" + lastPathComponent(last.userInfo().value_or("")) + "' ",
             kUserNotificationDefaultSoundName);
}

}  // namespace tervano
