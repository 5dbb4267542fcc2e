#include "platform/linux/system_clock.h"

#include <ctime>

namespace tervano {

std::int64_t SystemClock::now() const {
  return static_cast<std::int64_t>(std::time(nullptr));
}

}  // namespace tervano
