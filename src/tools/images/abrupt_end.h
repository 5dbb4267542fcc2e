#pragma once

#include <string>

namespace tervano {

// What happens when a signal ends this process. Process-wide; main thread.

// From now on SIGTERM, SIGINT, SIGHUP, SIGQUIT and SIGXCPU remove that file, of an open folder,
// before they end the process. One file at a time; it need not exist yet.
void removeAtAbruptEnd(int folder, const std::string& name);
void forgetAtAbruptEnd();

// From now on a failure inside a library (SIGSEGV, SIGABRT and their like) removes what
// removeAtAbruptEnd named, writes `sentence` to `descriptor` and ends the process with status 1.
void saySentenceAtCrash(int descriptor, const std::string& sentence);

}  // namespace tervano
