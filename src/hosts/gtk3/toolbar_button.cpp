#include "hosts/gtk3/toolbar_button.h"

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include "hosts/common/host_menu.h"
#include "hosts/common/menu_text.h"
#include "hosts/gtk3/new_widget.h"
#include "platform/linux/glib_handles.h"
#include "platform/linux/guard.h"

namespace tervano {

namespace {

constexpr char kFolderKey[] = "tervano-folder";

struct Choice {
  const HostExtension* extension;
  MenuItem item;
};

void chosen(GtkMenuItem* /*item*/, gpointer data) {
  guarded("a choice", [data] {
    const auto* choice = static_cast<const Choice*>(data);
    choice->extension->choose(choice->item);
  });
}

void freeChoice(gpointer data, GClosure* /*closure*/) {
  delete static_cast<Choice*>(data);
}

NewWidget newMenu(const HostExtension& extension, const Menu& menu);

// Null for an image without a file.
GtkWidget* newImage(const HostExtension& extension, const ImagePtr& image) {
  const std::string path = extension.iconPathOf(image);
  if (path.empty()) return nullptr;
  const GObjectPtr<GFile> file(g_file_new_for_path(path.c_str()));
  const GObjectPtr<GIcon> icon(g_file_icon_new(file.get()));
  return gtk_image_new_from_gicon(icon.get(), GTK_ICON_SIZE_MENU);
}

NewWidget newMenuItem(const HostExtension& extension, const MenuItem& item) {
  NewWidget made = newWidget(gtk_menu_item_new());
  GtkWidget* const row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  gtk_container_add(GTK_CONTAINER(made.get()), row);
  if (GtkWidget* const image = newImage(extension, item.image); image != nullptr) {
    gtk_container_add(GTK_CONTAINER(row), image);
  }
  GtkWidget* const label = gtk_label_new_with_mnemonic(menuLabel(item.title).c_str());
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_box_pack_end(GTK_BOX(row), label, TRUE, TRUE, 0);
  gtk_widget_set_sensitive(made.get(), item.enabled ? TRUE : FALSE);
  if (item.submenu != nullptr) {
    NewWidget submenu = newMenu(extension, *item.submenu);
    gtk_menu_item_set_submenu(GTK_MENU_ITEM(made.get()), submenu.get());
    handOver(std::move(submenu));
  } else if (item.action) {
    g_signal_connect_data(made.get(), "activate", G_CALLBACK(chosen), new Choice{&extension, item},
                          freeChoice, static_cast<GConnectFlags>(0));
  }
  return made;
}

NewWidget newMenu(const HostExtension& extension, const Menu& menu) {
  NewWidget made = newWidget(gtk_menu_new());
  // No entry has a mark to tick.
  gtk_menu_set_reserve_toggle_size(GTK_MENU(made.get()), FALSE);
  for (const auto& item : menu.items) {
    NewWidget entry = newMenuItem(extension, item);
    gtk_menu_shell_append(GTK_MENU_SHELL(made.get()), entry.get());
    handOver(std::move(entry));
  }
  gtk_widget_show_all(made.get());
  return made;
}

// Where a menu is opened, of an item or a button that may outlive the window.
struct Opener {
  Opener(const HostExtension& hostExtension, const char* uri, GtkWidget* window,
         SelectionAt selection)
      : extension(hostExtension),
        place{uri == nullptr ? "" : uri, window, nullptr},
        selectionAt(selection) {
    if (window == nullptr) return;
    g_object_add_weak_pointer(G_OBJECT(window), reinterpret_cast<gpointer*>(&place.window));
  }
  Opener(const Opener&) = delete;
  Opener& operator=(const Opener&) = delete;
  ~Opener() {
    if (place.window == nullptr) return;
    g_object_remove_weak_pointer(G_OBJECT(place.window),
                                 reinterpret_cast<gpointer*>(&place.window));
  }

  SelectedItems selection(GtkWidget* button) const {
    auto selected = selectionAt({place.folderURI, place.window, button});
    if (selected && !selected->empty()) return std::move(*selected);
    const GCharPtr path = localPathOfURI(place.folderURI.c_str());
    if (path == nullptr) return unknownSelection();
    return {{Url::fileURLWithPath(path.get(), true), true}};
  }

  const HostExtension& extension;
  ToolbarPlace place;
  const SelectionAt selectionAt;
};

void freeOpener(gpointer data, GClosure* /*closure*/) {
  delete static_cast<Opener*>(data);
}

struct FreeEvent {
  void operator()(GdkEvent* event) const { gdk_event_free(event); }
};

// Opens the menu below `button`; without one at the pointer, or in the window when no pointer but a
// screen reader chose it.
void popUp(const Opener& opener, GtkWidget* button) {
  const Menu menu = opener.extension.toolbarMenu(opener.selection(button));
  NewWidget popup = newMenu(opener.extension, menu);
  // Menus of plain buttons are hidden from screen readers, those of windows are not.
  GtkWidget* const owner =
      button != nullptr ? gtk_widget_get_toplevel(button) : opener.place.window;
  if (owner != nullptr) gtk_menu_attach_to_widget(GTK_MENU(popup.get()), owner, nullptr);
  const std::unique_ptr<GdkEvent, FreeEvent> event(gtk_get_current_event());
  if (button != nullptr) {
    gtk_menu_popup_at_widget(GTK_MENU(popup.get()), button, GDK_GRAVITY_SOUTH_WEST,
                             GDK_GRAVITY_NORTH_WEST, nullptr);
  } else if (event != nullptr || owner == nullptr) {
    gtk_menu_popup_at_pointer(GTK_MENU(popup.get()), event.get());
  } else {
    gtk_menu_popup_at_widget(GTK_MENU(popup.get()), owner, GDK_GRAVITY_NORTH_EAST,
                             GDK_GRAVITY_NORTH_EAST, nullptr);
  }
  // Without the pointer, which another menu may hold, it does not open, and nothing will end it.
  if (gtk_widget_get_mapped(popup.get()) == FALSE) return;
  g_signal_connect(popup.get(), "selection-done", G_CALLBACK(gtk_widget_destroy), nullptr);
  handOver(std::move(popup));
}

void itemActivated(GObject* /*item*/, gpointer data) {
  guarded("the toolbar item", [data] { popUp(*static_cast<const Opener*>(data), nullptr); });
}

void buttonClicked(GtkButton* button, gpointer data) {
  guarded("the toolbar button",
          [&] { popUp(*static_cast<const Opener*>(data), GTK_WIDGET(button)); });
}

// The buttons of all windows, shown or hidden together.
class Buttons {
 public:
  explicit Buttons(HostExtension& extension) {
    extension.observeChanges([this, &extension] {
      for (auto* button : buttons_) show(button, extension);
    });
  }
  void add(GtkWidget* button, const HostExtension& extension) {
    buttons_.insert(button);
    g_signal_connect(button, "destroy", G_CALLBACK(destroyed), this);
    g_signal_connect(button, "parent-set", G_CALLBACK(parentSet), nullptr);
    show(button, extension);
  }
  bool hasTwin(GtkWidget* button) const {
    return std::any_of(buttons_.begin(), buttons_.end(), [button](GtkWidget* other) {
      return other != button && gtk_widget_get_mapped(other) != FALSE &&
             gtk_widget_get_toplevel(other) == gtk_widget_get_toplevel(button) &&
             g_strcmp0(folderOf(other), folderOf(button)) == 0;
    });
  }

 private:
  static void show(GtkWidget* button, const HostExtension& extension) {
    GtkWidget* const image = newImage(extension, extension.toolbarImage());
    if (image != nullptr) {
      gtk_button_set_image(GTK_BUTTON(button), image);
      gtk_button_set_always_show_image(GTK_BUTTON(button), TRUE);
    }
    gtk_widget_set_visible(button, extension.showsToolbarItem() ? TRUE : FALSE);
    if (GtkWidget* const strip = gtk_widget_get_parent(button); strip != nullptr) {
      gtk_widget_set_visible(strip, hasVisibleChild(strip) ? TRUE : FALSE);
    }
  }
  // The strip around the buttons of all extensions is empty space without any.
  static bool hasVisibleChild(GtkWidget* strip) {
    bool found = false;
    gtk_container_foreach(
        GTK_CONTAINER(strip),
        [](GtkWidget* child, gpointer result) {
          if (gtk_widget_get_visible(child) != FALSE) *static_cast<bool*>(result) = true;
        },
        &found);
    return found;
  }
  static void parentSet(GtkWidget* button, GtkWidget* /*former*/, gpointer /*data*/) {
    if (GtkWidget* const strip = gtk_widget_get_parent(button); strip != nullptr) {
      g_signal_connect_object(strip, "show", G_CALLBACK(stripShown), button,
                              static_cast<GConnectFlags>(0));
    }
  }
  static void stripShown(GtkWidget* strip, gpointer /*button*/) {
    if (!hasVisibleChild(strip)) gtk_widget_hide(strip);
  }
  static void destroyed(GtkWidget* button, gpointer buttons) {
    static_cast<Buttons*>(buttons)->buttons_.erase(button);
  }
  static const char* folderOf(GtkWidget* button) {
    return static_cast<const char*>(g_object_get_data(G_OBJECT(button), kFolderKey));
  }

  std::set<GtkWidget*> buttons_;
};

Buttons* allButtons = nullptr;

}  // namespace

SelectedItems unknownSelection() {
  return {{Url("about:blank"), std::nullopt}};
}

void popUpToolbarMenuOn(GObject* item, const HostExtension& extension, const char* folderURI,
                        GtkWidget* window, SelectionAt selectionAt) {
  g_signal_connect_data(item, "activate", G_CALLBACK(itemActivated),
                        new Opener(extension, folderURI, window, selectionAt), freeOpener,
                        static_cast<GConnectFlags>(0));
}

GtkWidget* newToolbarButton(HostExtension& extension, const char* folderURI, GtkWidget* window,
                            SelectionAt selectionAt) {
  if (allButtons == nullptr) allButtons = new Buttons(extension);
  const FinderSync& finderSync = extension.finderSync();
  NewWidget made = newWidget(gtk_button_new_with_label(finderSync.toolbarItemName().c_str()));
  GtkWidget* const button = made.get();
  gtk_widget_set_tooltip_text(button, finderSync.toolbarItemToolTip().c_str());
  gtk_button_set_relief(GTK_BUTTON(button), GTK_RELIEF_NONE);
  gtk_widget_set_halign(button, GTK_ALIGN_END);
  g_object_set_data_full(G_OBJECT(button), kFolderKey, g_strdup(folderURI), g_free);
  g_signal_connect_data(button, "clicked", G_CALLBACK(buttonClicked),
                        new Opener(extension, folderURI, window, selectionAt), freeOpener,
                        static_cast<GConnectFlags>(0));
  gtk_widget_set_no_show_all(button, TRUE);
  allButtons->add(button, extension);
  // What is answered belongs to nobody yet.
  g_object_force_floating(G_OBJECT(made.release()));
  return button;
}

bool hasTwin(GtkWidget* button) {
  return allButtons != nullptr && allButtons->hasTwin(button);
}

}  // namespace tervano
