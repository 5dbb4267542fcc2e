#include <unistd.h>

#include <iostream>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/command_line_selection.h"
#include "companion/hand_over.h"
#include "companion/terminal_menu.h"
#include "companion/value_json.h"
#include "extension/finder_sync.h"
#include "platform/linux/uniform_type_table.h"
#include "platform/platform.h"

namespace tervano {

namespace {

using Json = nlohmann::ordered_json;

Json jsonOfMenu(const Menu& menu) {
  auto items = Json::array();
  for (const auto& item : menu.items) {
    Json json;
    json["title"] = item.title;
    json["uid"] =
        item.action ? Json(item.action->substr(FinderSync::kSelectorPrefix.size())) : Json(nullptr);
    json["enabled"] = item.enabled;
    json["icon"] = nullptr;
    if (item.image != nullptr) {
      json["icon"] = item.image->name().empty() ? "image" : item.image->name();
    }
    json["submenu"] = item.submenu == nullptr ? Json(nullptr) : jsonOfMenu(*item.submenu);
    items.push_back(std::move(json));
  }
  return items;
}

void printMenu(const Menu& menu, const std::string& margin) {
  for (const auto& item : menu.items) {
    std::cout << margin << printable(item.title) << (item.submenu == nullptr ? "" : " >")
              << (item.enabled ? Sentence() : tr(" (disabled)")) << "\n";
    if (item.submenu != nullptr) printMenu(*item.submenu, margin + "    ");
  }
}

std::vector<TerminalMenuEntry> terminalEntries(const Menu& menu) {
  std::vector<TerminalMenuEntry> entries;
  for (const auto& item : menu.items) {
    TerminalMenuEntry entry;
    entry.title = item.title;
    entry.enabled = item.enabled;
    entry.choice = item.action.value_or("");
    entry.hasSubmenu = item.submenu != nullptr;
    if (item.submenu != nullptr) entry.submenu = terminalEntries(*item.submenu);
    entries.push_back(std::move(entry));
  }
  return entries;
}

int menu(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"kind"}, {"json", "print"}});
  const std::string kindName = arguments.value("kind").value_or("items");
  const MenuKind kind = requireMenuKind(kindName);
  if (arguments.has("json") && arguments.has("print")) {
    throw UsageError(tr("Give --json or --print, not both."));
  }
  const auto selection = std::make_shared<CommandLineSelection>(kind, arguments.positional());
  static_cast<UniformTypeTable*>(platform().uniformTypes)->loadDesktopTypes();
  const auto finderSync = FinderSync::create(selection);
  // An extension without a list shows nothing; a person is told why.
  if (!finderSync->actionsArray()) loadActions();

  const Menu built = finderSync->menuForMenuKind(kind);
  if (arguments.has("json")) {
    Json json;
    json["kind"] = kindName;
    json["items"] = jsonOfMenu(built);
    std::cout << jsonText(json);
    return kExitSuccess;
  }
  if (arguments.has("print") || isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    printMenu(built, "");
    return kExitSuccess;
  }
  const auto choice = runTerminalMenu("Tervano", terminalEntries(built));
  return choice ? handOver(*finderSync, *choice) : kExitSuccess;
}

int choose(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  arguments.requirePositional(1, SIZE_MAX, tr("The uid of an action"));
  const auto& uid = arguments.positional().front();
  if (!isUid(uid)) {
    throw UsageError(
        tr("\"{1}\" is no uid; a uid has 32 characters of 0 to 9 and A to F.", printable(uid)));
  }
  const std::vector<std::string> paths(arguments.positional().begin() + 1,
                                       arguments.positional().end());
  const auto finderSync = FinderSync::create(
      std::make_shared<CommandLineSelection>(MenuKind::contextualMenuForItems, paths));
  return handOver(*finderSync, std::string(FinderSync::kSelectorPrefix) + uid);
}

}  // namespace

std::vector<Command> menuCommands() {
  return {
      {{"menu",
        trMark("show the menu for a selection, as a file manager would"),
        {"[--kind items|container|sidebar|toolbar] [--json|--print] [PATH...]"},
        {trMark("On a terminal the arrow keys move through the menu, and a choice is handed over "
                "just as "
                "in a file manager. Otherwise the menu is printed.")},
        {{"--kind KIND",
          trMark(
              "items: the paths are the selection (the default). container: the path is the folder "
              "whose background was clicked. sidebar: the path is the entry that was clicked. "
              "toolbar: "
              "the menu of the toolbar item.")},
         {"--json",
          trMark(
              "An object with \"kind\" and \"items\"; an item has \"title\", \"uid\" (null for one "
              "that runs nothing), \"enabled\", \"icon\" and \"submenu\" (a list of items or "
              "null).")},
         {"--print", trMark("As indented text, also on a terminal.")}}},
       menu},
      {{"choose",
        trMark("hand an action and files over, as choosing it in a menu does"),
        {"UID [PATH...]"},
        {trMark(
            "Writes the hand-off file and opens the hand-off URL; the registered program runs the "
            "action. The uid is passed on whether or not the list has it.")},
        {}},
       choose,
       true},
  };
}

}  // namespace tervano
