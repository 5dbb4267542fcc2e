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
#include "hosts/gtk3/toolbar_item.h"

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

constexpr char kToolbarItemName[] = "Tervano::toolbar";

GType providerType = 0;

// The provider that the file manager made last.
GWeakRef provider;

// What the file manager tells of a window while it is asked to.
struct Telling {
  GtkWidget* window;
  std::string folderURI;
  bool isSelected = false;
  // Null when the selection could not be kept.
  SelectedItemsPtr selection;
};
Telling* telling = nullptr;

bool isAbout(GtkWidget* window) {
  return telling != nullptr && window != nullptr && telling->window == window;
}

// A window may show several folders, in tabs or beside each other: it is asked for the one that is
// used, and tells at once.
std::optional<SelectedItems> selectionAt(const ToolbarPlace& place) {
  const GObjectPtr<GObject> living(static_cast<GObject*>(g_weak_ref_get(&provider)));
  if (living == nullptr) return std::nullopt;
  Telling told{place.window, {}, false, nullptr};
  telling = &told;
  caja_menu_provider_emit_items_updated_signal(CAJA_MENU_PROVIDER(living.get()));
  telling = nullptr;
  if (told.folderURI != place.folderURI || !told.isSelected) return std::nullopt;
  // Which of two views of the same folder is the one that is used is not told.
  const bool isUnknown =
      told.selection == nullptr || (place.button != nullptr && hasTwin(place.button));
  return isUnknown ? unknownSelection() : *told.selection;
}

GList* fileItems(CajaMenuProvider* /*provider*/, GtkWidget* window, GList* files) {
  if (!isAbout(window) || files == nullptr) return menuForFiles<CajaHost>(files);
  telling->isSelected = true;
  return menuForFiles<CajaHost>(
      files, [](const SelectedItemsPtr& selection) { telling->selection = selection; });
}

GList* backgroundItems(CajaMenuProvider* /*provider*/, GtkWidget* window, CajaFileInfo* folder) {
  if (isAbout(window) && folder != nullptr) {
    guarded("a folder",
            [folder] { telling->folderURI = GCharPtr(caja_file_info_get_uri(folder)).get(); });
  }
  return menuForBackground<CajaHost>(folder);
}

GList* toolbarItems(CajaMenuProvider* /*provider*/, GtkWidget* window, CajaFileInfo* folder) {
  GList* items = nullptr;
  guarded("the toolbar item", [&] {
    auto* const extension = HostExtension::shared(CajaHost::kIcons);
    if (extension == nullptr || folder == nullptr || !extension->showsToolbarItem()) return;
    followToolbarItem(*extension, window, kToolbarItemName);
    const FinderSync& finderSync = extension->finderSync();
    const std::string icon = extension->iconPathOf(extension->toolbarImage());
    GObjectPtr<CajaMenuItem> item(caja_menu_item_new(
        kToolbarItemName, menuLabel(finderSync.toolbarItemName()).c_str(),
        finderSync.toolbarItemToolTip().c_str(), icon.empty() ? nullptr : icon.c_str()));
    const GCharPtr uri(caja_file_info_get_uri(folder));
    popUpToolbarMenuOn(G_OBJECT(item.get()), *extension, uri.get(), window, selectionAt);
    items = g_list_append(nullptr, item.release());
  });
  return items;
}

GtkWidget* locationWidget(CajaLocationWidgetProvider* /*provider*/, const char* uri,
                          GtkWidget* window) {
  GtkWidget* button = nullptr;
  guarded("the toolbar button", [&] {
    auto* const extension = HostExtension::shared(CajaHost::kIcons);
    if (extension != nullptr) button = newToolbarButton(*extension, uri, window, selectionAt);
  });
  return button;
}

void initMenus(gpointer interface, gpointer /*data*/) {
  auto* const menus = static_cast<CajaMenuProviderIface*>(interface);
  menus->get_file_items = fileItems;
  menus->get_background_items = backgroundItems;
  menus->get_toolbar_items = toolbarItems;
}

void initLocationWidget(gpointer interface, gpointer /*data*/) {
  static_cast<CajaLocationWidgetProviderIface*>(interface)->get_widget = locationWidget;
}

// The file manager keeps its menus until it is told that others are due.
void initProvider(GTypeInstance* instance, gpointer /*class*/) {
  g_weak_ref_set(&provider, instance);
  updateOnChanges(reinterpret_cast<GObject*>(instance), CajaHost::kIcons, [](GObject* changed) {
    caja_menu_provider_emit_items_updated_signal(CAJA_MENU_PROVIDER(changed));
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
