#pragma once

#include "archive/url.h"
#include "model/tv_action.h"

namespace tervano {

// Moves the selected files and folders into one folder.
//
// A run works on a serial queue of its own, so that two runs proceed side by side, and calls its
// block exactly once, on the main queue. It holds the action until then; the destination is not to
// be changed meanwhile. Each item is renamed to the next free name or, with the preference
// `overwriteDestinationFile`, takes the place of what has its name. The first item that fails ends
// the run; what was moved before stays moved. A notification reports the outcome and the moved
// items are revealed, as the preferences say. A destination that is missing or not writable only
// gives the block false.
class TVMoveToAction : public TVAction {
 public:
  // The folder that receives the items, a file URL; nil until the user has chosen one.
  const std::optional<Url>& destinationURL() const { return destinationURL_; }
  void setDestinationURL(std::optional<Url> url) { destinationURL_ = std::move(url); }

  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVMoveToAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;

 private:
  // The work of one run, on its queue.
  void moveFilePaths(const FilePaths& filePaths, CompletionBlock completionBlock) const;

  std::optional<Url> destinationURL_;
};

}  // namespace tervano
