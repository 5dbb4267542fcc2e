#pragma once

#include <string>
#include <string_view>

namespace tervano {

// Text for a terminal or one line of output: control characters, those that turn the direction
// of writing included, and bytes that are no UTF-8 shown escaped.
std::string printable(std::string_view text);

}  // namespace tervano
