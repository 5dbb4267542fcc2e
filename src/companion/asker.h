#pragma once

#include "companion/action_driver.h"

namespace tervano {

// Asks on the terminal of this process; null when it has none to read from and write to.
Asker askerOfTerminal();
// Asks in a window of the desktop, else on the terminal; where there is neither the answer is no,
// with the reason.
Asker askerOfDesktop();

}  // namespace tervano
