#include "actions/register_action_classes.h"

#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "model/register_model_classes.h"

namespace tervano {

void registerActionClasses(ClassRegistry& registry) {
  registerModelClasses(registry);
  registerActionClass<TVCopyToAction>(registry, {"TVCopyToAction"});
  registerActionClass<TVMoveToAction>(registry, {"TVMoveToAction"});
}

}  // namespace tervano
