#pragma once

#include "archive/url.h"
#include "model/tv_action.h"

namespace tervano {

// Copies the selected files and folders into one folder: the settings of it. Whoever drives actions
// does the copying itself.
class TVCopyToAction : public TVAction {
 public:
  // The folder that receives the items, a file URL; nil until the user has chosen one.
  const std::optional<Url>& destinationURL() const { return destinationURL_; }
  void setDestinationURL(std::optional<Url> url) { destinationURL_ = std::move(url); }

  // Does nothing; the block is never called.
  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVCopyToAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;

 private:
  std::optional<Url> destinationURL_;
};

}  // namespace tervano
