#pragma once

#include <string>
#include <utility>

#include "platform/error.h"

namespace tervano {

// Why the desktop could not do what it was asked; `sentence` is for a person.
inline Error workspaceError(std::string sentence) {
  return Error{"Workspace", 1, std::move(sentence)};
}

}  // namespace tervano
