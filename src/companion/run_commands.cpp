#include <fcntl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <iostream>
#include <iterator>

#include "actions/next_available_path.h"
#include "actions/tv_compress_password_action.h"
#include "companion/action_driver.h"
#include "companion/action_kinds.h"
#include "companion/action_settings.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/asker.h"
#include "companion/command.h"
#include "companion/companion_settings.h"
#include "companion/complain.h"
#include "companion/completion_alert.h"
#include "companion/compress_run.h"
#include "companion/desktop_progress.h"
#include "companion/file_work.h"
#include "companion/first_run.h"
#include "companion/job_progress.h"
#include "companion/job_session.h"
#include "companion/recent_folders.h"
#include "companion/rehearsal.h"
#include "companion/request_receiver.h"
#include "companion/shortcut_processes.h"
#include "companion/silent_log.h"
#include "companion/terminal_progress.h"
#include "companion/value_json.h"
#include "platform/file_manager.h"
#include "platform/linux/application_service.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"

namespace tervano {

namespace {

constexpr char kApplicationIdentifier[] = "com.vessok.tervano";
constexpr double kHeartbeatSeconds = 1;
constexpr int kDefaultIdleSeconds = 60;
constexpr int kOpenNotificationSeconds = 600;

Askers askersOfDesktop() {
  return {askerOfDesktop(), passwordAskerOfDesktop()};
}

// What is run shows its progress on the desktop.
void showProgressOnDesktop(JobRunner& runner) {
  runner.addListener(JobProgressListener::showingOn(std::make_shared<DesktopProgress>()));
}

// What is run shows its progress on the terminal, when there is one.
void showProgressOnTerminal(JobRunner& runner) {
  if (!TerminalProgress::isPossible()) return;
  const auto progress = std::make_shared<TerminalProgress>();
  // Never taken out again, like the services of the jobs.
  static LogAboveProgress log(*platform().log, progress);
  static Platform services = platform();
  services.log = &log;
  installPlatform(services);
  runner.addListener(JobProgressListener::showingOn(progress));
}

// What a cancelled run had done, line by line.
void listWhatIsDone(const RunOutcome& outcome) {
  for (const auto& items : outcome.done) {
    std::cerr << items.heading << ":\n";
    for (const auto& path : items.paths) std::cerr << "  " << printable(path) << "\n";
  }
}

// An open descriptor as a word of the command line.
int descriptorFrom(const std::string& text) {
  constexpr std::size_t kMaximumDigits = 6;
  const bool isNumber = !text.empty() && text.size() <= kMaximumDigits &&
                        text.find_first_not_of("0123456789") == std::string::npos;
  if (!isNumber || fcntl(std::stoi(text), F_GETFD) < 0) {
    throw UsageError(tr("--password-fd takes the number of an open descriptor."));
  }
  return std::stoi(text);
}

int openURL(const std::vector<std::string>& words) {
  const Arguments arguments(words, {});
  arguments.requirePositional(1, 1, tr("The URL"));
  makeFirstRunAtStart();
  installJobServices();
  const auto runner = std::make_shared<JobRunner>();
  const auto history = std::make_shared<HistoryListener>();
  runner->addListener(history);
  showProgressOnDesktop(*runner);
  const auto receiver = std::make_shared<RequestReceiver>(askersOfDesktop(), runner);
  removeUnfinishedItems();
  const CancelToken interrupted;
  const CancelOnSignals cancelling(interrupted);
  std::optional<RequestReceiver::Result> ended;
  receiver->openURL(arguments.positional().front(),
                    [&](RequestReceiver::Result result, const std::string&) { ended = result; });
  // A signal wakes the loop only while it sleeps.
  const auto heartbeat = platform().runLoop->scheduleTimer(kHeartbeatSeconds, true, [] {});
  platform().runLoop->runMainLoopUntil(
      [&] {
        if (interrupted.isCancelled()) runner->cancelAll();
        return ended.has_value();
      },
      -1);
  heartbeat->invalidate();
  history->waitUntilWritten();
  waitForDesktop();
  switch (*ended) {
    case RequestReceiver::Result::success:
      return kExitSuccess;
    case RequestReceiver::Result::refused:
      return kExitUsage;
    case RequestReceiver::Result::failure:
      break;
  }
  return kExitFailure;
}

// A word as a shell takes it, so that it is plain where it begins and ends.
std::string quotedWord(const std::string& word) {
  std::string quoted = "'";
  for (const char character : word) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted += character;
    }
  }
  return quoted + "'";
}

// Shows what the run would do, and does nothing.
int rehearse(const TVAction& action, std::vector<std::string> paths, bool asJson) {
  // Never taken out again: what an action posted may still use it until the process ends.
  static SilentLog silentLog;
  static Rehearsal rehearsal(platform());
  static Platform services = rehearsal.services();
  services.log = &silentLog;
  installPlatform(services);
  std::optional<RunOutcome> ended;
  std::vector<RehearsedStep> steps;
  if (dynamic_cast<const TVCompressPasswordAction*>(&action) != nullptr) {
    // Packing is no service of the platform.
    const auto error = reasonNotToCompress(paths);
    ended = RunOutcome{!error, error ? translated(error->message) : Sentence(), false};
    if (!error) {
      std::string archive = vx_nextAvailablePath(archivePathFor(paths));
      paths.push_back(std::move(archive));
      steps.push_back({"compress", std::move(paths)});
    }
  } else {
    runAction(action, std::move(paths), {}, [&](const RunOutcome& outcome) { ended = outcome; });
    platform().runLoop->runMainLoopUntil([&] { return ended.has_value(); }, -1);
    steps = rehearsal.steps();
  }
  if (asJson) {
    auto json = nlohmann::ordered_json::array();
    for (const auto& step : steps) json.push_back({{"does", step.what}, {"words", step.words}});
    std::cout << jsonText(json);
  } else {
    for (const auto& step : steps) {
      std::cout << step.what;
      for (const auto& word : step.words) std::cout << " " << printable(quotedWord(word));
      std::cout << "\n";
    }
  }
  if (!ended->success) throw CommandError(ended->message);
  return kExitSuccess;
}

// Runs the action, waits for its end and tells of it.
int runInForeground(const TVAction& action, std::vector<std::string> paths, const Askers& askers) {
  installJobServices();
  removeUnfinishedItems();
  const auto end = runInSession([&](JobRunner& runner, JobRunner::Finished finished) {
    showProgressOnTerminal(runner);
    return runner.run(action, std::move(paths), askers, std::move(finished));
  });
  listWhatIsDone(end.outcome);
  if (end.outcome.success) {
    alertOfCompletion(action);
    noteRecentFolder(action);
  }
  waitForDesktop();
  if (!end.outcome.success) throw CommandError(end.outcome.message);
  for (const auto& complaint : end.complaints) complain(complaint);
  return end.complaints.empty() ? kExitSuccess : kExitFailure;
}

std::vector<std::string> absolutePaths(std::vector<std::string>::const_iterator begin,
                                       std::vector<std::string>::const_iterator end) {
  std::vector<std::string> paths;
  std::transform(begin, end, std::back_inserter(paths), absolutePath);
  return paths;
}

int run(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"password-fd"}, {"yes", "dry-run", "json"}});
  arguments.requirePositional(1, SIZE_MAX, tr("The uid of an action"));
  Askers askers;
  if (!arguments.has("yes")) {
    askers.consent = askerOfTerminal();
    if (!askers.consent) askers.consent = askerOfDesktop();
  }
  const auto descriptor = arguments.value("password-fd");
  askers.password = descriptor ? passwordAskerOfDescriptor(descriptorFrom(*descriptor))
                               : passwordAskerOfTerminal();
  const auto place = [&] {
    const ScopedSilence silence;
    return requireAction(loadActions()->actions(), arguments.positional().front());
  }();
  auto paths = absolutePaths(arguments.positional().begin() + 1, arguments.positional().end());
  if (arguments.has("dry-run")) {
    return rehearse(*place.action, std::move(paths), arguments.has("json"));
  }
  if (arguments.has("json")) throw UsageError(tr("--json goes with --dry-run only."));
  return runInForeground(*place.action, std::move(paths), askers);
}

// Moves or copies to a folder that need not be in the list, as an action of that kind does.
int transfer(const std::string& kind, const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"to"}, {"dry-run", "json"}});
  const auto folder = arguments.value("to");
  if (!folder) throw UsageError("--to is missing: the folder.");
  arguments.requirePositional(1, SIZE_MAX, "A file");
  const std::string destination = absolutePath(*folder);
  if (!platform().fileManager->isDirectoryAtPath(destination)) {
    throw CommandError(tr("There is no folder \"{1}\".", printable(destination)));
  }
  const auto action = newAction(Arguments({kind, "--to=" + destination}, {allSettings(), {}}));
  auto paths = absolutePaths(arguments.positional().begin(), arguments.positional().end());
  if (arguments.has("dry-run")) return rehearse(*action, std::move(paths), arguments.has("json"));
  if (arguments.has("json")) throw UsageError(tr("--json goes with --dry-run only."));
  return runInForeground(*action, std::move(paths), {});
}

int moveFiles(const std::vector<std::string>& words) {
  return transfer("move", words);
}

int copyFilesTo(const std::vector<std::string>& words) {
  return transfer("copy", words);
}

CommandHelp helpOfTransfer(const std::string& name, const std::string& summary) {
  return {
      name,
      summary,
      {"--to FOLDER PATH...", "--dry-run [--json] --to FOLDER PATH..."},
      {trMark("By the same rules, preferences and notifications as an action of the list. The "
              "folder counts for \"tervano recent\".")},
      {{"--to FOLDER", trMark("Where they go, a folder that is there.")},
       {"--dry-run", trMark("Does nothing, and shows what would be done as \"tervano run\" does.")},
       {"--json", trMark("With --dry-run, as for \"tervano run\".")}}};
}

// The long-lived companion: receives URLs until it has been idle for a while.
class Service {
 public:
  explicit Service(int idleSeconds) : idleSeconds_(idleSeconds) {
    runner_->addListener(history_);
    showProgressOnDesktop(*runner_);
    runner_->setQueuePolicy(queueLimitOf);
  }

  int run(const std::vector<std::string>& urls) {
    // Of the URLs of the command line, and of no other request.
    const auto ownToken = takeActivationToken();
    ApplicationService application(
        kApplicationIdentifier,
        {[this] { touch(); }, [this](const std::vector<std::string>& uris) { open(uris); },
         [this](const std::string& name, const std::vector<std::string>& parameters) {
           touch();
           return shortcuts_.begin(name, parameters);
         }});
    if (application.ownership() == ApplicationService::Ownership::other) {
      if (urls.empty() || application.forwardOpen(urls, ownToken)) return kExitSuccess;
      // The other process is leaving or stuck; the request must not be lost.
    }
    RequestReceiver::removeStaleHandOffFiles();
    removeLeftOvers();
    makeFirstRunAtStart();
    platform().userNotifications->setActivationHandler([this](const UserNotification& shown) {
      touch();
      RequestReceiver::showFilesOfNotification(shown.userInfo);
    });
    const CancelOnSignals cancelling(stopped_);
    {
      const ActivationScope scope(std::make_shared<Activation>(ownToken));
      open(urls);
    }
    const auto heartbeat = platform().runLoop->scheduleTimer(kHeartbeatSeconds, true, [] {});
    platform().runLoop->runMainLoopUntil(
        [&] { return stopped_.isCancelled() || idle(application); }, -1);
    application.release();
    platform().runLoop->runMainLoopUntil(
        [this] {
          if (stopped_.isCancelled()) runner_->cancelAll();
          return receiver_->running() == 0 && (stopped_.isCancelled() || shortcuts_.running() == 0);
        },
        -1);
    history_->waitUntilWritten();
    waitForDesktop();
    heartbeat->invalidate();
    platform().userNotifications->setActivationHandler(nullptr);
    return kExitSuccess;
  }

 private:
  using SteadyClock = std::chrono::steady_clock;

  // On a queue of its own: it may be much.
  void removeLeftOvers() const {
    *isCleaning_ = true;
    const auto queue = platform().runLoop->createSerialQueue("com.vessok.cleanupqueue");
    queue->dispatchAsync([isCleaning = isCleaning_] {
      removeUnfinishedItems();
      tellOfInterruptedJobs();
      platform().runLoop->dispatchAsyncOnMainQueue([isCleaning] { *isCleaning = false; });
    });
  }

  void touch() { lastRequest_ = SteadyClock::now(); }

  void open(const std::vector<std::string>& urls) {
    touch();
    for (const auto& url : urls) {
      receiver_->openURL(url, [this](RequestReceiver::Result, const std::string&) { touch(); });
    }
  }

  bool idle(const ApplicationService& application) const {
    if (*isCleaning_ || receiver_->running() != 0 || shortcuts_.running() != 0 ||
        platform().workspace->pendingRequests() != 0 ||
        platform().userNotifications->pendingDeliveries() != 0) {
      return false;
    }
    const bool isReachable = application.isReachable();
    // Without a bus nobody can send another request or press a button.
    if (!isReachable && application.ownership() != ApplicationService::Ownership::other)
      return true;
    const auto quiet = SteadyClock::now() - lastRequest_;
    if (isReachable && quiet < std::chrono::seconds(idleSeconds_)) return false;
    return platform().userNotifications->openNotifications() == 0 ||
           quiet >= std::chrono::seconds(kOpenNotificationSeconds);
  }

  int idleSeconds_;
  // Told by a signal to end: what runs is cancelled.
  const CancelToken stopped_;
  std::shared_ptr<HistoryListener> history_ = std::make_shared<HistoryListener>();
  std::shared_ptr<JobRunner> runner_ = std::make_shared<JobRunner>();
  std::shared_ptr<RequestReceiver> receiver_ =
      std::make_shared<RequestReceiver>(askersOfDesktop(), runner_);
  ShortcutProcesses shortcuts_;
  SteadyClock::time_point lastRequest_ = SteadyClock::now();
  // Whether what killed processes left behind is being removed. Main thread.
  std::shared_ptr<bool> isCleaning_ = std::make_shared<bool>(false);
};

int service(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"idle-seconds"}, {}});
  int idleSeconds = kDefaultIdleSeconds;
  if (const auto text = arguments.value("idle-seconds")) {
    constexpr std::size_t kMaximumDigits = 6;
    if (text->empty() || text->size() > kMaximumDigits ||
        text->find_first_not_of("0123456789") != std::string::npos) {
      throw UsageError(tr("--idle-seconds takes a number of seconds."));
    }
    idleSeconds = std::stoi(*text);
  }
  installJobServices();
  return Service(idleSeconds).run(arguments.positional());
}

}  // namespace

std::vector<Command> runCommands() {
  return {
      {{"open",
        trMark("receive a hand-off URL and run what it asks for"),
        {"URL"},
        {trMark(
            "The receiving side of \"tervano choose\", in the foreground. Only the URL that a menu "
            "makes is accepted, and its file must be your own.")},
        {}},
       openURL,
       true},
      {{"run",
        trMark("run an action on files and wait for its end"),
        {"[--yes] [--password-fd N] UID [PATH...]", "--dry-run [--json] UID [PATH...]"},
        {trMark(
             "What removes files for good asks first, on the terminal, else in a window. A kind of "
             "action that does "
             "nothing when it is run says so. A tool that wrote an error, "
             "ended badly or could not be started is a failure too."),
         trMark(
             "What compresses asks for the password on the terminal, unseen, else in a window. An "
             "interrupt stops the work and whatever it has started. Nothing unfinished stays; what "
             "was "
             "done before that stays and is listed, and of what removes files for good it is said "
             "what "
             "was lost. A link is packed as a link, without what it points to."),
         trMark("Work that takes longer than about a second shows how far it has come in the last "
                "line of "
                "the terminal, when standard error is one.")},
        {{"--yes", trMark("Removes without asking.")},
         {"--password-fd N",
          trMark(
              "Reads the password from the first line of that open descriptor; a carriage return "
              "before the end of the line is left out, too.")},
         {"--dry-run",
          trMark(
              "Does nothing, and shows one line for each thing that would be done: \"run\" with "
              "the "
              "program and every argument, \"move\", \"copy\" and \"remove\" with the exact paths, "
              "\"compress\" with what is packed and the archive, "
              "\"call\" with the handler of a user script and what it gets, \"open\" and "
              "\"attach\" "
              "with an application and the files, \"show\" with the files that a file manager "
              "selects. What would fail ends with the reason.")},
         {"--json", trMark("With --dry-run: an array of objects with \"does\" and \"words\".")}}},
       run,
       true},
      {helpOfTransfer("move", trMark("move files to a folder")), moveFiles, true},
      {helpOfTransfer("copy", trMark("copy files to a folder")), copyFilesTo, true},
      {{"service",
        trMark("receive hand-off URLs until idle for a while"),
        {"[--idle-seconds N] [URL...]"},
        {trMark(
             "Started by the desktop when a menu entry is chosen. Work that takes its time shows "
             "how "
             "far it has come, with a button that cancels it, in a notification where the desktop "
             "draws a bar there, else in a window; not while the preference "
             "disableActionNotifications "
             "is on. Owns the name com.vessok.tervano on "
             "the session bus; URLs are given to the process that owns it already. Works without a "
             "bus "
             "on the URLs of its command line."),
         trMark("An interrupt or a request to terminate cancels what runs, and the service ends "
                "once that "
                "has cleaned up after itself. What was killed is told at the next start.")},
        {{"--idle-seconds N", trMark("How long to wait for another request; 60 unless given.")}}},
       service,
       true},
  };
}

}  // namespace tervano
