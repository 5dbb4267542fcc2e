#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tervano::testing {

// What a child process left behind.
struct ChildResult {
  // The exit status, or minus the signal's number.
  int status = 0;
  std::string output;
  // Of the processor, in user and system mode.
  double cpuSeconds = 0;
};

// Runs a program with its arguments (the first one is its path) and collects standard output.
ChildResult runProgram(const std::vector<std::string>& arguments);

// Runs `body` in a copy of this process that may use `cpuSeconds` of processor time before it is
// killed; the status is what `body` returns.
ChildResult runInChild(const std::function<int()>& body, unsigned cpuSeconds);

}  // namespace tervano::testing
