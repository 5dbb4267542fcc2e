#include "actions/tv_open_faves_action.h"

#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/platform.h"
#include "platform/workspace.h"

namespace tervano {

void TVOpenFavesAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setDestinationURL(coder.decodeUrl("destinationURL"));
}

void TVOpenFavesAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(destinationURL(), "destinationURL");
}

std::shared_ptr<TVAction> TVOpenFavesAction::makeBlank() const {
  return std::make_shared<TVOpenFavesAction>();
}

void TVOpenFavesAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  static_cast<TVOpenFavesAction&>(copy).setDestinationURL(destinationURL());
}

void TVOpenFavesAction::runWithFilePaths(const FilePaths& /*filePaths*/,
                                         const CompletionBlock& completionBlock) {
  platform().workspace->selectFileInFileViewerRootedAtPath(
      std::nullopt, destinationURL() ? destinationURL()->path() : "");
  if (completionBlock) completionBlock(true, std::nullopt);
}

}  // namespace tervano
