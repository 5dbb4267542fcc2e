#include <iostream>
#include <set>

#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_open_faves_action.h"
#include "archive/archiver.h"
#include "archive/inspection.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/value_json.h"
#include "platform/platform.h"

namespace tervano {

namespace {

using Json = nlohmann::ordered_json;

std::optional<Url> destinationOf(const TVAction& action) {
  if (const auto* move = dynamic_cast<const TVMoveToAction*>(&action))
    return move->destinationURL();
  if (const auto* copy = dynamic_cast<const TVCopyToAction*>(&action))
    return copy->destinationURL();
  if (const auto* favourite = dynamic_cast<const TVOpenFavesAction*>(&action))
    return favourite->destinationURL();
  return std::nullopt;
}

template <typename T>
Json jsonOrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

// The groups that were shown with their members. A group is shown so once: a list of another system
// may hold one in many places, or groups within groups.
using ShownGroups = std::set<const TVAction*>;

Json jsonOfAction(const TVAction& action, ShownGroups& shown) {
  Json json;
  json["uid"] = jsonOrNull(action.uid());
  json["class"] = std::string(action.className());
  json["title"] = jsonOrNull(action.title());
  json["enabled"] = action.enabled();
  json["isDefault"] = action.isDefault();
  json["fileTypes"] = jsonOrNull(action.fileTypes());
  json["actionDescription"] = jsonOrNull(action.actionDescription());
  const auto destination = destinationOf(action);
  json["destination"] = destination ? Json(destination->path()) : Json(nullptr);
  json["actions"] = nullptr;
  if (const auto* group = dynamic_cast<const TVActionGroup*>(&action)) {
    const auto& members = group->workingActionsArray();
    if (members && shown.insert(group).second) {
      json["actions"] = Json::array();
      for (const auto& member : *members) json["actions"].push_back(jsonOfAction(*member, shown));
    }
  }
  return json;
}

void printAction(const TVAction& action, const std::string& margin, ShownGroups& shown) {
  std::cout << margin << printable(action.uid().value_or("")) << "  "
            << printable(shownTitle(action).shown());
  if (const auto destination = destinationOf(action)) {
    std::cout << "  ->  " << printable(destination->path());
  }
  std::cout << "  [" << action.className() << (action.enabled() ? Sentence() : tr(", disabled"));
  if (const auto& types = action.fileTypes(); types && !types->empty()) {
    Sentence all;
    for (const auto& type : *types) {
      if (&type != types->data()) all += tr(" and ");
      all += printable(type);
    }
    std::cout << tr(", every item is {1}", all);
  }
  std::cout << "]\n";
  if (const auto* group = dynamic_cast<const TVActionGroup*>(&action)) {
    const auto& members = group->workingActionsArray();
    if (members && shown.insert(group).second) {
      for (const auto& member : *members) printAction(*member, margin + "    ", shown);
    }
  }
}

int list(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"json"}});
  arguments.requirePositional(0, 0, "");
  const auto actions = loadActions()->actions();
  ShownGroups shown;
  if (arguments.has("json")) {
    auto json = Json::array();
    for (const auto& action : actions) json.push_back(jsonOfAction(*action, shown));
    std::cout << jsonText(json);
  } else {
    for (const auto& action : actions) printAction(*action, "", shown);
  }
  return kExitSuccess;
}

int show(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"json"}});
  arguments.requirePositional(1, 1, tr("The uid of an action"));
  const auto manager = loadActions();
  const auto place = requireAction(manager->actions(), arguments.positional().front());
  if (!arguments.has("json")) {
    ShownGroups shown;
    printAction(*place.action, "", shown);
    std::cout << printable(
                     place.action->actionDescription().value_or(tr("(no description)").shown()))
              << "\n";
    return kExitSuccess;
  }
  // All that the archive holds of it, whatever the class.
  const Data archive =
      Archiver::archivedDataWithRootObject(place.action, *platform().classRegistry);
  nlohmann::json json = jsonOfValue(plainValueOfKeyedArchive(archive));
  json["class"] = json["$class"];
  json.erase("$class");
  std::cout << jsonText(json);
  return kExitSuccess;
}

}  // namespace

std::vector<Command> listCommands() {
  return {
      {{"list",
        trMark("show all actions in their order"),
        {"[--json]"},
        {trMark(
            "Members of a group stand indented below it. A type filter is shown as it works: an "
            "action appears only when every selected item conforms to every type that it lists, "
            "and a "
            "member of a group appears by the filter of its group alone.")},
        {{"--json",
          trMark(
              "An array of objects with \"uid\", \"class\", \"title\", \"enabled\", \"isDefault\", "
              "\"fileTypes\", \"actionDescription\", \"destination\" (a path or null) and "
              "\"actions\" "
              "(the members of a group, else null).")}}},
       list},
      {{"show",
        trMark("show one action"),
        {"UID [--json]"},
        {},
        {{"--json",
          trMark(
              "All archived fields under the names they have in the file; data is Base64 text.")}}},
       show},
  };
}

}  // namespace tervano
