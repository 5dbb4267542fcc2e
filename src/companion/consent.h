#pragma once

#include "companion/action_driver.h"

namespace tervano {

// Asks on the terminal of this process and waits for the answer; `otherwise` is the answer where
// there is none to ask on.
bool consentsOnTerminal(const Question& question, bool otherwise);

}  // namespace tervano
