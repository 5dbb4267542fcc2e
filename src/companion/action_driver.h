#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "companion/cancel_report.h"
#include "jobs/job.h"
#include "model/tv_action.h"
#include "platform/linux/secret.h"
#include "translation/translation.h"

namespace tervano {

// How a run ended.
struct RunOutcome {
  bool success = false;
  // A sentence for the user when it failed; empty for success.
  Sentence message;
  // Whether the action itself has told the user, by its own notification.
  bool toldByAction = false;
  // Whether it failed because the user wanted it to end, before it began or later.
  bool cancelled = false;
  // Then all that it had done; the message tells it, too.
  std::vector<CancelReport::Items> done = {};
};

// Takes a question back that nobody has answered. Main thread.
class Withdrawal {
 public:
  // Whoever shows the question takes it away then, and never answers. Null once there is an answer.
  void setHandler(std::function<void()> handler) { handler_ = std::move(handler); }
  void withdraw() {
    if (const auto handler = std::exchange(handler_, nullptr)) handler();
  }

 private:
  std::function<void()> handler_;
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
  // Null when nobody takes it back.
  std::shared_ptr<Withdrawal> withdrawal = nullptr;
};
// Asks, and calls `answer` once, at once or later on the main queue, unless the question is taken
// back first. A reason goes with a no that the user did not give, such as that nobody could be
// asked; it is empty otherwise.
using Asker = std::function<void(
    const Question& question, std::function<void(bool consents, const Sentence& reason)> answer)>;
// The same for a password that the user makes up, typed twice where it cannot be seen and never
// empty; nil is the no.
using PasswordAsker = std::function<void(
    const Question& question,
    std::function<void(std::optional<Secret> password, const Sentence& reason)> answer)>;
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
// `job`, when there is one, is the current job of everything that the run does. It is running from
// when nobody is asked any more, and its state is set at the end. Cancelling it stops the run: a
// question is taken back; its tools are ended, with whatever they have started, and none of them is
// heard of again; a move or a copy ends between two parts of a file. The run has ended once all its
// processes have, and its message says what was done before that.
//
// `finished` is called exactly once, later, on the main queue, also when the action throws or is
// one whose run or before-run never calls back. Main thread.
void runAction(const TVAction& action, std::vector<std::string> paths, const Askers& askers,
               std::function<void(const RunOutcome&)> finished, std::shared_ptr<Job> job = nullptr);

}  // namespace tervano
