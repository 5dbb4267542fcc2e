#include "tests/support/virtual_display.h"

#include <cstdlib>
#include <stdexcept>

#include "tests/support/program.h"

namespace tervano::test {

VirtualDisplay::VirtualDisplay()
    // It goes with the test, also with one that is killed.
    : server_(startProgram("/usr/bin/setpriv",
                           {"--pdeathsig", "TERM", "/usr/bin/Xvfb", "-displayfd", "1", "-screen",
                            "0", "1280x800x24", "-nolisten", "tcp", "-noreset"})) {
  const auto number = server_.hear();
  if (!number) throw std::runtime_error("Xvfb does not start");
  name_ = ":" + *number;
  if (const char* value = std::getenv("DISPLAY")) previous_ = value;
  setenv("DISPLAY", name_.c_str(), 1);
}

VirtualDisplay::~VirtualDisplay() {
  if (previous_) {
    setenv("DISPLAY", previous_->c_str(), 1);
  } else {
    unsetenv("DISPLAY");
  }
}

}  // namespace tervano::test
