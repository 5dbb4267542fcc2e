#pragma once

#include <optional>
#include <string>

#include "platform/error.h"

namespace tervano {

// Moves an item to the user's trash, from where every file manager can put it back; an error says
// why it stayed where it is, as on a disk without a trash. Links are not followed. Blocking; any
// thread.
std::optional<Error> moveToTrash(const std::string& path);

}  // namespace tervano
