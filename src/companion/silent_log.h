#pragma once

#include "platform/log.h"
#include "platform/platform.h"

namespace tervano {

// Drops every line.
class SilentLog : public Log {
 public:
  void write(std::string_view line) override { static_cast<void>(line); }
};

// While it lives nothing is logged: for what a command tells by a sentence of its own. Main thread,
// before anything else uses the platform.
class ScopedSilence {
 public:
  ScopedSilence() : former_(platform()) {
    silent_ = former_;
    silent_.log = &log_;
    installPlatform(silent_);
  }
  ScopedSilence(const ScopedSilence&) = delete;
  ScopedSilence& operator=(const ScopedSilence&) = delete;
  ~ScopedSilence() { installPlatform(former_); }

 private:
  const Platform& former_;
  SilentLog log_;
  Platform silent_;
};

}  // namespace tervano
