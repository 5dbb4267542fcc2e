#include "companion/action_driver.h"

#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "archive/platform_exception.h"
#include "model/tv_action_group.h"
#include "platform/file_manager.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

std::string quotedTitle(const TVAction& action) {
  return "\"" + action.title().value_or("(no title)") + "\"";
}

// Why a move that gives no error did not begin.
std::string reasonForSilentFailure(const TVAction& action) {
  const auto* move = dynamic_cast<const TVMoveToAction*>(&action);
  if (move == nullptr) return quotedTitle(action) + " failed and gave no reason.";
  if (!move->destinationURL()) return quotedTitle(action) + " has no destination folder.";
  const std::string destination = move->destinationURL()->path();
  const bool exists = platform().fileManager->fileExistsAtPath(destination);
  return "The destination folder of " + quotedTitle(action) +
         (exists ? " cannot be written to: " : " does not exist: ") + destination;
}

// One request on its way. The action's blocks hold it, and it holds the action.
class Run : public std::enable_shared_from_this<Run> {
 public:
  Run(std::shared_ptr<TVAction> action, std::vector<std::string> paths,
      std::function<void(const RunOutcome&)> finished)
      : action_(std::move(action)), paths_(std::move(paths)), finished_(std::move(finished)) {}

  void start() {
    guarded([this] {
      action_->beforeRunWithFilePaths(paths_,
                                      [run = shared_from_this()](const Value&) { run->proceed(); });
    });
  }

 private:
  void proceed() {
    guarded([this] {
      action_->runWithFilePaths(
          paths_, [run = shared_from_this()](bool success, const std::optional<Error>& error) {
            run->complete(success, error);
          });
      if (!callsBackWhenRun(*action_)) {
        end({false,
             quotedTitle(*action_) + " is of a kind that does nothing when it is run (" +
                 std::string(action_->className()) + ").",
             false});
      }
    });
  }

  void complete(bool success, const std::optional<Error>& error) {
    if (success) {
      end({true, "", true});
    } else if (error) {
      end({false, error->message, true});
    } else {
      end({false, reasonForSilentFailure(*action_), false});
    }
  }

  // The outermost caller of an action: here its exception ends.
  void guarded(const std::function<void()>& step) {
    try {
      step();
    } catch (const PlatformException& exception) {
      end({false, quotedTitle(*action_) + " could not be run: " + exception.reason(), false});
    }
  }

  void end(RunOutcome outcome) {
    if (ended_) return;
    ended_ = true;
    platform().runLoop->dispatchAsyncOnMainQueue(
        [run = shared_from_this(), outcome = std::move(outcome)] { run->finished_(outcome); });
  }

  std::shared_ptr<TVAction> action_;
  std::vector<std::string> paths_;
  std::function<void(const RunOutcome&)> finished_;
  bool ended_ = false;
};

}  // namespace

bool callsBackWhenRun(const TVAction& action) {
  return action.className() != "TVAction" &&
         dynamic_cast<const TVActionGroup*>(&action) == nullptr &&
         dynamic_cast<const TVCopyToAction*>(&action) == nullptr;
}

void runAction(const TVAction& action, std::vector<std::string> paths,
               std::function<void(const RunOutcome&)> finished) {
  std::make_shared<Run>(action.copy(), std::move(paths), std::move(finished))->start();
}

}  // namespace tervano
