#pragma once

#include <gio/gio.h>
extern "C" {
#include <libcaja-extension/caja-extension-types.h>
#include <libcaja-extension/caja-file-info.h>
#include <libcaja-extension/caja-location-widget-provider.h>
#include <libcaja-extension/caja-menu-provider.h>
#include <libcaja-extension/caja-menu.h>
}

namespace tervano::test {

// What differs between the file managers that load a module, here of Caja.
struct Manager {
  static constexpr char kEntries[] = "caja_module_";
  static constexpr bool kDrawsWithGtk3 = true;
  static constexpr bool kDrawsIcons = true;

  using FileInfo = CajaFileInfo;
  using FileInfoInterface = CajaFileInfoIface;
  static GType fileInfoType() { return CAJA_TYPE_FILE_INFO; }

  static GList* fileItems(gpointer provider, GList* files, GtkWidget* window = nullptr) {
    return CAJA_MENU_PROVIDER_GET_IFACE(provider)->get_file_items(CAJA_MENU_PROVIDER(provider),
                                                                  window, files);
  }
  static GList* folderItems(gpointer provider, FileInfo* folder, GtkWidget* window = nullptr) {
    return CAJA_MENU_PROVIDER_GET_IFACE(provider)->get_background_items(
        CAJA_MENU_PROVIDER(provider), window, folder);
  }
  static GList* toolbarItems(gpointer provider, FileInfo* folder, GtkWidget* window) {
    return CAJA_MENU_PROVIDER_GET_IFACE(provider)->get_toolbar_items(CAJA_MENU_PROVIDER(provider),
                                                                     window, folder);
  }
  static GtkWidget* toolbarButton(gpointer provider, const char* folderURI, GtkWidget* window) {
    return CAJA_LOCATION_WIDGET_PROVIDER_GET_IFACE(provider)->get_widget(
        CAJA_LOCATION_WIDGET_PROVIDER(provider), folderURI, window);
  }
  static GList* itemsOfSubmenu(gpointer menu) { return caja_menu_get_items(CAJA_MENU(menu)); }
};

}  // namespace tervano::test
