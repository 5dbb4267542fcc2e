#pragma once

#include <string>
#include <string_view>

namespace tervano {

// A title as the label of a menu: valid UTF-8, on one line, and with `mnemonic` doubled, the
// character of the toolkit (GTK's by default) that would underline the next letter.
std::string menuLabel(std::string_view title, char mnemonic = '_');

// The label with invisible characters behind it, by which it differs from every other one that this
// process was given. Main thread.
std::string distinctLabel(std::string_view label);

}  // namespace tervano
