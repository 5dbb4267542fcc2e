#include <iostream>

#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/first_run.h"

namespace tervano {

namespace {

int setup(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  arguments.requirePositional(0, 0, "");
  const FirstRun firstRun = makeFirstRun();
  if (!firstRun.templates.empty()) {
    std::cout << "Made " << firstRun.templates.size() << " templates in "
              << printable(*firstRun.templatesFolder) << ".\n";
  }
  if (firstRun.actions != 0) {
    std::cout << "Made a list of " << firstRun.actions << " entries.\n";
  } else if (firstRun.foundList) {
    std::cout << "There is a list of actions, which stays as it is.\n";
  }
  if (firstRun.templates.empty() && firstRun.actions == 0 && !firstRun.foundList) {
    std::cout << "Nothing to do: this was done before.\n";
  }
  return kExitSuccess;
}

}  // namespace

std::vector<Command> setupCommands() {
  return {{{"setup",
            "make the first list of actions and the first templates",
            {""},
            {"Done once for each user, here or when the companion is started: groups to move, "
             "copy, open with, make new files, convert pictures and open folders, single actions "
             "and the scripts that come with Tervano; and templates in your folder of templates. A "
             "list that is there and a template of the same name are never touched. The "
             "preferences didCreateDefaultActions, didCreateDefaultActions2 (the scripts) and "
             "didCreateDefaultTemplates note what was done; set to no, it is done again where "
             "nothing is in the way."},
            {}},
           setup}};
}

}  // namespace tervano
