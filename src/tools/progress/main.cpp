#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "archive/url.h"
#include "platform/linux/installed_bundle.h"
#include "tools/progress/window.h"
#include "translation/translation.h"

// Shows in a window how far things have come, as its standard input tells: 0 at the end of that or
// when the window was closed, 2 for any argument, 3 without a display.
int main(int argc, char** /*argv*/) {
  constexpr int kUsage = 2;
  constexpr int kNoDisplay = 3;
  tervano::useLanguageOfUser(
      tervano::deletingLastPathComponent(tervano::InstalledBundle().resourcePath()) + "/locale");
  if (argc > 1) {
    std::fprintf(stderr, "tervano-progress: %s\n",
                 tervano::tr("What is shown comes by standard input.").shown().c_str());
    return kUsage;
  }
  // Whoever is told of a press may be gone.
  std::signal(SIGPIPE, SIG_IGN);
  // An interrupt of the terminal is for whoever works; the window ends with its input.
  std::signal(SIGINT, SIG_IGN);
  if (tervano::showProgressWindow(STDIN_FILENO) == tervano::WindowEnd::noDisplay) {
    std::fprintf(stderr, "tervano-progress: %s\n",
                 tervano::tr("There is no display to show anything on.").shown().c_str());
    return kNoDisplay;
  }
  return 0;
}
