#include "platform/linux/trash.h"

#include <gio/gio.h>

#include "platform/linux/glib_handles.h"

namespace tervano {

std::optional<Error> moveToTrash(const std::string& path) {
  const GObjectPtr<GFile> file(g_file_new_for_path(path.c_str()));
  GError* raised = nullptr;
  if (g_file_trash(file.get(), nullptr, &raised) != FALSE) return std::nullopt;
  const GErrorPtr error(raised);
  return Error{"Trash", error->code, "Could not move " + path + " to the trash: " + error->message};
}

}  // namespace tervano
