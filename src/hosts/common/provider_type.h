#pragma once

#include <gio/gio.h>

namespace tervano {

// The class of a menu provider: a plain object with interfaces, registered by `registerType`, which
// is a file manager's own function or one around g_type_module_register_type.
struct MenuProvider {
  GObject parent;
};
struct MenuProviderClass {
  GObjectClass parent;
};

inline constexpr char kMenuProviderName[] = "TervanoMenuProvider";

inline GTypeInfo menuProviderInformation(GInstanceInitFunc initInstance) {
  return {sizeof(MenuProviderClass), nullptr, nullptr,      nullptr, nullptr, nullptr,
          sizeof(MenuProvider),      0,       initInstance, nullptr};
}

inline GType registerMenuProvider(GTypeModule* module, GInstanceInitFunc initInstance) {
  const GTypeInfo information = menuProviderInformation(initInstance);
  return g_type_module_register_type(module, G_TYPE_OBJECT, kMenuProviderName, &information,
                                     static_cast<GTypeFlags>(0));
}

}  // namespace tervano
