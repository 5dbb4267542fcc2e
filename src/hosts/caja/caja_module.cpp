// The module of Caja: three exported functions, and behind them a provider of menus and of the
// toolbar button.

#include <gio/gio.h>
extern "C" {
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-location-widget-provider.h>
#include <libcaja-extension/caja-menu-provider.h>
#include <libcaja-extension/caja-menu.h>
}

#include "hosts/common/host_menu.h"
#include "hosts/common/host_observer.h"
#include "hosts/common/provider_type.h"
#include "hosts/gtk3/toolbar_button.h"

namespace tervano {

namespace {

struct CajaHost {
  using FileInfo = CajaFileInfo;
  using Item = CajaMenuItem;
  using Submenu = CajaMenu;
  static constexpr bool kNeedsDistinctLabels = false;
  static constexpr auto kIcons = HostExtension::Icons::files;

  static GFile* location(FileInfo* file) { return caja_file_info_get_location(file); }
  static char* targetURI(FileInfo* file) { return caja_file_info_get_activation_uri(file); }
  static bool isDirectory(FileInfo* file) { return caja_file_info_is_directory(file) != FALSE; }
  static Item* newItem(const char* name, const char* label, const char* iconPath) {
    return caja_menu_item_new(name, label, "", iconPath);
  }
  static void disable(Item* item) { g_object_set(item, "sensitive", FALSE, nullptr); }
  static Submenu* newSubmenu() { return caja_menu_new(); }
  static void append(Submenu* menu, Item* item) { caja_menu_append_item(menu, item); }
  static void setSubmenu(Item* item, Submenu* menu) { caja_menu_item_set_submenu(item, menu); }
};

GType providerType = 0;

GList* fileItems(CajaMenuProvider* /*provider*/, GtkWidget* window, GList* files) {
  guarded("the selection", [&] { rememberSelection(window, selectedItemsOf<CajaHost>(files)); });
  return menuForFiles<CajaHost>(files);
}

GList* backgroundItems(CajaMenuProvider* /*provider*/, GtkWidget* /*window*/,
                       CajaFileInfo* folder) {
  return menuForBackground<CajaHost>(folder);
}

GList* toolbarItems(CajaMenuProvider* /*provider*/, GtkWidget* window, CajaFileInfo* folder) {
  GList* items = nullptr;
  guarded("the toolbar item", [&] {
    auto* const extension = HostExtension::shared(CajaHost::kIcons);
    if (extension == nullptr || folder == nullptr || !extension->showsToolbarItem()) return;
    const FinderSync& finderSync = extension->finderSync();
    const std::string icon = extension->iconPathOf(extension->toolbarImage());
    CajaMenuItem* const item = caja_menu_item_new(
        "Tervano::toolbar", menuLabel(finderSync.toolbarItemName()).c_str(),
        finderSync.toolbarItemToolTip().c_str(), icon.empty() ? nullptr : icon.c_str());
    popUpToolbarMenuOn(G_OBJECT(item), *extension, selectedItemOf<CajaHost>(folder), window);
    items = g_list_append(nullptr, item);
  });
  return items;
}

GtkWidget* locationWidget(CajaLocationWidgetProvider* /*provider*/, const char* uri,
                          GtkWidget* window) {
  GtkWidget* button = nullptr;
  guarded("the toolbar button", [&] {
    auto* const extension = HostExtension::shared(CajaHost::kIcons);
    if (extension != nullptr) button = newToolbarButton(*extension, uri, window);
  });
  return button;
}

void initMenus(gpointer interface, gpointer /*data*/) {
  auto* const provider = static_cast<CajaMenuProviderIface*>(interface);
  provider->get_file_items = fileItems;
  provider->get_background_items = backgroundItems;
  provider->get_toolbar_items = toolbarItems;
}

void initLocationWidget(gpointer interface, gpointer /*data*/) {
  static_cast<CajaLocationWidgetProviderIface*>(interface)->get_widget = locationWidget;
}

// The file manager keeps its menus until it is told that others are due.
void initProvider(GTypeInstance* instance, gpointer /*class*/) {
  updateOnChanges(reinterpret_cast<GObject*>(instance), CajaHost::kIcons, [](GObject* provider) {
    caja_menu_provider_emit_items_updated_signal(CAJA_MENU_PROVIDER(provider));
  });
}

void registerProvider(GTypeModule* module) {
  const GInterfaceInfo menus{initMenus, nullptr, nullptr};
  const GInterfaceInfo locationWidgets{initLocationWidget, nullptr, nullptr};
  providerType = registerMenuProvider(module, initProvider);
  g_type_module_add_interface(module, providerType, CAJA_TYPE_MENU_PROVIDER, &menus);
  g_type_module_add_interface(module, providerType, CAJA_TYPE_LOCATION_WIDGET_PROVIDER,
                              &locationWidgets);
}

}  // namespace

}  // namespace tervano

extern "C" {

__attribute__((visibility("default"))) void caja_module_initialize(GTypeModule* module) {
  tervano::registerProvider(module);
}

__attribute__((visibility("default"))) void caja_module_shutdown() {}

__attribute__((visibility("default"))) void caja_module_list_types(const GType** types,
                                                                   int* count) {
  *types = &tervano::providerType;
  *count = 1;
}
}
