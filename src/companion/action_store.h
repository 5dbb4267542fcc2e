#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "model/tv_action.h"
#include "model/tv_action_group.h"
#include "store/tv_actions_manager.h"
#include "translation/translation.h"

namespace tervano {

// A command failed: one clear sentence, shown on standard error, exit status 1. Never leaves the
// companion.
class CommandError : public std::runtime_error {
 public:
  explicit CommandError(Sentence sentence)
      : std::runtime_error(sentence.shown()), sentence_(std::move(sentence)) {}

  // In both languages; what() is what is shown.
  const Sentence& sentence() const { return sentence_; }

 private:
  Sentence sentence_;
};

// Where an action stands: in the list itself (`group` null) or in a group of it.
struct ActionPlace {
  std::shared_ptr<TVAction> action;
  std::shared_ptr<TVActionGroup> group;
};

// Why the list cannot be read; nil when it can.
std::optional<Sentence> complaintAboutList();

// The list as it is on disk. Throws CommandError with the reason when it cannot be read.
std::shared_ptr<TVActionsManager> loadActions();

// The first action of that uid, in the list or in one of its groups; nil when there is none.
std::optional<ActionPlace> findAction(const ActionList& actions, const std::string& uid);

// The same for a command: throws UsageError for a word that is no uid, CommandError for a uid that
// is not in the list.
ActionPlace requireAction(const ActionList& actions, const std::string& uid);

// What a person is shown of an action that has no title, too.
Sentence shownTitle(const TVAction& action);

// 32 upper-case hexadecimal characters.
bool isUid(const std::string& word);

// Loads the list, lets `change` change it, saves and announces it, all under the lock that other
// commands take too; what it replaces becomes a version (list_versions.h). When `change` throws,
// nothing is written. Throws CommandError when the list cannot be read or did not reach the disk.
void changeActions(const std::function<void(TVActionsManager&)>& change);
// The same for a change that no user asked for: what it replaces becomes no version, and nothing is
// saved unless `change` answers that it changed something.
void changeActionsUnasked(const std::function<bool(TVActionsManager&)>& change);

}  // namespace tervano
