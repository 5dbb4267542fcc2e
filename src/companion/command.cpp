#include "companion/command.h"

#include <algorithm>
#include <iterator>

namespace tervano {

std::vector<Command> allCommands() {
  std::vector<Command> all;
  for (const auto topic :
       {setupCommands, listCommands, editCommands, exchangeCommands, menuCommands, explainCommands,
        runCommands, shortcutCommands, historyCommands, recentCommands, preferenceCommands,
        messageCommands, archiveCommands, doctorCommands, completionCommands}) {
    auto commands = topic();
    std::move(commands.begin(), commands.end(), std::back_inserter(all));
  }
  return all;
}

std::vector<CommandHelp> helpOfAllCommands() {
  std::vector<CommandHelp> help;
  for (auto& command : allCommands()) help.push_back(std::move(command.help));
  return help;
}

}  // namespace tervano
