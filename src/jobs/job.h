#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "jobs/work_monitor.h"
#include "platform/process.h"

namespace tervano {

// What a job is about, as it was when it began.
struct JobSubject {
  // The uid of the action, its title and the name of its class.
  std::string actionUid;
  std::string title;
  std::string className;
  // The files that it was chosen on, as bytes.
  std::vector<std::string> paths;
  // The number of the job that this one undoes; 0 for none.
  std::int64_t undoes = 0;
};

// One item that a job has changed for good.
struct JobChange {
  // `removed` is what made room for something else, or was in the way of it; `trashed` lies in the
  // trash now.
  enum class Kind { moved, copied, made, removed, trashed };
  Kind kind = Kind::moved;
  // Where it was, or what it is a copy of; of a conversion the picture; for the last two the item.
  std::string from;
  // Where it is now; empty for the last two.
  std::string to;

  friend bool operator==(const JobChange&, const JobChange&) = default;
};

// `waiting` has not begun. The last three are ends.
enum class JobState { waiting, running, succeeded, failed, cancelled };

// How far a job has come. A total of 0 is not known.
struct JobProgress {
  // Of all items, or of the one that is being worked on.
  WorkProgress bytes;
  bool bytesAreOfOneItem = false;
  // Items of the selection.
  std::size_t itemsDone = 0;
  std::size_t itemsTotal = 0;

  // From 0 to 1; nil when nothing is known.
  std::optional<double> fraction() const;
  friend bool operator==(const JobProgress&, const JobProgress&) = default;
};

// One run of an action on one selection, with what the platform's services saw of it: see
// JobServices. Any thread, except where it says so.
class Job : public std::enable_shared_from_this<Job> {
 public:
  explicit Job(JobSubject subject);
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  const JobSubject& subject() const { return subject_; }
  // What the history calls it; 0 until, or unless, the history has it.
  std::int64_t number() const { return number_.load(); }
  void setNumber(std::int64_t number) { number_ = number; }
  const CancelToken& cancelToken() const { return cancelToken_; }
  // For work that takes one: stopped with the job, and its progress is the job's.
  WorkMonitor monitor();

  JobState state() const;
  void setState(JobState state);

  // Main thread. Stops the work: the token is set, then the handler called. Nothing the second
  // time, and after the end. The job has ended only when its state says so. Somebody who has only
  // set the token, as in a signal handler, leaves this to be called later.
  void cancel();
  // Main thread. Set by whoever runs the job; null removes it.
  void setCancelHandler(std::function<void()> handler) { cancelHandler_ = std::move(handler); }

  // Whether some of its work was not done, or not to its end, because the job was cancelled.
  bool hasStoppedWork() const { return hasStoppedWork_; }
  void didStopWork() { hasStoppedWork_ = true; }

  JobProgress progress() const;
  void setBytesOfAllItems(const WorkProgress& bytes);
  void setBytesOfOneItem(const WorkProgress& bytes);
  void addDoneItem();
  // Called on the main queue after a change of the progress, at most ten times a second: the last
  // changes may not be told. Null removes it.
  void setProgressHandler(std::function<void()> handler);

  void addChange(const JobChange& change);
  // The work of the job has given attributes to an item that it made: what is told of the last
  // change, when that made it, is told again.
  void itemDidChange(const std::string& path);
  // Whether it has removed something at that path.
  bool hasRemoved(const std::string& path) const;
  // Called with each change and its place in the list, on the thread that made it, while the item
  // is as the work left it. Null removes it; a call may be under way then.
  using ChangeHandler = std::function<void(std::size_t index, const JobChange& change)>;
  void setChangeHandler(ChangeHandler handler);
  std::vector<JobChange> changes() const;

  // What processes of the job wrote to their standard outputs, the beginning of it only.
  void addOutput(const std::string& text);
  std::string output() const;
  // One sentence for each process that could not be started, ended with a status other than 0 or by
  // a signal, or wrote to standard error; the text it wrote included.
  void complain(std::string sentence);
  std::vector<std::string> complaints() const;

  // Main thread. The processes of the job that have been started and have not ended.
  void processDidLaunch(const std::shared_ptr<Process>& process);
  void processDidEnd(const Process& process);
  const std::vector<std::shared_ptr<Process>>& runningProcesses() const { return processes_; }
  // Main thread. Called after the end of a process. Null removes it.
  void setProcessEndHandler(std::function<void()> handler) {
    processEndHandler_ = std::move(handler);
  }

 private:
  void changeProgress(const std::function<void(JobProgress&)>& change);

  const JobSubject subject_;
  const CancelToken cancelToken_;
  std::atomic<std::int64_t> number_ = 0;
  std::function<void()> cancelHandler_;
  bool isCancelled_ = false;
  std::atomic<bool> hasStoppedWork_{false};
  std::function<void()> processEndHandler_;
  std::vector<std::shared_ptr<Process>> processes_;

  mutable std::mutex mutex_;
  JobState state_ = JobState::waiting;
  JobProgress progress_;
  std::function<void()> progressHandler_;
  // Whether the handler is going to be called, and when that was last asked for.
  bool isTelling_ = false;
  std::chrono::steady_clock::time_point told_;
  std::vector<JobChange> changes_;
  std::unordered_set<std::string> removed_;
  ChangeHandler changeHandler_;
  std::string output_;
  std::vector<std::string> complaints_;
};

// The job on behalf of which the calling thread works; null for none.
std::shared_ptr<Job> currentJob();

// For as long as it lives the calling thread works for that job, or for none when it is null.
class JobScope {
 public:
  explicit JobScope(std::shared_ptr<Job> job);
  JobScope(const JobScope&) = delete;
  JobScope& operator=(const JobScope&) = delete;
  ~JobScope();

 private:
  std::shared_ptr<Job> outer_;
};

}  // namespace tervano
