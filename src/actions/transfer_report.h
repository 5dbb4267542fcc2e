#pragma once

#include <string>
#include <vector>

#include "platform/user_notifications.h"

namespace tervano {

// The notification at the end of a run that brought items to a folder. `doing` is "moving" or what
// else was done; `arrived` are the paths that now lie there, which the notification can show; they
// play no part after a failure.
UserNotification transferNotification(bool success, const std::string& doing,
                                      const std::vector<std::string>& arrived);

}  // namespace tervano
