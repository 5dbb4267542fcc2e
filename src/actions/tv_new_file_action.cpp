#include "actions/tv_new_file_action.h"

#include <set>

#include "actions/next_available_path.h"
#include "actions/path_names.h"
#include "archive/archiver.h"
#include "archive/unarchiver.h"
#include "platform/clock.h"
#include "platform/file_manager.h"
#include "platform/file_name.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/workspace.h"

namespace tervano {
namespace {

constexpr char kNewFileErrorDomain[] = "TVNewFileAction";

// One run: its state lives as long as the work item.
class NewFileRun {
 public:
  NewFileRun(std::string name, std::string templatePath)
      : name_(std::move(name)), templatePath_(std::move(templatePath)) {}

  void createAll(const TVAction::FilePaths& filePaths) {
    if (name_.empty()) {
      error_ = Error{kNewFileErrorDomain, 1, "No name is set for the new file"};
      return;
    }
    if (!isFileName(name_)) {
      error_ = Error{kNewFileErrorDomain, 3, "A new file cannot have the name \"" + name_ + "\""};
      return;
    }
    for (const std::string& path : filePaths) {
      error_ = createForPath(path);
      if (error_) break;
    }
  }

  const std::vector<Url>& createdURLs() const { return createdURLs_; }
  const std::optional<Error>& error() const { return error_; }

 private:
  std::optional<Error> createForPath(const std::string& path) {
    FileManager& files = *platform().fileManager;
    if (!files.fileExistsAtPath(path)) return std::nullopt;
    std::string folder = deletingLastPathComponent(path);
    // Without slashes at its end, so that one folder is one however it was given.
    if (files.isDirectoryAtPath(path)) {
      folder = appendingPathComponent(folder, lastPathComponent(path));
    }
    if (!handledFolders_.insert(folder).second) return std::nullopt;
    const std::string target = vx_nextAvailablePath(appendingPathComponent(folder, name_));
    if (templatePath_.empty()) {
      return Error{kNewFileErrorDomain, 2, "No template is set for the new file " + target};
    }
    if (auto error = files.copyItemAtPath(templatePath_, target)) return error;
    FileAttributes attributes;
    attributes.modificationDate = platform().clock->nowInNanoseconds();
    attributes.creationDate = platform().clock->nowInNanoseconds();
    files.setAttributesOfItemAtPath(attributes, target);
    createdURLs_.push_back(Url::fileURLWithPath(target));
    return std::nullopt;
  }

  std::string name_;
  std::string templatePath_;
  std::set<std::string> handledFolders_;
  std::vector<Url> createdURLs_;
  std::optional<Error> error_;
};

}  // namespace

void TVNewFileAction::initWithCoder(Unarchiver& coder) {
  TVAction::initWithCoder(coder);
  setTemplateURL(coder.decodeUrl("templateURL"));
  setExecutable(coder.decodeBool("executable"));
  setFileName(coder.decodeString("fileName"));
  setExtension(coder.decodeString("extension"));
}

void TVNewFileAction::encodeWithCoder(Archiver& coder) const {
  TVAction::encodeWithCoder(coder);
  coder.encodeObject(templateURL(), "templateURL");
  coder.encodeBool(executable(), "executable");
  coder.encodeObject(fileName(), "fileName");
  coder.encodeObject(extension(), "extension");
}

std::shared_ptr<TVAction> TVNewFileAction::makeBlank() const {
  return std::make_shared<TVNewFileAction>();
}

void TVNewFileAction::copyFieldsTo(TVAction& copy) const {
  TVAction::copyFieldsTo(copy);
  auto& newFile = static_cast<TVNewFileAction&>(copy);
  newFile.setTemplateURL(templateURL());
  newFile.setExecutable(executable());
  newFile.setFileName(fileName());
  newFile.setExtension(extension());
}

std::optional<std::string> TVNewFileAction::editorClassName() const {
  return "TVMoveToActionModule";
}

void TVNewFileAction::runWithFilePaths(const FilePaths& filePaths,
                                       const CompletionBlock& completionBlock) {
  const auto queue = platform().runLoop->createSerialQueue("com.vessok.newfilequeue");
  // The block is handed on, not copied, so that the main queue releases what it holds.
  queue->dispatchAsync([self = std::static_pointer_cast<const TVNewFileAction>(shared_from_this()),
                        filePaths, block = CompletionBlock(completionBlock)]() mutable {
    self->createFiles(filePaths, std::move(block));
  });
}

void TVNewFileAction::createFiles(const FilePaths& filePaths,
                                  CompletionBlock completionBlock) const {
  std::string name = fileName().value_or("");
  if (fileName() && extension() && !extension()->empty()) {
    name = appendingPathExtension(name, *extension());
  }
  NewFileRun run(std::move(name), templateURL() ? templateURL()->path() : "");
  run.createAll(filePaths);
  platform().workspace->activateFileViewerSelectingURLs(run.createdURLs());
  platform().runLoop->dispatchAsyncOnMainQueue(
      [block = std::move(completionBlock), error = run.error()] {
        if (block) block(!error, error);
      });
}

}  // namespace tervano
