// The module of GNOME Files: three exported functions, and a menu provider behind them.

#include <gio/gio.h>
extern "C" {
#include <nautilus-extension.h>
}

#include "hosts/common/host_menu.h"
#include "hosts/common/host_observer.h"
#include "hosts/common/provider_type.h"

namespace tervano {

namespace {

struct NautilusHost {
  using FileInfo = NautilusFileInfo;
  using Item = NautilusMenuItem;
  using Submenu = NautilusMenu;
  // All submenus of a context menu are kept in one table by their labels, some longer than they
  // are shown.
  static constexpr bool kNeedsDistinctLabels = true;
  static constexpr auto kIcons = HostExtension::Icons::none;

  static GFile* location(FileInfo* file) { return nautilus_file_info_get_location(file); }
  static char* targetURI(FileInfo* file) { return nautilus_file_info_get_activation_uri(file); }
  static bool isDirectory(FileInfo* file) { return nautilus_file_info_is_directory(file) != FALSE; }
  static Item* newItem(const char* name, const char* label, const char* iconPath) {
    return nautilus_menu_item_new(name, label, nullptr, iconPath);
  }
  static void disable(Item* item) { g_object_set(item, "sensitive", FALSE, nullptr); }
  static Submenu* newSubmenu() { return nautilus_menu_new(); }
  static void append(Submenu* menu, Item* item) { nautilus_menu_append_item(menu, item); }
  static void setSubmenu(Item* item, Submenu* menu) { nautilus_menu_item_set_submenu(item, menu); }
};

GType providerType = 0;

GList* fileItems(NautilusMenuProvider* /*provider*/, GList* files) {
  return menuForFiles<NautilusHost>(files);
}

GList* backgroundItems(NautilusMenuProvider* /*provider*/, NautilusFileInfo* folder) {
  return menuForBackground<NautilusHost>(folder);
}

void initInterface(gpointer interface, gpointer /*data*/) {
  auto* const provider = static_cast<NautilusMenuProviderInterface*>(interface);
  provider->get_file_items = fileItems;
  provider->get_background_items = backgroundItems;
}

// The file manager keeps its menus until it is told that others are due.
void initProvider(GTypeInstance* instance, gpointer /*class*/) {
  updateOnChanges(
      reinterpret_cast<GObject*>(instance), NautilusHost::kIcons, [](GObject* provider) {
        nautilus_menu_provider_emit_items_updated_signal(NAUTILUS_MENU_PROVIDER(provider));
      });
}

void registerProvider(GTypeModule* module) {
  const GInterfaceInfo interface { initInterface, nullptr, nullptr };
  providerType = registerMenuProvider(module, initProvider);
  g_type_module_add_interface(module, providerType, NAUTILUS_TYPE_MENU_PROVIDER, &interface);
}

}  // namespace

}  // namespace tervano

extern "C" {

__attribute__((visibility("default"))) void nautilus_module_initialize(GTypeModule* module) {
  tervano::registerProvider(module);
}

__attribute__((visibility("default"))) void nautilus_module_shutdown() {}

__attribute__((visibility("default"))) void nautilus_module_list_types(const GType** types,
                                                                       int* count) {
  *types = &tervano::providerType;
  *count = 1;
}
}
