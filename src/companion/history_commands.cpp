#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/companion_settings.h"
#include "companion/complain.h"
#include "companion/file_work.h"
#include "companion/history_listener.h"
#include "companion/job_session.h"
#include "companion/job_texts.h"
#include "companion/silent_log.h"
#include "companion/undo.h"
#include "companion/value_json.h"
#include "history/job_history.h"
#include "platform/file_manager.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kListedJobs = 20;
constexpr double kCancelTimeoutSeconds = 10;
constexpr double kLookAgainSeconds = 0.05;
constexpr std::chrono::milliseconds kPostAgain(500);
constexpr int kPercent = 100;

// Null when nothing has ever run.
std::unique_ptr<JobHistory> openHistory() {
  auto history = JobHistory::openExisting(JobHistory::path());
  if (history != nullptr) history->findInterruptedJobs();
  return history;
}

std::optional<std::int64_t> numberOfWord(const std::string& word) {
  constexpr std::size_t kMaximumDigits = 15;
  if (word.empty() || word.size() > kMaximumDigits || word.front() == '0' ||
      word.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  return std::stoll(word);
}

std::int64_t requireNumber(const std::string& word) {
  const auto number = numberOfWord(word);
  if (!number) throw UsageError(tr("\"{1}\" is no number of a job.", printable(word)));
  return *number;
}

RecordedJob requireRecorded(JobHistory* history, std::int64_t number) {
  auto job = history == nullptr ? std::nullopt : history->job(number);
  if (!job) {
    throw CommandError(tr("The history has no job {1}; \"tervano history\" lists them.", number));
  }
  return std::move(*job);
}

Sentence shownState(RecordedState state) {
  // TRANSLATORS: the states of jobs, twelve columns at most, without accents.
  static const std::array<const char*, 6> kStates{trMark("waiting"),   trMark("running"),
                                                  trMark("succeeded"), trMark("failed"),
                                                  trMark("cancelled"), trMark("interrupted")};
  return translated(kStates.at(static_cast<std::size_t>(state)));
}

std::string titleOfRecord(const RecordedJob& job) {
  return job.subject.title.empty() ? tr("(no title)").shown() : printable(job.subject.title);
}

// The beginning of a line about a job, all of one width.
std::string lineHead(const RecordedJob& job) {
  constexpr std::size_t kNumberWidth = 5;
  constexpr std::size_t kStateWidth = 12;
  std::string number = std::to_string(job.number);
  number.insert(0, kNumberWidth - std::min(number.size(), kNumberWidth), ' ');
  std::string state = shownState(job.state);
  state.resize(std::max(state.size(), kStateWidth), ' ');
  return number + "  " + localTimeText(job.began) + "  " + state;
}

ordered_json jsonOfJob(const RecordedJob& job) {
  ordered_json json;
  json["number"] = job.number;
  json["action"] = job.subject.actionUid;
  json["title"] = job.subject.title;
  json["class"] = job.subject.className;
  if (job.subject.undoes != 0) json["undoes"] = job.subject.undoes;
  json["state"] = nameOfState(job.state);
  json["began"] = isoTimeText(job.began);
  json["ended"] = job.ended == 0 ? ordered_json() : ordered_json(isoTimeText(job.ended));
  json["items"] = job.itemsTotal;
  json["itemsDone"] = job.itemsDone;
  return json;
}

ordered_json jsonOfFinished(const RecordedJob& job, JobHistory& history) {
  auto json = jsonOfJob(job);
  json["message"] = job.message;
  json["complaints"] = job.complaints;
  json["output"] = job.output;
  json["paths"] = history.paths(job.number);
  json["changes"] = ordered_json::array();
  static const std::array<const char*, 5> kKinds{"moved", "copied", "made", "removed", "trashed"};
  for (const auto& change : history.changes(job.number)) {
    json["changes"].push_back({{"kind", kKinds[static_cast<std::size_t>(change.change.kind)]},
                               {"from", change.change.from},
                               {"to", change.change.to},
                               {"undone", change.isUndone}});
  }
  json["complete"] = job.isComplete;
  return json;
}

void showChange(const RecordedChange& recorded) {
  const auto& change = recorded.change;
  const std::string from = printable(change.from);
  const std::string to = printable(change.to);
  std::cout << "  ";
  switch (change.kind) {
    case JobChange::Kind::moved:
      std::cout << tr("moved {1} to {2}", from, to);
      break;
    case JobChange::Kind::copied:
      std::cout << tr("copied {1} to {2}", from, to);
      break;
    case JobChange::Kind::made:
      std::cout << tr("made {1}", to);
      break;
    case JobChange::Kind::removed:
      std::cout << tr("removed {1}", from);
      break;
    case JobChange::Kind::trashed:
      std::cout << tr("moved {1} to the trash", from);
      break;
  }
  if (recorded.isUndone) std::cout << tr(" (undone)");
  std::cout << "\n";
}

// What of the selection the job did nothing to, as far as the history knows.
void showLeftPaths(const std::vector<std::string>& paths,
                   const std::vector<RecordedChange>& changes) {
  std::cout << tr("Not done, or not noted before the end:") << "\n";
  for (const auto& path : paths) {
    const bool isDone = std::any_of(changes.begin(), changes.end(), [&](const auto& change) {
      return change.change.from == path && change.change.kind != JobChange::Kind::removed;
    });
    if (isDone) continue;
    const bool isThere = platform().fileManager->itemExistsAtPath(path);
    std::cout << "  " << printable(path);
    if (!isThere) std::cout << tr(" (not there any more)");
    std::cout << "\n";
  }
}

void showJob(const RecordedJob& job, JobHistory& history) {
  std::cout << nameOfJob(job) << "\n";
  if (!job.subject.actionUid.empty()) {
    std::cout << tr("Action: {1} [{2}]", job.subject.actionUid, printable(job.subject.className))
              << "\n";
  }
  if (job.subject.undoes != 0) std::cout << tr("Undoes: {1}", job.subject.undoes) << "\n";
  std::cout << tr("State: {1}", shownState(job.state)) << "\n"
            << tr("Began: {1}", localTimeText(job.began)) << "\n";
  if (job.ended != 0) std::cout << tr("Ended: {1}", localTimeText(job.ended)) << "\n";
  std::cout << tr("Items: {1} of {2}", job.itemsDone, job.itemsTotal) << "\n";
  if (!job.message.empty()) {
    std::cout << tr("Message: {1}", printable(job.message)) << "\n";
  }
  const auto paths = history.paths(job.number);
  if (!paths.empty()) std::cout << tr("Chosen:") << "\n";
  for (const auto& path : paths) std::cout << "  " << printable(path) << "\n";
  if (paths.size() < job.itemsTotal) {
    std::cout << "  " << trn("and one more", "and {1} more", job.itemsTotal - paths.size()) << "\n";
  }
  const auto changes = history.changes(job.number);
  if (!changes.empty()) std::cout << tr("Done:") << "\n";
  for (const auto& change : changes) showChange(change);
  if (!job.isComplete) std::cout << "  " << tr("and more than the history holds") << "\n";
  if (job.state == RecordedState::interrupted) showLeftPaths(paths, changes);
  if (!job.complaints.empty()) std::cout << tr("Errors:") << "\n";
  for (const auto& complaint : job.complaints) std::cout << "  " << printable(complaint) << "\n";
  if (job.output.empty()) return;
  std::cout << tr("Output:") << "\n";
  for (std::size_t at = 0; at < job.output.size();) {
    const auto end = std::min(job.output.find('\n', at), job.output.size());
    std::cout << "  " << printable(job.output.substr(at, end - at)) << "\n";
    at = end + 1;
  }
}

int listHistory(JobHistory* history, std::size_t limit, bool asJson) {
  const auto jobs = history == nullptr ? std::vector<RecordedJob>() : history->jobs(limit);
  if (asJson) {
    auto json = ordered_json::array();
    for (const auto& job : jobs) json.push_back(jsonOfFinished(job, *history));
    std::cout << jsonText(json);
    return kExitSuccess;
  }
  for (const auto& job : jobs) {
    std::cout << lineHead(job) << "  " << titleOfRecord(job) << ", "
              << countOfItems(job.itemsTotal);
    if (job.changes != 0 && job.undone >= job.changes) std::cout << tr(" (undone)");
    std::cout << "\n";
  }
  return kExitSuccess;
}

int history(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"last"}, {"json"}});
  arguments.requirePositional(0, 1, tr("The number of a job"));
  const auto last = arguments.value("last");
  const auto recorded = openHistory();
  if (arguments.positional().empty()) {
    std::size_t limit = kListedJobs;
    if (last) {
      const auto number = numberOfWord(*last);
      if (!number) throw UsageError(tr("--last takes a number of jobs."));
      limit = static_cast<std::size_t>(*number);
    }
    return listHistory(recorded.get(), limit, arguments.has("json"));
  }
  if (last) throw UsageError(tr("--last goes with the list of jobs only."));
  const auto job = requireRecorded(recorded.get(), requireNumber(arguments.positional().front()));
  if (arguments.has("json")) {
    std::cout << jsonText(jsonOfFinished(job, *recorded));
  } else {
    showJob(job, *recorded);
  }
  return kExitSuccess;
}

int listOpenJobs(JobHistory* history, bool asJson) {
  const auto jobs = history == nullptr ? std::vector<RecordedJob>() : history->openJobs();
  auto json = ordered_json::array();
  for (const auto& job : jobs) {
    auto object = jsonOfJob(job);
    object["fraction"] = job.fraction ? ordered_json(*job.fraction) : ordered_json();
    object["pid"] = job.process.pid;
    json.push_back(std::move(object));
    if (asJson) continue;
    std::cout << lineHead(job) << "  " << titleOfRecord(job) << ", "
              << trn("{2} of {1} item", "{2} of {1} items", job.itemsTotal, job.itemsDone);
    if (job.fraction) std::cout << ", " << static_cast<int>(*job.fraction * kPercent) << "%";
    std::cout << "\n";
  }
  if (asJson) std::cout << jsonText(json);
  return kExitSuccess;
}

int cancelJob(JobHistory* history, std::int64_t number) {
  auto job = requireRecorded(history, number);
  if (isEnd(job.state)) {
    throw CommandError(tr("{1}, has ended already: {2}.", nameOfJob(job), shownState(job.state)));
  }
  auto posted = std::chrono::steady_clock::time_point();
  const auto hasEnded = [&] {
    // It may only just have begun, and not listen yet.
    if (std::chrono::steady_clock::now() - posted >= kPostAgain) {
      platform().notifyChannel->post(cancelNameOf(number));
      posted = std::chrono::steady_clock::now();
    }
    try {
      history->findInterruptedJobs();
      job = requireRecorded(history, number);
    } catch (const HistoryError& error) {
      if (!error.isBusy()) throw;
    }
    return isEnd(job.state);
  };
  const auto heartbeat = platform().runLoop->scheduleTimer(kLookAgainSeconds, true, [] {});
  platform().runLoop->runMainLoopUntil(hasEnded, kCancelTimeoutSeconds);
  heartbeat->invalidate();
  if (!isEnd(job.state)) {
    throw CommandError(tr("{1}, was told to end and has not ended yet.", nameOfJob(job)));
  }
  if (job.state != RecordedState::cancelled) {
    throw CommandError(
        tr("{1}, was not cancelled: it has ended as {2}.", nameOfJob(job), shownState(job.state)));
  }
  std::cout << trn("{2}, is cancelled: {3} of {1} item done.",
                   "{2}, is cancelled: {3} of {1} items done.", job.itemsTotal, nameOfJob(job),
                   job.itemsDone)
            << "\n";
  return kExitSuccess;
}

int jobs(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"json"}});
  const auto& positional = arguments.positional();
  if (positional.empty()) {
    return listOpenJobs(openHistory().get(), arguments.has("json"));
  }
  if (positional.front() != "cancel") {
    throw UsageError(tr("\"{1}\" is not cancel.", printable(positional.front())));
  }
  arguments.requirePositional(2, 2, tr("The number of a job"));
  if (arguments.has("json")) throw UsageError(tr("--json goes with the list of jobs only."));
  return cancelJob(openHistory().get(), requireNumber(positional[1]));
}

void showPlan(const UndoPlan& plan) {
  for (const auto& step : plan.steps) {
    switch (step.does) {
      case UndoStep::Does::movesBack:
        std::cout << "move " << printable(step.from) << " to " << printable(step.to) << "\n";
        break;
      case UndoStep::Does::trashes:
        std::cout << "trash " << printable(step.from) << "\n";
        break;
      case UndoStep::Does::nothing:
        break;
    }
  }
}

int undo(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"dry-run"}});
  arguments.requirePositional(0, 1, tr("The number of a job"));
  std::optional<std::int64_t> number;
  if (!arguments.positional().empty()) number = requireNumber(arguments.positional().front());
  installJobServices();
  if (!arguments.has("dry-run")) removeUnfinishedItems();
  const auto plan = [&] {
    const auto history = openHistory();
    if (history == nullptr) throw CommandError(tr("There is nothing that could be undone."));
    return planUndo(*history, number);
  }();
  if (arguments.has("dry-run")) {
    showPlan(plan);
    return kExitSuccess;
  }
  const auto end = runInSession([&](JobRunner& runner, JobRunner::Finished finished) {
    return runUndo(runner, plan, std::move(finished));
  });
  for (const auto& complaint : end.complaints) complain(complaint);
  if (!end.outcome.success) throw CommandError(end.outcome.message);
  std::cout << tr("{1}, is undone.", nameOfJob(plan.job)) << "\n";
  return kExitSuccess;
}

int listPolicies() {
  const ScopedSilence silence;
  const auto manager = loadActions();
  for (const auto& [uid, word] : companionSettings(kQueueSection)) {
    const auto limit = queueLimitOfWord(word);
    const auto place = findAction(manager->actions(), uid);
    std::cout << uid << "  "
              << (limit ? std::to_string(*limit) : printable(word) + tr(" (ignored)").shown())
              << "  "
              << (place ? printable(shownTitle(*place->action).shown())
                        : tr("(no longer in the list)").shown())
              << "\n";
  }
  return kExitSuccess;
}

int queue(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  const auto& positional = arguments.positional();
  if (positional.empty()) return listPolicies();
  arguments.requirePositional(2, 2, tr("A uid and how many requests of it may run at once"));
  if (!isUid(positional[0])) {
    throw UsageError(tr("\"{1}\" is no uid; a uid has 32 characters of 0 to 9 and A to F.",
                        printable(positional[0])));
  }
  if (positional[1] == "off") {
    setCompanionSetting(kQueueSection, positional[0], std::nullopt);
    return kExitSuccess;
  }
  const auto limit = queueLimitOfWord(positional[1]);
  if (!limit) throw UsageError(tr("It is one, a number from 1 to 99, or off."));
  const ScopedSilence silence;
  requireAction(loadActions()->actions(), positional[0]);
  setCompanionSetting(kQueueSection, positional[0], std::to_string(*limit));
  return kExitSuccess;
}

}  // namespace

std::vector<Command> historyCommands() {
  return {
      {{"jobs",
        trMark("list what is running and waiting, and cancel it"),
        {"[--json]", "cancel NUMBER"},
        {trMark("Jobs of every process of yours, the oldest first: number, beginning, state, "
                "title, items "
                "and how far they are."),
         trMark("\"cancel\" stops the job in whatever process it runs and waits until it has "
                "cleaned up "
                "after itself.")},
        {{"--json", trMark("An array of objects.")}}},
       jobs},
      {{"history",
        trMark("show what ran, when, on what, and how it ended"),
        {"[--last N] [--json]", "[--json] NUMBER"},
        {trMark("One line a job, the newest first. With a number: the files it was chosen on, what "
                "it did "
                "to them, what went wrong and what scripts and tools wrote."),
         trMark("The last 500 jobs are kept, in a file that only you can read. Passwords are in "
                "none of "
                "them.")},
        {{"--last N", trMark("How many jobs; 20 unless given.")},
         {"--json", trMark("An array of objects, or the object of one job.")}}},
       history},
      {{"undo",
        trMark("undo a move, a copy, a new file, a conversion or an archive"),
        {"[--dry-run] [NUMBER]"},
        {trMark(
             "Without a number the last job that can be undone. What was moved goes back to where "
             "it "
             "was; what was made is moved to the trash. All or nothing: when an item has been "
             "changed "
             "since, is gone, or its old name is taken, one sentence says so and nothing is done."),
         trMark("What replaced something cannot be undone. An undo that was interrupted is "
                "finished by "
                "another one.")},
        {{"--dry-run", trMark("Shows what would be moved, and does nothing.")}}},
       undo,
       true},
      {{"queue",
        trMark("show and set how many requests of an action run at once"),
        {"", "UID one|N|off"},
        {trMark("For what is chosen in file managers. Requests that are too many wait, whole, and "
                "run in "
                "the order in which they were made; the files of one request are never held back. "
                "Without "
                "a setting all run at once.")},
        {}},
       queue},
  };
}

}  // namespace tervano
