#pragma once

#include "archive/url.h"
#include "model/tv_action.h"

namespace tervano {

// Opens one folder in a new viewer of the file manager; the selection does not matter.
//
// A run asks the desktop and calls its block with true and nil before it returns, on the caller's
// thread, whatever became of the request: also for a folder that is missing or nil.
class TVOpenFavesAction : public TVAction {
 public:
  // The folder to open, a file URL; nil until the user has chosen one.
  const std::optional<Url>& destinationURL() const { return destinationURL_; }
  void setDestinationURL(std::optional<Url> url) { destinationURL_ = std::move(url); }

  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;

  std::string_view className() const override { return "TVOpenFavesAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;

 private:
  std::optional<Url> destinationURL_;
};

}  // namespace tervano
