#pragma once

#include <optional>

#include "platform/linux/secret.h"

namespace tervano {

// Writes the prompt to standard error and reads one line from the terminal on standard input, which
// shows nothing of it. Nil at the end of input, for a line that is too long and after a signal that
// ends processes. A signal that ends or stops the process finds the terminal as it was before;
// after a stop the prompt comes again. Blocking; main thread.
std::optional<Secret> readHidden(const char* prompt);

}  // namespace tervano
