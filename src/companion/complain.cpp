#include "companion/complain.h"

#include <iostream>

#include "archive/printable.h"

namespace tervano {

void complain(const std::string& message) {
  std::cerr << "tervano: " << printable(message) << (message.ends_with('.') ? "\n" : ".\n");
}

}  // namespace tervano
