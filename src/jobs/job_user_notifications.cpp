#include "jobs/job_user_notifications.h"

#include "jobs/job.h"

namespace tervano {

void JobUserNotifications::deliverNotification(const UserNotification& notification) {
  const auto job = currentJob();
  if (job != nullptr && job->hasStoppedWork()) return;
  ForwardingUserNotifications::deliverNotification(notification);
}

}  // namespace tervano
