#include "actions/tv_copy_to_action.h"

#include "archive/archiver.h"
#include "archive/unarchiver.h"

namespace tervano {

void TVCopyToAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setDestinationURL(coder.decodeUrl("destinationURL"));
}

void TVCopyToAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(destinationURL(), "destinationURL");
}

std::shared_ptr<TVAction> TVCopyToAction::makeBlank() const {
  return std::make_shared<TVCopyToAction>();
}

void TVCopyToAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  static_cast<TVCopyToAction&>(copy).setDestinationURL(destinationURL());
}

std::optional<std::string> TVCopyToAction::editorClassName() const {
  return "TVMoveToActionModule";
}

void TVCopyToAction::runWithFilePaths(const FilePaths& /*filePaths*/,
                                      const CompletionBlock& /*completionBlock*/) {}

}  // namespace tervano
