#pragma once

#include <string>

#include "extension/finder_sync.h"

namespace tervano {

// Does the extension's hand-off of a choice, whose selector is given, and waits until the desktop
// has taken the URL. Answers the exit status of a command; throws CommandError when the choice
// could not be handed over. Main thread of a command that does nothing else meanwhile.
int handOver(FinderSync& finderSync, const std::string& selector);

}  // namespace tervano
