#include "actions/tv_compress_password_action.h"

namespace tervano {

void TVCompressPasswordAction::init() {
  TVAction::init();
  setTitle("Compress with password");
  setIcon(Image::imageNamed("icon-compress"));
  setIsDefault(true);
  setActionDescription("Create a protected zip file with the selected paths");
}

std::optional<std::string> TVCompressPasswordAction::editorClassName() const {
  return "TVResetAppModule";
}

std::shared_ptr<TVAction> TVCompressPasswordAction::makeBlank() const {
  return std::make_shared<TVCompressPasswordAction>();
}

void TVCompressPasswordAction::beforeRunWithFilePaths(const FilePaths& /*filePaths*/,
                                                      const BeforeRunBlock& /*completionBlock*/) {}

void TVCompressPasswordAction::runWithFilePaths(const FilePaths& /*filePaths*/,
                                                const CompletionBlock& /*completionBlock*/) {}

}  // namespace tervano
