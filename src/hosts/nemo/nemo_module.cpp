// The module of Nemo: three exported functions, and behind them a provider of menus and of the
// toolbar button.

#include <gio/gio.h>
extern "C" {
#include <libnemo-extension/nemo-extension-types.h>
#include <libnemo-extension/nemo-file-info.h>
#include <libnemo-extension/nemo-location-widget-provider.h>
#include <libnemo-extension/nemo-menu-provider.h>
#include <libnemo-extension/nemo-menu.h>
#include <libnemo-extension/nemo-name-and-desc-provider.h>
}

#include "hosts/common/host_menu.h"
#include "hosts/common/host_observer.h"
#include "hosts/common/provider_type.h"
#include "hosts/gtk3/toolbar_button.h"
#include "hosts/gtk3/view_selection.h"

namespace tervano {

namespace {

struct NemoHost {
  using FileInfo = NemoFileInfo;
  using Item = NemoMenuItem;
  using Submenu = NemoMenu;
  static constexpr bool kNeedsDistinctLabels = false;
  static constexpr auto kIcons = HostExtension::Icons::files;

  static GFile* location(FileInfo* file) { return nemo_file_info_get_location(file); }
  static char* targetURI(FileInfo* file) { return nemo_file_info_get_activation_uri(file); }
  static bool isDirectory(FileInfo* file) { return nemo_file_info_is_directory(file) != FALSE; }
  static Item* newItem(const char* name, const char* label, const char* iconPath) {
    return nemo_menu_item_new(name, label, "", iconPath);
  }
  static void disable(Item* item) { g_object_set(item, "sensitive", FALSE, nullptr); }
  static Submenu* newSubmenu() { return nemo_menu_new(); }
  static void append(Submenu* menu, Item* item) { nemo_menu_append_item(menu, item); }
  static void setSubmenu(Item* item, Submenu* menu) { nemo_menu_item_set_submenu(item, menu); }
};

GType providerType = 0;

// The file that is shown by just that name in a folder of this machine, as far as the file manager
// has it in memory; null when there is none.
GObjectPtr<NemoFileInfo> fileNamed(const std::string& name, const char* folderPath) {
  if (name.empty() || name.find('/') != std::string::npos) return nullptr;
  const GObjectPtr<GFile> place(
      g_file_new_for_path((std::string(folderPath) + "/" + name).c_str()));
  GObjectPtr<NemoFileInfo> file(nemo_file_info_lookup(place.get()));
  if (file == nullptr) return nullptr;
  const GCharPtr shownName(nemo_file_info_get_string_attribute(file.get(), "name"));
  return g_strcmp0(shownName.get(), name.c_str()) == 0 ? std::move(file) : nullptr;
}

// The file manager tells of a selection only when its context menu opens, so the view is asked.
std::optional<SelectedItems> selectionAt(const ToolbarPlace& place) {
  if (place.button == nullptr) return std::nullopt;
  const auto selection = selectionBeside(place.button, {"NemoView", NEMO_TYPE_FILE_INFO});
  if (!selection) return std::nullopt;
  SelectedItems items;
  for (const auto& file : selection->files) {
    items.push_back(selectedItemOf<NemoHost>(reinterpret_cast<NemoFileInfo*>(file.get())));
  }
  if (selection->names.empty()) return items;
  const GCharPtr folderPath = localPathOfURI(place.folderURI.c_str());
  if (folderPath == nullptr) return unknownSelection();
  for (const std::string& name : selection->names) {
    const auto file = fileNamed(name, folderPath.get());
    // Some of what is selected would be another action than the user wants.
    if (file == nullptr) return unknownSelection();
    items.push_back(selectedItemOf<NemoHost>(file.get()));
  }
  return items;
}

GList* fileItems(NemoMenuProvider* /*provider*/, GtkWidget* /*window*/, GList* files) {
  return menuForFiles<NemoHost>(files);
}

GList* backgroundItems(NemoMenuProvider* /*provider*/, GtkWidget* /*window*/,
                       NemoFileInfo* folder) {
  return menuForBackground<NemoHost>(folder);
}

GtkWidget* locationWidget(NemoLocationWidgetProvider* /*provider*/, const char* uri,
                          GtkWidget* window) {
  GtkWidget* button = nullptr;
  guarded("the toolbar button", [&] {
    auto* const extension = HostExtension::shared(NemoHost::kIcons);
    if (extension != nullptr) button = newToolbarButton(*extension, uri, window, selectionAt);
  });
  return button;
}

void initMenus(gpointer interface, gpointer /*data*/) {
  auto* const provider = static_cast<NemoMenuProviderIface*>(interface);
  provider->get_file_items = fileItems;
  provider->get_background_items = backgroundItems;
}

void initLocationWidget(gpointer interface, gpointer /*data*/) {
  static_cast<NemoLocationWidgetProviderIface*>(interface)->get_widget = locationWidget;
}

// What the file manager's list of its extensions shows.
GList* nameAndDescription(NemoNameAndDescProvider* /*provider*/) {
  return g_list_append(nullptr, g_strdup("Tervano:::Your own actions in the context menu"));
}

void initNames(gpointer interface, gpointer /*data*/) {
  static_cast<NemoNameAndDescProviderInterface*>(interface)->get_name_and_desc = nameAndDescription;
}

// The file manager keeps its menus until it is told that others are due.
void initProvider(GTypeInstance* instance, gpointer /*class*/) {
  updateOnChanges(reinterpret_cast<GObject*>(instance), NemoHost::kIcons, [](GObject* provider) {
    nemo_menu_provider_emit_items_updated_signal(NEMO_MENU_PROVIDER(provider));
  });
}

void registerProvider(GTypeModule* module) {
  const GInterfaceInfo menus{initMenus, nullptr, nullptr};
  const GInterfaceInfo locationWidgets{initLocationWidget, nullptr, nullptr};
  providerType = registerMenuProvider(module, initProvider);
  g_type_module_add_interface(module, providerType, NEMO_TYPE_MENU_PROVIDER, &menus);
  g_type_module_add_interface(module, providerType, NEMO_TYPE_LOCATION_WIDGET_PROVIDER,
                              &locationWidgets);
  const GInterfaceInfo names{initNames, nullptr, nullptr};
  g_type_module_add_interface(module, providerType, NEMO_TYPE_NAME_AND_DESC_PROVIDER, &names);
}

}  // namespace

}  // namespace tervano

extern "C" {

__attribute__((visibility("default"))) void nemo_module_initialize(GTypeModule* module) {
  tervano::registerProvider(module);
}

__attribute__((visibility("default"))) void nemo_module_shutdown() {}

__attribute__((visibility("default"))) void nemo_module_list_types(const GType** types,
                                                                   int* count) {
  *types = &tervano::providerType;
  *count = 1;
}
}
