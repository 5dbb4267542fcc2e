#pragma once

#include <gtk/gtk.h>

namespace tervano::test {

// Counts the menus, entries, buttons, labels, images and boxes that are made from its constructor
// on and not yet gone. One at a time. Main thread.
class WidgetCount {
 public:
  WidgetCount();
  WidgetCount(const WidgetCount&) = delete;
  WidgetCount& operator=(const WidgetCount&) = delete;
  ~WidgetCount();

  int living() const { return static_cast<int>(g_hash_table_size(living_)); }

 private:
  static void constructed(GObject* object);

  // No memory that a test could refuse.
  GHashTable* const living_ = g_hash_table_new(nullptr, nullptr);
};

}  // namespace tervano::test
