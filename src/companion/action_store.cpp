#include "companion/action_store.h"

#include <algorithm>

#include "archive/archiver.h"
#include "companion/arguments.h"
#include "companion/list_versions.h"
#include "model/action_list.h"
#include "platform/file_coordinator.h"
#include "platform/file_manager.h"
#include "platform/platform.h"

namespace tervano {

namespace {

void requireSaved(const TVActionsManager& manager, const std::string& path) {
  const Data expected = Archiver::archivedDataWithRootObject(arrayOfActions(manager.actions()),
                                                             *platform().classRegistry);
  std::optional<Error> error;
  const auto found = platform().fileManager->contentsAtPath(path, &error);
  if (found == expected) return;
  throw CommandError(
      error ? tr("The action list could not be saved: {1}; what was there before is unchanged.",
                 error->message)
            : tr("The action list could not be saved to {1}; what was there before is unchanged.",
                 path));
}

// Null with the reason when it cannot be read.
std::shared_ptr<TVActionsManager> readList(std::string& reason) {
  auto manager = TVActionsManager::create<TVActionsManager>(&reason);
  if (manager == nullptr && reason.ends_with('.')) reason.pop_back();
  return manager;
}

void withLockedList(const FileCoordinator::Accessor& accessor) {
  const auto url = TVActionsManager().saveURL();
  if (!url) throw CommandError(tr("There is no container for the action list on this system."));
  const auto error = platform().fileCoordinator->coordinateWriting(url->path(), accessor);
  if (error) throw CommandError(tr("The action list could not be locked: {1}", error->message));
}

}  // namespace

std::optional<Sentence> complaintAboutList() {
  std::string reason;
  if (readList(reason) != nullptr) return std::nullopt;
  return tr("The action list cannot be read: {1}.", reason);
}

std::shared_ptr<TVActionsManager> loadActions() {
  std::string reason;
  auto manager = readList(reason);
  if (manager != nullptr) return manager;
  throw CommandError(
      listVersions().empty()
          ? tr("The action list cannot be read: {1}.", reason)
          : tr("The action list cannot be read: {1}; \"tervano restore\" offers the last one that "
               "can.",
               reason));
}

std::optional<ActionPlace> findAction(const ActionList& actions, const std::string& uid) {
  for (const auto& action : actions) {
    if (action->uid() == uid) return ActionPlace{action, nullptr};
    const auto group = std::dynamic_pointer_cast<TVActionGroup>(action);
    if (group == nullptr || !group->workingActionsArray()) continue;
    for (const auto& member : *group->workingActionsArray()) {
      if (member->uid() == uid) return ActionPlace{member, group};
    }
  }
  return std::nullopt;
}

Sentence shownTitle(const TVAction& action) {
  return action.title() ? Sentence(*action.title()) : tr("(no title)");
}

bool isUid(const std::string& word) {
  return word.size() == 32 && std::all_of(word.begin(), word.end(), [](char character) {
           return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F');
         });
}

ActionPlace requireAction(const ActionList& actions, const std::string& uid) {
  // Another system may have given it another form, so the list decides first.
  auto place = findAction(actions, uid);
  if (place) return *place;
  if (!isUid(uid)) {
    throw UsageError(
        tr("\"{1}\" is no uid; a uid has 32 characters of 0 to 9 and A to F.", printable(uid)));
  }
  throw CommandError(tr("There is no action with the uid {1} in the list.", uid));
}

void changeActions(const std::function<void(TVActionsManager&)>& change) {
  withLockedList([&](const std::string& path) {
    const auto former = platform().fileManager->contentsAtPath(path);
    const auto manager = loadActions();
    change(*manager);
    if (former && !former->empty()) keepVersion(*former);
    manager->actuallySave();
    requireSaved(*manager, path);
  });
}

void changeActionsUnasked(const std::function<bool(TVActionsManager&)>& change) {
  withLockedList([&](const std::string& path) {
    const auto manager = loadActions();
    if (!change(*manager)) return;
    manager->actuallySave();
    requireSaved(*manager, path);
  });
}

}  // namespace tervano
