#include "companion/recording_processes.h"

#include "archive/platform_exception.h"
#include "platform/notification_center.h"
#include "platform/platform.h"

namespace tervano {

namespace {

// More than this of what a process wrote is not kept.
constexpr std::size_t kKeptBytes = 4096;

std::string withoutBlankEnds(const std::string& text) {
  constexpr char kBlanks[] = " \t\r\n";
  const auto begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

void RecordingProcesses::Record::complain(std::string sentence) {
  const std::lock_guard lock(mutex_);
  complaints_.push_back(std::move(sentence));
}

std::vector<std::string> RecordingProcesses::Record::complaints() const {
  const std::lock_guard lock(mutex_);
  return complaints_;
}

// Keeps the beginning of what is read through it.
class RecordingProcesses::RecordedFileHandle
    : public FileHandle,
      public std::enable_shared_from_this<RecordedFileHandle> {
 public:
  explicit RecordedFileHandle(std::shared_ptr<FileHandle> real) : real_(std::move(real)) {}

  void setReadabilityHandler(ReadabilityHandler handler) override {
    if (handler == nullptr) return real_->setReadabilityHandler(nullptr);
    real_->setReadabilityHandler(
        [handle = weak_from_this(), handler = std::move(handler)](FileHandle&) {
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

class RecordingProcesses::RecordedPipe : public Pipe {
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
class RecordingProcesses::RecordedProcess : public Process,
                                            public std::enable_shared_from_this<RecordedProcess> {
 public:
  RecordedProcess(std::shared_ptr<Process> real, std::shared_ptr<Record> record)
      : real_(std::move(real)), record_(std::move(record)) {}

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
      record_->complain(exception.reason());
      end_.cancel();
      throw;
    }
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

  void didEnd() {
    const auto keptToTheEnd = shared_from_this();
    end_.cancel();
    const int status = real_->terminationStatus();
    const auto errors = std::dynamic_pointer_cast<RecordedPipe>(standardError_);
    const std::string text = errors == nullptr ? "" : withoutBlankEnds(errors->text());
    std::string ending;
    if (real_->terminationReason() == TerminationReason::uncaughtSignal) {
      ending = " was ended by signal " + std::to_string(status);
    } else if (status != 0) {
      ending = " ended with status " + std::to_string(status);
    } else if (!text.empty()) {
      ending = " wrote an error";
    }
    if (!ending.empty()) {
      record_->complain(launchPath() + ending + (text.empty() ? "." : ": " + text));
    }
    platform().notificationCenter->post(
        {kTaskDidTerminateNotification, static_cast<Process*>(this), {}});
  }

  std::shared_ptr<Process> real_;
  std::shared_ptr<Record> record_;
  std::shared_ptr<Pipe> standardOutput_;
  std::shared_ptr<Pipe> standardError_;
  Subscription end_;
};

std::shared_ptr<Process> RecordingProcesses::createProcess() {
  return std::make_shared<RecordedProcess>(ForwardingProcesses::createProcess(), record_);
}

std::shared_ptr<Pipe> RecordingProcesses::createPipe() {
  return std::make_shared<RecordedPipe>(ForwardingProcesses::createPipe());
}

}  // namespace tervano
