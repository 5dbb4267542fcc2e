#pragma once

#include <string>

namespace tervano {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// The commands of the defaults tool. They answer the exit status, and tell every failure in one
// sentence, a line on standard error. Blocking.

// Resets what the user set in the domain, after a backup whose place is told on standard output.
// Quiet success for a known domain in which nothing is set.
int deleteDomain(const std::string& domain);

// Puts back what a backup holds; what was set elsewhere in the domain since then stays.
int restoreBackup(const std::string& folder);

// Writes the sentence as a line on standard error, with what a terminal could take for a command
// made visible.
void complain(const std::string& sentence);
// Writes to standard output; answers false, with a complaint, when that fails.
bool print(const std::string& text);

}  // namespace tervano
