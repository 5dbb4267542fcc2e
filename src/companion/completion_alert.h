#pragma once

#include "model/tv_action.h"

namespace tervano {

// Plays the sound of something that was done, when the preference playAlertOnCompletion wants it
// and nothing else of the action brings one.
void alertOfCompletion(const TVAction& action);

}  // namespace tervano
