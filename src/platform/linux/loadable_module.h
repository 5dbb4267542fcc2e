#pragma once

#include <string>
#include <vector>

namespace tervano {

// Loads a module with all that it is linked to and looks for its entry functions. Empty when it has
// them all, else why a program could not use it, a sentence without its full stop. What is loaded
// stays loaded, and its constructors run: for a process that may end at that.
std::string whyModuleIsUnusable(const std::string& path, const std::vector<std::string>& entries);

}  // namespace tervano
