#pragma once

#include <optional>
#include <string>

#include "platform/linux/appimages/squashfs_entries.h"

namespace tervano {

// The identifier of the AppImage at that path: the name of the one desktop entry at the top of its
// file system (AppImage specification, type 2: an ELF program with a squashfs behind it), else the
// id of a desktop entry of the user's own whose command line names the file. Nothing is run.
//
// Nil for what is no executable AppImage of either type, and when neither place tells. `entries`
// reads the file system; null when that cannot be done here. Any thread.
std::optional<std::string> identifierOfAppImage(const std::string& path, SquashfsEntries* entries);

}  // namespace tervano
