#pragma once

#include "platform/clock.h"

namespace tervano {

// The system's wall clock.
class SystemClock : public Clock {
 public:
  std::int64_t now() const override;
  std::int64_t nowInNanoseconds() const override;
};

}  // namespace tervano
