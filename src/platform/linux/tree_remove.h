#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/error.h"

namespace tervano {

// Answers why an item must stay, given its status and path, or nil when it may go. Asked for
// everything but folders.
using RemovalFilter =
    std::function<std::optional<Error>(const struct stat& status, const std::string& path)>;

// Removes the item `name` of the open folder `parent`, a folder with all its contents. Links are
// removed, never followed; what is mounted inside is never touched (EBUSY). Trees of any depth,
// with a bounded number of descriptors. Stops at the first failure, which names the item: `path` is
// what messages call the item. What somebody else removes meanwhile is no failure.
std::optional<Error> removeTree(int parent, const std::string& name, const std::string& path,
                                const RemovalFilter& filter = nullptr);

// The same for what is our own work and not the user's, whatever the modes it has got: folders of
// this user that are closed to their owner are opened for it first.
std::optional<Error> removeOwnTree(int parent, const std::string& name, const std::string& path);

}  // namespace tervano
