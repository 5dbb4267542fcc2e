#include "companion/action_driver.h"

#include <set>

#include "actions/next_available_path.h"
#include "actions/path_names.h"
#include "actions/tool_run.h"
#include "actions/tv_apple_script_action.h"
#include "actions/tv_compress_password_action.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_reset_app_preferences_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_send_via_email_action.h"
#include "actions/tv_shell_script_action.h"
#include "archive/platform_exception.h"
#include "companion/compress_run.h"
#include "companion/copy_run.h"
#include "companion/file_work.h"
#include "companion/removal_watch.h"
#include "model/tv_action_group.h"
#include "platform/file_manager.h"
#include "platform/linux/process_tree.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_scripts.h"
#include "tasks/vx_task_helper.h"

namespace tervano {

namespace {

// How long a tool may take to end by itself.
constexpr double kMercySeconds = 5;
// How often programs that are no children of ours are looked after while they end.
constexpr double kLookAfterSeconds = 0.05;

Sentence quotedTitle(const TVAction& action) {
  return tr("\"{1}\"", action.title() ? Sentence(*action.title()) : tr("(no title)"));
}

// Why an action that gives no error did not begin.
Sentence reasonForSilentFailure(const TVAction& action) {
  if (const auto* script = dynamic_cast<const TVAppleScriptAction*>(&action)) {
    std::optional<Error> error;
    platform().userScripts->taskWithURL(script->scriptURL(), &error);
    if (error) return error->message;
  }
  const auto* move = dynamic_cast<const TVMoveToAction*>(&action);
  const auto* copy = dynamic_cast<const TVCopyToAction*>(&action);
  if (move == nullptr && copy == nullptr) {
    return tr("{1} failed and gave no reason.", quotedTitle(action));
  }
  const auto& url = move != nullptr ? move->destinationURL() : copy->destinationURL();
  if (!url) return tr("{1} has no destination folder.", quotedTitle(action));
  const std::string destination = url->path();
  const bool exists = platform().fileManager->fileExistsAtPath(destination);
  return exists ? tr("The destination folder of {1} cannot be written to: {2}", quotedTitle(action),
                     destination)
                : tr("The destination folder of {1} does not exist: {2}", quotedTitle(action),
                     destination);
}

template <typename T>
bool is(const TVAction& action) {
  return dynamic_cast<const T*>(&action) != nullptr;
}

// Why the run of this action on these paths would end without calling back; nil when it does call
// back.
std::optional<Sentence> reasonForSilence(TVAction& action, const std::vector<std::string>& paths) {
  if (action.className() == "TVAction" || is<TVActionGroup>(action)) {
    return tr("{1} is of a kind that does nothing when it is run ({2}).", quotedTitle(action),
              std::string(action.className()));
  }
  if (const auto* script = dynamic_cast<const TVShellScriptAction*>(&action)) {
    if (!script->scriptURL()) return tr("{1} has no script.", quotedTitle(action));
    return std::nullopt;
  }
  auto* const reset = dynamic_cast<TVResetAppPreferencesAction*>(&action);
  const bool compresses = is<TVCompressPasswordAction>(action);
  const bool needsPaths = reset != nullptr || compresses || is<TVConvertImageAction>(action) ||
                          is<TVSecureRemoveAction>(action);
  if (needsPaths && paths.empty()) return tr("{1} needs a file to work on.", quotedTitle(action));
  if (compresses) {
    const auto error = reasonNotToCompress(paths);
    return error ? std::optional(translated(error->message)) : std::nullopt;
  }
  if (reset != nullptr && reset->bundleIDForPath(paths.front()).value_or("").empty()) {
    return tr("{1} is no application whose preferences can be found.", paths.front());
  }
  return std::nullopt;
}

// Whether a run that has just begun will not call back because no tool of it runs. The end of one
// that does comes later.
bool startedNoTool(const TVAction& action) {
  const auto* const run = dynamic_cast<const ToolRun*>(&action);
  return run != nullptr && run->pendingTasks().value_or(ToolRun::TaskHelpers()).empty();
}

// Lets go of the helpers of an action whose launch failed: they observe a process that never was.
void releaseHelpers(TVAction& action) {
  const auto release = [](const std::shared_ptr<VXTaskHelper>& helper) {
    if (helper != nullptr && helper->task() != nullptr && !helper->task()->isRunning()) {
      helper->cleanup();
    }
  };
  if (const auto* script = dynamic_cast<const TVShellScriptAction*>(&action)) {
    release(script->taskHelper());
  } else if (const auto* run = dynamic_cast<const ToolRun*>(&action)) {
    const auto helpers = run->pendingTasks().value_or(ToolRun::TaskHelpers());
    for (const auto& helper : helpers) release(helper);
  }
}

// Whether the end of the action is told by its tools.
bool endsWithTools(const TVAction& action) {
  return dynamic_cast<const ToolRun*>(&action) != nullptr || is<TVShellScriptAction>(action);
}

// Lets go of the tools of a run and has them end. One that has just ended is let go of, too: its
// end may not be known to the action yet.
void cancelTools(TVAction& action) {
  const auto letGo = [](const std::shared_ptr<VXTaskHelper>& helper) {
    if (helper == nullptr) return;
    helper->cancel();
    helper->cleanup();
  };
  if (const auto* run = dynamic_cast<const ToolRun*>(&action)) {
    const auto helpers = run->pendingTasks().value_or(ToolRun::TaskHelpers());
    for (const auto& helper : helpers) letGo(helper);
  } else if (const auto* script = dynamic_cast<const TVShellScriptAction*>(&action)) {
    letGo(script->taskHelper());
  }
}

Sentence subjectOf(const std::vector<std::string>& paths) {
  return paths.size() == 1 ? tr("\"{1}\"", lastPathComponent(paths.front()))
                           : trn("{1} item", "{1} items", paths.size());
}

// What has to be asked before the action may run; nil when nothing is.
std::optional<Question> questionFor(const TVAction& action, const std::vector<std::string>& paths) {
  if (!is<TVSecureRemoveAction>(action) || paths.empty()) return std::nullopt;
  return Question{tr("Overwrite and delete {1} for good?", subjectOf(paths)), paths, tr("Delete"),
                  tr("What is overwritten cannot be brought back.")};
}

Question passwordQuestionFor(const std::vector<std::string>& paths) {
  return {
      tr("Compress {1} with a password", subjectOf(paths)), paths, tr("Compress"),
      tr("What is in the files stays hidden without the password, and is lost when the password "
         "is. Their names can be read by anyone.")};
}

// One request on its way. The action's blocks hold it, and it holds the action.
class Run : public std::enable_shared_from_this<Run> {
 public:
  Run(std::shared_ptr<TVAction> action, std::vector<std::string> paths, Askers askers,
      std::function<void(const RunOutcome&)> finished, std::shared_ptr<Job> job)
      : action_(std::move(action)),
        paths_(std::move(paths)),
        askers_(std::move(askers)),
        finished_(std::move(finished)),
        job_(std::move(job)) {}

  void start() {
    if (job_ != nullptr) {
      job_->setCancelHandler([weak = weak_from_this()] {
        if (const auto run = weak.lock()) run->stop();
      });
    }
    guarded([this] {
      if (isStopped()) return endAsCancelled();
      silence_ = reasonForSilence(*action_, paths_);
      if (is<TVCompressPasswordAction>(*action_) && !silence_) return askForPassword();
      auto question = questionFor(*action_, paths_);
      if (!question || !askers_.consent) return prepare();
      question->withdrawal = withdrawal_;
      askers_.consent(*question, [run = shared_from_this()](bool consents, const auto& reason) {
        run->goOn(consents, reason);
      });
    });
  }

 private:
  void askForPassword() {
    if (!askers_.password) return goOn(false, tr("There is nobody to ask for the password."));
    auto question = passwordQuestionFor(paths_);
    question.withdrawal = withdrawal_;
    askers_.password(question, [run = shared_from_this()](std::optional<Secret> password,
                                                          const Sentence& reason) {
      const bool isGiven = password && !password->empty();
      if (isGiven) run->password_ = std::move(password);
      run->goOn(isGiven, reason);
    });
  }

  // After the user's answer.
  void goOn(bool consents, const Sentence& reason) {
    if (consents && !isStopped()) {
      guarded([this] { prepare(); });
    } else if (reason.empty()) {
      endAsCancelled();
    } else {
      end({false, reason, false});
    }
  }

  void prepare() {
    if (job_ != nullptr) job_->setState(JobState::running);
    action_->beforeRunWithFilePaths(paths_, [run = shared_from_this()](const Value&) {
      run->guarded([&] { run->proceed(); });
    });
    // Known not to call back, always or when it finds no program.
    if (silence_ || is<TVSecureRemoveAction>(*action_) || is<TVCompressPasswordAction>(*action_)) {
      proceed();
    } else if (is<TVSendViaEmailAction>(*action_) && !proceeds_) {
      end({false, tr("There is no mail program: no application handles \"mailto:\" links."),
           false});
    }
  }

  void proceed() {
    if (proceeds_ || ended_) return;
    proceeds_ = true;
    if (job_ != nullptr && is<TVSecureRemoveAction>(*action_)) removal_ = RemovalWatch::begin(job_);
    action_->runWithFilePaths(
        paths_, [run = shared_from_this()](bool success, const std::optional<Error>& error) {
          run->complete(success, error);
        });
    if (silence_) {
      end({false, *silence_, false});
    } else if (const auto* copy = dynamic_cast<const TVCopyToAction*>(action_.get())) {
      copyFiles(copy->destinationURL(), paths_, monitor(), endOfWork());
    } else if (is<TVCompressPasswordAction>(*action_)) {
      compressFiles(paths_, std::move(*password_), monitor(), endOfWork());
    } else if (startedNoTool(*action_)) {
      end({false, tr("{1} found nothing to do.", quotedTitle(*action_)), false});
    }
  }

  void complete(bool success, const std::optional<Error>& error) {
    if (ended_) return;
    if (isStopped() && !success) {
      endAsCancelled();
    } else if (success) {
      end({true, "", true});
    } else if (error) {
      end({false, translated(error->message), tellsFailures()});
    } else {
      end({false, reasonForSilentFailure(*action_), false});
    }
  }

  FileWorkEnd endOfWork() {
    return [run = shared_from_this()](const FileWorkOutcome& outcome) {
      if (outcome.cancelled) {
        return run->endAsCancelled(outcome.error ? Sentence("; " + outcome.error->message)
                                                 : Sentence());
      }
      run->complete(outcome.success, outcome.error);
    };
  }

  // Whether the user is shown a failure by what reports it.
  bool tellsFailures() const {
    return is<TVMoveToAction>(*action_) || is<TVCopyToAction>(*action_);
  }

  WorkMonitor monitor() const { return job_ == nullptr ? WorkMonitor() : job_->monitor(); }
  bool isStopped() const { return job_ != nullptr && job_->cancelToken().isCancelled(); }

  // The job was cancelled. Work of this process ends by itself. Tools are let go of, since their
  // ends would be taken for the action's, and the run ends with the last of them. Somebody who is
  // being asked is not waited for.
  void stop() {
    if (ended_ || tools_) return;
    withdrawal_->withdraw();
    if (!proceeds_) return endAsCancelled();
    // All tools have ended; the action's own end is on its way.
    if (endsWithTools(*action_) && job_->runningProcesses().empty()) return;
    tools_.emplace(job_->runningProcesses());
    cancelTools(*action_);
    tools_->terminate();
    killing_ = platform().runLoop->scheduleTimer(kMercySeconds, false,
                                                 [run = shared_from_this()] { run->killTools(); });
    if (!endsWithTools(*action_)) return;
    const auto endWithLastTool = [run = shared_from_this()] {
      if (run->job_->runningProcesses().empty()) run->endAsCancelled();
    };
    job_->setProcessEndHandler(endWithLastTool);
    endWithLastTool();
  }

  void killTools() {
    tools_->kill();
    isKilled_ = true;
  }

  // Once whatever the tools started has ended too, and it is known what was done. What does not
  // even end when it is killed is not waited for. `details` go on with the sentence where no job
  // knows more.
  void endAsCancelled(const Sentence& details = {}) {
    if (ended_ || isEnding_) return;
    isEnding_ = true;
    details_ = details;
    if (!tools_ || !tools_->isRunning()) return report();
    lookingAfter_ =
        platform().runLoop->scheduleTimer(kLookAfterSeconds, true, [run = shared_from_this()] {
          if (run->tools_->isRunning() && !run->isKilled_) return;
          run->lookingAfter_->invalidate();
          run->report();
        });
  }

  void report() {
    if (removal_ == nullptr) {
      return endWith(job_ == nullptr ? CancelReport() : cancelReportOf(*job_));
    }
    const auto queue = platform().runLoop->createSerialQueue("com.vessok.reportqueue");
    queue->dispatchAsync([run = shared_from_this(), removal = removal_]() mutable {
      auto report = removal->report();
      platform().runLoop->dispatchAsyncOnMainQueue(
          [run = std::move(run), report = std::move(report)] { run->endWith(report); });
    });
  }

  void endWith(const CancelReport& report) {
    if (ended_) return;
    Sentence message = tr("{1} was cancelled{2}.", quotedTitle(*action_),
                          report.text.empty() ? details_ : Sentence());
    if (!report.text.empty()) {
      message += " ";
      message += report.text;
    }
    end({false, std::move(message), report.text.empty(), true, report.items});
  }

  // The outermost caller of an action: here its exception ends.
  void guarded(const std::function<void()>& step) {
    const JobScope scope(job_);
    try {
      step();
    } catch (const PlatformException& exception) {
      releaseHelpers(*action_);
      end({false, tr("{1} could not be run: {2}", quotedTitle(*action_), exception.reason()),
           false});
    }
  }

  void end(RunOutcome outcome) {
    if (ended_) return;
    ended_ = true;
    withdrawal_->setHandler(nullptr);
    if (killing_ != nullptr) killing_->invalidate();
    if (lookingAfter_ != nullptr) lookingAfter_->invalidate();
    if (removal_ != nullptr) removal_->end();
    if (job_ != nullptr) {
      job_->setCancelHandler(nullptr);
      job_->setProcessEndHandler(nullptr);
    }
    platform().runLoop->dispatchAsyncOnMainQueue(
        [run = shared_from_this(), outcome = std::move(outcome)] {
          // A block that was never called, or is kept, would hold the action and itself for ever.
          run->action_.reset();
          run->finished_(outcome);
        });
  }

  std::shared_ptr<TVAction> action_;
  std::vector<std::string> paths_;
  Askers askers_;
  std::function<void(const RunOutcome&)> finished_;
  // Null for none.
  const std::shared_ptr<Job> job_;
  const std::shared_ptr<Withdrawal> withdrawal_ = std::make_shared<Withdrawal>();
  // Of what removes files for good, once it has begun.
  std::shared_ptr<RemovalWatch> removal_;
  // What is being ended, once the job was cancelled.
  std::optional<ProcessTree> tools_;
  std::shared_ptr<RunLoopTimer> killing_;
  std::shared_ptr<RunLoopTimer> lookingAfter_;
  bool isKilled_ = false;
  Sentence details_;
  // Nil until it was given.
  std::optional<Secret> password_;
  // Why the run will not call back; nil when it will.
  std::optional<Sentence> silence_;
  bool proceeds_ = false;
  bool isEnding_ = false;
  bool ended_ = false;
};

// Takes from `paths` those whose pictures can be converted at the same time: of several that would
// get one new name, as when only their extensions differ, just the first.
std::vector<std::string> takeBatch(const TVConvertImageAction& conversion,
                                   std::vector<std::string>& paths) {
  const std::string extension = conversion.outputExtension().value_or("");
  std::set<std::string> taken;
  std::vector<std::string> batch;
  std::vector<std::string> rest;
  for (auto& path : paths) {
    const std::string stem = deletingPathExtension(standardizingPath(path));
    const bool isFirst =
        taken.insert(vx_nextAvailablePath(appendingPathExtension(stem, extension))).second;
    (isFirst ? batch : rest).push_back(std::move(path));
  }
  paths = std::move(rest);
  return batch;
}

// One request to convert pictures, in batches that are run one after the other on copies of the
// action of their own. The first failure is the request's, but the other batches are run all the
// same.
class Conversion : public std::enable_shared_from_this<Conversion> {
 public:
  Conversion(std::shared_ptr<TVAction> action, std::vector<std::string> paths,
             std::function<void(const RunOutcome&)> finished, std::shared_ptr<Job> job)
      : action_(std::move(action)),
        paths_(std::move(paths)),
        finished_(std::move(finished)),
        job_(std::move(job)) {}

  void runNext() {
    auto batch = takeBatch(static_cast<const TVConvertImageAction&>(*action_), paths_);
    std::make_shared<Run>(
        action_->copy(), std::move(batch), Askers(),
        [conversion = shared_from_this()](const RunOutcome& outcome) { conversion->end(outcome); },
        job_)
        ->start();
  }

 private:
  void end(const RunOutcome& outcome) {
    if (outcome_.success || outcome.cancelled) outcome_ = outcome;
    if (paths_.empty() || outcome.cancelled) {
      finished_(outcome_);
    } else {
      runNext();
    }
  }

  std::shared_ptr<TVAction> action_;
  // Those of the batches to come.
  std::vector<std::string> paths_;
  std::function<void(const RunOutcome&)> finished_;
  const std::shared_ptr<Job> job_;
  RunOutcome outcome_{true, "", true};
};

}  // namespace

bool isFileWork(const TVAction& action) {
  return is<TVCopyToAction>(action) || is<TVCompressPasswordAction>(action);
}

JobSubject jobSubjectOf(const TVAction& action, std::vector<std::string> paths) {
  return {action.uid().value_or(""), action.title().value_or(""), std::string(action.className()),
          std::move(paths)};
}

void runAction(const TVAction& action, std::vector<std::string> paths, const Askers& askers,
               std::function<void(const RunOutcome&)> finished, std::shared_ptr<Job> job) {
  if (job != nullptr) {
    finished = [job, finished = std::move(finished)](const RunOutcome& outcome) {
      job->setState(outcome.success     ? JobState::succeeded
                    : outcome.cancelled ? JobState::cancelled
                                        : JobState::failed);
      finished(outcome);
    };
  }
  const JobScope scope(job);
  if (is<TVConvertImageAction>(action)) {
    std::make_shared<Conversion>(action.copy(), std::move(paths), std::move(finished),
                                 std::move(job))
        ->runNext();
  } else {
    std::make_shared<Run>(action.copy(), std::move(paths), askers, std::move(finished),
                          std::move(job))
        ->start();
  }
}

}  // namespace tervano
