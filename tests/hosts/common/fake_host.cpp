#include "tests/hosts/common/fake_host.h"

namespace tervano::test {

namespace {

GType itemType() {
  static const GType type = [] {
    const GType made = g_type_register_static_simple(G_TYPE_OBJECT, "TervanoFakeItem",
                                                     sizeof(GObjectClass), nullptr, sizeof(GObject),
                                                     nullptr, static_cast<GTypeFlags>(0));
    g_signal_new("activate", made, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
    return made;
  }();
  return type;
}

void keepText(GObject* object, const char* key, const char* text) {
  g_object_set_data_full(object, key, g_strdup(text), g_free);
}

GPtrArray* arrayOf(GObject* submenu) {
  return static_cast<GPtrArray*>(g_object_get_data(submenu, "members"));
}

}  // namespace

GObject* newFakeItem(const char* name, const char* label, const char* iconPath) {
  auto* const item = static_cast<GObject*>(g_object_new(itemType(), nullptr));
  keepText(item, "name", name);
  keepText(item, "label", label);
  keepText(item, "icon", iconPath);
  return item;
}

GObject* newFakeSubmenu(bool letsGo) {
  auto* const submenu = static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr));
  GPtrArray* const members = g_ptr_array_new_with_free_func(letsGo ? g_object_unref : nullptr);
  g_object_set_data_full(submenu, "members", members,
                         [](gpointer array) { g_ptr_array_unref(static_cast<GPtrArray*>(array)); });
  return submenu;
}

void appendToFakeSubmenu(GObject* submenu, GObject* item) {
  g_ptr_array_add(arrayOf(submenu), g_object_ref(item));
}

std::vector<GObjectPtr<GObject>> membersOfFake(GObject* submenu) {
  std::vector<GObjectPtr<GObject>> members;
  const GPtrArray* const array = arrayOf(submenu);
  for (guint i = 0; i < array->len; ++i) {
    members.emplace_back(static_cast<GObject*>(g_object_ref(array->pdata[i])));
  }
  return members;
}

GObject* newFakeFile(GFile* location, bool isDirectory, const char* targetURI) {
  auto* const file = static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr));
  if (location != nullptr) g_object_set_data_full(file, "location", location, g_object_unref);
  if (isDirectory) g_object_set_data(file, "folder", file);
  keepText(file, "target", targetURI);
  return file;
}

}  // namespace tervano::test
