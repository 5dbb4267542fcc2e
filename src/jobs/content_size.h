#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "jobs/work_monitor.h"

namespace tervano {

// The size of the contents of all files in and below the paths, links not followed; what cannot be
// read counts nothing. Stops counting when cancelled. Blocking; any thread.
std::uint64_t contentSizeOf(const std::vector<std::string>& paths, const CancelToken& cancel);
// The same of the room that the files take on their disks.
std::uint64_t allocatedSizeOf(const std::vector<std::string>& paths, const CancelToken& cancel);

}  // namespace tervano
