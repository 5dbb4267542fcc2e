#pragma once

#include <memory>

#include "actions/tool_run.h"
#include "model/tv_action.h"

namespace tervano {

// Removes the selected files and folders for good, with their contents overwritten first. It asks
// nobody: whoever drives it asks the user before.
//
// A run starts "/bin/rm" "-v" "-f" "-r" "-P" for each path, all at once, on the caller's thread,
// which is the main thread, and returns. After the last has ended a notification names its path
// only; then the block is called, on the main thread, with true and nil even when something could
// not be removed. Once a tool has written to its standard error, this and every later run of the
// same object is reported as failed. With no path nothing is started and the block is never called.
// Throws PlatformException when the tool cannot be started; the removals started before go on.
class TVSecureRemoveAction : public TVAction, public ToolRun {
 public:
  // For a question to the user. Nothing here sets or reads it.
  const std::shared_ptr<void>& alert() const { return alert_; }
  void setAlert(std::shared_ptr<void> alert) { alert_ = std::move(alert); }

  void init() override;
  // Does nothing and never calls the block.
  void beforeRunWithFilePaths(const FilePaths& filePaths,
                              const BeforeRunBlock& completionBlock) override;
  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVSecureRemoveAction"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  std::shared_ptr<ToolRun> sharedToolRun() override;
  std::string_view errorLogPrefix() const override;
  void reportEnd(const VXTaskHelper& last) const override;

 private:
  std::shared_ptr<void> alert_;
};

}  // namespace tervano
