#include "companion/command.h"

#include <algorithm>
#include <iterator>

namespace tervano {

std::vector<Command> allCommands() {
  std::vector<Command> all;
  for (const auto topic : {listCommands, editCommands, menuCommands, explainCommands, runCommands,
                           preferenceCommands, messageCommands, archiveCommands, doctorCommands}) {
    auto commands = topic();
    std::move(commands.begin(), commands.end(), std::back_inserter(all));
  }
  return all;
}

}  // namespace tervano
