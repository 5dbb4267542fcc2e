#pragma once

#include <string>

#include "platform/linux/descriptor.h"

namespace tervano {

// Opens a regular file for reading; symbolic links are followed. Anything else, such as a pipe, a
// device or a folder, is refused without being opened. An empty descriptor, with the end of a
// sentence in `reason`, on failure.
Descriptor openPictureFile(const std::string& path, std::string& reason);

}  // namespace tervano
