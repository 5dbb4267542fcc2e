#pragma once

#include "archive/url.h"
#include "model/tv_action.h"
#include "tasks/vx_task_helper.h"

namespace tervano {

// Runs a script file with the shell, with the selected paths as its arguments.
//
// A run starts "/bin/bash" on the caller's thread, which is the main thread, and returns; the block
// is called once the process has ended, on the main thread, with true and nil whatever the script's
// exit. What it writes goes to the log only. Without a script the block is never called. Throws
// PlatformException when the shell cannot be started; the block is stored then and never called.
//
// A run that starts before the last one has ended takes its place here: both processes go on, and
// the end of each calls the block of the newer run. Whoever drives a run holds the action until its
// end; an action that is gone misses it.
class TVShellScriptAction : public TVAction, public VXTaskHelperDelegate {
 public:
  // The helper of the most recent run, also after its end; null before the first.
  const std::shared_ptr<VXTaskHelper>& taskHelper() const { return taskHelper_; }
  void setTaskHelper(std::shared_ptr<VXTaskHelper> helper) { taskHelper_ = std::move(helper); }
  // The block of the most recent run, also after its call.
  const CompletionBlock& completionBlock() const { return completionBlock_; }
  void setCompletionBlock(CompletionBlock block) { completionBlock_ = std::move(block); }
  // The script, a file URL; nil until the user has chosen one.
  const std::optional<Url>& scriptURL() const { return scriptURL_; }
  void setScriptURL(std::optional<Url> url) { scriptURL_ = std::move(url); }
  // The text of a default script for the editor. Neither archived nor copied.
  const std::optional<std::string>& defaultScript() const { return defaultScript_; }
  void setDefaultScript(std::optional<std::string> script) { defaultScript_ = std::move(script); }
  // Whether the user may edit the script and its settings.
  bool isEditable() const { return isEditable_; }
  void setIsEditable(bool isEditable) { isEditable_ = isEditable; }

  void init() override;
  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  // A constant: one that is set is never answered.
  std::optional<std::string> defaultTitle() const override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVShellScriptAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

  void taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>& helper,
                                  const Data& data) override;
  void taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& helper,
                                 const Data& data) override;
  void taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& helper,
                           std::int64_t terminationReason) override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;

 private:
  std::shared_ptr<VXTaskHelper> taskHelper_;
  CompletionBlock completionBlock_;
  std::optional<Url> scriptURL_;
  std::optional<std::string> defaultScript_;
  bool isEditable_ = false;
};

}  // namespace tervano
