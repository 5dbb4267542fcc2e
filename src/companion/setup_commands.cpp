#include <iostream>

#include "companion/action_store.h"
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
    std::cout << trn("Made one template in {2}.", "Made {1} templates in {2}.",
                     firstRun.templates.size(), printable(*firstRun.templatesFolder))
              << "\n";
  }
  if (firstRun.actions != 0) {
    std::cout << trn("Made a list of one entry.", "Made a list of {1} entries.", firstRun.actions)
              << "\n";
  } else if (firstRun.foundList) {
    std::cout << tr("There is a list of actions, which stays as it is.") << "\n";
  }
  if (firstRun.templatesComplaint) throw CommandError(*firstRun.templatesComplaint);
  if (firstRun.templates.empty() && firstRun.actions == 0 && !firstRun.foundList) {
    std::cout << tr("Nothing to do: this was done before.") << "\n";
  }
  return kExitSuccess;
}

}  // namespace

std::vector<Command> setupCommands() {
  return {
      {{"setup",
        trMark("make the first list of actions and the first templates"),
        {""},
        {trMark(
            "Done once for each user, here or when the companion is started: groups to move, "
            "copy, open with, make new files, convert pictures and open folders, single actions "
            "and the scripts that come with Tervano; and templates in your folder of templates. A "
            "list that is there and a template of the same name are never touched. The "
            "preferences didCreateDefaultActions, didCreateDefaultActions2 (the scripts) and "
            "didCreateDefaultTemplates note what was done; set to no, it is done again where "
            "nothing is in the way.")},
        {}},
       setup}};
}

}  // namespace tervano
