#pragma once

#include <string>
#include <vector>

#include "companion/help.h"

namespace tervano {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// One command of the program. `run` gets the words behind its name and answers the exit status; it
// throws UsageError for words that cannot be understood and CommandError for a failure.
struct Command {
  CommandHelp help;
  int (*run)(const std::vector<std::string>& words);
  // Whether log lines go to standard error. Otherwise they are dropped: the command's own sentence
  // tells what went wrong.
  bool logs = false;
};

// The commands of each topic, in the order in which help shows them.
std::vector<Command> setupCommands();
std::vector<Command> listCommands();
std::vector<Command> editCommands();
std::vector<Command> exchangeCommands();
std::vector<Command> menuCommands();
std::vector<Command> explainCommands();
std::vector<Command> runCommands();
std::vector<Command> historyCommands();
std::vector<Command> shortcutCommands();
std::vector<Command> recentCommands();
std::vector<Command> preferenceCommands();
std::vector<Command> messageCommands();
std::vector<Command> archiveCommands();
std::vector<Command> doctorCommands();
std::vector<Command> completionCommands();
// Those of all topics, and their help.
std::vector<Command> allCommands();
std::vector<CommandHelp> helpOfAllCommands();

}  // namespace tervano
