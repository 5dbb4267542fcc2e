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

// What the user is asked before files are lost for good.
struct Question {
  // One sentence that ends with a question mark.
  std::string text;
  // The paths it is about.
  std::vector<std::string> paths;
  // The button that says yes: "Delete".
  std::string consent;
};
// Asks, and calls `answer` exactly once, at once or later on the main queue. A reason goes with a
// no that the user did not give, such as that nobody could be asked; it is empty otherwise.
using Asker =
    std::function<void(const Question& question,
                       std::function<void(bool consents, const std::string& reason)> answer)>;

// Runs a copy of `action` on the paths: first its before-run, then its run, holding the copy to the
// end. What removes files for good is run only after `asker` has the user's consent; without one
// it is run at once. `finished` is called exactly once, later, on the main queue, also when the
// action throws or is one whose run or before-run never calls back. Main thread.
void runAction(const TVAction& action, std::vector<std::string> paths, const Asker& asker,
               std::function<void(const RunOutcome&)> finished);

}  // namespace tervano
