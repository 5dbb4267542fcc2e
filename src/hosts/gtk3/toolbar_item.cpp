#include "hosts/gtk3/toolbar_item.h"

#include <set>
#include <string>

#include "platform/linux/glib_handles.h"

namespace tervano {

namespace {

// The action behind a tool button, which carries the item's name; null without one.
GObjectPtr<GObject> actionOf(GtkWidget* tool) {
  constexpr char kAction[] = "related-action";
  GObject* action = nullptr;
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(tool), kAction) != nullptr) {
    g_object_get(tool, kAction, &action, nullptr);
  }
  return GObjectPtr<GObject>(action);
}

struct Showing {
  const char* itemName;
  gboolean isShown;
};

void showIn(GtkWidget* widget, gpointer data) {
  const auto& showing = *static_cast<Showing*>(data);
  if (GTK_IS_TOOL_ITEM(widget)) {
    const auto action = actionOf(widget);
    if (action == nullptr) return;
    char* name = nullptr;
    g_object_get(action.get(), "name", &name, nullptr);
    const GCharPtr owned(name);
    if (g_strcmp0(name, showing.itemName) == 0) {
      g_object_set(action.get(), "visible", showing.isShown, nullptr);
    }
  } else if (GTK_IS_CONTAINER(widget)) {
    gtk_container_foreach(GTK_CONTAINER(widget), showIn, data);
  }
}

// The windows whose toolbars have had the item.
class Windows {
 public:
  Windows(HostExtension& extension, const char* itemName) : itemName_(itemName) {
    extension.observeChanges([this, &extension] {
      Showing showing{itemName_.c_str(), extension.showsToolbarItem() ? TRUE : FALSE};
      for (GtkWidget* const window : windows_) showIn(window, &showing);
    });
  }
  void add(GtkWidget* window) {
    if (!windows_.insert(window).second) return;
    g_signal_connect(window, "destroy", G_CALLBACK(windowDestroyed), this);
  }

 private:
  static void windowDestroyed(GtkWidget* window, gpointer windows) {
    static_cast<Windows*>(windows)->windows_.erase(window);
  }

  const std::string itemName_;
  std::set<GtkWidget*> windows_;
};

}  // namespace

void followToolbarItem(HostExtension& extension, GtkWidget* window, const char* itemName) {
  static auto& windows = *new Windows(extension, itemName);
  if (window != nullptr) windows.add(window);
}

}  // namespace tervano
