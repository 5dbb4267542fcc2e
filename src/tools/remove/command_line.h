#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace tervano {

// A command line that cannot be understood: one sentence, exit status 2.
class RemoveUsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What the remove tool was asked to do.
struct RemoveCommandLine {
  // -v: list what was removed.
  bool isVerbose = false;
  // -f: a path that does not exist is no failure.
  bool isForced = false;
  // -r: folders too.
  bool isRecursive = false;
  // -P: overwrite contents first.
  bool overwrites = false;
  bool wantsHelp = false;
  // --explain: tell what overwriting can do, remove nothing.
  bool wantsExplanation = false;
  std::vector<std::string> paths;
};

// Options in any order, combined or not, also behind paths; "--" ends them. Throws
// RemoveUsageError.
RemoveCommandLine parseRemoveCommandLine(const std::vector<std::string>& words);

std::string removeHelpText();

}  // namespace tervano
