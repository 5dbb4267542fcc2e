#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/process.h"

namespace tervano {

class ProcessService;

// Child processes by posix_spawn(3), without a shell. A child gets default signal dispositions, an
// empty signal mask, our standard input unless it was given another, and none of our descriptors
// that it was not given. Unless it is given an environment or is a tool of our own it gets the
// activation token of the request, see activation.h.
//
// One thread, started by the first readability handler or launch, waits for all pipes and children
// of the process (epoll, pidfd; no SIGCHLD handler, so a host keeps its own). At a child's end it
// calls the handlers for what is in the pipes at that moment, then posts the end on the main queue,
// behind whatever the handlers posted. A handler that throws is removed.
//
// When the descriptors grow short the process's soft limit is raised to the hard one until all
// children have ended; children are started under the original limit.
class PosixProcesses : public Processes {
 public:
  PosixProcesses();
  PosixProcesses(const PosixProcesses&) = delete;
  PosixProcesses& operator=(const PosixProcesses&) = delete;
  ~PosixProcesses() override;

  std::shared_ptr<Process> createProcess() override;
  std::shared_ptr<Pipe> createPipe() override;

  // Launch paths that stand for other programs. Main thread, before anything is launched.
  void setToolTable(std::map<std::string, std::string> table);
  // Children launched whose end has not been reported. Any thread.
  int runningProcesses() const;

 private:
  const std::shared_ptr<ProcessService> service_;
};

}  // namespace tervano
