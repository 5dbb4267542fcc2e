#pragma once

#include <memory>

#include "platform/process.h"

namespace tervano {

class Job;

// A process service that tells the current job what became of every process made by it: actions
// judge their tools by the text on standard error alone, the companion looks at the rest too.
// Processes that are made for no job are the real ones.
class JobProcesses : public ForwardingProcesses {
 public:
  // Whether a process that ends badly is a complaint of the job's.
  enum class Judgement { complains, leavesItToOthers };

  explicit JobProcesses(Processes& real, Judgement judgement = Judgement::complains)
      : ForwardingProcesses(real), judgement_(judgement) {}

  std::shared_ptr<Process> createProcess() override;
  std::shared_ptr<Pipe> createPipe() override;

 private:
  Judgement judgement_;
};

}  // namespace tervano
