#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companion/job_runner.h"
#include "history/job_history.h"

namespace tervano {

// One thing that an undo does.
struct UndoStep {
  // `nothing`: it is as it was already, by whatever way.
  enum class Does { movesBack, trashes, nothing };
  Does does = Does::nothing;
  // The change that it undoes, by its place in the job.
  std::size_t index = 0;
  // The item where it is now, and where it goes; empty for the trash.
  std::string from;
  std::string to;
  ItemState state;
};

// What undoing a job means, looked at as a whole before anything is done.
struct UndoPlan {
  RecordedJob job;
  // The last change first.
  std::vector<UndoStep> steps;
};

// The plan for the job of that number, or for the last one that can be undone. Whatever could be
// lost is a reason not to: throws CommandError with it, also when the history cannot be read.
// Blocking; any thread.
UndoPlan planUndo(JobHistory& history, std::optional<std::int64_t> number);

// Does it as a job of the runner, on a queue of its own, each item looked at again. What is done is
// noted in the history, so that another undo does the rest; an item that could not be put back is a
// complaint of the job. Main thread.
std::shared_ptr<Job> runUndo(JobRunner& runner, const UndoPlan& plan, JobRunner::Finished finished);

}  // namespace tervano
