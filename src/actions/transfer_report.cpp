#include "actions/transfer_report.h"

#include "archive/url.h"

namespace tervano {

UserNotification transferNotification(bool success, const std::string& doing,
                                      const std::vector<std::string>& arrived) {
  UserNotification notification;
  notification.title = "Tervano";
  notification.soundName = kUserNotificationDefaultSoundName;
  if (!success) {
    notification.informativeText = "An error occurred while " + doing + " these files.";
    return notification;
  }
  std::string subject;
  if (arrived.size() == 1) {
    subject = "'" + lastPathComponent(arrived.front()) + "'";
    notification.userInfo["path"] = arrived.front();
  } else {
    subject = std::to_string(arrived.size()) + " files";
    notification.userInfo["paths"] = Value::Array(arrived.begin(), arrived.end());
  }
  notification.informativeText = "Finished " + doing + " " + subject;
  notification.actionButtonTitle = "Show";
  notification.hasActionButton = true;
  return notification;
}

}  // namespace tervano
