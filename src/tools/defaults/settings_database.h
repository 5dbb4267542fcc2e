#pragma once

#include <dconf.h>
#include <gio/gio.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/glib_handles.h"

namespace tervano {

// Values by their absolute keys, such as "/org/gnome/gedit/state/window/size".
using Settings = std::map<std::string, GVariantPtr>;

// The desktop's settings database, dconf. Reading needs no service; changing needs the session bus.
// Blocking.
class SettingsDatabase {
 public:
  SettingsDatabase();

  // What programs of this session keep their settings in, when that is not dconf.
  static std::optional<std::string> otherBackend();

  // The value that the user set, locked or not; null when the user set none.
  GVariantPtr userValue(const std::string& key) const;
  bool isWritable(const std::string& key) const;
  // The names right below a folder, which begins and ends with "/"; those of folders end with "/".
  std::vector<std::string> contentsOf(const std::string& folder) const;

  // Connects to the session bus and has the service started there. Nil for success, else why
  // nothing can be changed.
  std::optional<std::string> reachService();

  // Sets every value or resets every key, all in one step that is done when this answers. Nil for
  // success, else why it was not done or does not last.
  std::optional<std::string> set(const Settings& settings);
  std::optional<std::string> reset(const Settings& settings);

 private:
  std::optional<std::string> change(const Settings& settings, bool toValues);

  GObjectPtr<DConfClient> client_;
  GObjectPtr<GDBusConnection> bus_;
};

}  // namespace tervano
