#include "companion/recent_folders.h"

#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <set>

#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "archive/archiver.h"
#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/unarchiver.h"
#include "archive/utf.h"
#include "companion/action_kinds.h"
#include "companion/action_settings.h"
#include "companion/action_store.h"
#include "model/action_list.h"
#include "model/tv_action_groups.h"
#include "platform/defaults_stores.h"
#include "platform/file_manager.h"
#include "platform/linux/user_folders.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr char kSettingsSuite[] = "com.vessok.tervano.companion";
constexpr char kLimitKey[] = "recentFolders";
constexpr char kMembersKey[] = "members";
constexpr char kOrdersKey[] = "orders";

// A member of which we know.
struct KnownMember {
  std::string uid;
  // The group that it was put into.
  std::string groupUid;
  // The highest is that of the last use.
  std::int64_t use = 0;
  // As it was made: an archive of an array with it alone.
  DataPtr archive;
};

// What the file holds.
struct RecentState {
  std::vector<KnownMember> members;
  // The uids of a group's members by the group's, as they stood when the file was written.
  std::map<std::string, std::vector<std::string>> orders;

  bool knows(const std::string& uid) const {
    return std::any_of(members.begin(), members.end(),
                       [&](const auto& member) { return member.uid == uid; });
  }
};

std::string stateFolder() {
  return stateHomeFolder() + "/tervano";
}

std::string statePath() {
  return stateFolder() + "/recent-folders.plist";
}

std::string recentTextIn(const Value& value, const char* key) {
  const Value* found = value.find(key);
  const auto* text = found == nullptr ? nullptr : found->getIf<std::string>();
  return text == nullptr ? "" : *text;
}

std::optional<KnownMember> memberOf(const Value& value) {
  const Value* use = value.find("use");
  const Value* archive = value.find("archive");
  const auto* number = use == nullptr ? nullptr : use->getIf<std::int64_t>();
  const auto* bytes = archive == nullptr ? nullptr : archive->getIf<DataPtr>();
  if (number == nullptr || *number < 0 || bytes == nullptr) return std::nullopt;
  return KnownMember{recentTextIn(value, "uid"), recentTextIn(value, "group"), *number, *bytes};
}

// Without the file, or with one that cannot be read, nothing is ours.
RecentState loadState() {
  RecentState state;
  const auto bytes = platform().fileManager->contentsAtPath(statePath());
  if (!bytes) return state;
  try {
    const Value root = propertyListWithData(*bytes);
    const Value* members = root.find(kMembersKey);
    if (const auto* list = members == nullptr ? nullptr : members->getIf<Value::Array>()) {
      for (const auto& entry : *list) {
        if (auto member = memberOf(entry)) state.members.push_back(std::move(*member));
      }
    }
    const Value* orders = root.find(kOrdersKey);
    if (const auto* groups = orders == nullptr ? nullptr : orders->getIf<Value::Dictionary>()) {
      for (const auto& [group, uids] : *groups) {
        const auto* list = uids.getIf<Value::Array>();
        if (list == nullptr) continue;
        for (const auto& uid : *list) {
          if (const auto* text = uid.getIf<std::string>()) state.orders[group].push_back(*text);
        }
      }
    }
  } catch (const PlatformException& exception) {
    log("The file of recent folders cannot be read: " + exception.reason());
    return {};
  }
  return state;
}

void saveState(const RecentState& state) {
  Value::Array members;
  for (const auto& member : state.members) {
    members.emplace_back(Value::Dictionary{{"uid", member.uid},
                                           {"group", member.groupUid},
                                           {"use", member.use},
                                           {"archive", Value(member.archive)}});
  }
  Value::Dictionary orders;
  for (const auto& [group, uids] : state.orders) {
    orders[group] = Value(Value::Array(uids.begin(), uids.end()));
  }
  auto& files = *platform().fileManager;
  auto error = files.createDirectoryAtPath(stateFolder(), true);
  if (!error) {
    error = files.writeDataToFile(
        binaryDataWithPropertyList(Value::Dictionary{{kMembersKey, Value(std::move(members))},
                                                     {kOrdersKey, Value(std::move(orders))}}),
        statePath(), true);
  }
  if (error) throw CommandError(tr("The recent folders could not be saved: {1}.", error->message));
}

Data archiveOfMember(const std::shared_ptr<TVAction>& action) {
  return Archiver::archivedDataWithRootObject(arrayOfActions({action}), *platform().classRegistry);
}

// Null when it holds no action.
std::shared_ptr<TVAction> actionOfArchive(const Data& archive) {
  const Value root = Unarchiver::unarchiveObjectWithData(archive, *platform().classRegistry);
  const auto* array = root.getIf<Value::Array>();
  const auto actions = array == nullptr ? ActionList() : actionsOfArray(*array);
  return actions.empty() ? nullptr : actions.front();
}

// Whether two archives hold the same action, however they were written.
bool holdSameAction(const Data& left, const Data& right) {
  if (left == right) return true;
  try {
    const auto leftAction = actionOfArchive(left);
    const auto rightAction = actionOfArchive(right);
    return leftAction != nullptr && rightAction != nullptr &&
           archiveOfMember(leftAction) == archiveOfMember(rightAction);
  } catch (const PlatformException&) {
    return false;
  }
}

// "move" or "copy"; empty for another action.
std::string kindOf(const TVAction& action) {
  if (dynamic_cast<const TVMoveToAction*>(&action) != nullptr) return "move";
  return dynamic_cast<const TVCopyToAction*>(&action) != nullptr ? "copy" : "";
}

// Empty for an action that has none.
std::string folderOfTransfer(const TVAction& action) {
  const auto* const move = dynamic_cast<const TVMoveToAction*>(&action);
  const auto* const copy = dynamic_cast<const TVCopyToAction*>(&action);
  const std::optional<Url> url = move != nullptr   ? move->destinationURL()
                                 : copy != nullptr ? copy->destinationURL()
                                                   : std::nullopt;
  return url ? url->path() : "";
}

bool isSameFolder(const std::string& left, const std::string& right) {
  if (left == right) return true;
  struct stat one {};
  struct stat other {};
  return stat(left.c_str(), &one) == 0 && stat(right.c_str(), &other) == 0 &&
         one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// The first enabled group for the kind, else the first one; null when there is none.
std::shared_ptr<TVActionGroup> groupFor(const std::string& kind, const ActionList& actions) {
  std::shared_ptr<TVActionGroup> first;
  for (const auto& action : actions) {
    const bool isMove = dynamic_cast<const TVMoveActionGroup*>(action.get()) != nullptr;
    const bool isCopy = dynamic_cast<const TVCopyActionGroup*>(action.get()) != nullptr;
    if (!(kind == "move" ? isMove : isCopy)) continue;
    auto group = std::static_pointer_cast<TVActionGroup>(action);
    if (group->enabled()) return group;
    if (first == nullptr) first = std::move(group);
  }
  return first;
}

ActionList membersOf(const TVActionGroup& group) {
  return group.actions().value_or(ActionList());
}

std::vector<std::string> uidsOf(const ActionList& actions) {
  std::vector<std::string> uids;
  for (const auto& action : actions) uids.push_back(action->uid().value_or(""));
  return uids;
}

// Which of `members` stand where they stood in `before`: as many as can be without any of them
// passing another; where it is open who passed whom, those that are not ours.
std::set<std::string> notMoved(const std::vector<std::string>& members,
                               const std::vector<std::string>& before,
                               const std::function<bool(const std::string&)>& isOurs) {
  std::map<std::string, std::size_t> places;
  for (std::size_t at = 0; at < before.size(); ++at) places[before[at]] = at;
  struct Step {
    std::string uid;
    std::size_t place;
    std::size_t weight;
    std::ptrdiff_t previous;
  };
  const std::size_t each = members.size() + 1;
  std::vector<Step> steps;
  std::ptrdiff_t best = -1;
  for (const auto& uid : members) {
    const auto place = places.find(uid);
    if (place == places.end()) continue;
    Step step{uid, place->second, 0, -1};
    for (std::size_t at = 0; at < steps.size(); ++at) {
      if (steps[at].place < step.place && steps[at].weight > step.weight) {
        step.weight = steps[at].weight;
        step.previous = static_cast<std::ptrdiff_t>(at);
      }
    }
    step.weight += isOurs(uid) ? each : each + 1;
    steps.push_back(std::move(step));
    if (best < 0 || steps.back().weight > steps[static_cast<std::size_t>(best)].weight) {
      best = static_cast<std::ptrdiff_t>(steps.size()) - 1;
    }
  }
  std::set<std::string> stayed;
  for (; best >= 0; best = steps[static_cast<std::size_t>(best)].previous) {
    stayed.insert(steps[static_cast<std::size_t>(best)].uid);
  }
  return stayed;
}

// Forgets the members that are gone or the user's by now, and notes how the groups stand.
void forgetForeignMembers(RecentState& state, const ActionList& actions) {
  std::map<std::string, std::set<std::string>> moved;
  std::map<std::string, std::vector<std::string>> orders;
  for (const auto& action : actions) {
    const auto* group = dynamic_cast<const TVActionGroup*>(action.get());
    if (group == nullptr || !group->uid()) continue;
    const auto uids = uidsOf(membersOf(*group));
    const auto before = state.orders.find(*group->uid());
    if (before != state.orders.end()) {
      const auto stayed =
          notMoved(uids, before->second, [&](const std::string& uid) { return state.knows(uid); });
      for (const auto& uid : before->second) {
        if (!stayed.contains(uid)) moved[*group->uid()].insert(uid);
      }
    }
    orders[*group->uid()] = uids;
  }
  std::erase_if(state.members, [&](const KnownMember& member) {
    const auto place = findAction(actions, member.uid);
    return !place || place->group == nullptr || place->group->uid() != member.groupUid ||
           moved[member.groupUid].contains(member.uid) ||
           !holdSameAction(*member.archive, archiveOfMember(place->action));
  });
  state.orders.clear();
  for (const auto& member : state.members) {
    state.orders[member.groupUid] = orders[member.groupUid];
  }
}

std::vector<KnownMember> membersByUse(const RecentState& state) {
  auto members = state.members;
  std::sort(members.begin(), members.end(),
            [](const auto& left, const auto& right) { return left.use > right.use; });
  return members;
}

std::shared_ptr<TVAction> newMember(const std::string& kind, const std::string& folder,
                                    const ActionList& members) {
  auto made = newAction(Arguments({kind, "--to=" + folder}, {allSettings(), {}}));
  const auto isTaken = [&] {
    return std::any_of(members.begin(), members.end(),
                       [&](const auto& member) { return member->title() == made->title(); });
  };
  const std::string parent = lastPathComponent(deletingLastPathComponent(folder));
  if (isTaken() && isValidUtf8(parent)) made->setTitle(*made->title() + " (" + parent + ")");
  // As it will be read.
  return actionOfArchive(archiveOfMember(made));
}

// Takes what is beyond the limit out of the groups, the oldest first. The file keeps it until it is
// known to be gone. Answers whether anything went.
bool removeBeyond(std::size_t limit, const RecentState& state, const ActionList& actions) {
  std::map<std::string, std::size_t> counts;
  bool hasRemoved = false;
  for (const auto& member : membersByUse(state)) {
    if (++counts[member.groupUid] <= limit) continue;
    const auto place = findAction(actions, member.uid);
    if (!place || place->group == nullptr) continue;
    place->group->removeAction(place->action);
    hasRemoved = true;
  }
  return hasRemoved;
}

void trim(std::size_t limit) {
  changeActionsUnasked([limit](TVActionsManager& manager) {
    auto state = loadState();
    forgetForeignMembers(state, manager.actions());
    if (state.members.empty()) return false;
    saveState(state);
    return removeBeyond(limit, state, manager.actions());
  });
}

// Makes the folder the last used one. Answers whether the list was changed.
bool useFolder(TVActionsManager& manager, const std::string& kind, const std::string& folder,
               std::size_t limit) {
  const auto group = groupFor(kind, manager.actions());
  if (group == nullptr || !group->uid()) return false;
  auto state = loadState();
  forgetForeignMembers(state, manager.actions());
  auto members = membersOf(*group);
  std::int64_t lastUse = 0;
  for (const auto& member : state.members) lastUse = std::max(lastUse, member.use);
  if (lastUse == std::numeric_limits<std::int64_t>::max()) lastUse = 0;
  const auto listed = std::find_if(members.begin(), members.end(), [&](const auto& member) {
    return isSameFolder(folderOfTransfer(*member), folder);
  });
  if (listed != members.end()) {
    const auto ours =
        std::find_if(state.members.begin(), state.members.end(),
                     [&](const auto& member) { return member.uid == (*listed)->uid(); });
    if (ours == state.members.end()) return false;
    ours->use = lastUse + 1;
    saveState(state);
    return false;
  }
  const auto added = newMember(kind, folder, members);
  members.push_back(added);
  state.members.push_back({*added->uid(), *group->uid(), lastUse + 1,
                           std::make_shared<const Data>(archiveOfMember(added))});
  state.orders[*group->uid()] = uidsOf(members);
  // Before the list: what is in the file alone is forgotten, what is in the list alone would stay.
  saveState(state);
  group->updateActions(std::move(members));
  removeBeyond(limit, state, manager.actions());
  return true;
}

}  // namespace

std::optional<unsigned> recentFolderLimit() {
  const auto store = platform().defaultsStores->initWithSuiteName(kSettingsSuite);
  const auto limit = store->integerForKey(kLimitKey);
  if (limit <= 0) return std::nullopt;
  return static_cast<unsigned>(std::min<std::int64_t>(limit, kMostRecentFolders));
}

void setRecentFolderLimit(std::optional<unsigned> limit) {
  const auto store = platform().defaultsStores->initWithSuiteName(kSettingsSuite);
  if (limit) {
    store->setInteger(*limit, kLimitKey);
  } else {
    store->removeObjectForKey(kLimitKey);
  }
  if (!store->synchronize()) throw CommandError(tr("The setting could not be saved."));
  if (limit) trim(*limit);
}

std::vector<RecentFolder> recentFolders() {
  const auto manager = loadActions();
  auto state = loadState();
  forgetForeignMembers(state, manager->actions());
  std::vector<RecentFolder> folders;
  for (const auto& member : membersByUse(state)) {
    const auto place = findAction(manager->actions(), member.uid);
    if (!place) continue;
    folders.push_back({place->action, kindOf(*place->action), folderOfTransfer(*place->action)});
  }
  return folders;
}

void clearRecentFolders() {
  trim(0);
}

void noteRecentFolder(const TVAction& action) {
  const std::string kind = kindOf(action);
  const std::string folder = folderOfTransfer(action);
  if (kind.empty() || folder.empty()) return;
  try {
    const auto limit = recentFolderLimit();
    if (!limit) return;
    changeActionsUnasked(
        [&](TVActionsManager& manager) { return useFolder(manager, kind, folder, *limit); });
  } catch (const PlatformException& exception) {
    log("Could not keep the recent folder: " + exception.reason());
  } catch (const std::exception& error) {
    log(std::string("Could not keep the recent folder: ") + error.what());
  }
}

}  // namespace tervano
