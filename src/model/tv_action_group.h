#pragma once

#include "model/tv_action.h"

namespace tervano {

// An action that holds other actions and shows as one menu item with a submenu. Never run itself.
//
// The list of members is nil in a blank group and in one decoded from an archive without members:
// such a group swallows additions until `updateActions` gives it a list.
class TVActionGroup : public TVAction {
 public:
  // Starts with an empty list.
  void init() override;

  // A snapshot of the members, in menu order.
  std::optional<ActionList> actions() const { return workingActionsArray_; }
  // Null is ignored. Duplicates are allowed.
  void addAction(std::shared_ptr<TVAction> action);
  // Removes every entry that is this very object. Null is ignored.
  void removeAction(const std::shared_ptr<TVAction>& action);
  // Replaces the members; null entries are left out.
  void updateActions(std::optional<ActionList> actions);

  const std::optional<ActionList>& workingActionsArray() const { return workingActionsArray_; }
  void setWorkingActionsArray(std::optional<ActionList> actions);

  // Logs that a group cannot be run; the block is not called.
  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  // Logs that a subclass should have overridden it, and answers nil.
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVActionGroup"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  // The copy has its own list of the same member objects.
  void copyFieldsTo(TVAction& copy) const override;

 private:
  std::optional<ActionList> workingActionsArray_;
};

}  // namespace tervano
