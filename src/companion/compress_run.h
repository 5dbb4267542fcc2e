#pragma once

#include <optional>
#include <string>
#include <vector>

#include "companion/file_work.h"
#include "platform/linux/secret.h"

namespace tervano {

// Where the archive of a selection goes unless the name is taken: beside the first item, under the
// name of the only item, else of the folder, and ".zip".
std::string archivePathFor(const std::vector<std::string>& paths);

// Why no archive of that selection can be made, known before a password is asked for; nil when
// nothing stands in the way.
std::optional<Error> reasonNotToCompress(const std::vector<std::string>& paths);

// Packs the items into a new ZIP file under the password; see packZip for what it holds. The file
// grows under a hidden name that only its owner may read, and gets its own name, the next free one,
// when it is whole; nothing is ever replaced. A success is notified as the preferences say; after a
// failure or a stop nothing is left.
//
// Answers at once; the work is done on a queue of its own, and `finished` is called once, on the
// main queue.
void compressFiles(const std::vector<std::string>& paths, Secret password,
                   const WorkMonitor& monitor, FileWorkEnd finished);

}  // namespace tervano
