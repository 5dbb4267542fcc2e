#include "jobs/job_services.h"

namespace tervano {

JobServices::JobServices(const Platform& real)
    : runLoop_(*real.runLoop),
      fileManager_(*real.fileManager),
      processes_(*real.processes),
      scriptProcesses_(*real.processes, JobProcesses::Judgement::leavesItToOthers),
      userScripts_(scriptProcesses_),
      userNotifications_(*real.userNotifications),
      services_(real) {
  services_.runLoop = &runLoop_;
  services_.fileManager = &fileManager_;
  services_.processes = &processes_;
  services_.userScripts = &userScripts_;
  services_.userNotifications = &userNotifications_;
}

}  // namespace tervano
