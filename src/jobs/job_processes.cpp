#include "jobs/job_processes.h"

#include "archive/platform_exception.h"
#include "jobs/job.h"
#include "platform/linux/tool_table.h"
#include "platform/notification_center.h"
#include "platform/platform.h"

namespace tervano {

namespace {

// More than this of what a process wrote is not kept, and not told in one sentence.
constexpr std::size_t kKeptBytes = std::size_t{16} << 10;
constexpr std::size_t kToldBytes = 4096;

std::string withoutBlankEnds(const std::string& text) {
  constexpr char kBlanks[] = " \t\r\n";
  const auto begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Keeps the beginning of what is read through it.
class RecordedFileHandle : public FileHandle,
                           public std::enable_shared_from_this<RecordedFileHandle> {
 public:
  explicit RecordedFileHandle(std::shared_ptr<FileHandle> real) : real_(std::move(real)) {}

  void setReadabilityHandler(ReadabilityHandler handler) override {
    if (handler == nullptr) return real_->setReadabilityHandler(nullptr);
    real_->setReadabilityHandler(
        [handle = weak_from_this(), handler = std::move(handler), job = currentJob()](FileHandle&) {
          const JobScope scope(job);
          if (const auto alive = handle.lock()) handler(*alive);
        });
  }
  Data availableData() override {
    Data chunk = real_->availableData();
    const std::lock_guard lock(mutex_);
    if (text_.size() < kKeptBytes) text_.append(chunk.begin(), chunk.end());
    return chunk;
  }
  std::string text() const {
    const std::lock_guard lock(mutex_);
    return text_.substr(0, kKeptBytes);
  }

 private:
  std::shared_ptr<FileHandle> real_;
  mutable std::mutex mutex_;
  std::string text_;
};

class RecordedPipe : public Pipe {
 public:
  explicit RecordedPipe(std::shared_ptr<Pipe> real)
      : real_(std::move(real)),
        recorded_(std::make_shared<RecordedFileHandle>(real_->fileHandleForReading())),
        handle_(recorded_) {}

  const std::shared_ptr<FileHandle>& fileHandleForReading() const override { return handle_; }
  const std::shared_ptr<Pipe>& real() const { return real_; }
  std::string text() const { return recorded_->text(); }

 private:
  std::shared_ptr<Pipe> real_;
  std::shared_ptr<RecordedFileHandle> recorded_;
  std::shared_ptr<FileHandle> handle_;
};

// Stands for one process; its end is announced again with this object as the sender.
class RecordedProcess : public Process, public std::enable_shared_from_this<RecordedProcess> {
 public:
  RecordedProcess(std::shared_ptr<Process> real, std::shared_ptr<Job> job, bool complains)
      : real_(std::move(real)), job_(std::move(job)), complains_(complains) {}

  void setLaunchPath(std::string path) override { real_->setLaunchPath(std::move(path)); }
  const std::string& launchPath() const override { return real_->launchPath(); }
  void setArguments(std::vector<std::string> arguments) override {
    real_->setArguments(std::move(arguments));
  }
  const std::vector<std::string>& arguments() const override { return real_->arguments(); }
  void setEnvironment(std::optional<std::map<std::string, std::string>> environment) override {
    real_->setEnvironment(std::move(environment));
  }
  void setCurrentDirectoryPath(std::optional<std::string> path) override {
    real_->setCurrentDirectoryPath(std::move(path));
  }
  void setStandardOutput(std::shared_ptr<Pipe> pipe) override {
    real_->setStandardOutput(realPipe(pipe));
    standardOutput_ = std::move(pipe);
  }
  void setStandardError(std::shared_ptr<Pipe> pipe) override {
    real_->setStandardError(realPipe(pipe));
    standardError_ = std::move(pipe);
  }
  const std::shared_ptr<Pipe>& standardOutput() const override { return standardOutput_; }
  const std::shared_ptr<Pipe>& standardError() const override { return standardError_; }

  void setStandardInput(int descriptor) override { real_->setStandardInput(descriptor); }
  void setExtraDescriptor(int descriptor) override { real_->setExtraDescriptor(descriptor); }

  void launch() override {
    // The observation holds this object until the end, as the service holds the real process.
    end_ = platform().notificationCenter->addObserver(
        kTaskDidTerminateNotification, real_.get(),
        [self = shared_from_this()](const Notification&) { self->didEnd(); });
    try {
      real_->launch();
    } catch (const PlatformException& exception) {
      if (complains_) job_->complain(exception.reason());
      end_.cancel();
      throw;
    }
    job_->processDidLaunch(real_);
  }
  bool isRunning() const override { return real_->isRunning(); }
  void terminate() override { real_->terminate(); }
  bool suspend() override { return real_->suspend(); }
  bool resume() override { return real_->resume(); }
  std::int64_t processIdentifier() const override { return real_->processIdentifier(); }
  TerminationReason terminationReason() const override { return real_->terminationReason(); }
  int terminationStatus() const override { return real_->terminationStatus(); }

 private:
  static std::shared_ptr<Pipe> realPipe(const std::shared_ptr<Pipe>& pipe) {
    const auto recorded = std::dynamic_pointer_cast<RecordedPipe>(pipe);
    return recorded == nullptr ? pipe : recorded->real();
  }

  static std::string textOf(const std::shared_ptr<Pipe>& pipe) {
    const auto recorded = std::dynamic_pointer_cast<RecordedPipe>(pipe);
    return recorded == nullptr ? "" : recorded->text();
  }

  void didEnd() {
    const auto keptToTheEnd = shared_from_this();
    const JobScope scope(job_);
    end_.cancel();
    // The signal that cancelled the job may have ended the process too: then the action is let go
    // of before it takes this for an end of its own.
    if (job_->cancelToken().isCancelled()) job_->cancel();
    if (complains_) complain();
    job_->addOutput(textOf(standardOutput_));
    const auto conversion = pictureConversionOf(launchPath(), arguments());
    if (conversion && endedWell()) {
      job_->addChange({JobChange::Kind::made, conversion->from, conversion->to});
    }
    // These are started once for each item.
    if (conversion || isRemoveTool(launchPath())) job_->addDoneItem();
    job_->processDidEnd(*real_);
    platform().notificationCenter->post(
        {kTaskDidTerminateNotification, static_cast<Process*>(this), {}});
  }

  bool endedWell() const {
    return terminationReason() == TerminationReason::exit && terminationStatus() == 0;
  }

  void complain() const {
    const std::string text = withoutBlankEnds(textOf(standardError_).substr(0, kToldBytes));
    std::string ending;
    if (terminationReason() == TerminationReason::uncaughtSignal) {
      ending = " was ended by signal " + std::to_string(terminationStatus());
    } else if (terminationStatus() != 0) {
      ending = " ended with status " + std::to_string(terminationStatus());
    } else if (!text.empty()) {
      ending = " wrote an error";
    }
    if (!ending.empty()) job_->complain(launchPath() + ending + (text.empty() ? "." : ": " + text));
  }

  std::shared_ptr<Process> real_;
  const std::shared_ptr<Job> job_;
  const bool complains_;
  std::shared_ptr<Pipe> standardOutput_;
  std::shared_ptr<Pipe> standardError_;
  Subscription end_;
};

}  // namespace

std::shared_ptr<Process> JobProcesses::createProcess() {
  auto process = ForwardingProcesses::createProcess();
  auto job = currentJob();
  if (job == nullptr) return process;
  return std::make_shared<RecordedProcess>(std::move(process), std::move(job),
                                           judgement_ == Judgement::complains);
}

std::shared_ptr<Pipe> JobProcesses::createPipe() {
  auto pipe = ForwardingProcesses::createPipe();
  return currentJob() == nullptr ? pipe : std::make_shared<RecordedPipe>(std::move(pipe));
}

}  // namespace tervano
