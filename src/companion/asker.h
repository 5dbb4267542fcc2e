#pragma once

#include "companion/action_driver.h"

namespace tervano {

// Asks for consent on the terminal of this process; null when it has none to read from and write
// to.
Asker askerOfTerminal();
// Asks for consent in a window of the desktop, else on the terminal; where there is neither the
// answer is no, with the reason.
Asker askerOfDesktop();

// The windows of both are started by the process service of the time when the asker was made.

// Ask for a new password: on the terminal first or in a window first, each else in the other way.
// On the terminal it is typed unseen.
PasswordAsker passwordAskerOfTerminal();
PasswordAsker passwordAskerOfDesktop();
// Reads the password from the first line of an open descriptor, for scripts.
PasswordAsker passwordAskerOfDescriptor(int descriptor);

}  // namespace tervano
