#pragma once

#include <cstddef>
#include <string>

namespace tervano::test {

// A program under test calls this before and after it starts what makes the menus.
void markStart();
// The same before and after each menu request. The first of the two waits until the other threads
// of the program have nothing more to do.
void markMenuRequest();

// Runs such a program, which starts, makes several menu requests for as many items as its only
// argument says and prints their entries, once for one item and once for 10,000, and looks at what
// it asks of the kernel meanwhile, on whatever thread. To start, it makes no process, runs no
// program, talks to nobody and makes no file safe. A request does not do that either, waits for
// nothing, not even for another thread, looks at no file (but the first `lookingUp` ones, whose
// toolkit reads what it shows), and does nothing at all for each item. `folder` is for the traces.
void expectHarmlessSystemCalls(const std::string& program, const std::string& folder,
                               std::size_t lookingUp = 0);

}  // namespace tervano::test
