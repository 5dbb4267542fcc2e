#pragma once

#include <map>
#include <string>

#include "platform/bundle.h"

namespace tervano {

// Which program of our own stands for each tool that the actions start by its path: the image tool,
// the defaults tool and the remove tool. Always ours, since another package may own a program of
// that path with another meaning.
std::map<std::string, std::string> toolTable(const Bundle& bundle);

}  // namespace tervano
