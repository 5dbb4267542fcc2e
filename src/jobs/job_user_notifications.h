#pragma once

#include "platform/user_notifications.h"

namespace tervano {

// Keeps back what is notified for a job whose work was stopped: to whoever does the work a stop is
// an error like any other, and the user knows better. Whoever runs the job tells what is done.
class JobUserNotifications : public ForwardingUserNotifications {
 public:
  using ForwardingUserNotifications::ForwardingUserNotifications;

  void deliverNotification(const UserNotification& notification) override;
};

}  // namespace tervano
