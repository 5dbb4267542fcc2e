#pragma once

#include "archive/url.h"
#include "model/tv_action.h"

namespace tervano {

// Creates a new file, a copy of a template, in each folder that the selection points at: in a
// selected folder itself, beside a selected file. Each folder receives at most one in a run.
//
// A run works on a serial queue of its own and calls its block exactly once, on the main queue; it
// holds the action until then, whose settings are not to be changed meanwhile. A taken name gives
// the next free one. The new files are dated now and revealed. Selected paths that do not exist are
// skipped. The first copy that fails ends the run with its error; what was created before stays.
// Without a file name, or with one that leads to another folder, nothing is created and the block
// gets an error. Nothing is logged.
class TVNewFileAction : public TVAction {
 public:
  // Marks a template that is meant to become a program. A run does not look at it.
  bool executable() const { return executable_; }
  void setExecutable(bool executable) { executable_ = executable; }
  // The name of the new file without its extension.
  const std::optional<std::string>& fileName() const { return fileName_; }
  void setFileName(std::optional<std::string> name) { fileName_ = std::move(name); }
  // Without the dot; nil and empty mean none.
  const std::optional<std::string>& extension() const { return extension_; }
  void setExtension(std::optional<std::string> extension) { extension_ = std::move(extension); }
  // The file or folder that is copied, a file URL.
  const std::optional<Url>& templateURL() const { return templateURL_; }
  void setTemplateURL(std::optional<Url> url) { templateURL_ = std::move(url); }

  void runWithFilePaths(const FilePaths& filePaths,
                        const CompletionBlock& completionBlock) override;
  std::optional<std::string> editorClassName() const override;

  std::string_view className() const override { return "TVNewFileAction"; }
  void initWithCoder(Unarchiver& coder) override;
  void encodeWithCoder(Archiver& coder) const override;

 protected:
  std::shared_ptr<TVAction> makeBlank() const override;
  void copyFieldsTo(TVAction& copy) const override;

 private:
  // The work of one run, on its queue.
  void createFiles(const FilePaths& filePaths, CompletionBlock completionBlock) const;

  bool executable_ = false;
  std::optional<std::string> fileName_;
  std::optional<std::string> extension_;
  std::optional<Url> templateURL_;
};

}  // namespace tervano
