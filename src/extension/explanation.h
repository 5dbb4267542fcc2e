#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "extension/action_walk.h"
#include "extension/fi_finder_sync_controller.h"
#include "model/tv_action.h"

namespace tervano {

// What a menu does with one action, and why.
struct Explanation {
  explicit Explanation(std::shared_ptr<TVAction> explained,
                       std::optional<LeftOut> why = std::nullopt)
      : action(std::move(explained)), leftOut(why) {}

  std::shared_ptr<TVAction> action;
  // Nil: it is shown, unless its group is not.
  std::optional<LeftOut> leftOut;
  // Whether it is a member of a group that is not shown.
  bool groupLeftOut = false;
  // Each type of the filter that is not met, in the filter's order; empty as well when the filter
  // fails because the selection has no type at all.
  std::vector<UnmetType> unmet;
  // Of a group, in its order.
  std::vector<Explanation> members;

  bool isShown() const { return !leftOut && !groupLeftOut; }
};

// Tells of every action of the list whether a menu for these items shows it; what menus are built
// by decides. The items are local ones.
std::vector<Explanation> explainActions(const ActionList& actions, const SelectedItems& items);

}  // namespace tervano
