#include "companion/desktop_selection.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <memory>

#include "archive/platform_exception.h"
#include "companion/action_store.h"
#include "platform/bundle.h"
#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/notification_center.h"
#include "platform/platform.h"
#include "platform/process.h"
#include "platform/run_loop.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr char kSelectionProgram[] = "tervano-selection";
// Longer than the program waits for whoever has the files.
constexpr double kReadingSeconds = 10;
constexpr double kChoosingSeconds = -1;

// The exit statuses of the program.
constexpr int kSelected = 0;
constexpr int kNoFiles = 1;
constexpr int kNoDisplay = 3;
constexpr int kWindowClosed = 4;
constexpr int kTimedOut = 5;

// What the program writes: records of a letter and a text up to a NUL.
class SelectionRecords {
 public:
  void add(const Data& data) {
    for (const auto byte : data) {
      if (byte != 0) {
        record_ += static_cast<char>(byte);
        continue;
      }
      take(record_);
      record_.clear();
    }
  }
  bool hasAllFiles() const { return hasAllFiles_; }
  DesktopSelection& selection() { return selection_; }

 private:
  void take(const std::string& record) {
    const std::string text = record.empty() ? "" : record.substr(1);
    switch (record.empty() ? '\0' : record.front()) {
      case 'F':
        selection_.files.push_back(text);
        break;
      case 'E':
        hasAllFiles_ = true;
        break;
      case 'U':
        selection_.uid = text;
        break;
      case 'T':
        selection_.token = ActivationToken::fromTexts(text, selection_.token.startupIdentifier);
        break;
      case 'I':
        selection_.token = ActivationToken::fromTexts(selection_.token.token, text);
        break;
      default:
        break;
    }
  }

  std::string record_;
  DesktopSelection selection_;
  bool hasAllFiles_ = false;
};

// Waits where it must; an end of the program ends it.
void writeChoices(int descriptor, const SelectionChoices& choices) {
  std::string text;
  for (const auto& [uid, title] : choices) {
    for (const auto& field : {uid, title}) text.append(field).push_back('\0');
  }
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return;
    done += static_cast<std::size_t>(written);
  }
}

Sentence reasonOfStatus(int status, bool isPrimary) {
  switch (status) {
    case kNoFiles:
      return isPrimary ? tr("The marked text names no files.")
                       : tr("There are no files on the clipboard.");
    case kNoDisplay:
      return isPrimary ? tr("There is no display whose marked text could be read.")
                       : tr("There is no display whose clipboard could be read.");
    case kTimedOut:
      return isPrimary ? tr("The program with the marked text did not answer.")
                       : tr("The program that copied the files did not answer.");
    default:
      return isPrimary ? tr("The marked text could not be read.")
                       : tr("The clipboard could not be read.");
  }
}

// One run of the program.
class SelectionProgram {
 public:
  SelectionProgram(bool isPrimary, bool chooses) {
    process_ = platform().processes->createProcess();
    process_->setLaunchPath(platform().bundle->pathForAuxiliaryExecutable(kSelectionProgram));
    std::vector<std::string> arguments;
    if (isPrimary) arguments.emplace_back("--primary");
    if (chooses) arguments.emplace_back("--choose");
    process_->setArguments(std::move(arguments));
    const auto output = platform().processes->createPipe();
    process_->setStandardOutput(output);
    Descriptor input;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw PlatformException(kInvalidArgumentException, posixError(errno, "No pipe").message);
    }
    input.reset(ends[0]);
    choices_ = std::make_shared<Descriptor>(ends[1]);
    process_->setStandardInput(input.get());
    observation_ = platform().notificationCenter->addObserver(
        kTaskDidTerminateNotification, process_.get(),
        [hasEnded = hasEnded_](const Notification&) { *hasEnded = true; });
    output->fileHandleForReading()->setReadabilityHandler([records = records_](FileHandle& handle) {
      const auto data = handle.availableData();
      if (data.empty()) return;
      platform().runLoop->dispatchAsyncOnMainQueue([records, data] { records->add(data); });
    });
    output_ = output;
    process_->launch();
  }
  SelectionProgram(const SelectionProgram&) = delete;
  SelectionProgram& operator=(const SelectionProgram&) = delete;
  ~SelectionProgram() {
    process_->terminate();
    output_->fileHandleForReading()->setReadabilityHandler(nullptr);
  }

  SelectionRecords& records() { return *records_; }
  // Answers whether the program has told the files, or ended.
  bool waitForFiles() const {
    return wait(kReadingSeconds, [this] { return *hasEnded_ || records_->hasAllFiles(); });
  }
  bool waitForEnd(bool chooses) const {
    return wait(chooses ? kChoosingSeconds : kReadingSeconds, [this] { return *hasEnded_; });
  }
  bool hasEnded() const { return *hasEnded_; }
  int status() const {
    return process_->terminationReason() == TerminationReason::exit ? process_->terminationStatus()
                                                                    : -1;
  }
  void give(SelectionChoices choices) {
    const auto queue = platform().runLoop->createSerialQueue("com.vessok.choicesqueue");
    queue->dispatchAsync(
        [descriptor = std::exchange(choices_, nullptr), choices = std::move(choices)] {
          writeChoices(descriptor->get(), choices);
        });
  }

 private:
  static bool wait(double seconds, const std::function<bool()>& done) {
    return platform().runLoop->runMainLoopUntil(done, seconds);
  }

  std::shared_ptr<Process> process_;
  std::shared_ptr<Pipe> output_;
  std::shared_ptr<Descriptor> choices_;
  std::shared_ptr<SelectionRecords> records_ = std::make_shared<SelectionRecords>();
  std::shared_ptr<bool> hasEnded_ = std::make_shared<bool>(false);
  Subscription observation_;
};

}  // namespace

std::optional<DesktopSelection> readDesktopSelection(bool isPrimary,
                                                     const MakeSelectionChoices& makeChoices) {
  const bool chooses = makeChoices != nullptr;
  try {
    SelectionProgram program(isPrimary, chooses);
    if (!program.waitForFiles()) throw CommandError(reasonOfStatus(kTimedOut, isPrimary));
    if (chooses && program.records().hasAllFiles() && !program.hasEnded()) {
      program.give(makeChoices(program.records().selection().files));
    }
    if (!program.waitForEnd(chooses)) throw CommandError(reasonOfStatus(kTimedOut, isPrimary));
    if (program.status() == kWindowClosed) return std::nullopt;
    if (program.status() != kSelected) {
      throw CommandError(reasonOfStatus(program.status(), isPrimary));
    }
    return std::move(program.records().selection());
  } catch (const PlatformException& exception) {
    throw CommandError(tr("The clipboard could not be read: {1}.", exception.reason()));
  }
}

}  // namespace tervano
