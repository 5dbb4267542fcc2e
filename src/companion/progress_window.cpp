#include "companion/progress_window.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <utility>

#include "archive/platform_exception.h"
#include "jobs/job.h"
#include "platform/bundle.h"
#include "platform/linux/descriptor.h"
#include "platform/platform.h"
#include "tasks/vx_task_helper.h"

namespace tervano {

namespace {

// A pipe takes that much whole or not at all; see pipe(7).
constexpr std::size_t kLongestMessage = 4096;
constexpr std::size_t kLongestField = 1500;
constexpr std::size_t kLongestAnswer = 64;
constexpr int kWhole = 1000;
constexpr std::string_view kCancelWord = "cancel ";

// A field of a line, cut to a length between two characters.
std::string fieldOf(const std::string& text) {
  if (text.size() <= kLongestField) return text;
  std::size_t end = kLongestField;
  constexpr unsigned char kContinuationMask = 0xC0;
  constexpr unsigned char kContinuation = 0x80;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & kContinuationMask) == kContinuation) {
    --end;
  }
  return text.substr(0, end);
}

}  // namespace

// The running program. Its observers are weak; it ends by the end of its standard input.
class ProgressWindow::Program : public VXTaskHelperDelegate,
                                public std::enable_shared_from_this<Program> {
 public:
  explicit Program(CancelHandler cancelHandler) : cancelHandler_(std::move(cancelHandler)) {}

  void start() {
    // It works for no job, though one may have made it necessary.
    const JobScope noJob(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    const Descriptor reading(ends[0]);
    input_.reset(ends[1]);
    fcntl(input_.get(), F_SETFL, O_NONBLOCK);
    const auto task = platform().processes->createProcess();
    task->setLaunchPath(platform().bundle->pathForAuxiliaryExecutable("tervano-progress"));
    helper_ = VXTaskHelper::taskHelperWithTask(task);
    helper_->setDelegate(weak_from_this());
    try {
      task->setStandardInput(reading.get());
      helper_->launch();
      // To its end, which comes after that of its input.
      self_ = shared_from_this();
    } catch (const PlatformException&) {
      helper_->cleanup();
      input_.reset();
    }
  }

  // False when it cannot be told now; there is nobody to be told any more when it has ended.
  bool tell(const std::string& line) {
    if (!input_) return true;
    if (write(input_.get(), line.data(), line.size()) >= 0) return true;
    if (errno == EAGAIN || errno == EINTR) return false;
    input_.reset();
    return true;
  }
  void end() {
    input_.reset();
    cancelHandler_ = nullptr;
  }

  void taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                  const Data& data) override {
    for (const auto byte : data) {
      if (static_cast<char>(byte) != '\n') {
        if (answer_.size() < kLongestAnswer) answer_ += static_cast<char>(byte);
        continue;
      }
      takeAnswer(std::exchange(answer_, ""));
    }
  }
  void taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                 const Data& /*data*/) override {}
  void taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                           std::int64_t /*terminationReason*/) override {
    const auto self = std::move(self_);
    input_.reset();
  }

 private:
  void takeAnswer(const std::string& answer) {
    if (!answer.starts_with(kCancelWord)) return;
    std::uint64_t number = 0;
    const char* const end = answer.data() + answer.size();
    const auto read = std::from_chars(answer.data() + kCancelWord.size(), end, number);
    if (read.ec != std::errc() || read.ptr != end) return;
    if (const auto handler = cancelHandler_) handler(number);
  }

  CancelHandler cancelHandler_;
  Descriptor input_;
  std::shared_ptr<VXTaskHelper> helper_;
  std::string answer_;
  std::shared_ptr<Program> self_;
};

ProgressWindow::ProgressWindow() = default;

ProgressWindow::~ProgressWindow() {
  if (program_ != nullptr) program_->end();
}

void ProgressWindow::setCancelHandler(CancelHandler handler) {
  cancelHandler_ = std::move(handler);
}

void ProgressWindow::show(std::uint64_t number, const ShownProgress& progress) {
  rows_[number].wanted = progress;
  if (program_ == nullptr) {
    program_ = std::make_shared<Program>(cancelHandler_);
    program_->start();
  }
  tellWhatIsNew();
}

void ProgressWindow::hide(std::uint64_t number) {
  rows_.erase(number);
  leaving_.insert(number);
  tellWhatIsNew();
  if (!rows_.empty() || program_ == nullptr) return;
  leaving_.clear();
  program_->end();
  program_ = nullptr;
}

void ProgressWindow::tellWhatIsNew() {
  for (auto leaving = leaving_.begin(); leaving != leaving_.end();) {
    if (!program_->tell("hide\t" + std::to_string(*leaving) + "\n")) return;
    leaving = leaving_.erase(leaving);
  }
  for (auto& [number, row] : rows_) {
    if (row.told == row.wanted) continue;
    const std::string part =
        row.wanted.fraction ? std::to_string(std::lround(*row.wanted.fraction * kWhole)) : "-";
    const std::string line = "show\t" + std::to_string(number) + "\t" + part + "\t" +
                             fieldOf(row.wanted.title) + "\t" + fieldOf(row.wanted.text) + "\n";
    static_assert(2 * kLongestField + kLongestAnswer < kLongestMessage);
    if (!program_->tell(line)) return;
    row.told = row.wanted;
  }
}

}  // namespace tervano
