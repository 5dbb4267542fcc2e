#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "history/database.h"
#include "history/item_state.h"
#include "history/process_identity.h"
#include "jobs/job.h"

namespace tervano {

// As JobState; `interrupted` has no process any more that could end it.
enum class RecordedState { waiting, running, succeeded, failed, cancelled, interrupted };

// "waiting", "running" and so on.
const std::string& nameOfState(RecordedState state);
bool isEnd(RecordedState state);

// One job as the history has it. Times are nanoseconds since 1970; 0 for none.
struct RecordedJob {
  std::int64_t number = 0;
  // Without the paths.
  JobSubject subject;
  RecordedState state = RecordedState::waiting;
  std::int64_t began = 0;
  std::int64_t ended = 0;
  ProcessIdentity process;
  std::size_t itemsDone = 0;
  std::size_t itemsTotal = 0;
  // From 0 to 1; nil when nothing is known.
  std::optional<double> fraction;
  // A sentence when it failed.
  std::string message;
  std::string output;
  std::vector<std::string> complaints;
  // Of what it changed, as far as it can be undone, and how much of that has been.
  std::size_t changes = 0;
  std::size_t undone = 0;
  // Whether the history holds everything that it changed.
  bool isComplete = true;
};

struct RecordedChange {
  // Its place among the changes of the job.
  std::size_t index = 0;
  JobChange change;
  // Of the item where it is now, right after the change; nil when nobody could look.
  std::optional<ItemState> state;
  bool isUndone = false;
};

// What ran, when, on what and with which result: a database of SQLite that several processes use at
// once. Bounded: the last jobs, and of each the first paths, changes and output. Never holds a
// password: no job has one. Everything that fails throws HistoryError. One thread at a time.
class JobHistory {
 public:
  // $XDG_STATE_HOME/tervano/history.sqlite.
  static std::string path();
  // Makes the file, and its folder, for this user alone when it is missing.
  static std::unique_ptr<JobHistory> open(const std::string& path);
  // Null when there is none.
  static std::unique_ptr<JobHistory> openExisting(const std::string& path);

  // Jobs, their paths and changes that are kept.
  static constexpr std::size_t kKeptJobs = 500;
  static constexpr std::size_t kKeptPaths = 1'000;
  static constexpr std::size_t kKeptChanges = 100'000;
  static constexpr std::size_t kKeptChangesOfAllJobs = 200'000;
  static constexpr std::size_t kKeptComplaints = 100;

  // What belongs together is written between these two; see Transaction.
  std::unique_ptr<Transaction> begin();

  // Adds the job of this process, waiting or running, and lets go of the oldest ones. Answers its
  // number.
  std::int64_t add(const Job& job, std::int64_t began);
  // A change at a place that is known replaces it.
  void addChanges(std::int64_t number, const std::vector<RecordedChange>& changes);
  // From now on not everything that the job changed is held.
  void setIncomplete(std::int64_t number);
  void setProgress(std::int64_t number, JobState state, const JobProgress& progress);
  void end(std::int64_t number, const Job& job, const std::string& message, std::int64_t ended);
  void setUndone(std::int64_t number, const std::vector<std::size_t>& indexes);

  // Turns jobs whose process is gone into interrupted ones.
  void findInterruptedJobs();
  // Those that nobody has been told of; they count as told from now on.
  std::vector<RecordedJob> takeUntoldInterruptedJobs();

  // The newest first, at most `limit`.
  std::vector<RecordedJob> jobs(std::size_t limit);
  // Those that have not ended, the oldest first.
  std::vector<RecordedJob> openJobs();
  // Nil when there is none.
  std::optional<RecordedJob> job(std::int64_t number);
  // What it was chosen on, the beginning of it.
  std::vector<std::string> paths(std::int64_t number);
  std::vector<RecordedChange> changes(std::int64_t number);

 private:
  explicit JobHistory(const std::string& path);

  void prepare();
  void prune();
  std::vector<RecordedJob> select(const std::string& condition, std::int64_t value);

  std::string path_;
  Database database_;
};

}  // namespace tervano
