#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <iostream>

#include "actions/next_available_path.h"
#include "companion/action_exchange.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/consent.h"
#include "companion/list_versions.h"
#include "companion/silent_log.h"
#include "model/tv_action_group.h"
#include "platform/file_coordinator.h"
#include "platform/file_manager.h"
#include "platform/linux/unfinished_items.h"
#include "platform/linux/user_folders.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kStandardOutput[] = "-";

std::string titleOf(const TVAction& action) {
  return printable(shownTitle(action).shown());
}

ExchangeForm formOfFile(const std::string& file) {
  const std::string extension = pathExtension(file);
  if (extension == "json") return ExchangeForm::json;
  return extension == "xml" ? ExchangeForm::xml : ExchangeForm::archive;
}

CommandError existsAlready(const std::string& path) {
  return CommandError(tr("{1} is there already and stays as it is.", printable(path)));
}

// Under a hidden name first, for somebody may make a file of that name meanwhile.
void writeNewFile(const Data& bytes, const std::string& path) {
  auto& files = *platform().fileManager;
  const std::string hidden = appendingPathComponent(
      deletingLastPathComponent(path), UnfinishedItem::kPrefix + randomFileNameSuffix());
  const UnfinishedItem note(hidden);
  auto error = files.writeDataToFile(bytes, hidden, true);
  if (!error) error = files.moveItemAtPath(hidden, path);
  if (!error) return;
  const int code = error->code;
  if (files.itemExistsAtPath(hidden)) files.removeItemAtPath(hidden);
  if (code == EEXIST) throw existsAlready(path);
  throw CommandError(tr("The actions could not be written: {1}", error->message));
}

int exportActions(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"form"}, {}});
  arguments.requirePositional(1, SIZE_MAX, tr("The file"));
  const auto& positional = arguments.positional();
  const auto form = arguments.value("form");
  const auto list = loadActions()->actions();
  ActionList chosen;
  for (auto uid = positional.begin() + 1; uid != positional.end(); ++uid) {
    chosen.push_back(requireAction(list, *uid).action);
  }
  const Data bytes =
      exportedActions(positional.size() == 1 ? list : chosen,
                      form ? requireExchangeForm(*form) : formOfFile(positional.front()));
  if (positional.front() == kStandardOutput) {
    std::cout.write(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<std::streamsize>(bytes.size()));
    return kExitSuccess;
  }
  const std::string path = absolutePath(positional.front());
  if (platform().fileManager->itemExistsAtPath(path)) throw existsAlready(path);
  writeNewFile(bytes, path);
  return kExitSuccess;
}

// Answers whether everything was shown.
bool showImported(const TVAction& action, const std::string& margin) {
  std::cerr << margin << titleOf(action) << "  [" << action.className() << "]\n";
  const auto commands = commandsOfAction(action);
  for (const auto& line : commands.lines) {
    std::cerr << margin << "    " << printable(line) << "\n";
  }
  bool isWhole = commands.areWhole;
  const auto* group = dynamic_cast<const TVActionGroup*>(&action);
  if (group == nullptr) return isWhole;
  for (const auto& member : group->actions().value_or(ActionList())) {
    if (!showImported(*member, margin + "    ")) isWhole = false;
  }
  return isWhole;
}

int importActions(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"yes"}});
  arguments.requirePositional(1, 1, tr("The file"));
  const std::string path = absolutePath(arguments.positional().front());
  std::optional<Error> error;
  const auto bytes = platform().fileManager->contentsAtPath(path, &error);
  if (!bytes) throw CommandError(error->message);
  const ActionList imported = importedActions(*bytes);
  if (imported.empty()) throw CommandError(tr("The file holds no actions."));

  bool isWhole = true;
  for (const auto& action : imported) {
    if (!showImported(*action, "")) isWhole = false;
  }
  for (const auto& action : freshenUids(imported, loadActions()->actions())) {
    std::cerr << tr("Note: \"{1}\" gets a new uid, for its own is taken or is none.",
                    titleOf(*action))
              << "\n";
  }
  Question question;
  question.text = tr("Add these actions to the list?");
  question.consent = tr("Add");
  if (!isWhole) {
    question.detail =
        tr("NOT ALL OF THIS WAS SHOWN: a script is too long. Answer no and read it first.");
  }
  if (!arguments.has("yes") && !consentsOnTerminal(question, false)) {
    throw CommandError(
        tr("Nothing was imported: it needs your yes on a terminal, or --yes when you know what the "
           "actions do."));
  }
  changeActions([&](TVActionsManager& manager) {
    // The list may have changed while the user was reading.
    freshenUids(imported, manager.actions());
    for (const auto& action : imported) manager.addAction(action);
  });
  for (const auto& action : imported) std::cout << action->uid().value() << "\n";
  return kExitSuccess;
}

std::string timeOfFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return tr("(unknown time)");
  std::tm parts{};
  localtime_r(&status.st_mtim.tv_sec, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return text.data();
}

int versions(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  arguments.requirePositional(0, 0, "");
  for (const auto& version : listVersions()) {
    const auto actions = actionsOfVersion(version);
    std::cout << version.number << "  " << timeOfFile(version.path) << "  "
              << (actions ? trn("{1} entry", "{1} entries", actions->size()) : tr("cannot be read"))
              << "\n";
  }
  return kExitSuccess;
}

ListVersion requireVersion(const std::vector<ListVersion>& kept, const std::string& word) {
  for (const auto& version : kept) {
    if (std::to_string(version.number) == word) return version;
  }
  throw UsageError(
      tr("There is no version \"{1}\"; \"tervano versions\" lists them.", printable(word)));
}

std::optional<Sentence> quietComplaintAboutList() {
  const ScopedSilence silence;
  return complaintAboutList();
}

// Moves a list that cannot be read to a name of its own.
void setListAside() {
  const auto url = TVActionsManager().saveURL();
  if (!url) throw CommandError(tr("There is no container for the action list on this system."));
  std::optional<Error> failure;
  const auto unlocked =
      platform().fileCoordinator->coordinateWriting(url->path(), [&](const std::string& path) {
        // It may have become readable while the user was asked.
        if (!quietComplaintAboutList()) return;
        const std::string aside = vx_nextAvailablePath(
            appendingPathComponent(deletingLastPathComponent(path), "Unreadable Actions.plist"));
        failure = platform().fileManager->moveItemAtPath(path, aside);
        if (!failure)
          std::cout << tr("The list that cannot be read is now {1}", printable(aside)) << "\n";
      });
  if (unlocked) failure = unlocked;
  if (failure) throw CommandError(tr("The list could not be set aside: {1}", failure->message));
}

int restore(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"yes"}});
  arguments.requirePositional(0, 1, "");
  const auto kept = listVersions();
  std::optional<ListVersion> chosen;
  ActionList actions;
  if (!arguments.positional().empty()) {
    chosen = requireVersion(kept, arguments.positional().front());
    const auto read = actionsOfVersion(*chosen);
    if (!read) throw CommandError(tr("That version cannot be read."));
    actions = *read;
  } else {
    for (const auto& version : kept) {
      const auto read = actionsOfVersion(version);
      if (!read) continue;
      chosen = version;
      actions = *read;
      break;
    }
  }
  const auto complaint = quietComplaintAboutList();
  if (!chosen && !complaint) throw CommandError(tr("There is no former version of the list."));

  const Sentence replacement =
      chosen ? trn("version {2} with {1} entry", "version {2} with {1} entries", actions.size(),
                   chosen->number)
             : tr("an empty list, for there is no former version");
  Question question;
  question.text = complaint ? tr("Set it aside and take {1}?", replacement)
                            : tr("Replace the list by {1}?", replacement);
  if (complaint) question.detail = printable(complaint->shown());
  question.consent = tr("Restore");
  if (!arguments.has("yes") && !consentsOnTerminal(question, false)) {
    throw CommandError(tr("Nothing was changed: it needs your yes on a terminal, or --yes."));
  }
  if (complaint) setListAside();
  changeActions([&](TVActionsManager& manager) { manager.updateActions(actions); });
  return kExitSuccess;
}

}  // namespace

std::vector<Command> exchangeCommands() {
  return {
      {{"export",
        trMark("write actions to a file, for another machine or another user"),
        {"[--form archive|xml|json] FILE [UID...]"},
        {trMark("All actions, or those that are named, groups with their members. FILE is a new "
                "one, or "
                "\"-\" for standard output. Scripts, templates and applications stay where they "
                "are: an "
                "action names their paths.")},
        {{"--form FORM", trMark("archive: the format of the list itself. xml: the same as an XML "
                                "property list. json: an "
                                "array of objects. Unless given, the extension .xml or .json "
                                "tells, else archive.")}}},
       exportActions},
      {{"import",
        trMark("add actions from a file, after showing what they do"),
        {"[--yes] FILE"},
        {trMark(
            "Whatever \"tervano export\" writes, and the list of another system. First every "
            "action "
            "is shown on standard error with what it starts, opens, removes or changes; the whole "
            "text of a script that is here is shown as well, unless it is longer than a megabyte, "
            "which is said. Then you are asked. An action whose uid is in "
            "the list already gets a new one; the one in the list stays as it is. Prints the uids "
            "of "
            "the new entries.")},
        {{"--yes",
          trMark("Asks nothing. Without a terminal nothing is imported unless this is given.")}}},
       importActions},
      {{"versions",
        trMark("list the former versions of the list of actions"),
        {""},
        {trMark("The last ten, the newest first, each with its number, the time at which it was "
                "replaced "
                "and its size.")},
        {}},
       versions},
      {{"restore",
        trMark("put a former version of the list back"),
        {"[--yes] [NUMBER]"},
        {trMark(
            "The newest version that can be read, or the one of that number. What it replaces "
            "becomes "
            "a version itself. A list that cannot be read is set aside under another name. Asks "
            "first.")},
        {{"--yes",
          trMark("Asks nothing. Without a terminal nothing is restored unless this is given.")}}},
       restore},
  };
}

}  // namespace tervano
