#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "companion/action_driver.h"
#include "platform/process.h"

namespace tervano {

// As many of the question's paths as a person looks through, as text in which no control character
// hides another.
std::vector<std::string> shownPaths(const Question& question);

// What the window for a question ended with: consent, a refusal, or nil when it could not be shown.
using WindowAnswer = std::function<void(std::optional<bool> consents)>;

// Shows the question in a window of the desktop, which is a program of its own, and calls `answer`
// once, at once when `processes` cannot start the program, else later on the main queue; a question
// that is taken back closes the window and is not answered. With a
// `passwordDescriptor` the window asks for a new password besides and writes it there before it
// consents; it is used up to the launch. Main thread.
void askInWindow(Processes& processes, const Question& question, WindowAnswer answer,
                 int passwordDescriptor = -1);

}  // namespace tervano
