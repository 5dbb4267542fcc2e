#pragma once

#include <string_view>

namespace tervano {

// Whether an item of a folder can have the name: it is not empty, "." or "..", and holds neither a
// slash nor a NUL. Nothing is looked up. Any thread.
bool isFileName(std::string_view name);

}  // namespace tervano
