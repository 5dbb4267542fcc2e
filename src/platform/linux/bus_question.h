#pragma once

#include <string>
#include <vector>

#include "platform/linux/session_bus.h"

namespace tervano {

// What came of a call on the session bus.
struct BusAnswer {
  enum class Outcome {
    answered,
    // There is no session bus, or it does not answer.
    noBus,
    // Nobody has the name, and the bus cannot start anybody.
    nobody,
    // Somebody was there, or should have been started, and did not answer in time.
    silent,
    // The bus could not start the service, or the service refused the call.
    failed,
  };
  Outcome outcome = Outcome::noBus;
  // When answered: the strings of the answer in their order; other values are left out.
  std::vector<std::string> texts;
  // When not: why, in the words of the bus.
  std::string reason;
};

// Calls a method without arguments and waits for what comes of it, `timeoutMilliseconds` after the
// connection at most. The bus starts the service when it does not run. Any thread but the bus
// thread; needs no main loop.
BusAnswer askOnBus(SessionBus& bus, const std::string& name, const std::string& path,
                   const std::string& interface, const std::string& method,
                   int timeoutMilliseconds);

}  // namespace tervano
