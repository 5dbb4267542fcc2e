#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "tools/remove/command_line.h"
#include "tools/remove/removal.h"
#include "tools/remove/storage.h"

namespace tervano {

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;

// No file that is opened later may get the number of a standard stream.
void openStandardStreams() {
  int descriptor = 0;
  do {
    descriptor = open("/dev/null", O_RDWR);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor > STDERR_FILENO) close(descriptor);
}

int remove(const RemoveCommandLine& line) {
  Report report(line.isVerbose, STDOUT_FILENO, STDERR_FILENO);
  {
    Removal removal({line.isForced, line.isRecursive, line.overwrites}, report);
    for (const auto& path : line.paths) removal.remove(path);
  }
  return report.finish() ? kSuccess : kFailure;
}

int run(const std::vector<std::string>& words) {
  const RemoveCommandLine line = parseRemoveCommandLine(words);
  if (line.wantsHelp) {
    std::cout << removeHelpText() << std::flush;
    return kSuccess;
  }
  if (line.wantsExplanation) return explainStorage(line.paths) ? kSuccess : kFailure;
  return remove(line);
}

}  // namespace

}  // namespace tervano

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  tervano::openStandardStreams();
  try {
    return tervano::run({argv + (argc > 0 ? 1 : 0), argv + argc});
  } catch (const tervano::RemoveUsageError& error) {
    std::cerr << "tervano-remove: " << error.what() << '\n';
    return tervano::kUsage;
  } catch (const std::exception& error) {
    std::cerr << "tervano-remove: " << error.what() << ".\n";
    return tervano::kFailure;
  }
}
