#pragma once

#include "archive/url.h"
#include "model/tv_action.h"
#include "platform/user_scripts.h"

namespace tervano {

// Calls the handler "runWithPaths" of a script of the user's with one argument, the list of the
// selected paths.
//
// The script runs outside the process; the block is called exactly once, on the main queue, with
// true and nil or with false and the script's error. A script that cannot be loaded, as when none
// is chosen, is logged and gives the block false and nil before the run returns. A new run leaves
// an earlier one alone.
class TVAppleScriptAction : public TVAction {
 public:
  // The script of the most recent run; null before the first and when it could not be loaded.
  const std::shared_ptr<UserScriptTask>& task() const { return task_; }
  void setTask(std::shared_ptr<UserScriptTask> task) { task_ = std::move(task); }
  // The script, a file URL; nil until the user has chosen one.
  const std::optional<Url>& scriptURL() const { return scriptURL_; }
  void setScriptURL(std::optional<Url> url) { scriptURL_ = std::move(url); }

  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVAppleScriptAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;

 private:
  std::shared_ptr<UserScriptTask> task_;
  std::optional<Url> scriptURL_;
};

}  // namespace tervano
