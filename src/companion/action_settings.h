#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "companion/arguments.h"
#include "model/tv_action.h"

namespace tervano {

// The options of `add` and `set` that set something of an action, without their hyphens: those that
// fit every action, and all.
const std::set<std::string>& commonSettings();
const std::set<std::string>& allSettings();
// Spelling and meaning of a setting.
std::pair<std::string, std::string> helpOfSetting(const std::string& setting);

// Applies every setting that is given. Throws UsageError for a value that cannot be, and for a
// setting that this kind of action does not have. Notes on standard error tell what is worth
// knowing, such as a folder that does not exist yet.
void applySettings(TVAction& action, const Arguments& arguments);

// The title of an action that was given none, from what it was told to do: the name of its folder,
// application, template or format. Nil where the class has a title of its own or nothing is known.
std::optional<std::string> titleFromSettings(const TVAction& action);

// The extension that files of an image format usually have: "jpg" for "jpeg".
std::string usualExtensionOfFormat(const std::string& format);

}  // namespace tervano
