#pragma once

#include <string>
#include <vector>

#include "translation/translation.h"

namespace tervano {

// How a program that was run to its end ended.
struct BriefRun {
  // The exit status; -1 when it had none.
  int status = -1;
  std::string output;
  std::string errors;
  // Why there is no exit status, a sentence without its full stop; else empty.
  Sentence failure;
};

// Runs a program with an empty standard input and waits for its end, `seconds` at most; then it is
// killed. Runs the main loop meanwhile. Main thread.
BriefRun runBriefly(const std::string& path, const std::vector<std::string>& arguments,
                    double seconds);

}  // namespace tervano
