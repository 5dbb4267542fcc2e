#pragma once

#include <string>

namespace tervano {

// Whether `path` names the item at `item` itself or something inside it, however the two are
// spelled: links and ".." in the folders above are followed, a link as the last component is not.
// A second hard link to a file is another item. False when `item` does not exist. Blocking; any
// thread.
bool itemContainsPath(const std::string& item, const std::string& path);

}  // namespace tervano
