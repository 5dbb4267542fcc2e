#include "actions/tv_reset_app_preferences_action.h"

#include "archive/url.h"
#include "platform/applications.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"

namespace tervano {

void TVResetAppPreferencesAction::init() {
  TVAction::init();
  setFileTypes({{"com.apple.application"}});
  setTitle("Reset App Preferences");
  setIcon(Image::imageNamed("icon-reset-app"));
  setIsDefault(true);
}

std::optional<std::string> TVResetAppPreferencesAction::editorClassName() const {
  return "TVResetAppModule";
}

std::shared_ptr<TVAction> TVResetAppPreferencesAction::makeBlank() const {
  return std::make_shared<TVResetAppPreferencesAction>();
}

void TVResetAppPreferencesAction::runWithFilePaths(const FilePaths& filePaths,
                                                   const CompletionBlock& completionBlock) {
  if (filePaths.empty()) return;
  beginRun(filePaths.size(), completionBlock);
  const std::string& path = filePaths.front();
  const auto bundleID = bundleIDForPath(path);
  if (!bundleID || bundleID->empty()) return;
  log("Found bundle '" + *bundleID + "' for path " + path);
  launchTool("/usr/bin/defaults", {"delete", *bundleID}, path);
}

std::optional<std::string> TVResetAppPreferencesAction::bundleIDForPath(
    const std::string& path) const {
  return platform().applications->bundleIdentifierAtPath(path);
}

std::shared_ptr<ToolRun> TVResetAppPreferencesAction::sharedToolRun() {
  return std::static_pointer_cast<TVResetAppPreferencesAction>(shared_from_this());
}

std::string_view TVResetAppPreferencesAction::errorLogPrefix() const {
  return "[DEBUG] Reset pref task got error: ";
}

void TVResetAppPreferencesAction::reportEnd(const VXTaskHelper& last) const {
  notifyUser("Preferences for " + lastPathComponent(last.userInfo().value_or("")) + " " +
                 (hasError() ? "could not be reset." : "have been reset."),
             kUserNotificationDefaultSoundName);
}

}  // namespace tervano
