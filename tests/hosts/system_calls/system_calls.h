#pragma once

#include <string>

namespace tervano::test {

// A program under test calls this before and after each menu request.
void markMenuRequest();

// Runs such a program, which makes two menu requests for as many items as its only argument says
// and prints their entries, once for one item and once for 10,000, and looks at what it asks of the
// kernel meanwhile: no process, no other program, nothing to wait for, no file made safe or
// changed, and nothing at all that is done for each item. `folder` is for the traces.
void expectHarmlessSystemCalls(const std::string& program, const std::string& folder);

}  // namespace tervano::test
