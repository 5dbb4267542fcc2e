#include "actions/register_action_classes.h"

#include "actions/tv_apple_script_action.h"
#include "actions/tv_bundled_script_action.h"
#include "actions/tv_compress_password_action.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_new_file_action.h"
#include "actions/tv_open_faves_action.h"
#include "actions/tv_open_with_app_action.h"
#include "actions/tv_reset_app_preferences_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_send_via_email_action.h"
#include "actions/tv_shell_script_action.h"
#include "model/register_model_classes.h"

namespace tervano {

void registerActionClasses(ClassRegistry& registry) {
  registerModelClasses(registry);
  registerActionClass<TVAppleScriptAction>(registry, {"TVAppleScriptAction"});
  registerActionClass<TVBundledScriptAction>(registry,
                                             {"TVBundledScriptAction", "TVShellScriptAction"});
  registerActionClass<TVCompressPasswordAction>(registry, {"TVCompressPasswordAction"});
  registerActionClass<TVConvertImageAction>(registry, {"TVConvertImageAction"});
  registerActionClass<TVCopyToAction>(registry, {"TVCopyToAction"});
  registerActionClass<TVMoveToAction>(registry, {"TVMoveToAction"});
  registerActionClass<TVNewFileAction>(registry, {"TVNewFileAction"});
  registerActionClass<TVOpenFavesAction>(registry, {"TVOpenFavesAction"});
  registerActionClass<TVOpenWithAppAction>(registry, {"TVOpenWithAppAction"});
  registerActionClass<TVResetAppPreferencesAction>(registry, {"TVResetAppPreferencesAction"});
  registerActionClass<TVSecureRemoveAction>(registry, {"TVSecureRemoveAction"});
  registerActionClass<TVSendViaEmailAction>(registry,
                                            {"TVSendViaEmailAction", "TVOpenWithAppAction"});
  registerActionClass<TVShellScriptAction>(registry, {"TVShellScriptAction"});
}

}  // namespace tervano
