#include "companion/completion_alert.h"

#include "actions/tool_run.h"
#include "actions/tv_move_to_action.h"
#include "companion/action_driver.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

namespace {

// Moves and what is done by tools of ours are left as their classes have them. The companion's own
// work brings a sound with its notification.
bool hasSound(const TVAction& action, const TVUserDefaults& userDefaults) {
  return dynamic_cast<const TVMoveToAction*>(&action) != nullptr ||
         dynamic_cast<const ToolRun*>(&action) != nullptr ||
         (isFileWork(action) && !userDefaults.disableActionNotifications());
}

}  // namespace

void alertOfCompletion(const TVAction& action) {
  const auto userDefaults = TVUserDefaults::create();
  if (!userDefaults->playAlertOnCompletion() || hasSound(action, *userDefaults)) return;
  platform().userNotifications->playAlert();
}

}  // namespace tervano
