#include "companion/completion.h"

#include <algorithm>
#include <vector>

#include "companion/action_kinds.h"
#include "companion/arguments.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

namespace {

// The lines of "tervano list" as a uid and its title.
constexpr char kUidsOfList[] = "tervano list 2>/dev/null | sed -n";

bool isOptionCharacter(char character) {
  return character == '-' || (character >= 'a' && character <= 'z');
}

void appendOptions(const std::string& text, std::vector<std::string>& options) {
  for (auto at = text.find("--"); at != std::string::npos; at = text.find("--", at)) {
    const auto begin = text.begin() + static_cast<std::ptrdiff_t>(at);
    const auto end = std::find_if_not(begin, text.end(), isOptionCharacter);
    std::string option(begin, end);
    at += option.size();
    if (option.size() > 2 && std::find(options.begin(), options.end(), option) == options.end()) {
      options.push_back(std::move(option));
    }
  }
}

// The options that the help of a command names, each once.
std::vector<std::string> optionsOf(const CommandHelp& command) {
  std::vector<std::string> options;
  for (const auto& [spelling, meaning] : command.options) appendOptions(spelling, options);
  for (const auto& form : command.forms) appendOptions(form, options);
  return options;
}

// The words that may follow the command, other than options, uids and files.
std::vector<std::string> wordsOf(const CommandHelp& command) {
  std::vector<std::string> words;
  if (command.name == "add") {
    for (const auto& kind : actionKinds()) words.push_back(kind.name);
  } else if (command.name == "prefs") {
    words = TVUserDefaults::preferenceNames();
    words.insert(words.begin(), {"get", "set", "yes", "no"});
  } else if (command.name == "archive") {
    words = {"dump"};
  } else if (command.name == "jobs") {
    words = {"cancel"};
  } else if (command.name == "queue") {
    words = {"one", "off"};
  } else if (command.name == "recent") {
    words = {"on", "off", "list", "clear"};
  } else if (command.name == "completion") {
    words = {"bash", "zsh", "fish"};
  }
  return words;
}

bool takesUids(const CommandHelp& command) {
  return std::any_of(command.forms.begin(), command.forms.end(),
                     [](const std::string& form) { return form.find("UID") != std::string::npos; });
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

// Between single quotes; summaries have none themselves.
std::string quoted(const std::string& text) {
  std::string safe = text;
  std::replace(safe.begin(), safe.end(), '\'', ' ');
  return "'" + safe + "'";
}

std::string bashScript(std::span<const CommandHelp> commands) {
  std::string names = "help";
  std::string cases;
  for (const auto& command : commands) {
    names += " " + command.name;
    auto words = optionsOf(command);
    const auto more = wordsOf(command);
    words.insert(words.end(), more.begin(), more.end());
    cases += "    " + command.name + ")\n      words=" + quoted(joined(words)) + "\n";
    if (takesUids(command)) cases += "      words+=\" $(_tervano_uids)\"\n";
    cases += "      ;;\n";
  }
  return std::string("# Completion of tervano for bash, made by \"tervano completion bash\".\n") +
         "_tervano_uids() {\n  " + kUidsOfList +
         " 's/^ *\\([0-9A-F]\\{32\\}\\)  .*/\\1/p'\n}\n\n"
         "_tervano() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} names=" +
         quoted(names) +
         " words=\n"
         "  if ((COMP_CWORD == 1)); then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$names --version\" -- \"$current\")\n"
         "    return\n"
         "  fi\n"
         "  case ${COMP_WORDS[1]} in\n"
         "    help)\n      words=$names\n      ;;\n" +
         cases +
         "  esac\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "}\n\n"
         "# Files where nothing else fits.\n"
         "complete -o default -F _tervano tervano\n";
}

std::string zshScript(std::span<const CommandHelp> commands) {
  std::string names = "    'help:tell more of a command'\n";
  std::string cases;
  for (const auto& command : commands) {
    names += "    " + quoted(command.name + ":" + command.summary) + "\n";
    cases += "    " + command.name + ")\n      options=(" + joined(optionsOf(command)) +
             ")\n      plain=(" + joined(wordsOf(command)) + ")\n";
    if (takesUids(command)) {
      cases += std::string("      uids=(${(f)\"$(") + kUidsOfList +
               " 's/^ *\\([0-9A-F]\\{32\\}\\)  \\(.*\\)/\\1:\\2/p')\"})\n";
    }
    cases += "      ;;\n";
  }
  return "#compdef tervano\n"
         "# Completion of tervano for zsh, made by \"tervano completion zsh\".\n"
         "_tervano() {\n"
         "  local -a commands options plain uids\n"
         "  commands=(\n" +
         names +
         "  )\n"
         "  if ((CURRENT == 2)); then\n"
         "    _describe command commands\n"
         "    return\n"
         "  fi\n"
         "  case $words[2] in\n"
         "    help)\n      plain=(${commands%%:*})\n      ;;\n" +
         cases +
         "  esac\n"
         "  local found=1\n"
         "  if [[ $words[CURRENT] == -* ]]; then\n"
         "    compadd -a options && found=0\n"
         "  else\n"
         "    compadd -a plain && found=0\n"
         "    (($#uids)) && _describe -V action uids && found=0\n"
         "    _files && found=0\n"
         "  fi\n"
         "  return found\n"
         "}\n\n"
         "_tervano \"$@\"\n";
}

std::string fishScript(std::span<const CommandHelp> commands) {
  const std::string first = "complete -c tervano -n __fish_use_subcommand -f -a ";
  std::string text =
      std::string("# Completion of tervano for fish, made by \"tervano completion fish\".\n") +
      "function __tervano_uids\n    " + kUidsOfList +
      " 's/^ *\\\\([0-9A-F]\\\\{32\\\\}\\\\)  \\\\(.*\\\\)/\\\\1\\\\t\\\\2/p'\nend\n\n" + first +
      "help -d 'tell more of a command'\n";
  std::vector<std::string> names;
  for (const auto& command : commands) {
    names.push_back(command.name);
    text += first + command.name + " -d " + quoted(command.summary) + "\n";
    const std::string behind =
        "complete -c tervano -n '__fish_seen_subcommand_from " + command.name + "'";
    for (const auto& option : optionsOf(command)) text += behind + " -l " + option.substr(2) + "\n";
    if (const auto words = wordsOf(command); !words.empty()) {
      text += behind + " -a " + quoted(joined(words)) + "\n";
    }
    if (takesUids(command)) text += behind + " -a '(__tervano_uids)'\n";
  }
  return text + "complete -c tervano -n '__fish_seen_subcommand_from help' -f -a " +
         quoted(joined(names)) + "\n";
}

}  // namespace

std::string completionScript(const std::string& shell, std::span<const CommandHelp> commands) {
  if (shell == "bash") return bashScript(commands);
  if (shell == "zsh") return zshScript(commands);
  if (shell == "fish") return fishScript(commands);
  throw UsageError(tr("The shells are bash, zsh and fish."));
}

}  // namespace tervano
