#pragma once

#include <exception>
#include <string>

#include "platform/log.h"

namespace tervano {

// Runs `call` where no exception may pass, such as a C library's callback; an exception is logged
// with `place` and dropped. Answers whether none was thrown.
template <typename Call>
bool guarded(const char* place, Call&& call) noexcept {
  try {
    call();
    return true;
  } catch (const std::exception& exception) {
    log(std::string("Uncaught exception in ") + place + ": " + exception.what());
  } catch (...) {
    log(std::string("Uncaught exception in ") + place);
  }
  return false;
}

}  // namespace tervano
