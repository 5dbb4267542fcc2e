#include "hosts/gtk3/toolbar_button.h"

#include <set>

#include "hosts/common/host_menu.h"
#include "hosts/common/menu_text.h"
#include "platform/linux/glib_handles.h"
#include "platform/linux/guard.h"

namespace tervano {

namespace {

constexpr char kSelectionKey[] = "tervano-selection";

SelectedItems selectionOf(GtkWidget* window, const SelectedItem& folder) {
  const auto* const selection =
      window == nullptr
          ? nullptr
          : static_cast<SelectedItems*>(g_object_get_data(G_OBJECT(window), kSelectionKey));
  if (selection != nullptr && !selection->empty()) return *selection;
  return {folder};
}

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

GtkWidget* newMenu(const HostExtension& extension, const Menu& menu);

GtkWidget* newMenuItem(const HostExtension& extension, const MenuItem& item) {
  GtkWidget* const made = gtk_menu_item_new();
  GtkWidget* const row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  if (const std::string icon = extension.iconPathOf(item.image); !icon.empty()) {
    const GObjectPtr<GFile> file(g_file_new_for_path(icon.c_str()));
    const GObjectPtr<GIcon> image(g_file_icon_new(file.get()));
    gtk_container_add(GTK_CONTAINER(row),
                      gtk_image_new_from_gicon(image.get(), GTK_ICON_SIZE_MENU));
  }
  GtkWidget* const label = gtk_label_new_with_mnemonic(menuLabel(item.title).c_str());
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_box_pack_end(GTK_BOX(row), label, TRUE, TRUE, 0);
  gtk_container_add(GTK_CONTAINER(made), row);
  gtk_widget_set_sensitive(made, item.enabled ? TRUE : FALSE);
  if (item.submenu != nullptr) {
    gtk_menu_item_set_submenu(GTK_MENU_ITEM(made), newMenu(extension, *item.submenu));
  } else if (item.action) {
    g_signal_connect_data(made, "activate", G_CALLBACK(chosen), new Choice{&extension, item},
                          freeChoice, static_cast<GConnectFlags>(0));
  }
  return made;
}

GtkWidget* newMenu(const HostExtension& extension, const Menu& menu) {
  GtkWidget* const made = gtk_menu_new();
  // No entry has a mark to tick.
  gtk_menu_set_reserve_toggle_size(GTK_MENU(made), FALSE);
  for (const auto& item : menu.items) {
    gtk_menu_shell_append(GTK_MENU_SHELL(made), newMenuItem(extension, item));
  }
  gtk_widget_show_all(made);
  return made;
}

struct Opener {
  const HostExtension* extension;
  SelectedItem folder;
  GtkWidget* window;

  ~Opener() {
    if (window != nullptr) {
      g_object_remove_weak_pointer(G_OBJECT(window), reinterpret_cast<gpointer*>(&window));
    }
  }
};

Opener* newOpener(const HostExtension& extension, SelectedItem folder, GtkWidget* window) {
  auto* const opener = new Opener{&extension, std::move(folder), window};
  if (window != nullptr) {
    g_object_add_weak_pointer(G_OBJECT(window), reinterpret_cast<gpointer*>(&opener->window));
  }
  return opener;
}

void freeOpener(gpointer data, GClosure* /*closure*/) {
  delete static_cast<Opener*>(data);
}

// Opens the menu below `widget`; without one at the pointer, or in the window when no pointer but a
// screen reader chose it.
void popUp(const Opener& opener, GtkWidget* widget) {
  const Menu menu = opener.extension->toolbarMenu(selectionOf(opener.window, opener.folder));
  GtkWidget* const popup = newMenu(*opener.extension, menu);
  // Menus of plain buttons are hidden from screen readers, those of windows are not.
  GtkWidget* const owner = widget != nullptr ? gtk_widget_get_toplevel(widget) : opener.window;
  if (owner != nullptr) gtk_menu_attach_to_widget(GTK_MENU(popup), owner, nullptr);
  g_signal_connect(popup, "selection-done", G_CALLBACK(gtk_widget_destroy), nullptr);
  if (widget != nullptr) {
    gtk_menu_popup_at_widget(GTK_MENU(popup), widget, GDK_GRAVITY_SOUTH_WEST,
                             GDK_GRAVITY_NORTH_WEST, nullptr);
    return;
  }
  GdkEvent* const event = gtk_get_current_event();
  if (event != nullptr || owner == nullptr) {
    gtk_menu_popup_at_pointer(GTK_MENU(popup), event);
  } else {
    gtk_menu_popup_at_widget(GTK_MENU(popup), owner, GDK_GRAVITY_NORTH_EAST, GDK_GRAVITY_NORTH_EAST,
                             nullptr);
  }
  if (event != nullptr) gdk_event_free(event);
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

 private:
  static void show(GtkWidget* button, const HostExtension& extension) {
    if (const std::string icon = extension.iconPathOf(extension.toolbarImage()); !icon.empty()) {
      const GObjectPtr<GFile> file(g_file_new_for_path(icon.c_str()));
      const GObjectPtr<GIcon> image(g_file_icon_new(file.get()));
      gtk_button_set_image(GTK_BUTTON(button),
                           gtk_image_new_from_gicon(image.get(), GTK_ICON_SIZE_MENU));
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

  std::set<GtkWidget*> buttons_;
};

}  // namespace

void rememberSelection(GtkWidget* window, SelectedItems selection) {
  if (window == nullptr) return;
  g_object_set_data_full(G_OBJECT(window), kSelectionKey, new SelectedItems(std::move(selection)),
                         [](gpointer data) { delete static_cast<SelectedItems*>(data); });
}

void popUpToolbarMenuOn(GObject* item, const HostExtension& extension, SelectedItem folder,
                        GtkWidget* window) {
  g_signal_connect_data(item, "activate", G_CALLBACK(itemActivated),
                        newOpener(extension, std::move(folder), window), freeOpener,
                        static_cast<GConnectFlags>(0));
}

GtkWidget* newToolbarButton(HostExtension& extension, const char* uri, GtkWidget* window) {
  static auto& buttons = *new Buttons(extension);
  const FinderSync& finderSync = extension.finderSync();
  GtkWidget* const button = gtk_button_new_with_label(finderSync.toolbarItemName().c_str());
  gtk_widget_set_tooltip_text(button, finderSync.toolbarItemToolTip().c_str());
  gtk_button_set_relief(GTK_BUTTON(button), GTK_RELIEF_NONE);
  gtk_widget_set_halign(button, GTK_ALIGN_END);
  const GObjectPtr<GFile> location(g_file_new_for_uri(uri == nullptr ? "" : uri));
  const GCharPtr path = localPathOf(location.get());
  SelectedItem folder{path == nullptr ? Url("about:blank") : Url::fileURLWithPath(path.get(), true),
                      true};
  g_signal_connect_data(button, "clicked", G_CALLBACK(buttonClicked),
                        newOpener(extension, std::move(folder), window), freeOpener,
                        static_cast<GConnectFlags>(0));
  gtk_widget_set_no_show_all(button, TRUE);
  buttons.add(button, extension);
  return button;
}

}  // namespace tervano
