#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tervano {

// What the user has set in other programs. Read anew at each call; nothing is written. Main thread.

// The texts in a list of GSettings; empty when nobody has installed that schema, or it has no list
// of that name.
std::vector<std::string> settingsList(const std::string& schema, const std::string& key);

// The value in a group of the user's file of that name in $XDG_CONFIG_HOME, as programs of KDE have
// them. Nil when it does not say, or cannot be read.
std::optional<std::string> configFileValue(const std::string& name, const std::string& group,
                                           const std::string& key);

}  // namespace tervano
