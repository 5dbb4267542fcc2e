#pragma once

#include "archive/url.h"
#include "model/tv_action.h"

namespace tervano {

// Opens the selected files with one application, in one request.
//
// A run calls its block once, on the caller's thread before it returns: true and nil when the
// application was asked, else false and the workspace's error, also when no application is set. It
// may wait for the desktop's answer, a bounded time.
class TVOpenWithAppAction : public TVAction {
 public:
  // The application, a file URL; nil until the user has chosen one.
  const std::optional<Url>& applicationURL() const { return applicationURL_; }
  void setApplicationURL(std::optional<Url> url) { applicationURL_ = std::move(url); }

  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVOpenWithAppAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;

 private:
  std::optional<Url> applicationURL_;
};

}  // namespace tervano
