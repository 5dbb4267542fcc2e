#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace tervano::test {

// Starts another program as the test's second process; its standard input and output are the lines
// that the ChildProcess says and hears. It inherits the environment.
[[nodiscard]] ChildProcess startProgram(const std::string& path,
                                        const std::vector<std::string>& arguments = {});

// The main function of such a program: runs the main loop of the installed platform and calls
// `handle` on the main thread with the words of every line of standard input, until it ends.
// Answers the exit status.
int serveLines(const std::function<void(const std::vector<std::string>& words)>& handle);

// Writes one line to standard output at once.
void sayLine(const std::string& line);

// Any bytes as one word without blanks, and back. The empty string is "-".
std::string asWord(const std::string& bytes);
std::string fromWord(const std::string& word);

}  // namespace tervano::test
