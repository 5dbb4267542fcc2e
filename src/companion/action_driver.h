#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "jobs/job.h"
#include "model/tv_action.h"
#include "platform/linux/secret.h"

namespace tervano {

// How a run ended.
struct RunOutcome {
  bool success = false;
  // A sentence for the user when it failed; empty for success.
  std::string message;
  // Whether the action itself has told the user, by its own notification.
  bool toldByAction = false;
  // Whether it failed because the user wanted it to end, before it began or later.
  bool cancelled = false;
};

// What the user is asked before something is done to files.
struct Question {
  // One sentence: a question, or what is going to be done.
  std::string text;
  // The paths it is about.
  std::vector<std::string> paths;
  // The button that says yes: "Delete".
  std::string consent;
  // What to know before answering, in one or two sentences.
  std::string detail;
};
// Asks, and calls `answer` exactly once, at once or later on the main queue. A reason goes with a
// no that the user did not give, such as that nobody could be asked; it is empty otherwise.
using Asker =
    std::function<void(const Question& question,
                       std::function<void(bool consents, const std::string& reason)> answer)>;
// The same for a password that the user makes up, typed twice where it cannot be seen and never
// empty; nil is the no.
using PasswordAsker = std::function<void(
    const Question& question,
    std::function<void(std::optional<Secret> password, const std::string& reason)> answer)>;
// Who asks the user.
struct Askers {
  // Without one everybody consents.
  Asker consent;
  // Without one there is no password.
  PasswordAsker password;
};

// Whether running the action is work of this process that a monitor can follow and stop.
bool isFileWork(const TVAction& action);

// What a job of that action on these paths is about.
JobSubject jobSubjectOf(const TVAction& action, std::vector<std::string> paths);

// Runs a copy of the action on the paths: first its before-run, then its run, holding the copy to
// the end. What the classes leave to their driver, copying and compressing, is done here after
// that. What removes files for good is run only after the user's consent; what compresses asks for
// the password.
//
// `job`, when there is one, is the current job of everything that the run does, and its state is
// set at the beginning and at the end. Cancelling it stops the run: its tools are ended, and none
// of them is heard of again; a move or a copy ends between two parts of a file. The run has ended
// once all its processes have.
//
// `finished` is called exactly once, later, on the main queue, also when the action throws or is
// one whose run or before-run never calls back. Main thread.
void runAction(const TVAction& action, std::vector<std::string> paths, const Askers& askers,
               std::function<void(const RunOutcome&)> finished, std::shared_ptr<Job> job = nullptr);

}  // namespace tervano
