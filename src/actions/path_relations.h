#pragma once

#include <optional>
#include <string>

#include "platform/error.h"

namespace tervano {

// Whether `path` names the item at `item` itself or something inside it, however the two are
// spelled: links and ".." in the folders above are followed, a link as the last component is not.
// A second hard link to a file is another item. False when `item` does not exist. Blocking; any
// thread.
bool itemContainsPath(const std::string& item, const std::string& path);

// Why the item at `target`, which exists, may not be removed to make room in the folder
// `destination` for `source`, which exists too: either is or holds the other, or the target holds
// the folder, so that removing it would lose what is to come. Nil when it may. Blocking; any
// thread.
std::optional<Error> reasonNotToReplace(const std::string& target, const std::string& source,
                                        const std::string& destination);

}  // namespace tervano
