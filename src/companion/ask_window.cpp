#include "companion/ask_window.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <memory>

#include "archive/platform_exception.h"
#include "archive/printable.h"
#include "platform/bundle.h"
#include "platform/linux/descriptor.h"
#include "platform/platform.h"
#include "tasks/vx_task_helper.h"

namespace tervano {

namespace {

constexpr std::size_t kMaximumItems = 100;
constexpr int kConsented = 0;
constexpr int kRefused = 1;

// The texts of the question, each ended by a NUL, in memory that is read from its beginning: other
// users see the arguments of a program, and these name files. None when there is no memory.
Descriptor textsOf(const Question& question) {
  std::string texts;
  const auto add = [&texts](const std::string& text) { texts.append(text).push_back('\0'); };
  add(printable(question.text));
  add(question.detail);
  add(question.consent);
  for (const auto& item : shownPaths(question)) add(item);
  Descriptor memory(memfd_create("question", MFD_CLOEXEC));
  if (!memory || !writeFully(memory.get(), texts.data(), texts.size()) ||
      lseek(memory.get(), 0, SEEK_SET) != 0) {
    memory.reset();
  }
  return memory;
}

// One window, from its start to its answer.
class Window : public VXTaskHelperDelegate, public std::enable_shared_from_this<Window> {
 public:
  explicit Window(WindowAnswer answer) : answer_(std::move(answer)) {}

  void open(Processes& processes, const Question& question, int passwordDescriptor) {
    const auto task = processes.createProcess();
    task->setLaunchPath(platform().bundle->pathForAuxiliaryExecutable("tervano-ask"));
    const Descriptor texts = textsOf(question);
    if (!texts) return end(std::nullopt);
    task->setStandardInput(texts.get());
    if (passwordDescriptor >= 0) {
      task->setExtraDescriptor(passwordDescriptor);
      task->setArguments({"--password"});
    }
    helper_ = VXTaskHelper::taskHelperWithTask(task);
    helper_->setDelegate(weak_from_this());
    self_ = shared_from_this();
    withdrawal_ = question.withdrawal;
    if (withdrawal_ != nullptr) {
      withdrawal_->setHandler([weak = weak_from_this()] {
        if (const auto window = weak.lock()) window->close();
      });
    }
    try {
      helper_->launch();
    } catch (const PlatformException&) {
      helper_->cleanup();
      end(std::nullopt);
    }
  }

  void taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                  const Data& /*data*/) override {}
  void taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>& /*helper*/,
                                 const Data& /*data*/) override {}
  void taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>& helper,
                           std::int64_t terminationReason) override {
    const bool isExit = terminationReason == static_cast<std::int64_t>(TerminationReason::exit);
    const int status = helper->task()->terminationStatus();
    // An interrupt from the terminal reaches the window, too.
    const bool isRefusal = isExit ? status == kRefused : status == SIGINT;
    const bool isConsent = isExit && status == kConsented;
    end(isConsent || isRefusal ? std::optional(isConsent) : std::nullopt);
  }

 private:
  // Nobody waits for an answer any more.
  void close() {
    answer_ = nullptr;
    helper_->task()->terminate();
  }

  void end(std::optional<bool> consents) {
    const auto self = std::move(self_);
    if (withdrawal_ != nullptr) withdrawal_->setHandler(nullptr);
    if (answer_) answer_(consents);
  }

  WindowAnswer answer_;
  std::shared_ptr<Withdrawal> withdrawal_;
  std::shared_ptr<VXTaskHelper> helper_;
  // Until the answer.
  std::shared_ptr<Window> self_;
};

}  // namespace

std::vector<std::string> shownPaths(const Question& question) {
  const std::size_t shown = std::min(question.paths.size(), kMaximumItems);
  std::vector<std::string> items;
  std::transform(question.paths.begin(),
                 question.paths.begin() + static_cast<std::ptrdiff_t>(shown),
                 std::back_inserter(items), printable);
  if (shown < question.paths.size()) {
    items.push_back(trn("and one more", "and {1} more", question.paths.size() - shown));
  }
  return items;
}

void askInWindow(Processes& processes, const Question& question, WindowAnswer answer,
                 int passwordDescriptor) {
  std::make_shared<Window>(std::move(answer))->open(processes, question, passwordDescriptor);
}

}  // namespace tervano
