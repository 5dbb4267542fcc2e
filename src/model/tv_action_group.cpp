#include "model/tv_action_group.h"

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "model/action_list.h"
#include "platform/log.h"

namespace tervano {

void TVActionGroup::init() {
  TVAction::init();
  setWorkingActionsArray(ActionList());
}

void TVActionGroup::addAction(std::shared_ptr<TVAction> action) {
  if (workingActionsArray_) appendAction(*workingActionsArray_, std::move(action));
}

void TVActionGroup::removeAction(const std::shared_ptr<TVAction>& action) {
  if (workingActionsArray_) removeEveryAction(*workingActionsArray_, action);
}

void TVActionGroup::updateActions(std::optional<ActionList> actions) {
  setWorkingActionsArray(std::move(actions));
}

void TVActionGroup::setWorkingActionsArray(std::optional<ActionList> actions) {
  if (actions) *actions = withoutNull(std::move(*actions));
  workingActionsArray_ = std::move(actions);
}

void TVActionGroup::runWithFilePaths(const FilePaths& /*filePaths*/,
                                     const CompletionBlock& /*completionBlock*/) {
  log("Group actions can't be run");
}

std::optional<std::string> TVActionGroup::editorClassName() const {
  log("Subclasses need to overwrite editorClassName - " + std::string(className()));
  return std::nullopt;
}

void TVActionGroup::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  const auto array = coder.decodeArray("actions");
  setWorkingActionsArray(array ? std::optional(actionsOfArray(*array)) : std::nullopt);
}

void TVActionGroup::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  Value members;
  if (workingActionsArray_) members = arrayOfActions(*workingActionsArray_);
  coder.encodeObject(members, "actions");
}

std::shared_ptr<TVAction> TVActionGroup::makeBlank() const {
  return std::make_shared<TVActionGroup>();
}

void TVActionGroup::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  static_cast<TVActionGroup&>(copy).setWorkingActionsArray(actions());
}

}  // namespace tervano
