#include "model/action_list.h"

#include <algorithm>

#include "archive/platform_exception.h"

namespace tervano {

ActionList withoutNull(ActionList actions) {
  std::erase(actions, nullptr);
  return actions;
}

Value::Array arrayOfActions(const ActionList& actions) {
  return {actions.begin(), actions.end()};
}

ActionList actionsOfArray(const Value::Array& array) {
  ActionList actions;
  actions.reserve(array.size());
  for (const Value& entry : array) {
    const auto* object = entry.getIf<Value::Object>();
    auto action = object == nullptr ? nullptr : std::dynamic_pointer_cast<TVAction>(*object);
    if (action == nullptr) {
      throw PlatformException(kInvalidUnarchiveException,
                              "an entry of the list of actions is no action");
    }
    actions.push_back(std::move(action));
  }
  return actions;
}

void appendAction(ActionList& actions, std::shared_ptr<TVAction> action) {
  if (action != nullptr) actions.push_back(std::move(action));
}

void removeEveryAction(ActionList& actions, const std::shared_ptr<TVAction>& action) {
  if (action == nullptr) return;
  // By address: the argument may be an entry of the list itself.
  std::erase_if(actions,
                [removed = action.get()](const auto& entry) { return entry.get() == removed; });
}

}  // namespace tervano
