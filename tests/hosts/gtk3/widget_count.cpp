#include "tests/hosts/gtk3/widget_count.h"

#include <initializer_list>

namespace tervano::test {

namespace {

// Of the current count; null without one.
GHashTable* counted = nullptr;
// What the types did before they were counted.
GHashTable* originals = nullptr;

void widgetGone(gpointer living, GObject* object) {
  g_hash_table_remove(static_cast<GHashTable*>(living), object);
}

}  // namespace

WidgetCount::WidgetCount() {
  counted = living_;
  if (originals != nullptr) return;
  originals = g_hash_table_new(nullptr, nullptr);
  for (const GType type : {GTK_TYPE_MENU, GTK_TYPE_MENU_ITEM, GTK_TYPE_BUTTON, GTK_TYPE_LABEL,
                           GTK_TYPE_IMAGE, GTK_TYPE_BOX}) {
    auto* const objectClass = static_cast<GObjectClass*>(g_type_class_ref(type));
    g_hash_table_insert(originals, GSIZE_TO_POINTER(type),
                        reinterpret_cast<gpointer>(objectClass->constructed));
    objectClass->constructed = constructed;
  }
}

WidgetCount::~WidgetCount() {
  counted = nullptr;
  GHashTableIter all;
  gpointer object = nullptr;
  g_hash_table_iter_init(&all, living_);
  while (g_hash_table_iter_next(&all, &object, nullptr) != FALSE) {
    g_object_weak_unref(static_cast<GObject*>(object), widgetGone, living_);
  }
  g_hash_table_destroy(living_);
}

void WidgetCount::constructed(GObject* object) {
  // A derived type has copied the function.
  gpointer original = nullptr;
  for (GType type = G_OBJECT_TYPE(object); original == nullptr; type = g_type_parent(type)) {
    original = g_hash_table_lookup(originals, GSIZE_TO_POINTER(type));
  }
  reinterpret_cast<void (*)(GObject*)>(original)(object);
  if (counted == nullptr || g_hash_table_add(counted, object) == FALSE) return;
  g_object_weak_ref(object, widgetGone, counted);
}

}  // namespace tervano::test
