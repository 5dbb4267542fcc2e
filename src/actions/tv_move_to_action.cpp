#include "actions/tv_move_to_action.h"

#include "actions/next_available_path.h"
#include "actions/path_relations.h"
#include "actions/transfer_report.h"
#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/file_manager.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_notifications.h"
#include "platform/workspace.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {
namespace {

void completeOnMainQueue(TVAction::CompletionBlock completionBlock, bool success,
                         std::optional<Error> error) {
  if (!completionBlock) return;
  platform().runLoop->dispatchAsyncOnMainQueue(
      [completionBlock = std::move(completionBlock), success, error = std::move(error)] {
        completionBlock(success, error);
      });
}

// One run of a move: its state lives as long as the work item.
class MoveRun {
 public:
  MoveRun(Url destinationURL, std::string destinationPath)
      : destinationURL_(std::move(destinationURL)), destinationPath_(std::move(destinationPath)) {}

  void moveAll(const std::vector<std::string>& filePaths) {
    for (const std::string& source : filePaths) {
      if (!moveItem(source)) break;
    }
  }

  void report() const {
    if (!defaults_->disableActionNotifications()) {
      platform().userNotifications->deliverNotification(
          transferNotification(success_, "moving", movedPaths_));
    }
    if (defaults_->showFileOnMoveCopyComplete()) {
      platform().workspace->activateFileViewerSelectingURLs(movedURLs_);
    }
  }

  bool success() const { return success_; }
  const std::optional<Error>& error() const { return error_; }

 private:
  // False to stop the walk.
  bool moveItem(const std::string& source) {
    if (source == destinationPath_) {
      log("Skipping: " + source);
      return true;
    }
    std::string target =
        destinationURL_.URLByAppendingPathComponent(lastPathComponent(source)).path();
    if (defaults_->overwriteDestinationFile() && source == target) {
      log("Skipping: " + source);
      addMoved(target);
      return true;
    }
    if (defaults_->overwriteDestinationFile()) {
      makeRoom(source, target);
    } else {
      target = vx_nextAvailablePath(target);
    }
    if (auto error = platform().fileManager->moveItemAtPath(source, target)) {
      log("Could not move because of error: " + error->message);
      success_ = false;
      error_ = std::move(error);
      return false;
    }
    addMoved(target);
    return true;
  }

  // Removes what is in the way. Removing what the source lies in, or the source itself under
  // another spelling, would lose it; so would making room for a source that is not there or that
  // cannot go inside itself. In these cases everything is left to the move, which fails.
  void makeRoom(const std::string& source, const std::string& target) const {
    FileManager& files = *platform().fileManager;
    if (!files.itemExistsAtPath(target) || !files.itemExistsAtPath(source)) return;
    auto error = reasonNotToReplace(target, source, destinationPath_);
    if (!error) error = files.removeItemAtPath(target);
    if (error) log("Could not remove the existing file because of error: " + error->message);
  }

  void addMoved(const std::string& target) {
    movedPaths_.push_back(target);
    movedURLs_.push_back(Url::fileURLWithPath(target));
  }

  Url destinationURL_;
  std::string destinationPath_;
  std::shared_ptr<TVUserDefaults> defaults_ = TVUserDefaults::create();
  std::vector<std::string> movedPaths_;
  std::vector<Url> movedURLs_;
  bool success_ = true;
  std::optional<Error> error_;
};

}  // namespace

void TVMoveToAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setDestinationURL(coder.decodeUrl("destinationURL"));
}

void TVMoveToAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(destinationURL(), "destinationURL");
}

std::shared_ptr<TVAction> TVMoveToAction::makeBlank() const {
  return std::make_shared<TVMoveToAction>();
}

void TVMoveToAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  static_cast<TVMoveToAction&>(copy).setDestinationURL(destinationURL());
}

std::optional<std::string> TVMoveToAction::editorClassName() const {
  return "TVMoveToActionModule";
}

void TVMoveToAction::runWithFilePaths(const FilePaths& filePaths,
                                      const CompletionBlock& completionBlock) {
  const auto queue = platform().runLoop->createSerialQueue("com.vessok.movequeue");
  // The block is handed on, not copied, so that the main queue releases what it holds.
  queue->dispatchAsync([self = std::static_pointer_cast<const TVMoveToAction>(shared_from_this()),
                        filePaths, block = CompletionBlock(completionBlock)]() mutable {
    self->moveFilePaths(filePaths, std::move(block));
  });
}

void TVMoveToAction::moveFilePaths(const FilePaths& filePaths,
                                   CompletionBlock completionBlock) const {
  const FileManager& files = *platform().fileManager;
  const std::string destinationPath = destinationURL() ? destinationURL()->path() : "";
  if (destinationPath.empty() || !files.fileExistsAtPath(destinationPath) ||
      !files.isWritableFileAtPath(destinationPath)) {
    completeOnMainQueue(std::move(completionBlock), false, std::nullopt);
    return;
  }
  MoveRun run(*destinationURL(), destinationPath);
  run.moveAll(filePaths);
  run.report();
  completeOnMainQueue(std::move(completionBlock), run.success(), run.error());
}

}  // namespace tervano
