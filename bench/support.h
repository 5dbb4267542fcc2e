#pragma once

#include <sys/types.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "model/tv_action.h"

namespace tervano::bench {

// A benchmark that cannot be set up ends the program with this.
class SetupError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// CLOCK_MONOTONIC in nanoseconds, the same in every process.
std::int64_t monotonicNanoseconds();

// Move actions with a title, a destination and a menu icon: one drawing each, or all the same one.
ActionList moveActions(int count, bool withOwnIcons);

// Starts a program with the environment as it is. The descriptors 0 to 2 are inherited, and what
// else is not closed on exec.
pid_t start(const std::vector<std::string>& arguments);
// Waits for the program's end; throws SetupError unless it answers 0.
void waitForSuccess(pid_t process, const std::string& what);
// Kills and reaps.
void stop(pid_t process);
// The program's standard output, after its successful end.
std::string outputOf(const std::vector<std::string>& arguments);

}  // namespace tervano::bench
