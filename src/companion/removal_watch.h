#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "companion/cancel_report.h"
#include "jobs/job.h"
#include "platform/run_loop.h"

namespace tervano {

// What a running process has written so far, whatever to; 0 when that is not known. Any thread.
std::uint64_t bytesWrittenBy(std::int64_t process);

// Follows the tools of a job that overwrite and remove its items: in bytes, by what they have
// written of the room that the items take on the disk, and item by item when the job was cancelled.
class RemovalWatch : public std::enable_shared_from_this<RemovalWatch> {
 public:
  // Begins to count, on a queue of its own, and to look at the job's processes, which are started
  // next. Main thread, like `end`.
  static std::shared_ptr<RemovalWatch> begin(std::shared_ptr<Job> job);
  // Nothing is looked at any more.
  void end();

  // Which items are gone, which were overwritten in part, and how many are as they were. Whatever
  // changed after the beginning counts as overwritten: a tool that was ended half way cannot say.
  // After the last process has ended. Blocking; any thread.
  CancelReport report() const;

  // Use `begin`.
  explicit RemovalWatch(std::shared_ptr<Job> job);

 private:
  struct Item {
    std::string path;
    bool wasThere = false;
    struct stat status {};
  };

  void count();
  void look();
  bool isTouched(const Item& item) const;

  const std::shared_ptr<Job> job_;
  // As the file system writes it down.
  timespec began_{};
  std::vector<Item> items_;
  std::shared_ptr<RunLoopTimer> timer_;
  std::mutex mutex_;
  // Of each item; empty until all are counted.
  std::vector<std::uint64_t> sizes_;
};

}  // namespace tervano
