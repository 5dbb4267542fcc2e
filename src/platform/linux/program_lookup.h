#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tervano {

// The absolute path of the first program of that name in PATH that we may execute; without PATH in
// the usual folders. Relative folders of PATH are left out. Nil when there is none. Any thread.
std::optional<std::string> programInPath(std::string_view name);

}  // namespace tervano
