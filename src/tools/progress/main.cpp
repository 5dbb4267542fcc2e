#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "tools/progress/window.h"

// Shows in a window how far things have come, as its standard input tells: 0 at the end of that or
// when the window was closed, 2 for any argument, 3 without a display.
int main(int argc, char** /*argv*/) {
  constexpr int kUsage = 2;
  constexpr int kNoDisplay = 3;
  if (argc > 1) {
    std::fputs("tervano-progress: What is shown comes by standard input.\n", stderr);
    return kUsage;
  }
  // Whoever is told of a press may be gone.
  std::signal(SIGPIPE, SIG_IGN);
  // An interrupt of the terminal is for whoever works; the window ends with its input.
  std::signal(SIGINT, SIG_IGN);
  if (tervano::showProgressWindow(STDIN_FILENO) == tervano::WindowEnd::noDisplay) {
    std::fputs("tervano-progress: There is no display to show anything on.\n", stderr);
    return kNoDisplay;
  }
  return 0;
}
