#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tervano {

// What help and the manual page tell of one command; both are made from this one text, the page in
// English and help in the language of the user. The summary, the paragraphs and the meanings are
// marked for translation (trMark).
struct CommandHelp {
  std::string name;
  // One line that says what it does, without a full stop.
  std::string summary;
  // The words behind "tervano NAME", one entry a form.
  std::vector<std::string> forms;
  std::vector<std::string> paragraphs;
  // Spelling and meaning.
  std::vector<std::pair<std::string, std::string>> options;
};

// The overview: every command with its summary.
std::string overviewText(std::span<const CommandHelp> commands);
// The help of one command for a terminal, 80 columns wide.
std::string helpText(const CommandHelp& command);
// The manual page tervano-NAME(1) in man(7) macros.
std::string manualPage(const CommandHelp& command);
// The manual page tervano(1), which names all commands.
std::string overviewManualPage(std::span<const CommandHelp> commands);

}  // namespace tervano
