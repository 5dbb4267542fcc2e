#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "model/tv_action.h"

namespace tervano {

// How a run ended.
struct RunOutcome {
  bool success = false;
  // A sentence for the user when it failed; empty for success.
  std::string message;
  // Whether the action itself has told the user, by its own notification.
  bool toldByAction = false;
};

// Whether a class's run calls its block at all; some are empty on purpose.
bool callsBackWhenRun(const TVAction& action);

// Runs a copy of `action` on the paths: first its before-run, then its run, holding the copy to the
// end. `finished` is called exactly once, later, on the main queue, also when the action throws or
// belongs to a class that never calls back. Main thread.
void runAction(const TVAction& action, std::vector<std::string> paths,
               std::function<void(const RunOutcome&)> finished);

}  // namespace tervano
