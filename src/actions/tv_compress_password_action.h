#pragma once

#include "model/tv_action.h"

namespace tervano {

// Stands in the menu for a protected zip file of the selection. Neither run operation does anything
// or calls its block; whoever drives the action does the work.
class TVCompressPasswordAction : public TVAction {
 public:
  void init() override;
  void beforeRunWithFilePaths(const FilePaths& filePaths,
                              const BeforeRunBlock& completionBlock) override;
  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVCompressPasswordAction"; }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
};

}  // namespace tervano
