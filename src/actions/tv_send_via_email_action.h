#pragma once

#include "actions/tv_open_with_app_action.h"

namespace tervano {

// Opens the selected files with the user's default mail application, which attaches them to a new
// message. Archived and copied as its parent, with the last mail application that was found.
class TVSendViaEmailAction : public TVOpenWithAppAction {
 public:
  void init() override;
  // Makes the handler of "mailto:" the application to open with, then calls the block with nil, at
  // once. Without a handler it does nothing and never calls the block.
  void beforeRunWithFilePaths(const FilePaths& filePaths,
                              const BeforeRunBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVSendViaEmailAction"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

}  // namespace tervano
