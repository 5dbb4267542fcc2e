#include <iostream>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/command_line_selection.h"
#include "companion/explanation_text.h"
#include "companion/value_json.h"
#include "extension/explanation.h"
#include "extension/finder_sync.h"
#include "platform/platform.h"
#include "platform/uniform_types.h"

namespace tervano {

namespace {

using ExplanationJson = nlohmann::ordered_json;

ExplanationJson reasonOf(const Explanation& explanation) {
  if (explanation.groupLeftOut) return "group";
  if (!explanation.leftOut) return nullptr;
  switch (*explanation.leftOut) {
    case LeftOut::disabled:
      return "disabled";
    case LeftOut::noMember:
      return "noMember";
    case LeftOut::fileTypes:
      break;
  }
  return "fileTypes";
}

ExplanationJson jsonOfExplanation(const Explanation& explanation, const TypedItems& items) {
  const TVAction& action = *explanation.action;
  ExplanationJson json;
  json["uid"] = action.uid() ? ExplanationJson(*action.uid()) : ExplanationJson(nullptr);
  json["title"] = action.title() ? ExplanationJson(*action.title()) : ExplanationJson(nullptr);
  json["shown"] = explanation.isShown();
  json["reason"] = reasonOf(explanation);
  json["explanation"] = sentenceOfExplanation(explanation, items).english();
  json["unmet"] = ExplanationJson::array();
  for (const auto& unmet : explanation.unmet) {
    json["unmet"].push_back({{"type", unmet.type}, {"paths", items.pathsOfTypes(unmet.UTIs)}});
  }
  json["actions"] = ExplanationJson::array();
  for (const auto& member : explanation.members) {
    json["actions"].push_back(jsonOfExplanation(member, items));
  }
  return json;
}

void printExplanation(const Explanation& explanation, const TypedItems& items,
                      const std::string& margin) {
  const TVAction& action = *explanation.action;
  // The marks have one width in each language.
  std::cout << margin << (explanation.isShown() ? tr("shown   ") : tr("hidden  "))
            << printable(shownTitle(action).shown()) << "  ["
            << printable(action.uid().value_or("")) << "]";
  const std::string sentence = sentenceOfExplanation(explanation, items).shown();
  if (!sentence.empty()) std::cout << ": " << printable(sentence);
  std::cout << "\n";
  for (const auto& member : explanation.members) printExplanation(member, items, margin + "    ");
}

// What the preferences do to a menu of this kind.
Sentence sentenceOfPreferences(MenuKind kind, const TVUserDefaults& userDefaults) {
  if (kind == MenuKind::toolbarItemMenu) {
    if (userDefaults.showIconInToolbar()) return {};
    return tr("The toolbar has no item of ours: the preference showIconInToolbar is no.");
  }
  if (!userDefaults.useSubmenu()) return {};
  return tr("What is shown stands in the submenu \"Tervano\": the preference useSubmenu is yes.");
}

int explain(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"kind"}, {"json"}});
  const std::string kindName = arguments.value("kind").value_or("items");
  const MenuKind kind = requireMenuKind(kindName);
  const auto selection = std::make_shared<CommandLineSelection>(kind, arguments.positional());
  loadDesktopTypes();
  const auto finderSync = FinderSync::create(selection);
  if (!finderSync->actionsArray()) loadActions();
  const auto items = finderSync->selectedItems();
  const TypedItems typed(*items);
  const auto explanations =
      explainActions(finderSync->actionsArray().value_or(ActionList()), *items);

  if (arguments.has("json")) {
    ExplanationJson json;
    json["kind"] = kindName;
    json["items"] = ExplanationJson::array();
    for (const auto& [path, type] : typed.all()) {
      json["items"].push_back({{"path", path}, {"type", type}});
    }
    json["useSubmenu"] = finderSync->userDefaults()->useSubmenu();
    json["showIconInToolbar"] = finderSync->userDefaults()->showIconInToolbar();
    json["actions"] = ExplanationJson::array();
    for (const auto& explanation : explanations) {
      json["actions"].push_back(jsonOfExplanation(explanation, typed));
    }
    std::cout << jsonText(json);
    return kExitSuccess;
  }
  if (explanations.empty()) std::cout << tr("The list has no actions.") << "\n";
  for (const auto& explanation : explanations) printExplanation(explanation, typed, "");
  const Sentence preferences = sentenceOfPreferences(kind, *finderSync->userDefaults());
  if (!preferences.empty()) std::cout << preferences << "\n";
  return kExitSuccess;
}

int types(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"json"}});
  arguments.requirePositional(1, SIZE_MAX, tr("A file"));
  const CommandLineSelection selection(MenuKind::contextualMenuForItems, arguments.positional());
  loadDesktopTypes();
  auto json = ExplanationJson::array();
  const TypedItems items(*selection.selectedItemURLs());
  for (const auto& [path, type] : items.all()) {
    auto conformance = platform().uniformTypes->conformanceOf(type);
    // The type itself.
    conformance.erase(conformance.begin());
    json.push_back({{"path", path}, {"type", type}, {"conformsTo", conformance}});
  }
  if (arguments.has("json")) {
    std::cout << jsonText(json);
    return kExitSuccess;
  }
  for (const auto& item : json) {
    std::cout << printable(item["path"].get<std::string>()) << "\n    "
              << item["type"].get<std::string>() << "\n";
    for (const auto& type : item["conformsTo"]) {
      std::cout << "        " << type.get<std::string>() << "\n";
    }
  }
  return kExitSuccess;
}

}  // namespace

std::vector<Command> explainCommands() {
  return {
      {{"explain",
        trMark("say for every action whether a menu shows it, and why not"),
        {"[--kind items|container|sidebar|toolbar] [--json] [PATH...]"},
        {trMark(
            "An action is left out when it is disabled, when a selected item does not conform to "
            "every one of its file types, when it is a group without an enabled member, and when "
            "its "
            "group is left out. The file types of a member do not count.")},
        {{"--kind KIND", trMark("The kind of menu, as for \"tervano menu\".")},
         {"--json",
          trMark(
              "An object with \"kind\", \"items\" (each with \"path\" and \"type\"), "
              "\"useSubmenu\", "
              "\"showIconInToolbar\" and \"actions\"; an action has \"uid\", \"title\", \"shown\", "
              "\"reason\" (null, or disabled, fileTypes, noMember or group), \"explanation\", "
              "\"unmet\" (objects with \"type\" and \"paths\") and the members \"actions\".")}}},
       explain},
      {{"types",
        trMark("show the uniform type of files and what it conforms to"),
        {"[--json] PATH..."},
        {trMark("The names that \"--types\" of other commands takes. A file need not exist: its "
                "extension "
                "tells the type, and only a name without one is looked up.")},
        {{"--json", trMark("An array of objects with \"path\", \"type\" and \"conformsTo\", the "
                           "nearest first.")}}},
       types},
  };
}

}  // namespace tervano
