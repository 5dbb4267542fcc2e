#pragma once

#include <span>
#include <string>

#include "companion/help.h"

namespace tervano {

// What a shell reads to complete the words of "tervano" on TAB: commands, their options, kinds of
// actions, preferences, and the uids of the list, for which it asks the program. Made from the text
// of the help. `shell` is "bash", "zsh" or "fish"; throws UsageError for another one.
std::string completionScript(const std::string& shell, std::span<const CommandHelp> commands);

}  // namespace tervano
