#pragma once

#include <optional>
#include <string>
#include <vector>

#include "archive/url.h"
#include "companion/file_work.h"

namespace tervano {

// Copies files and folders into a folder as a move would move them: the same names, the same rule
// for what is in the way, the same preferences, notification and showing at the end. What is
// replaced stays until its replacement is whole; what the run itself has copied, or is to copy, is
// never replaced. A failure ends the run and is logged and notified with its reason and how many
// items were copied before, which stay. A destination that is not there or cannot be
// written to is a failure without a reason, which is neither logged nor notified.
//
// Answers at once; the work is done on a queue of its own, and `finished` is called once, on the
// main queue.
void copyFiles(const std::optional<Url>& destination, const std::vector<std::string>& paths,
               const WorkMonitor& monitor, FileWorkEnd finished);

}  // namespace tervano
