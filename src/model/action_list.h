#pragma once

#include "model/tv_action.h"

namespace tervano {

// Action lists as archives hold them.

// The actions as an array of objects, in order. Null entries cannot be archived and are left out.
Value::Array arrayOfActions(const ActionList& actions);

// Throws PlatformException when an entry is no action.
ActionList actionsOfArray(const Value::Array& array);

// Appends the action; null is ignored.
void appendAction(ActionList& actions, std::shared_ptr<TVAction> action);

// Removes every entry that is this very object.
void removeEveryAction(ActionList& actions, const std::shared_ptr<TVAction>& action);

}  // namespace tervano
