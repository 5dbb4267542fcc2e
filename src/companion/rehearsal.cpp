#include "companion/rehearsal.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "archive/url.h"
#include "platform/linux/application_entry.h"
#include "platform/linux/tool_table.h"
#include "platform/notification_center.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

std::vector<std::string> pathsOf(const std::vector<Url>& urls) {
  std::vector<std::string> paths;
  std::transform(urls.begin(), urls.end(), std::back_inserter(paths), [](const Url& url) {
    return url.path().empty() ? url.absoluteString() : url.path();
  });
  return paths;
}

// The reading end of a pipe into which nobody writes.
class NoOutput : public FileHandle {
 public:
  void setReadabilityHandler(ReadabilityHandler /*handler*/) override {}
  Data availableData() override { return {}; }
};

class NoOutputPipe : public Pipe {
 public:
  const std::shared_ptr<FileHandle>& fileHandleForReading() const override { return handle_; }

 private:
  std::shared_ptr<FileHandle> handle_ = std::make_shared<NoOutput>();
};

class RehearsedProcess : public Process, public std::enable_shared_from_this<RehearsedProcess> {
 public:
  explicit RehearsedProcess(RehearsedProcesses& processes) : processes_(processes) {}

  void setLaunchPath(std::string path) override { launchPath_ = std::move(path); }
  const std::string& launchPath() const override { return launchPath_; }
  void setArguments(std::vector<std::string> arguments) override {
    arguments_ = std::move(arguments);
  }
  const std::vector<std::string>& arguments() const override { return arguments_; }
  void setEnvironment(std::optional<std::map<std::string, std::string>> /*environment*/) override {}
  void setCurrentDirectoryPath(std::optional<std::string> /*path*/) override {}
  void setStandardOutput(std::shared_ptr<Pipe> pipe) override { output_ = std::move(pipe); }
  void setStandardError(std::shared_ptr<Pipe> pipe) override { error_ = std::move(pipe); }
  const std::shared_ptr<Pipe>& standardOutput() const override { return output_; }
  const std::shared_ptr<Pipe>& standardError() const override { return error_; }
  void setStandardInput(int /*descriptor*/) override {}
  void setExtraDescriptor(int /*descriptor*/) override {}

  void launch() override {
    processes_.noteLaunch(launchPath_, arguments_);
    isRunning_ = true;
    platform().runLoop->dispatchAsyncOnMainQueue([self = shared_from_this()] {
      self->isRunning_ = false;
      platform().notificationCenter->post({kTaskDidTerminateNotification, self.get(), {}});
    });
  }
  bool isRunning() const override { return isRunning_; }
  void terminate() override {}
  bool suspend() override { return false; }
  bool resume() override { return false; }
  std::int64_t processIdentifier() const override { return 0; }
  TerminationReason terminationReason() const override { return TerminationReason::exit; }
  int terminationStatus() const override { return 0; }

 private:
  RehearsedProcesses& processes_;
  std::string launchPath_;
  std::vector<std::string> arguments_;
  std::shared_ptr<Pipe> output_;
  std::shared_ptr<Pipe> error_;
  bool isRunning_ = false;
};

// All texts of an event's descriptor, those of lists within it included.
void appendTexts(const AppleEventDescriptor* descriptor, std::vector<std::string>& texts) {
  if (descriptor == nullptr) return;
  if (descriptor->string() != nullptr) texts.push_back(*descriptor->string());
  if (descriptor->list() == nullptr) return;
  for (const auto& entry : *descriptor->list()) appendTexts(&entry, texts);
}

class RehearsedScriptTask : public UserScriptTask {
 public:
  RehearsedScriptTask(std::shared_ptr<UserScriptTask> real, RehearsedSteps& steps)
      : real_(std::move(real)), steps_(steps) {}

  void executeWithAppleEvent(const AppleEvent& event, CompletionHandler handler) override {
    std::vector<std::string> call;
    appendTexts(event.paramDescriptor(kASSubroutineName), call);
    appendTexts(event.paramDescriptor(kDirectObject), call);
    const std::size_t before = steps_.all().size();
    real_->executeWithAppleEvent(
        event,
        [&steps = steps_, before, call = std::move(call), handler = std::move(handler)](
            const std::optional<AppleEventDescriptor>& result, const std::optional<Error>& error) {
          const bool wouldStart = steps.all().size() > before;
          if (!wouldStart) return handler(result, error);
          // An interpreter that was not started reports nothing, which is no error here.
          steps.note("call", call);
          handler(result, std::nullopt);
        });
  }

 private:
  std::shared_ptr<UserScriptTask> real_;
  RehearsedSteps& steps_;
};

}  // namespace

void RehearsedSteps::note(std::string what, std::vector<std::string> words) {
  const std::lock_guard lock(mutex_);
  steps_.push_back({std::move(what), std::move(words)});
}

std::vector<RehearsedStep> RehearsedSteps::all() const {
  const std::lock_guard lock(mutex_);
  return steps_;
}

std::optional<RehearsedFileManager::Item> RehearsedFileManager::changed(
    const std::string& path) const {
  const std::lock_guard lock(mutex_);
  const auto found = changes_.find(path);
  return found == changes_.end() ? std::nullopt : std::optional(found->second);
}

void RehearsedFileManager::change(const std::string& path, Item item) {
  const std::lock_guard lock(mutex_);
  changes_[path] = item;
}

bool RehearsedFileManager::fileExistsAtPath(const std::string& path) const {
  const auto item = changed(path);
  return item ? *item != Item::none : ForwardingFileManager::fileExistsAtPath(path);
}

bool RehearsedFileManager::itemExistsAtPath(const std::string& path) const {
  const auto item = changed(path);
  return item ? *item != Item::none : ForwardingFileManager::itemExistsAtPath(path);
}

bool RehearsedFileManager::isDirectoryAtPath(const std::string& path) const {
  const auto item = changed(path);
  return item ? *item == Item::folder : ForwardingFileManager::isDirectoryAtPath(path);
}

RehearsedFileManager::Item RehearsedFileManager::itemAt(const std::string& path) const {
  if (!itemExistsAtPath(path)) return Item::none;
  return isDirectoryAtPath(path) ? Item::folder : Item::file;
}

std::optional<Error> RehearsedFileManager::objectionToChange(const std::string& path) const {
  const std::string folder = deletingLastPathComponent(path);
  if (changed(folder) == Item::folder) return std::nullopt;
  if (!ForwardingFileManager::isDirectoryAtPath(folder)) return posixError(ENOENT, folder);
  if (!isWritableFileAtPath(folder)) return posixError(EACCES, folder);
  return std::nullopt;
}

std::optional<Error> RehearsedFileManager::objectionToMaking(const std::string& from,
                                                             const std::string& to) const {
  if (!itemExistsAtPath(from)) return posixError(ENOENT, from);
  if (itemExistsAtPath(to)) return posixError(EEXIST, to);
  if (to.starts_with(from + "/")) return posixError(EINVAL, to);
  return objectionToChange(to);
}

std::optional<Error> RehearsedFileManager::createDirectoryAtPath(const std::string& path,
                                                                 bool withIntermediates) {
  if (isDirectoryAtPath(path) && withIntermediates) return std::nullopt;
  if (itemExistsAtPath(path)) return posixError(EEXIST, path);
  steps_.note("make folder", {path});
  change(path, Item::folder);
  return std::nullopt;
}

std::optional<Error> RehearsedFileManager::writeDataToFile(const Data& /*data*/,
                                                           const std::string& path,
                                                           bool /*atomically*/) {
  if (auto objection = objectionToChange(path)) return objection;
  steps_.note("write", {path});
  change(path, Item::file);
  return std::nullopt;
}

std::optional<Error> RehearsedFileManager::removeItemAtPath(const std::string& path) {
  if (!itemExistsAtPath(path)) return posixError(ENOENT, path);
  if (auto objection = objectionToChange(path)) return objection;
  steps_.note("remove", {path});
  change(path, Item::none);
  return std::nullopt;
}

std::optional<Error> RehearsedFileManager::copyItemAtPath(const std::string& from,
                                                          const std::string& to) {
  if (auto objection = objectionToMaking(from, to)) return objection;
  steps_.note("copy", {from, to});
  change(to, itemAt(from));
  return std::nullopt;
}

std::optional<Error> RehearsedFileManager::performCopy(const ItemCopy& copy) {
  if (copy.replaces && itemExistsAtPath(copy.from) && itemExistsAtPath(copy.to)) {
    if (auto error = removeItemAtPath(copy.to)) return error;
  }
  return copyItemAtPath(copy.from, copy.to);
}

std::optional<Error> RehearsedFileManager::setAttributesOfItemAtPath(
    const FileAttributes& /*attributes*/, const std::string& /*path*/) {
  return std::nullopt;
}

std::optional<Error> RehearsedFileManager::moveItemAtPath(const std::string& from,
                                                          const std::string& to) {
  if (auto objection = objectionToMaking(from, to)) return objection;
  if (auto objection = objectionToChange(from)) return objection;
  steps_.note("move", {from, to});
  change(to, itemAt(from));
  change(from, Item::none);
  return std::nullopt;
}

std::shared_ptr<Process> RehearsedProcesses::createProcess() {
  return std::make_shared<RehearsedProcess>(*this);
}

std::shared_ptr<Pipe> RehearsedProcesses::createPipe() {
  return std::make_shared<NoOutputPipe>();
}

void RehearsedProcesses::noteLaunch(const std::string& path,
                                    const std::vector<std::string>& arguments) {
  const auto tool = tools_.find(path);
  std::vector<std::string> words{tool == tools_.end() ? path : tool->second};
  words.insert(words.end(), arguments.begin(), arguments.end());
  steps_.note("run", std::move(words));
  // Its next picture must not get the same name.
  if (const auto conversion = pictureConversionOf(path, arguments)) files_.noteMade(conversion->to);
}

bool RehearsedWorkspace::openURL(const Url& url) {
  steps_.note("open", {url.absoluteString()});
  return URLForApplicationToOpenURL(url).has_value();
}

std::optional<RunningApplication> RehearsedWorkspace::openURLsWithApplicationAtURL(
    const std::vector<Url>& urls, const std::optional<Url>& applicationURL,
    std::uint32_t /*options*/, const Value::Dictionary& /*configuration*/,
    std::optional<Error>* error) {
  const std::string path = applicationURL ? applicationURL->path() : "";
  const auto fail = [&](const Error& why) {
    if (error != nullptr) *error = why;
    return std::nullopt;
  };
  if (path.empty()) return fail({"Workspace", 1, "No application is chosen."});
  auto words = pathsOf(urls);
  words.insert(words.begin(), path);
  if (!path.ends_with(".desktop")) {
    if (!platform().fileManager->itemExistsAtPath(path)) return fail(posixError(ENOENT, path));
    steps_.note("open", std::move(words));
    return RunningApplication{};
  }
  std::optional<Error> unreadable;
  const auto application = applicationEntryAtPath(path, &unreadable);
  if (!application) return fail(*unreadable);
  const auto mailProgram = URLForApplicationToOpenURL(Url("mailto:"));
  const auto line = application->execLine();
  if (mailProgram && mailProgram->path() == path) {
    steps_.note("attach", std::move(words));
  } else if (!application->busName().empty() || application->terminal || !line) {
    steps_.note("open", std::move(words));
  } else if (urls.size() <= 1 || line->takesLists()) {
    steps_.note("run", line->arguments(urls));
  } else {
    for (const auto& url : urls) steps_.note("run", line->arguments({&url, 1}));
  }
  return RunningApplication{application->identifier};
}

bool RehearsedWorkspace::selectFileInFileViewerRootedAtPath(
    const std::optional<std::string>& /*fullPath*/, const std::string& rootFullPath) {
  steps_.note("open", {rootFullPath});
  return true;
}

void RehearsedWorkspace::activateFileViewerSelectingURLs(const std::vector<Url>& urls) {
  if (!urls.empty()) steps_.note("show", pathsOf(urls));
}

std::shared_ptr<UserScriptTask> RehearsedUserScripts::taskWithURL(const std::optional<Url>& url,
                                                                  std::optional<Error>* error) {
  auto task = scripts_.taskWithURL(url, error);
  if (task == nullptr) return nullptr;
  return std::make_shared<RehearsedScriptTask>(std::move(task), steps_);
}

Rehearsal::Rehearsal(const Platform& real)
    : files_(*real.fileManager, steps_),
      processes_(steps_, files_, toolTable(*real.bundle)),
      workspace_(*real.workspace, steps_),
      userScripts_(processes_, steps_),
      notifications_(*real.userNotifications),
      services_(real) {
  services_.fileManager = &files_;
  services_.processes = &processes_;
  services_.workspace = &workspace_;
  services_.userScripts = &userScripts_;
  services_.userNotifications = &notifications_;
}

}  // namespace tervano
