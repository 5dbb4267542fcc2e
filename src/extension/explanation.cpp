#include "extension/explanation.h"

#include <utility>

namespace tervano {
namespace {

class Explainer {
 public:
  explicit Explainer(const SelectionFilter& filter) : filter_(filter) {}

  void show(const std::shared_ptr<TVAction>& action) { explanations.emplace_back(action); }
  void showMember(const std::shared_ptr<TVAction>& action) { members_.emplace_back(action); }
  void leaveOutMember(const std::shared_ptr<TVAction>& action, LeftOut why) {
    members_.emplace_back(action, why);
  }
  void showGroup(const std::shared_ptr<TVAction>& action) {
    explanations.emplace_back(action);
    explanations.back().members = std::exchange(members_, {});
  }
  void leaveOut(const std::shared_ptr<TVAction>& action, LeftOut why) {
    Explanation explanation(action, why);
    if (why == LeftOut::fileTypes) explanation.unmet = filter_.unmetTypes(*action->fileTypes());
    explanation.members = std::exchange(members_, {});
    const auto* group = dynamic_cast<const TVActionGroup*>(action.get());
    if (group != nullptr && group->workingActionsArray() && explanation.members.empty()) {
      for (const auto& member : *group->workingActionsArray()) {
        explanation.members.emplace_back(member);
      }
    }
    for (auto& member : explanation.members) member.groupLeftOut = true;
    explanations.push_back(std::move(explanation));
  }

  std::vector<Explanation> explanations;

 private:
  const SelectionFilter& filter_;
  // Of the group that is walked.
  std::vector<Explanation> members_;
};

}  // namespace

std::vector<Explanation> explainActions(const ActionList& actions, const SelectedItems& items) {
  SelectionFilter filter(typesOfItems(items));
  Explainer explainer(filter);
  walkActions(actions, filter, explainer);
  return std::move(explainer.explanations);
}

}  // namespace tervano
