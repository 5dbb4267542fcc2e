#include "companion/brief_run.h"

#include <fcntl.h>
#include <signal.h>

#include <memory>
#include <mutex>
#include <utility>

#include "archive/platform_exception.h"
#include "platform/linux/descriptor.h"
#include "platform/platform.h"
#include "platform/process.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr double kKillSeconds = 5;

// What one pipe has brought, by the thread that reads it.
class CollectedOutput {
 public:
  void add(const Data& data) {
    const std::lock_guard lock(mutex_);
    text_.append(data.begin(), data.end());
  }
  std::string text() {
    const std::lock_guard lock(mutex_);
    return text_;
  }

 private:
  std::mutex mutex_;
  std::string text_;
};

std::pair<std::shared_ptr<Pipe>, std::shared_ptr<CollectedOutput>> collectingPipe() {
  auto pipe = platform().processes->createPipe();
  auto collected = std::make_shared<CollectedOutput>();
  pipe->fileHandleForReading()->setReadabilityHandler([collected](FileHandle& handle) {
    const Data data = handle.availableData();
    if (data.empty()) {
      handle.setReadabilityHandler(nullptr);
    } else {
      collected->add(data);
    }
  });
  return {std::move(pipe), std::move(collected)};
}

}  // namespace

BriefRun runBriefly(const std::string& path, const std::vector<std::string>& arguments,
                    double seconds) {
  BriefRun run;
  try {
    const auto [outputPipe, output] = collectingPipe();
    const auto [errorPipe, errors] = collectingPipe();
    const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const auto process = platform().processes->createProcess();
    process->setLaunchPath(path);
    process->setArguments(arguments);
    process->setStandardInput(nothing.get());
    process->setStandardOutput(outputPipe);
    process->setStandardError(errorPipe);
    process->launch();
    const auto hasEnded = [&] { return !process->isRunning(); };
    if (!platform().runLoop->runMainLoopUntil(hasEnded, seconds)) {
      kill(static_cast<pid_t>(process->processIdentifier()), SIGKILL);
      platform().runLoop->runMainLoopUntil(hasEnded, kKillSeconds);
      run.failure = tr("{1} did not end in time", path);
    } else if (process->terminationReason() == TerminationReason::exit) {
      run.status = process->terminationStatus();
    } else {
      run.failure = tr("{1} was ended by signal {2}", path, process->terminationStatus());
    }
    outputPipe->fileHandleForReading()->setReadabilityHandler(nullptr);
    errorPipe->fileHandleForReading()->setReadabilityHandler(nullptr);
    run.output = output->text();
    run.errors = errors->text();
  } catch (const PlatformException& exception) {
    run.failure = exception.reason();
  }
  return run;
}

}  // namespace tervano
