#pragma once

#include <gtk/gtk.h>

#include <memory>

namespace tervano {

struct DestroyWidget {
  void operator()(GtkWidget* widget) const {
    gtk_widget_destroy(widget);
    g_object_unref(widget);
  }
};
// A widget until it has found its place: without one it is destroyed.
using NewWidget = std::unique_ptr<GtkWidget, DestroyWidget>;

inline NewWidget newWidget(GtkWidget* floating) {
  return NewWidget(static_cast<GtkWidget*>(g_object_ref_sink(floating)));
}

// The widget belongs to whoever took a reference of it.
inline void handOver(NewWidget widget) {
  g_object_unref(widget.release());
}

}  // namespace tervano
