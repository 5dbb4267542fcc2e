#include "actions/tv_shell_script_action.h"

#include "actions/chunk_text.h"
#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/log.h"
#include "platform/platform.h"

namespace tervano {

void TVShellScriptAction::init() {
  TVAction::init();
  setIcon(Image::imageNamed("icon-shell"));
  setIsEditable(true);
}

std::optional<std::string> TVShellScriptAction::defaultTitle() const {
  return "Run Script";
}

std::optional<std::string> TVShellScriptAction::editorClassName() const {
  return "TVShellScriptModule";
}

void TVShellScriptAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setScriptURL(coder.decodeUrl("scriptURL"));
  setIsEditable(coder.decodeBool("isEditable"));
}

void TVShellScriptAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(scriptURL(), "scriptURL");
  coder.encodeBool(isEditable(), "isEditable");
}

std::shared_ptr<TVAction> TVShellScriptAction::makeBlank() const {
  return std::make_shared<TVShellScriptAction>();
}

void TVShellScriptAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  auto& script = static_cast<TVShellScriptAction&>(copy);
  script.setScriptURL(scriptURL());
  script.setIsEditable(isEditable());
}

void TVShellScriptAction::runWithFilePaths(const FilePaths& filePaths,
                                           const CompletionBlock& completionBlock) {
  log("Run with script: " + (scriptURL() ? scriptURL()->absoluteString() : "(null)"));
  if (!scriptURL()) return;
  const auto task = platform().processes->createProcess();
  task->setLaunchPath("/bin/bash");
  std::vector<std::string> arguments = {scriptURL()->path()};
  arguments.insert(arguments.end(), filePaths.begin(), filePaths.end());
  task->setArguments(std::move(arguments));
  setCompletionBlock(completionBlock);
  setTaskHelper(VXTaskHelper::taskHelperWithTask(task));
  taskHelper()->setDelegate(std::static_pointer_cast<TVShellScriptAction>(shared_from_this()));
  taskHelper()->launch();
}

void TVShellScriptAction::taskHelperDidReceiveOutput(
    const std::shared_ptr<VXTaskHelper>& /*helper*/, const Data& data) {
  log("Got output: " + chunkText(data));
}

void TVShellScriptAction::taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                                    const Data& data) {
  log("Got error: " + chunkText(data));
}

void TVShellScriptAction::taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                              std::int64_t /*terminationReason*/) {
  // A block that starts the next run replaces the stored one while it is called.
  const CompletionBlock block = completionBlock();
  if (block) block(true, std::nullopt);
}

}  // namespace tervano
