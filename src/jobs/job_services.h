#pragma once

#include "jobs/job_file_manager.h"
#include "jobs/job_processes.h"
#include "jobs/job_run_loop.h"
#include "jobs/job_user_notifications.h"
#include "platform/linux/interpreter_user_scripts.h"
#include "platform/platform.h"

namespace tervano {

// The platform's services as jobs see them: what is done on behalf of the current job is told to
// it, followed and stopped with it, and the current job goes along with whatever is put on a queue.
// What is done for no job reaches the real services as it is. Lives to the end of the process.
class JobServices {
 public:
  explicit JobServices(const Platform& real);
  JobServices(const JobServices&) = delete;
  JobServices& operator=(const JobServices&) = delete;

  // To be installed.
  const Platform& services() const { return services_; }

 private:
  JobRunLoop runLoop_;
  JobFileManager fileManager_;
  JobProcesses processes_;
  // What a user script prints is no error.
  JobProcesses scriptProcesses_;
  InterpreterUserScripts userScripts_;
  JobUserNotifications userNotifications_;
  Platform services_;
};

}  // namespace tervano
