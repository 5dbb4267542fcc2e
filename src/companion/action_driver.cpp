#include "companion/action_driver.h"

#include <csignal>
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
#include "model/tv_action_group.h"
#include "platform/file_manager.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_scripts.h"
#include "tasks/vx_task_helper.h"

namespace tervano {

namespace {

// How long a tool may take to end by itself.
constexpr double kMercySeconds = 5;

std::string quotedTitle(const TVAction& action) {
  return "\"" + action.title().value_or("(no title)") + "\"";
}

// Why an action that gives no error did not begin.
std::string reasonForSilentFailure(const TVAction& action) {
  if (const auto* script = dynamic_cast<const TVAppleScriptAction*>(&action)) {
    std::optional<Error> error;
    platform().userScripts->taskWithURL(script->scriptURL(), &error);
    if (error) return error->message;
  }
  const auto* move = dynamic_cast<const TVMoveToAction*>(&action);
  const auto* copy = dynamic_cast<const TVCopyToAction*>(&action);
  if (move == nullptr && copy == nullptr) {
    return quotedTitle(action) + " failed and gave no reason.";
  }
  const auto& url = move != nullptr ? move->destinationURL() : copy->destinationURL();
  if (!url) return quotedTitle(action) + " has no destination folder.";
  const std::string destination = url->path();
  const bool exists = platform().fileManager->fileExistsAtPath(destination);
  return "The destination folder of " + quotedTitle(action) +
         (exists ? " cannot be written to: " : " does not exist: ") + destination;
}

template <typename T>
bool is(const TVAction& action) {
  return dynamic_cast<const T*>(&action) != nullptr;
}

// Why the run of this action on these paths would end without calling back; nil when it does call
// back.
std::optional<std::string> reasonForSilence(TVAction& action,
                                            const std::vector<std::string>& paths) {
  if (action.className() == "TVAction" || is<TVActionGroup>(action)) {
    return quotedTitle(action) + " is of a kind that does nothing when it is run (" +
           std::string(action.className()) + ").";
  }
  if (const auto* script = dynamic_cast<const TVShellScriptAction*>(&action)) {
    if (!script->scriptURL()) return quotedTitle(action) + " has no script.";
    return std::nullopt;
  }
  auto* const reset = dynamic_cast<TVResetAppPreferencesAction*>(&action);
  const bool compresses = is<TVCompressPasswordAction>(action);
  const bool needsPaths = reset != nullptr || compresses || is<TVConvertImageAction>(action) ||
                          is<TVSecureRemoveAction>(action);
  if (needsPaths && paths.empty()) return quotedTitle(action) + " needs a file to work on.";
  if (compresses) {
    const auto error = reasonNotToCompress(paths);
    return error ? std::optional(error->message) : std::nullopt;
  }
  if (reset != nullptr && reset->bundleIDForPath(paths.front()).value_or("").empty()) {
    return paths.front() + " is no application whose preferences can be found.";
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

// Lets go of the tools of a run and has them end. False when the action has none, or its end is
// heard of in another way.
bool cancelTools(TVAction& action) {
  const auto* const run = dynamic_cast<const ToolRun*>(&action);
  const auto* const script = dynamic_cast<const TVShellScriptAction*>(&action);
  if (run != nullptr) {
    const auto helpers = run->pendingTasks().value_or(ToolRun::TaskHelpers());
    for (const auto& helper : helpers) helper->cancel();
  } else if (script != nullptr && script->taskHelper() != nullptr) {
    script->taskHelper()->cancel();
  }
  return run != nullptr || script != nullptr;
}

std::string subjectOf(const std::vector<std::string>& paths) {
  return paths.size() == 1 ? "\"" + lastPathComponent(paths.front()) + "\""
                           : std::to_string(paths.size()) + " items";
}

// What has to be asked before the action may run; nil when nothing is.
std::optional<Question> questionFor(const TVAction& action, const std::vector<std::string>& paths) {
  if (!is<TVSecureRemoveAction>(action) || paths.empty()) return std::nullopt;
  return Question{"Overwrite and delete " + subjectOf(paths) + " for good?", paths, "Delete",
                  "What is overwritten cannot be brought back."};
}

Question passwordQuestionFor(const std::vector<std::string>& paths) {
  return {"Compress " + subjectOf(paths) + " with a password", paths, "Compress",
          "What is in the files stays hidden without the password, and is lost when the password "
          "is. Their names can be read by anyone."};
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
      const auto question = questionFor(*action_, paths_);
      if (!question || !askers_.consent) return prepare();
      askers_.consent(*question, [run = shared_from_this()](bool consents, const auto& reason) {
        run->goOn(consents, reason);
      });
    });
  }

 private:
  void askForPassword() {
    if (!askers_.password) return goOn(false, "There is nobody to ask for the password.");
    askers_.password(
        passwordQuestionFor(paths_),
        [run = shared_from_this()](std::optional<Secret> password, const std::string& reason) {
          const bool isGiven = password && !password->empty();
          if (isGiven) run->password_ = std::move(password);
          run->goOn(isGiven, reason);
        });
  }

  // After the user's answer.
  void goOn(bool consents, const std::string& reason) {
    if (consents && !isStopped()) {
      guarded([this] { prepare(); });
    } else if (reason.empty()) {
      endAsCancelled();
    } else {
      end({false, reason, false});
    }
  }

  void prepare() {
    action_->beforeRunWithFilePaths(paths_, [run = shared_from_this()](const Value&) {
      run->guarded([&] { run->proceed(); });
    });
    // Known not to call back, always or when it finds no program.
    if (silence_ || is<TVSecureRemoveAction>(*action_) || is<TVCompressPasswordAction>(*action_)) {
      proceed();
    } else if (is<TVSendViaEmailAction>(*action_) && !proceeds_) {
      end({false, "There is no mail program: no application handles \"mailto:\" links.", false});
    }
  }

  void proceed() {
    if (proceeds_ || ended_) return;
    proceeds_ = true;
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
      end({false, quotedTitle(*action_) + " found nothing to do.", false});
    }
  }

  void complete(bool success, const std::optional<Error>& error) {
    if (ended_) return;
    if (isStopped() && !success) {
      endAsCancelled();
    } else if (success) {
      end({true, "", true});
    } else if (error) {
      end({false, error->message, tellsFailures()});
    } else {
      end({false, reasonForSilentFailure(*action_), false});
    }
  }

  FileWorkEnd endOfWork() {
    return [run = shared_from_this()](const FileWorkOutcome& outcome) {
      if (outcome.cancelled) {
        return run->endAsCancelled(outcome.error ? "; " + outcome.error->message : "");
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
    if (ended_) return;
    if (!proceeds_) return endAsCancelled();
    const bool isLetGo = cancelTools(*action_);
    for (const auto& process : job_->runningProcesses()) process->terminate();
    killing_ = platform().runLoop->scheduleTimer(kMercySeconds, false, [job = job_] {
      for (const auto& process : job->runningProcesses()) {
        kill(static_cast<pid_t>(process->processIdentifier()), SIGKILL);
      }
    });
    if (!isLetGo) return;
    // Nothing else holds it now.
    stopping_ = shared_from_this();
    const auto endWithLastTool = [this] {
      if (job_->runningProcesses().empty()) endAsCancelled();
    };
    job_->setProcessEndHandler(endWithLastTool);
    endWithLastTool();
  }

  // `details` go on with the sentence.
  void endAsCancelled(const std::string& details = "") {
    end({false, quotedTitle(*action_) + " was cancelled" + details + ".", true, true});
  }

  // The outermost caller of an action: here its exception ends.
  void guarded(const std::function<void()>& step) {
    const JobScope scope(job_);
    try {
      step();
    } catch (const PlatformException& exception) {
      releaseHelpers(*action_);
      end({false, quotedTitle(*action_) + " could not be run: " + exception.reason(), false});
    }
  }

  void end(RunOutcome outcome) {
    if (ended_) return;
    ended_ = true;
    if (killing_ != nullptr) killing_->invalidate();
    if (job_ != nullptr) {
      job_->setCancelHandler(nullptr);
      job_->setProcessEndHandler(nullptr);
    }
    platform().runLoop->dispatchAsyncOnMainQueue(
        [run = shared_from_this(), outcome = std::move(outcome)] {
          // A block that was never called, or is kept, would hold the action and itself for ever.
          run->action_.reset();
          run->stopping_.reset();
          run->finished_(outcome);
        });
  }

  std::shared_ptr<TVAction> action_;
  std::vector<std::string> paths_;
  Askers askers_;
  std::function<void(const RunOutcome&)> finished_;
  // Null for none.
  const std::shared_ptr<Job> job_;
  // Tools that are let go of hold nothing: what keeps this while they end.
  std::shared_ptr<Run> stopping_;
  std::shared_ptr<RunLoopTimer> killing_;
  // Nil until it was given.
  std::optional<Secret> password_;
  // Why the run will not call back; nil when it will.
  std::optional<std::string> silence_;
  bool proceeds_ = false;
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
    job->setState(JobState::running);
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
