#include "companion/undo.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>

#include "archive/printable.h"
#include "archive/url.h"
#include "companion/action_store.h"
#include "companion/file_work.h"
#include "companion/job_texts.h"
#include "platform/file_manager.h"
#include "platform/linux/trash.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

// Undone items are noted together, at most this long after they were.
constexpr std::chrono::milliseconds kNoteInterval(50);

bool isUndoable(const RecordedChange& change) {
  using Kind = JobChange::Kind;
  const Kind kind = change.change.kind;
  return kind == Kind::moved || kind == Kind::copied || kind == Kind::made;
}

// Why nothing of what such an action does can be undone.
Sentence reasonOfKind(const RecordedJob& job) {
  const std::string& kind = job.subject.className;
  const Sentence name = nameOfJob(job);
  if (job.subject.undoes != 0) {
    return tr("{1}, is an undo itself; choose the action again instead.", name);
  }
  if (kind == "TVSecureRemoveAction") {
    return tr("{1}, removed for good: that cannot be undone.", name);
  }
  if (kind == "TVShellScriptAction" || kind == "TVBundledScriptAction" ||
      kind == "TVAppleScriptAction") {
    return tr("{1}, ran a script; only the script knows what would undo it.", name);
  }
  if (kind == "TVOpenWithAppAction" || kind == "TVSendViaEmailAction" ||
      kind == "TVOpenFavesAction") {
    return tr("{1}, gave items to another program; that cannot be taken back.", name);
  }
  if (kind == "TVResetAppPreferencesAction") {
    return tr("{1}, reset preferences; \"tervano-defaults restore\" puts them back.", name);
  }
  return tr("{1}, changed nothing that could be undone.", name);
}

[[noreturn]] void refuse(const RecordedJob& job, const Sentence& reason) {
  throw CommandError(tr("{1}, cannot be undone: {2}", nameOfJob(job), reason));
}

RecordedJob requireJob(JobHistory& history, std::optional<std::int64_t> number) {
  if (number) {
    auto job = history.job(*number);
    if (!job) {
      throw CommandError(
          tr("The history has no job {1}; \"tervano history\" lists them.", *number));
    }
    return std::move(*job);
  }
  for (auto& job : history.jobs(JobHistory::kKeptJobs)) {
    if (isEnd(job.state) && job.subject.undoes == 0 && job.undone < job.changes) return job;
  }
  throw CommandError(tr("There is nothing that could be undone."));
}

// What stands against undoing this item; fills the step in when nothing does. `restored` are the
// paths that come back before this one does.
std::optional<Sentence> objection(const RecordedChange& change,
                                  const std::set<std::string>& restored, UndoStep& step) {
  const std::string& now = change.change.to;
  const std::string& before = change.change.from;
  const auto& files = *platform().fileManager;
  const bool isMove = change.change.kind == JobChange::Kind::moved;
  const ItemDepth depth = isMove ? ItemDepth::itself : ItemDepth::withContents;
  if (!change.state) return tr("{1} was not seen by the history.", printable(now));
  const auto state = itemStateAt(now, depth);
  step = {UndoStep::Does::nothing, change.index, now, isMove ? before : "", *change.state};
  if (!state) {
    if (files.itemExistsAtPath(now)) return tr("{1} cannot be looked at.", printable(now));
    if (!isMove) return std::nullopt;
    const auto there = itemStateAt(before, depth);
    if (there && isSameContent(*change.state, *there)) return std::nullopt;
    return tr("{1} is not there any more.", printable(now));
  }
  if (!isSameItem(*change.state, *state, depth)) {
    return tr("{1} is not as the job left it.", printable(now));
  }
  if (!files.isWritableFileAtPath(deletingLastPathComponent(now))) {
    return tr("nothing can be taken out of {1}.", printable(deletingLastPathComponent(now)));
  }
  if (!isMove) {
    step.does = UndoStep::Does::trashes;
    return std::nullopt;
  }
  step.does = UndoStep::Does::movesBack;
  if (files.itemExistsAtPath(before)) return tr("{1} is taken.", printable(before));
  for (std::string folder = deletingLastPathComponent(before); folder.size() > 1;
       folder = deletingLastPathComponent(folder)) {
    if (restored.contains(folder)) return std::nullopt;
  }
  const std::string folder = deletingLastPathComponent(before);
  if (!files.isDirectoryAtPath(folder)) return tr("{1} is not there any more.", printable(folder));
  if (!files.isWritableFileAtPath(folder))
    return tr("{1} cannot be written to.", printable(folder));
  return std::nullopt;
}

// An error of one step; nil when it is done.
std::optional<Error> perform(const UndoStep& step, Job& job) {
  if (step.does == UndoStep::Does::nothing) {
    job.addDoneItem();
    return std::nullopt;
  }
  const bool isMove = step.does == UndoStep::Does::movesBack;
  const ItemDepth depth = isMove ? ItemDepth::itself : ItemDepth::withContents;
  // Somebody may have used it since the plan was made.
  const auto state = itemStateAt(step.from, depth);
  if (!state) return posixError(errno, "Could not undo what was done to " + step.from);
  if (!isSameItem(step.state, *state, depth)) {
    return Error{"Undo", 1, "The item " + step.from + " has been changed meanwhile"};
  }
  // Counts as an item of the job that is done.
  if (isMove) return platform().fileManager->performMove({step.from, step.to});
  if (auto error = moveToTrash(step.from)) return error;
  job.addChange({JobChange::Kind::trashed, step.from, ""});
  job.addDoneItem();
  return std::nullopt;
}

// Notes in the history which changes are undone.
class UndoNotes {
 public:
  explicit UndoNotes(std::int64_t number) : number_(number) {}

  void add(std::size_t index) {
    undone_.push_back(index);
    if (std::chrono::steady_clock::now() - written_ >= kNoteInterval) write();
  }
  // A note that is lost costs nothing: the item is found where it belongs.
  void write() {
    if (undone_.empty()) return;
    try {
      if (history_ == nullptr) history_ = JobHistory::openExisting(JobHistory::path());
      if (history_ != nullptr) history_->setUndone(number_, undone_);
      undone_.clear();
    } catch (const HistoryError& error) {
      if (!error.isBusy()) undone_.clear();
      log(std::string("What is undone could not be noted: ") + error.what());
    }
    written_ = std::chrono::steady_clock::now();
  }

 private:
  const std::int64_t number_;
  std::unique_ptr<JobHistory> history_;
  std::vector<std::size_t> undone_;
  std::chrono::steady_clock::time_point written_;
};

RunOutcome outcomeOf(const UndoPlan& plan, std::size_t failures, bool isCancelled) {
  const Sentence name = nameOfJob(plan.job);
  if (failures != 0) {
    return {false,
            trn("Undoing {2}, failed for {1} item.", "Undoing {2}, failed for {1} items.", failures,
                name),
            false};
  }
  if (isCancelled) return {false, tr("Undoing {1}, was cancelled.", name), true, true};
  return {true, "", false};
}

// On a queue of its own.
RunOutcome performAll(const UndoPlan& plan, Job& job) {
  UndoNotes notes(plan.job.number);
  std::size_t failures = 0;
  bool isCancelled = false;
  for (const auto& step : plan.steps) {
    isCancelled = job.cancelToken().isCancelled();
    if (isCancelled) break;
    const auto error = perform(step, job);
    if (!error) {
      notes.add(step.index);
    } else if (error->code == ECANCELED && job.cancelToken().isCancelled()) {
      isCancelled = true;
      break;
    } else {
      ++failures;
      job.complain(error->message + ".");
    }
  }
  notes.write();
  return outcomeOf(plan, failures, isCancelled);
}

}  // namespace

UndoPlan planUndo(JobHistory& history, std::optional<std::int64_t> number) {
  UndoPlan plan{requireJob(history, number), {}};
  const RecordedJob& job = plan.job;
  if (!isEnd(job.state)) refuse(job, tr("it has not ended."));
  if (!job.isComplete) refuse(job, tr("it did more than the history holds."));
  if (job.subject.undoes != 0 || job.changes == 0) throw CommandError(reasonOfKind(job));
  if (job.undone >= job.changes) throw CommandError(tr("{1}, is undone already.", nameOfJob(job)));
  auto changes = history.changes(job.number);
  for (const auto& change : changes) {
    if (change.change.kind == JobChange::Kind::removed) {
      refuse(job, tr("it replaced {1}, and that cannot be brought back.",
                     printable(change.change.from)));
    }
  }
  std::reverse(changes.begin(), changes.end());
  std::set<std::string> restored;
  for (const auto& change : changes) {
    if (!isUndoable(change) || change.isUndone) continue;
    UndoStep step;
    if (const auto reason = objection(change, restored, step)) refuse(job, *reason);
    if (step.does == UndoStep::Does::movesBack) restored.insert(step.to);
    plan.steps.push_back(std::move(step));
  }
  return plan;
}

std::shared_ptr<Job> runUndo(JobRunner& runner, const UndoPlan& plan,
                             JobRunner::Finished finished) {
  JobSubject subject;
  subject.title = "Undo of " + plan.job.subject.title;
  subject.undoes = plan.job.number;
  for (const auto& step : plan.steps) subject.paths.push_back(step.from);
  const auto work = [plan](const std::shared_ptr<Job>& job, const JobRunner::Finished& ended) {
    job->setState(JobState::running);
    const JobScope scope(job);
    const auto queue = platform().runLoop->createSerialQueue("com.vessok.undoqueue");
    queue->dispatchAsync([plan, job, ended] {
      const auto outcome = performAll(plan, *job);
      platform().runLoop->dispatchAsyncOnMainQueue([job, ended, outcome] {
        job->setState(outcome.success     ? JobState::succeeded
                      : outcome.cancelled ? JobState::cancelled
                                          : JobState::failed);
        ended(outcome);
      });
    });
  };
  return runner.run(std::move(subject), work, std::move(finished));
}

}  // namespace tervano
