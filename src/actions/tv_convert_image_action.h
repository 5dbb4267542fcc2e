#pragma once

#include "actions/tool_run.h"
#include "model/tv_action.h"

namespace tervano {

// Converts every selected image into one format, next to its source and without replacing anything.
//
// A run starts "/usr/bin/sips" for each path, all at once, on the caller's thread, which is the
// main thread, and returns. Notifications tell of the start and of the end of the last conversion,
// whose result is revealed; then the block is called, on the main thread, with true and nil even
// when conversions failed. With no path nothing is started and the block is never called. Throws
// PlatformException when format or extension is nil, when the extension cannot stand in a file name
// or when the tool cannot be started; the user has been told of a start by then, the conversions
// started before go on, and the block is never called.
class TVConvertImageAction : public TVAction, public ToolRun {
 public:
  // The tool's word for the format; nil until set.
  const std::optional<std::string>& outputFormat() const { return outputFormat_; }
  void setOutputFormat(std::optional<std::string> format) { outputFormat_ = std::move(format); }
  // The extension of the results, without the dot; nil until set, empty for names without one.
  const std::optional<std::string>& outputExtension() const { return outputExtension_; }
  void setOutputExtension(std::optional<std::string> extension) {
    outputExtension_ = std::move(extension);
  }

  void init() override;
  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  // The identifier of the bundle at the path; nil when there is none. Blocking.
  std::optional<std::string> bundleIDForPath(const std::string& path) const;

  std::string_view className() const override { return "TVConvertImageAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;
  std::shared_ptr<ToolRun> sharedToolRun() override;
  // The same text as that of TVResetAppPreferencesAction.
  std::string_view errorLogPrefix() const override;
  void reportEnd(const VXTaskHelper& last) const override;

 private:
  std::string outputPathFor(const std::string& input) const;

  std::optional<std::string> outputFormat_;
  std::optional<std::string> outputExtension_;
};

}  // namespace tervano
