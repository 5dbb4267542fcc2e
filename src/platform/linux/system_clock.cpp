#include "platform/linux/system_clock.h"

#include <ctime>

namespace tervano {

std::int64_t SystemClock::now() const {
  return static_cast<std::int64_t>(std::time(nullptr));
}

std::int64_t SystemClock::nowInNanoseconds() const {
  constexpr std::int64_t kNanosecondsInSecond = 1'000'000'000;
  struct timespec time {};
  clock_gettime(CLOCK_REALTIME, &time);
  return std::int64_t{time.tv_sec} * kNanosecondsInSecond + time.tv_nsec;
}

}  // namespace tervano
