#pragma once

#include <gtk/gtk.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/glib_handles.h"

namespace tervano {

// What is selected in a view, read from the widgets themselves: for file managers that tell their
// extensions of a selection only when its context menu opens. Main thread.

// The widgets of a file manager that is looked into.
struct ViewTypes {
  // The name of the type of whatever shows the files of one folder.
  const char* view;
  // What the first column of a list of files holds.
  GType file;
};

// What is selected. A list knows its files; of icons only their names are known, as they read.
struct ViewSelection {
  std::vector<GObjectPtr<GObject>> files;
  std::vector<std::string> names;
};

// Of the view that stands beside the widget: the only one in the nearest container around both. Nil
// without one, when there are several, and when it keeps its files in a way that is not known. A
// name that several icons have is empty.
std::optional<ViewSelection> selectionBeside(GtkWidget* widget, const ViewTypes& types);

}  // namespace tervano
