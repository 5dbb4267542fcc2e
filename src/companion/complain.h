#pragma once

#include <string>

namespace tervano {

// Writes what went wrong to standard error: one line that begins with the program's name and is a
// sentence. Any bytes; control characters are shown as what they are.
void complain(const std::string& message);

}  // namespace tervano
