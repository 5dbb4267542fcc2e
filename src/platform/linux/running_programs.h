#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tervano {

// The processes of this user whose program file has that name. Any thread.
std::vector<pid_t> processesOfProgram(const std::string& name);

// Whether the process has a file of that name loaded that is still in its place. A file that was
// replaced since does not count. False for a process that cannot be looked at.
bool processHasLoaded(pid_t pid, const std::string& fileName);

// Whether the process has any file loaded that lies or lay in that folder itself.
bool processHasLoadedFrom(pid_t pid, const std::string& folder);

}  // namespace tervano
