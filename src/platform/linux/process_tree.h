#pragma once

#include <memory>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/process.h"

namespace tervano {

// Processes of ours with all that descends from them, to be ended together: a script's own programs
// are no children of ours, and a signal to the script alone would leave them at work. What has lost
// its parent before is nobody's and stays. Main thread.
class ProcessTree {
 public:
  // Holds all of them still, so that none makes another one, until `terminate` or `kill`.
  explicit ProcessTree(std::vector<std::shared_ptr<Process>> roots);

  // SIGTERM, and each goes on, so that it sees it.
  void terminate() const;
  // SIGKILL.
  void kill() const;
  // Whether one of them has not ended.
  bool isRunning() const;

 private:
  void hold(const std::vector<int>& parents);

  std::vector<std::shared_ptr<Process>> roots_;
  std::vector<Descriptor> descendants_;
};

}  // namespace tervano
