#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "hosts/common/host_menu.h"
#include "platform/linux/glib_handles.h"

namespace tervano::test {

// A file manager's types, as small as they can be: plain objects that keep what they are given as
// data, an item with the signal that chooses it.
GObject* newFakeItem(const char* name, const char* label, const char* iconPath);
// With whether its end lets go of its members.
GObject* newFakeSubmenu(bool letsGo);
void appendToFakeSubmenu(GObject* submenu, GObject* item);
// Owns one reference of each.
std::vector<GObjectPtr<GObject>> membersOfFake(GObject* submenu);

// One file; takes the reference of `location`.
GObject* newFakeFile(GFile* location, bool isDirectory, const char* targetURI = nullptr);

// The trait that host_menu.h describes; its libraries differ in what they do to members of
// submenus, its drawing in labels.
template <bool letsGo, bool needsDistinctLabels>
struct AnyFakeHost {
  using FileInfo = GObject;
  using Item = GObject;
  using Submenu = GObject;
  static constexpr bool kNeedsDistinctLabels = needsDistinctLabels;
  static constexpr auto kIcons = HostExtension::Icons::files;

  static GFile* location(FileInfo* file) {
    auto* const location = static_cast<GFile*>(g_object_get_data(file, "location"));
    return location == nullptr ? nullptr : G_FILE(g_object_ref(location));
  }
  static char* targetURI(FileInfo* file) {
    return g_strdup(static_cast<const char*>(g_object_get_data(file, "target")));
  }
  static bool isDirectory(FileInfo* file) { return g_object_get_data(file, "folder") != nullptr; }
  static Item* newItem(const char* name, const char* label, const char* iconPath) {
    return newFakeItem(name, label, iconPath);
  }
  static void disable(Item* item) { g_object_set_data(item, "disabled", item); }
  static Submenu* newSubmenu() { return newFakeSubmenu(letsGo); }
  static void append(Submenu* menu, Item* item) { appendToFakeSubmenu(menu, item); }
  static void setSubmenu(Item* item, Submenu* menu) {
    g_object_set_data_full(item, "menu", g_object_ref(menu), g_object_unref);
  }
};
using FakeHost = AnyFakeHost<true, false>;
// As GNOME Files is.
using ForgetfulHost = AnyFakeHost<false, true>;

}  // namespace tervano::test
