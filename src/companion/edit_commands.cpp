#include <algorithm>
#include <iostream>

#include "companion/action_kinds.h"
#include "companion/action_settings.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/consent.h"
#include "companion/value_json.h"
#include "model/tv_action_group.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

namespace {

std::shared_ptr<TVActionGroup> requireGroup(const ActionList& actions, const std::string& uid,
                                            const TVAction& member) {
  auto group = std::dynamic_pointer_cast<TVActionGroup>(requireAction(actions, uid).action);
  if (group == nullptr) throw CommandError(tr("The action {1} is not a group.", uid));
  if (dynamic_cast<const TVActionGroup*>(&member) != nullptr) {
    throw CommandError(tr("A group cannot be a member of a group."));
  }
  return group;
}

void appendMember(TVActionGroup& group, const std::shared_ptr<TVAction>& member) {
  auto members = group.actions().value_or(ActionList());
  members.push_back(member);
  group.updateActions(std::move(members));
}

// Takes the action out of the list or of its group.
void detach(TVActionsManager& manager, const ActionPlace& place) {
  if (place.group == nullptr) {
    manager.removeAction(place.action);
  } else {
    place.group->removeAction(place.action);
  }
}

int add(const std::vector<std::string>& words) {
  auto valued = allSettings();
  valued.insert("into");
  const Arguments arguments(words, {valued, {}});
  arguments.requirePositional(1, SIZE_MAX, tr("The kind of action"));
  const auto added = newAction(arguments);
  changeActions([&](TVActionsManager& manager) {
    if (const auto into = arguments.value("into")) {
      appendMember(*requireGroup(manager.actions(), *into, *added), added);
    } else {
      manager.addAction(added);
    }
  });
  std::cout << added->uid().value() << "\n";
  return kExitSuccess;
}

int set(const std::vector<std::string>& words) {
  const Arguments arguments(words, {allSettings(), {}});
  arguments.requirePositional(1, 1, tr("The uid of an action"));
  const bool anything =
      std::any_of(allSettings().begin(), allSettings().end(),
                  [&](const std::string& option) { return arguments.value(option).has_value(); });
  if (!anything) throw UsageError(tr("Nothing to set: give at least one option."));
  changeActions([&](TVActionsManager& manager) {
    applySettings(*requireAction(manager.actions(), arguments.positional().front()).action,
                  arguments);
  });
  return kExitSuccess;
}

int setEnabled(const std::vector<std::string>& words, bool enabled) {
  const Arguments arguments(words, {});
  arguments.requirePositional(1, 1, tr("The uid of an action"));
  changeActions([&](TVActionsManager& manager) {
    requireAction(manager.actions(), arguments.positional().front()).action->setEnabled(enabled);
  });
  return kExitSuccess;
}

int enable(const std::vector<std::string>& words) {
  return setEnabled(words, true);
}

int disable(const std::vector<std::string>& words) {
  return setEnabled(words, false);
}

// Asks whether the action may go, unless the user wants no such question.
bool mayRemove(const TVAction& action) {
  if (TVUserDefaults::create()->suppressActionDeletionAlert()) return true;
  Question question;
  question.text = tr("Remove \"{1}\" from the list of actions?", shownTitle(action));
  question.consent = tr("Remove");
  if (const auto* group = dynamic_cast<const TVActionGroup*>(&action)) {
    for (const auto& member : group->actions().value_or(ActionList())) {
      question.paths.push_back(shownTitle(*member));
    }
  }
  return consentsOnTerminal(question, true);
}

int removeAction(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"yes"}});
  arguments.requirePositional(1, 1, tr("The uid of an action"));
  const auto listed = loadActions();
  if (!arguments.has("yes") &&
      !mayRemove(*requireAction(listed->actions(), arguments.positional().front()).action)) {
    throw CommandError(tr("Nothing was removed."));
  }
  changeActions([&](TVActionsManager& manager) {
    detach(manager, requireAction(manager.actions(), arguments.positional().front()));
  });
  return kExitSuccess;
}

// Puts the action beside another one, in whatever list that one stands.
void insertBeside(TVActionsManager& manager, const std::shared_ptr<TVAction>& moved,
                  const std::string& neighbourUid, bool after) {
  const auto neighbour = requireAction(manager.actions(), neighbourUid);
  if (neighbour.group != nullptr && dynamic_cast<const TVActionGroup*>(moved.get()) != nullptr) {
    throw CommandError(tr("A group cannot be a member of a group."));
  }
  auto list = neighbour.group == nullptr ? manager.actions()
                                         : neighbour.group->actions().value_or(ActionList());
  auto position = std::find(list.begin(), list.end(), neighbour.action);
  if (after) ++position;
  list.insert(position, moved);
  if (neighbour.group == nullptr) {
    manager.updateActions(std::move(list));
  } else {
    neighbour.group->updateActions(std::move(list));
  }
}

int reorder(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"before", "after", "into"}, {"first", "last"}});
  arguments.requirePositional(1, 1, tr("The uid of an action"));
  const auto before = arguments.value("before");
  const auto after = arguments.value("after");
  const auto into = arguments.value("into");
  const int places = (before ? 1 : 0) + (after ? 1 : 0) + (into ? 1 : 0) +
                     (arguments.has("first") ? 1 : 0) + (arguments.has("last") ? 1 : 0);
  if (places != 1) {
    throw UsageError(tr("Give exactly one of --before, --after, --into, --first and --last."));
  }
  const auto& uid = arguments.positional().front();
  if (uid == before.value_or("") || uid == after.value_or("") || uid == into.value_or("")) {
    throw UsageError(tr("An action cannot be placed by itself."));
  }
  changeActions([&](TVActionsManager& manager) {
    const auto place = requireAction(manager.actions(), uid);
    detach(manager, place);
    if (into) {
      appendMember(*requireGroup(manager.actions(), *into, *place.action), place.action);
    } else if (before || after) {
      insertBeside(manager, place.action, before ? *before : *after, after.has_value());
    } else {
      auto list = manager.actions();
      list.insert(arguments.has("first") ? list.begin() : list.end(), place.action);
      manager.updateActions(std::move(list));
    }
  });
  return kExitSuccess;
}

using OptionHelp = std::vector<std::pair<std::string, std::string>>;

OptionHelp helpOfSettings() {
  OptionHelp help;
  for (const auto& setting : allSettings()) help.push_back(helpOfSetting(setting));
  return help;
}

OptionHelp helpOfAdd() {
  auto help = helpOfSettings();
  help.emplace_back("--into GROUP_UID", trMark("Adds it as the last member of that group."));
  return help;
}

nlohmann::ordered_json jsonOfKind(const ActionKind& kind) {
  nlohmann::ordered_json json;
  json["kind"] = kind.name;
  json["class"] = kind.className;
  json["summary"] = kind.summary;
  json["options"] = kind.settings;
  json["required"] = kind.required;
  return json;
}

// The options of the kind's own, those that may be left out in brackets.
std::string optionsText(const ActionKind& kind) {
  std::string text = kind.name == "bundled" ? " NAME" : "";
  for (const auto& setting : kind.settings) {
    const bool isRequired =
        std::find(kind.required.begin(), kind.required.end(), setting) != kind.required.end();
    const std::string spelling = helpOfSetting(setting).first;
    text += isRequired ? " " + spelling : " [" + spelling + "]";
  }
  return text;
}

int kinds(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"json"}});
  arguments.requirePositional(0, 0, "");
  if (arguments.has("json")) {
    auto json = nlohmann::ordered_json::array();
    for (const auto& kind : actionKinds()) {
      json.push_back(jsonOfKind(kind));
      if (kind.name == "bundled") json.back()["names"] = bundledScriptNames();
    }
    std::cout << jsonText(json);
    return kExitSuccess;
  }
  for (const auto& kind : actionKinds()) {
    std::cout << kind.name << optionsText(kind) << "\n    " << translated(kind.summary) << "\n";
    if (kind.name != "bundled") continue;
    for (const auto& name : bundledScriptNames()) std::cout << "      " << name << "\n";
  }
  std::cout << tr("Every kind takes");
  for (const auto& setting : commonSettings())
    std::cout << " [" << helpOfSetting(setting).first << "]";
  std::cout << " [--into GROUP_UID]\n";
  return kExitSuccess;
}

}  // namespace

std::vector<Command> editCommands() {
  return {
      {{"add",
        trMark("add an action at the end and print its uid"),
        {"KIND [OPTION...]", "bundled NAME [OPTION...]"},
        {trMark(
            "\"tervano kinds\" lists the kinds with the options that fit each. Without --title the "
            "entry gets the name of its folder, application, template or format.")},
        helpOfAdd()},
       add},
      {{"kinds",
        trMark("list the kinds of actions with their options"),
        {"[--json]"},
        {},
        {{"--json",
          trMark("An array of objects with \"kind\", \"class\", \"summary\", \"options\" and "
                 "\"required\"; the kind \"bundled\" has the \"names\" of its scripts too.")}}},
       kinds},
      {{"set", trMark("change an action"), {"UID OPTION..."}, {}, helpOfSettings()}, set},
      {{"enable", trMark("show an action in menus"), {"UID"}, {}, {}}, enable},
      {{"disable", trMark("hide an action from menus without removing it"), {"UID"}, {}, {}},
       disable},
      {{"remove",
        trMark("remove an action, a group with its members"),
        {"[--yes] UID"},
        {trMark(
            "Asks first on a terminal, unless the preference suppressActionDeletionAlert is yes.")},
        {{"--yes", trMark("Asks nothing.")}}},
       removeAction},
      {{"reorder",
        trMark("move an action to another place"),
        {"UID --before UID", "UID --after UID", "UID --into GROUP_UID", "UID --first",
         "UID --last"},
        {},
        {{"--before UID, --after UID",
          trMark("Beside that action, in its group when it is in one.")},
         {"--into GROUP_UID", trMark("Behind the last member of that group.")},
         {"--first, --last", trMark("At an end of the list itself.")}}},
       reorder},
  };
}

}  // namespace tervano
