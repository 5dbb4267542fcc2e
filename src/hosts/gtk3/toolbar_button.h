#pragma once

#include <gtk/gtk.h>

#include <optional>
#include <string>

#include "hosts/common/host_extension.h"

namespace tervano {

// The toolbar menu for file managers that draw with GTK 3: a popup menu of its own, since their
// toolbar items have none. Main thread.

// Where a toolbar menu is opened. The window and the button may be null.
struct ToolbarPlace {
  // Of the folder whose files are shown there.
  std::string folderURI;
  GtkWidget* window = nullptr;
  // Null for an item of the toolbar itself.
  GtkWidget* button = nullptr;
};

// Tells what is selected at that place, at the moment when its menu is opened; nil when nothing is,
// or when that is not known: then the menu acts on the folder.
using SelectionAt = std::optional<SelectedItems> (*)(const ToolbarPlace& place);

// For a selection of which it is not known what it is: no action fits it.
SelectedItems unknownSelection();

// Makes the "activate" signal of `item` open the menu for what is selected in the window, else for
// the folder.
void popUpToolbarMenuOn(GObject* item, const HostExtension& extension, const char* folderURI,
                        GtkWidget* window, SelectionAt selectionAt);

// A button with that menu, to stand above the files of the folder; visible while the user wants
// one. A floating reference; `window` may be null.
GtkWidget* newToolbarButton(HostExtension& extension, const char* folderURI, GtkWidget* window,
                            SelectionAt selectionAt);

// Whether another button is shown in the same window for the same folder.
bool hasTwin(GtkWidget* button);

}  // namespace tervano
