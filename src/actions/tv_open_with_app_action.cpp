#include "actions/tv_open_with_app_action.h"

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/platform.h"
#include "platform/workspace.h"

namespace tervano {

void TVOpenWithAppAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setApplicationURL(coder.decodeUrl("applicationURL"));
}

void TVOpenWithAppAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(applicationURL(), "applicationURL");
}

std::shared_ptr<TVAction> TVOpenWithAppAction::makeBlank() const {
  return std::make_shared<TVOpenWithAppAction>();
}

void TVOpenWithAppAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  static_cast<TVOpenWithAppAction&>(copy).setApplicationURL(applicationURL());
}

std::optional<std::string> TVOpenWithAppAction::editorClassName() const {
  return "TVOpenWithAppModule";
}

void TVOpenWithAppAction::runWithFilePaths(const FilePaths& filePaths,
                                           const CompletionBlock& completionBlock) {
  std::vector<Url> urls;
  urls.reserve(filePaths.size());
  for (const std::string& path : filePaths) urls.push_back(Url::fileURLWithPath(path));
  std::optional<Error> error;
  const auto opened = platform().workspace->openURLsWithApplicationAtURL(
      urls, applicationURL(), kWorkspaceLaunchDefault, {}, &error);
  if (!completionBlock) return;
  if (opened) {
    completionBlock(true, std::nullopt);
  } else {
    completionBlock(false, error);
  }
}

}  // namespace tervano
