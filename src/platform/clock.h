#pragma once

#include <cstdint>

namespace tervano {

// The wall clock. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  // Seconds since 1970-01-01 00:00:00 UTC.
  virtual std::int64_t now() const = 0;
  // The same in nanoseconds.
  virtual std::int64_t nowInNanoseconds() const = 0;
};

class ForwardingClock : public Clock {
 public:
  explicit ForwardingClock(Clock& real) : real_(real) {}
  std::int64_t now() const override { return real_.now(); }
  std::int64_t nowInNanoseconds() const override { return real_.nowInNanoseconds(); }

 private:
  Clock& real_;
};

}  // namespace tervano
