#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/arguments.h"
#include "model/tv_action.h"

namespace tervano {

// A kind of action as the command line names it.
struct ActionKind {
  // "new-file"; for "bundled" the script's name follows.
  std::string name;
  // One line that says what such an action does.
  std::string summary;
  std::string className;
  // The settings of the kind beyond those that every action has.
  std::vector<std::string> settings;
  // Those that `add` must be given.
  std::vector<std::string> required;
  // The title when neither the user nor a setting gives one; nil: the class does.
  std::optional<std::string> title;
  // A new action; null when it cannot be made of the words behind the kind's name.
  std::shared_ptr<TVAction> (*make)(const std::vector<std::string>& words);
};

const std::vector<ActionKind>& actionKinds();
// Throws UsageError for a name that no kind has.
const ActionKind& requireKind(const std::string& name);
// The names of the scripts that come with the program, sorted.
std::vector<std::string> bundledScriptNames();

// A new action as the words of `add` ask for it: the kind, then perhaps a script's name, and the
// settings. Throws UsageError.
std::shared_ptr<TVAction> newAction(const Arguments& arguments);

}  // namespace tervano
