#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/process.h"

namespace tervano {

// A process service that notes what became of every process made by it: actions judge their tools
// by the text on standard error alone, the companion looks at the rest too. Installed in front of
// the real service for as long as a run lasts.
class RecordingProcesses : public ForwardingProcesses {
 public:
  using ForwardingProcesses::ForwardingProcesses;

  std::shared_ptr<Process> createProcess() override;
  std::shared_ptr<Pipe> createPipe() override;

  // One sentence for each process that could not be started, ended with a status other than 0 or by
  // a signal, or wrote to standard error; the text it wrote included. Any thread.
  std::vector<std::string> complaints() const { return record_->complaints(); }

 private:
  class Record {
   public:
    void complain(std::string sentence);
    std::vector<std::string> complaints() const;

   private:
    mutable std::mutex mutex_;
    std::vector<std::string> complaints_;
  };
  class RecordedFileHandle;
  class RecordedPipe;
  class RecordedProcess;

  std::shared_ptr<Record> record_ = std::make_shared<Record>();
};

}  // namespace tervano
