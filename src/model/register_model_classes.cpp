#include "model/register_model_classes.h"

#include "model/tv_action_group.h"
#include "model/tv_action_groups.h"

namespace tervano {

void registerModelClasses(ClassRegistry& registry) {
  Image::registerClasses(registry);
  registerActionClass<TVAction>(registry, {});
  registerActionClass<TVActionGroup>(registry, {"TVActionGroup"});
  registerActionClass<TVOpenWithActionGroup>(registry, {"TVOpenWithActionGroup", "TVActionGroup"});
  registerActionClass<TVCopyActionGroup>(registry, {"TVCopyActionGroup", "TVActionGroup"});
  registerActionClass<TVNewFileActionGroup>(registry, {"TVNewFileActionGroup", "TVActionGroup"});
  registerActionClass<TVMoveActionGroup>(registry, {"TVMoveActionGroup", "TVActionGroup"});
  registerActionClass<TVOpenFavesActionGroup>(registry,
                                              {"TVOpenFavesActionGroup", "TVActionGroup"});
  registerActionClass<TVConvertImageActionGroup>(registry,
                                                 {"TVConvertImageActionGroup", "TVActionGroup"});
}

}  // namespace tervano
