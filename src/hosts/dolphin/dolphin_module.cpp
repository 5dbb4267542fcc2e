// The plugin that Qt loads: a factory of menu providers.

#include <KPluginFactory>

#include "hosts/dolphin/dolphin_menu.h"

namespace tervano {

K_PLUGIN_CLASS_WITH_JSON(DolphinMenu, "tervano.json")

}  // namespace tervano

#include "dolphin_module.moc"
