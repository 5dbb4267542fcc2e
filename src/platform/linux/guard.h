#pragma once

#include <exception>
#include <string>

#include "platform/log.h"

namespace tervano {

// Logs an exception that was caught in `place`; drops it when there is no memory even for that.
inline void logUncaught(const char* place, const char* what) noexcept {
  try {
    log(std::string("Uncaught exception in ") + place + (*what == '\0' ? "" : ": ") + what);
  } catch (...) {
  }
}

// Runs `call` where no exception may pass, such as a C library's callback; an exception is logged
// with `place` and dropped. Answers whether none was thrown.
template <typename Call>
bool guarded(const char* place, Call&& call) noexcept {
  try {
    call();
    return true;
  } catch (const std::exception& exception) {
    logUncaught(place, exception.what());
  } catch (...) {
    logUncaught(place, "");
  }
  return false;
}

}  // namespace tervano
