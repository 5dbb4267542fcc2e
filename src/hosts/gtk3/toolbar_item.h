#pragma once

#include <gtk/gtk.h>

#include "hosts/common/host_extension.h"

namespace tervano {

// From now on shows and hides, as the user wants it, what the file manager has made of the item of
// that name in the toolbars of the window: it asks for items when another folder is shown, and
// keeps them until then. Nothing for null, or for a window that is known. Main thread.
void followToolbarItem(HostExtension& extension, GtkWidget* window, const char* itemName);

}  // namespace tervano
