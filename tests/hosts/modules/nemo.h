#pragma once

#include <gio/gio.h>
extern "C" {
#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-location-widget-provider.h>
#include <libnemo-extension/nemo-menu-provider.h>
#include <libnemo-extension/nemo-menu.h>
}

namespace tervano::test {

// What differs between the file managers that load a module, here of Nemo.
struct Manager {
  static constexpr char kEntries[] = "nemo_module_";
  static constexpr bool kDrawsWithGtk3 = true;
  static constexpr bool kDrawsIcons = true;

  using FileInfo = NemoFileInfo;
  using FileInfoInterface = NemoFileInfoInterface;
  static GType fileInfoType() { return NEMO_TYPE_FILE_INFO; }

  static GList* fileItems(gpointer provider, GList* files) {
    return NEMO_MENU_PROVIDER_GET_IFACE(provider)->get_file_items(NEMO_MENU_PROVIDER(provider),
                                                                  nullptr, files);
  }
  static GList* folderItems(gpointer provider, FileInfo* folder) {
    return NEMO_MENU_PROVIDER_GET_IFACE(provider)->get_background_items(
        NEMO_MENU_PROVIDER(provider), nullptr, folder);
  }
  static GtkWidget* toolbarButton(gpointer provider, const char* folderURI, GtkWidget* window) {
    return NEMO_LOCATION_WIDGET_PROVIDER_GET_IFACE(provider)->get_widget(
        NEMO_LOCATION_WIDGET_PROVIDER(provider), folderURI, window);
  }
  static GList* itemsOfSubmenu(gpointer menu) { return nemo_menu_get_items(NEMO_MENU(menu)); }
};

}  // namespace tervano::test
