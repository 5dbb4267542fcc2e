#pragma once

#include <gtk/gtk.h>

#include "hosts/common/host_extension.h"

namespace tervano {

// The toolbar menu for file managers that draw with GTK 3: a popup menu of its own, since their
// toolbar items have none. Main thread.

// Keeps what is selected in a window, as the file manager tells it at every change.
void rememberSelection(GtkWidget* window, SelectedItems selection);

// Makes the "activate" signal of `item` open the menu for what is selected in the window, else for
// `folder`.
void popUpToolbarMenuOn(GObject* item, const HostExtension& extension, SelectedItem folder,
                        GtkWidget* window);

// A button with that menu, to stand above the files of the folder `uri`; visible while the user
// wants one. A floating reference; `window` may be null.
GtkWidget* newToolbarButton(HostExtension& extension, const char* uri, GtkWidget* window);

}  // namespace tervano
