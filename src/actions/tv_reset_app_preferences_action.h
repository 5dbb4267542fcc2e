#pragma once

#include "actions/tool_run.h"
#include "model/tv_action.h"

namespace tervano {

// Deletes the stored preferences of the first selected application; the others are left alone.
//
// A run starts "/usr/bin/defaults" "delete" with the application's bundle identifier, on the
// caller's thread, which is the main thread, and returns. A notification tells the outcome, then
// the block is called, on the main thread, with true and nil in either case. An application whose
// tool once wrote to its standard error is reported as not reset, and so is every later run of the
// same object. Without a bundle identifier nothing is started and the block is never called. Throws
// PlatformException when the tool cannot be started.
class TVResetAppPreferencesAction : public TVAction, public ToolRun {
 public:
  void init() override;
  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;
  // The identifier of the bundle at the path; nil when there is none. Blocking.
  std::optional<std::string> bundleIDForPath(const std::string& path) const;

  std::string_view className() const override { return "TVResetAppPreferencesAction"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  std::shared_ptr<ToolRun> sharedToolRun() override;
  std::string_view errorLogPrefix() const override;
  void reportEnd(const VXTaskHelper& last) const override;
};

}  // namespace tervano
