// The module of Thunar: three exported functions, and a menu provider behind them. The file manager
// draws disabled items as enabled ones; such an item has nothing to do, so choosing it is harmless.

#include <gio/gio.h>
extern "C" {
#include <thunarx/thunarx.h>
}

#include "hosts/common/host_menu.h"
#include "hosts/common/provider_type.h"

namespace tervano {

namespace {

struct ThunarHost {
  using FileInfo = ThunarxFileInfo;
  using Item = ThunarxMenuItem;
  using Submenu = ThunarxMenu;
  static constexpr bool kNeedsDistinctLabels = false;
  static constexpr auto kIcons = HostExtension::Icons::files;

  static GFile* location(FileInfo* file) { return thunarx_file_info_get_location(file); }
  static char* targetURI(FileInfo* file) {
    const GObjectPtr<GFileInfo> information(thunarx_file_info_get_file_info(file));
    return information == nullptr ? nullptr
                                  : g_strdup(g_file_info_get_attribute_string(
                                        information.get(), G_FILE_ATTRIBUTE_STANDARD_TARGET_URI));
  }
  static bool isDirectory(FileInfo* file) { return thunarx_file_info_is_directory(file) != FALSE; }
  static Item* newItem(const char* name, const char* label, const char* iconPath) {
    return thunarx_menu_item_new(name, label, nullptr, iconPath);
  }
  static void disable(Item* item) { thunarx_menu_item_set_sensitive(item, FALSE); }
  static Submenu* newSubmenu() { return thunarx_menu_new(); }
  static void append(Submenu* menu, Item* item) { thunarx_menu_append_item(menu, item); }
  static void setSubmenu(Item* item, Submenu* menu) { thunarx_menu_item_set_menu(item, menu); }
};

GType providerType = 0;

GList* fileItems(ThunarxMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
  return menuForFiles<ThunarHost>(files);
}

GList* folderItems(ThunarxMenuProvider* /*provider*/, GtkWidget* /*window*/,
                   ThunarxFileInfo* folder) {
  return menuForBackground<ThunarHost>(folder);
}

void initInterface(gpointer interface, gpointer /*data*/) {
  auto* const provider = static_cast<ThunarxMenuProviderIface*>(interface);
  provider->get_file_menu_items = fileItems;
  provider->get_folder_menu_items = folderItems;
}

// Menus are asked for when they open, so nobody has to be told of changes.
void initProvider(GTypeInstance* /*instance*/, gpointer /*class*/) {
  guarded("the start", [] { HostExtension::shared(ThunarHost::kIcons); });
}

}  // namespace

}  // namespace tervano

extern "C" {

__attribute__((visibility("default"))) void thunar_extension_initialize(
    ThunarxProviderPlugin* plugin) {
  const gchar* const mismatch =
      thunarx_check_version(THUNARX_MAJOR_VERSION, THUNARX_MINOR_VERSION, THUNARX_MICRO_VERSION);
  if (mismatch != nullptr) {
    g_warning("Tervano does not fit this version: %s", mismatch);
    return;
  }
  const GTypeInfo information = tervano::menuProviderInformation(tervano::initProvider);
  const GInterfaceInfo interface { tervano::initInterface, nullptr, nullptr };
  tervano::providerType = thunarx_provider_plugin_register_type(
      plugin, G_TYPE_OBJECT, tervano::kMenuProviderName, &information, static_cast<GTypeFlags>(0));
  thunarx_provider_plugin_add_interface(plugin, tervano::providerType, THUNARX_TYPE_MENU_PROVIDER,
                                        &interface);
}

__attribute__((visibility("default"))) void thunar_extension_shutdown() {}

__attribute__((visibility("default"))) void thunar_extension_list_types(const GType** types,
                                                                        gint* count) {
  *types = &tervano::providerType;
  *count = tervano::providerType == 0 ? 0 : 1;
}
}
