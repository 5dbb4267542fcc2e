#pragma once

#include <string>

#include "archive/value.h"

namespace tervano {

// The text of a chunk that a tool wrote, for a log line; "(null)" when it is no valid UTF-8. Any
// thread.
std::string chunkText(const Data& chunk);

}  // namespace tervano
