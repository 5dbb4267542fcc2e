#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <optional>
#include <string>

#include "archive/value.h"
#include "platform/linux/descriptor.h"

namespace tervano {

// Opens a regular file for reading, `path` being relative to the open folder `folder`. Follows
// symbolic links and never waits for a pipe or a device. An empty descriptor with errno set:
// EINVAL for what is no regular file.
Descriptor openRegularFile(const std::string& path, int folder = AT_FDCWD);

// The bytes of an open regular file from its beginning; nil with errno set, EFBIG for a file of
// more than `limit` bytes.
std::optional<Data> contentsOfOpenFile(int file, off_t limit);

// The bytes of the regular file at that path; nil with errno set as above.
std::optional<Data> contentsOfRegularFile(const std::string& path, off_t limit,
                                          int folder = AT_FDCWD);

}  // namespace tervano
