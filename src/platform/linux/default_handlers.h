#pragma once

#include <optional>
#include <string>

#include "archive/url.h"

namespace tervano {

// The desktop's choices among the installed applications (MIME Applications Associations
// Specification), each answered as the path of a desktop entry; nil when there is none. Reads the
// desktop's tables; any thread.

// By the URL's scheme, without regard to case; for a file by its type.
std::optional<std::string> handlerEntryOfURL(const Url& url);
// By a MIME type, such as "inode/directory".
std::optional<std::string> handlerEntryOfType(const std::string& type);
// The installed application with that desktop-file id, ".desktop" or not.
std::optional<std::string> entryWithIdentifier(const std::string& identifier);

}  // namespace tervano
