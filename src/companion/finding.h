#pragma once

#include <string>
#include <vector>

#include "translation/translation.h"

namespace tervano {

enum class Health { ok, missing, broken };

// What one look at a part of this installation found.
struct Finding {
  // The part, such as "notification daemon".
  Sentence what;
  Health health = Health::ok;
  // What was found, a sentence.
  Sentence detail;
  // How to mend it, a sentence; empty for a part that is in order.
  Sentence mend;
  // Whether choices in a menu do not work without it.
  bool needed = true;
};

// The looks of "tervano doctor", by where they look. Each works without a bus and a display, takes
// a bounded time and changes nothing of the user's. Main thread.

// What comes with the program: resources, tools, modules.
std::vector<Finding> installationFindings();
// Programs of the system that some actions use.
std::vector<Finding> helperFindings();
// The file managers, and their modules as they see them.
std::vector<Finding> fileManagerFindings();
// The handler of the URLs, the session bus and what it starts.
std::vector<Finding> desktopFindings();
// The container, the list in it, and the channel between the processes.
std::vector<Finding> userFindings();

// The sentence that mends what belongs to the package of that name, or to this build.
Sentence installAgain(const std::string& package);
// The folder above the resources and programs of this installation.
std::string installationPrefix();
// Why the loadable module cannot be used by whoever calls these functions of it, found out by a
// process that may end at it; empty when it can. A sentence without its full stop.
Sentence whyModuleFails(const std::string& path, const std::vector<std::string>& entries);

}  // namespace tervano
