#pragma once

#include <gio/gio.h>
extern "C" {
#include <nautilus-extension.h>
}

namespace tervano::test {

// What differs between the file managers that load a module, here of GNOME Files.
struct Manager {
  static constexpr char kEntries[] = "nautilus_module_";
  // What may be loaded into the process with the module.
  static constexpr bool kDrawsWithGtk3 = false;
  static constexpr bool kDrawsIcons = false;

  using FileInfo = NautilusFileInfo;
  using FileInfoInterface = NautilusFileInfoInterface;
  static GType fileInfoType() { return NAUTILUS_TYPE_FILE_INFO; }

  static GList* fileItems(gpointer provider, GList* files) {
    return interfaceOf(provider)->get_file_items(NAUTILUS_MENU_PROVIDER(provider), files);
  }
  static GList* folderItems(gpointer provider, FileInfo* folder) {
    return interfaceOf(provider)->get_background_items(NAUTILUS_MENU_PROVIDER(provider), folder);
  }
  static GList* itemsOfSubmenu(gpointer menu) {
    return nautilus_menu_get_items(NAUTILUS_MENU(menu));
  }

 private:
  static NautilusMenuProviderInterface* interfaceOf(gpointer provider) {
    return NAUTILUS_MENU_PROVIDER_GET_IFACE(provider);
  }
};

}  // namespace tervano::test
