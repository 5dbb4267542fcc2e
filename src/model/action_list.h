#pragma once

#include "model/tv_action.h"

namespace tervano {

// Action lists as archives hold them.

// The list without its null entries: a list holds none, for an archive could not be read back.
ActionList withoutNull(ActionList actions);

// The actions as an array of objects, in order.
Value::Array arrayOfActions(const ActionList& actions);

// Throws PlatformException when an entry is no action.
ActionList actionsOfArray(const Value::Array& array);

// Appends the action; null is ignored.
void appendAction(ActionList& actions, std::shared_ptr<TVAction> action);

// Removes every entry that is this very object.
void removeEveryAction(ActionList& actions, const std::shared_ptr<TVAction>& action);

}  // namespace tervano
