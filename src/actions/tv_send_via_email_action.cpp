#include "actions/tv_send_via_email_action.h"

#include "platform/platform.h"
#include "platform/workspace.h"

namespace tervano {

void TVSendViaEmailAction::init() {
  TVOpenWithAppAction::init();
  setTitle("Send via Email");
  setIcon(Image::imageNamed("icon-send-mail"));
  setIsDefault(true);
  setActionDescription("Opens the default mail handler with the selected files");
}

std::optional<std::string> TVSendViaEmailAction::editorClassName() const {
  return "TVResetAppModule";
}

std::shared_ptr<TVAction> TVSendViaEmailAction::makeBlank() const {
  return std::make_shared<TVSendViaEmailAction>();
}

void TVSendViaEmailAction::beforeRunWithFilePaths(const FilePaths& /*filePaths*/,
                                                  const BeforeRunBlock& completionBlock) {
  const auto mailApplication = platform().workspace->URLForApplicationToOpenURL(Url("mailto:"));
  if (!mailApplication) return;
  setApplicationURL(*mailApplication);
  if (completionBlock) completionBlock(Value());
}

}  // namespace tervano
