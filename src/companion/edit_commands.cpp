#include <algorithm>
#include <iostream>
#include <map>

#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "extension/hand_off.h"
#include "model/tv_action_groups.h"
#include "platform/file_manager.h"
#include "platform/image.h"
#include "platform/platform.h"
#include "platform/uniform_types.h"

namespace tervano {

namespace {

const std::set<std::string> kFieldOptions = {"title", "types", "icon", "description", "to"};

struct Kind {
  std::shared_ptr<TVAction> (*make)();
  // The title of one that has neither a title nor a folder; nil: the class gives one.
  std::optional<std::string> title;
};

const std::map<std::string, Kind>& kinds() {
  static const std::map<std::string, Kind> table = {
      {"move", {[]() -> std::shared_ptr<TVAction> { return action<TVMoveToAction>(); }, "Move"}},
      {"copy", {[]() -> std::shared_ptr<TVAction> { return action<TVCopyToAction>(); }, "Copy"}},
      {"group-move",
       {[]() -> std::shared_ptr<TVAction> { return action<TVMoveActionGroup>(); }, std::nullopt}},
      {"group-copy",
       {[]() -> std::shared_ptr<TVAction> { return action<TVCopyActionGroup>(); }, std::nullopt}},
  };
  return table;
}

void requireText(const std::string& option, const std::string& text) {
  if (!prettyPrintedJSON(Value(text))) {
    throw UsageError("The text of --" + option + " is not valid UTF-8.");
  }
}

// "T,..." or "any".
std::optional<std::vector<std::string>> typesOf(const std::string& words) {
  if (words == "any") return std::nullopt;
  std::vector<std::string> types;
  for (std::size_t begin = 0; begin <= words.size();) {
    const std::size_t end = std::min(words.find(',', begin), words.size());
    types.push_back(words.substr(begin, end - begin));
    if (types.back().empty()) {
      throw UsageError("--types takes type identifiers with commas between them, or \"any\".");
    }
    begin = end + 1;
  }
  for (const auto& type : types) {
    if (!platform().uniformTypes->isDeclared(type)) {
      std::cerr << "Note: no file has the type " << printable(type) << " on this system.\n";
    }
  }
  if (types.size() > 1) {
    std::cerr
        << "Note: shown only when every selected item conforms to every one of these types.\n";
  }
  return types;
}

std::string folderOf(const std::string& argument) {
  std::string folder = absolutePath(argument);
  const auto& fileManager = *platform().fileManager;
  if (!fileManager.fileExistsAtPath(folder)) {
    std::cerr << "Note: the folder " << printable(folder) << " does not exist yet.\n";
  } else if (!fileManager.isDirectoryAtPath(folder)) {
    throw UsageError(printable(folder) + " is not a folder.");
  }
  return folder;
}

ImagePtr iconOf(const std::string& argument) {
  const std::string path = absolutePath(argument);
  std::optional<Error> error;
  auto bytes = platform().fileManager->contentsAtPath(path, &error);
  if (!bytes) throw UsageError("The icon cannot be read: " + error->message);
  auto image = Image::imageWithData(std::make_shared<const Data>(*std::move(bytes)));
  if (image == nullptr)
    throw UsageError(printable(path) + " is not a picture that can be an icon.");
  return image;
}

void setDestination(TVAction& action, const std::string& folder) {
  const auto url = Url::fileURLWithPath(folder, true);
  if (auto* move = dynamic_cast<TVMoveToAction*>(&action)) {
    move->setDestinationURL(url);
  } else if (auto* copy = dynamic_cast<TVCopyToAction*>(&action)) {
    copy->setDestinationURL(url);
  } else {
    throw UsageError("An action of this kind has no folder, so --to does not fit it.");
  }
}

// Applies the options that `add` and `set` share.
void setFields(TVAction& action, const Arguments& arguments) {
  if (const auto title = arguments.value("title")) {
    requireText("title", *title);
    action.setTitle(*title);
  }
  if (const auto types = arguments.value("types")) {
    requireText("types", *types);
    action.setFileTypes(typesOf(*types));
  }
  if (const auto icon = arguments.value("icon")) action.setIcon(iconOf(*icon));
  if (const auto description = arguments.value("description")) {
    requireText("description", *description);
    action.setActionDescription(*description);
  }
  if (const auto to = arguments.value("to")) setDestination(action, folderOf(*to));
}

std::string titleOfFolder(const std::string& folder) {
  std::string name = lastPathComponent(folder);
  return prettyPrintedJSON(Value(name)) ? name : "Folder";
}

std::shared_ptr<TVActionGroup> requireGroup(const ActionList& actions, const std::string& uid,
                                            const TVAction& member) {
  auto group = std::dynamic_pointer_cast<TVActionGroup>(requireAction(actions, uid).action);
  if (group == nullptr) throw CommandError("The action " + uid + " is not a group.");
  if (dynamic_cast<const TVActionGroup*>(&member) != nullptr) {
    throw CommandError("A group cannot be a member of a group.");
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
  auto valued = kFieldOptions;
  valued.insert("into");
  const Arguments arguments(words, {valued, {}});
  arguments.requirePositional(1, 1, "The kind of action");
  const auto& name = arguments.positional().front();
  const auto kind = kinds().find(name);
  if (kind == kinds().end()) {
    std::string known;
    for (const auto& [word, ignored] : kinds()) known += (known.empty() ? "" : ", ") + word;
    throw UsageError("There is no kind \"" + printable(name) + "\"; the kinds are " + known + ".");
  }
  const auto added = kind->second.make();
  if (!arguments.value("title")) {
    if (const auto to = arguments.value("to")) {
      added->setTitle(titleOfFolder(absolutePath(*to)));
    } else if (kind->second.title) {
      added->setTitle(kind->second.title);
    }
  }
  setFields(*added, arguments);
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
  const Arguments arguments(words, {kFieldOptions, {}});
  arguments.requirePositional(1, 1, "The uid of an action");
  const bool anything =
      std::any_of(kFieldOptions.begin(), kFieldOptions.end(),
                  [&](const std::string& option) { return arguments.value(option).has_value(); });
  if (!anything) throw UsageError("Nothing to set: give at least one option.");
  changeActions([&](TVActionsManager& manager) {
    setFields(*requireAction(manager.actions(), arguments.positional().front()).action, arguments);
  });
  return kExitSuccess;
}

int setEnabled(const std::vector<std::string>& words, bool enabled) {
  const Arguments arguments(words, {});
  arguments.requirePositional(1, 1, "The uid of an action");
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

int removeAction(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  arguments.requirePositional(1, 1, "The uid of an action");
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
    throw CommandError("A group cannot be a member of a group.");
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
  arguments.requirePositional(1, 1, "The uid of an action");
  const auto before = arguments.value("before");
  const auto after = arguments.value("after");
  const auto into = arguments.value("into");
  const int places = (before ? 1 : 0) + (after ? 1 : 0) + (into ? 1 : 0) +
                     (arguments.has("first") ? 1 : 0) + (arguments.has("last") ? 1 : 0);
  if (places != 1) {
    throw UsageError("Give exactly one of --before, --after, --into, --first and --last.");
  }
  changeActions([&](TVActionsManager& manager) {
    const auto& uid = arguments.positional().front();
    const auto place = requireAction(manager.actions(), uid);
    if (uid == before.value_or("") || uid == after.value_or("") || uid == into.value_or("")) {
      throw CommandError("An action cannot be placed by itself.");
    }
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

const std::vector<std::pair<std::string, std::string>> kFieldHelp = {
    {"--title TITLE", "The text of the menu entry."},
    {"--types TYPE,...|any",
     "Type identifiers. The entry appears only when every selected item conforms to every one of "
     "them; a member of a group appears by the filter of its group alone. \"any\" removes the "
     "filter."},
    {"--icon FILE", "A picture: SVG, PNG, JPEG, GIF, BMP, ICO or TIFF."},
    {"--description TEXT", "One line that explains the action."},
    {"--to FOLDER", "The folder that receives the files."},
};

std::vector<std::pair<std::string, std::string>> fieldHelpAnd(const std::string& spelling,
                                                              const std::string& meaning) {
  auto help = kFieldHelp;
  help.emplace_back(spelling, meaning);
  return help;
}

}  // namespace

std::vector<Command> editCommands() {
  return {
      {{"add",
        "add an action at the end and print its uid",
        {"move|copy|group-move|group-copy [OPTION...]"},
        {"Without --title an action with a folder gets the folder's name."},
        fieldHelpAnd("--into GROUP_UID", "Adds it as the last member of that group.")},
       add},
      {{"set", "change an action", {"UID OPTION..."}, {}, kFieldHelp}, set},
      {{"enable", "show an action in menus", {"UID"}, {}, {}}, enable},
      {{"disable", "hide an action from menus without removing it", {"UID"}, {}, {}}, disable},
      {{"remove", "remove an action, a group with its members", {"UID"}, {}, {}}, removeAction},
      {{"reorder",
        "move an action to another place",
        {"UID --before UID", "UID --after UID", "UID --into GROUP_UID", "UID --first",
         "UID --last"},
        {},
        {{"--before UID, --after UID", "Beside that action, in its group when it is in one."},
         {"--into GROUP_UID", "Behind the last member of that group."},
         {"--first, --last", "At an end of the list itself."}}},
       reorder},
  };
}

}  // namespace tervano
