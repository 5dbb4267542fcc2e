#include <iostream>

#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/completion.h"

namespace tervano {

namespace {

int completion(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  arguments.requirePositional(1, 1, tr("The shell"));
  std::cout << completionScript(arguments.positional().front(), helpOfAllCommands());
  return kExitSuccess;
}

}  // namespace

std::vector<Command> completionCommands() {
  return {{{"completion",
            trMark("print what a shell needs to complete the words of this program"),
            {"bash|zsh|fish"},
            {trMark("An installation has the three files where the shells look for them. Elsewhere "
                    "\"source <(tervano completion bash)\" does it for one shell.")},
            {}},
           completion}};
}

}  // namespace tervano
