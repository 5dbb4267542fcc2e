#pragma once

#include "extension/selection_filter.h"
#include "model/tv_action_group.h"

namespace tervano {

// Why a menu leaves an action out.
enum class LeftOut {
  disabled,
  // The selection does not meet its file types.
  fileTypes,
  // A group of which no member is enabled.
  noMember,
};

// The one walk over a list that decides what a menu shows, in the list's order. The visitor has
//
//   void show(const std::shared_ptr<TVAction>&);               an entry of the list
//   void showMember(const std::shared_ptr<TVAction>&);         of the group that is walked
//   void leaveOut(const std::shared_ptr<TVAction>&, LeftOut);  an entry, with its members
//   void leaveOutMember(const std::shared_ptr<TVAction>&, LeftOut);
//   void showGroup(const std::shared_ptr<TVAction>&);          a group, behind its members
//
// A member's own file types do not count inside a group.
template <typename Visitor>
void walkActions(const ActionList& actions, SelectionFilter& filter, Visitor& visitor) {
  for (const auto& action : actions) {
    if (!action->enabled()) {
      visitor.leaveOut(action, LeftOut::disabled);
      continue;
    }
    if (!filter.accepts(action->fileTypes())) {
      visitor.leaveOut(action, LeftOut::fileTypes);
      continue;
    }
    const auto* group = dynamic_cast<const TVActionGroup*>(action.get());
    if (group == nullptr) {
      visitor.show(action);
      continue;
    }
    bool hasMember = false;
    if (const auto& members = group->workingActionsArray()) {
      for (const auto& member : *members) {
        if (member->enabled()) {
          hasMember = true;
          visitor.showMember(member);
        } else {
          visitor.leaveOutMember(member, LeftOut::disabled);
        }
      }
    }
    if (hasMember) {
      visitor.showGroup(action);
    } else {
      visitor.leaveOut(action, LeftOut::noMember);
    }
  }
}

}  // namespace tervano
