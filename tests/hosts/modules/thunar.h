#pragma once

#include <gio/gio.h>
extern "C" {
#include <thunarx/thunarx.h>
}

namespace tervano::test {

// What differs between the file managers that load a module, here of Thunar.
struct Manager {
  static constexpr char kEntries[] = "thunar_extension_";
  static constexpr bool kDrawsWithGtk3 = true;
  static constexpr bool kDrawsIcons = true;

  using FileInfo = ThunarxFileInfo;
  using FileInfoInterface = ThunarxFileInfoIface;
  static GType fileInfoType() { return THUNARX_TYPE_FILE_INFO; }

  static GList* fileItems(gpointer provider, GList* files) {
    return THUNARX_MENU_PROVIDER_GET_IFACE(provider)->get_file_menu_items(
        THUNARX_MENU_PROVIDER(provider), nullptr, files);
  }
  static GList* folderItems(gpointer provider, FileInfo* folder) {
    return THUNARX_MENU_PROVIDER_GET_IFACE(provider)->get_folder_menu_items(
        THUNARX_MENU_PROVIDER(provider), nullptr, folder);
  }
  static GList* itemsOfSubmenu(gpointer menu) { return thunarx_menu_get_items(THUNARX_MENU(menu)); }
};

}  // namespace tervano::test
