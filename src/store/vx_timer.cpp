#include "store/vx_timer.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <utility>

#include "platform/platform.h"
#include "store/value_text.h"

namespace tervano {
namespace {

// As printf's %f in the C locale, whatever the process's locale is.
std::string fixedText(double number) {
  std::array<char, std::numeric_limits<double>::max_exponent10 + 16> text{};
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, 6);
  return {text.data(), end.ptr};
}

}  // namespace

VXTimer::~VXTimer() {
  invalidate();
}

std::string VXTimer::description() const {
  std::array<char, 2 + 2 * sizeof(void*) + 1> address{};
  std::snprintf(address.data(), address.size(), "%p", static_cast<const void*>(this));
  return std::string("<VXTimer ") + address.data() + ", interval=" + fixedText(interval_) +
         ", repeats=" + (repeats_ ? "YES" : "NO") + ", userInfo=" + textOfValue(userInfo_) + ">";
}

void VXTimer::run() {
  invalidateTimerOnly();
  timer_ = platform().runLoop->scheduleTimer(interval_, repeats_, [self = shared_from_this()] {
    self->timerDidFinish(self->timer_.get());
  });
}

void VXTimer::invalidate() {
  invalidateTimerOnly();
  didFinishBlock_ = nullptr;
}

void VXTimer::invalidateTimerOnly() {
  // The run loop may hold the last reference to this object until the timer is invalid.
  const auto self = weak_from_this().lock();
  if (const auto timer = std::exchange(timer_, nullptr)) timer->invalidate();
}

void VXTimer::timerDidFinish(RunLoopTimer* /*timer*/) {
  // The block may drop itself or the last other reference to this object.
  const auto self = shared_from_this();
  const auto block = didFinishBlock_;
  if (block) block(*this);
}

}  // namespace tervano
