#include "companion/asker.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <iterator>

#include "archive/platform_exception.h"
#include "companion/arguments.h"
#include "platform/bundle.h"
#include "platform/platform.h"
#include "tasks/vx_task_helper.h"

namespace tervano {

namespace {

constexpr std::size_t kMaximumItems = 100;
constexpr int kConsented = 0;
constexpr int kRefused = 1;
constexpr char kNobodyToAsk[] =
    "Nothing was done: there is neither a display nor a terminal to ask on.";

using Answer = std::function<void(bool consents, const std::string& reason)>;

// As many paths as a person looks through, as text in which no control character hides another.
std::vector<std::string> shownPaths(const Question& question) {
  const std::size_t shown = std::min(question.paths.size(), kMaximumItems);
  std::vector<std::string> items;
  std::transform(question.paths.begin(),
                 question.paths.begin() + static_cast<std::ptrdiff_t>(shown),
                 std::back_inserter(items), printable);
  if (shown < question.paths.size()) {
    items.push_back("and " + std::to_string(question.paths.size() - shown) + " more");
  }
  return items;
}

bool hasTerminal() {
  return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

void askOnTerminal(const Question& question, const Answer& answer) {
  for (const auto& item : shownPaths(question)) std::cerr << "  " << item << "\n";
  std::cerr << printable(question.text) << " [y/N] " << std::flush;
  std::string line;
  std::getline(std::cin, line);
  answer(line == "y" || line == "Y" || line == "yes", "");
}

// One window, from its start to its answer.
class Window : public VXTaskHelperDelegate, public std::enable_shared_from_this<Window> {
 public:
  Window(Question question, Answer answer)
      : question_(std::move(question)), answer_(std::move(answer)) {}

  void open() {
    const auto task = platform().processes->createProcess();
    task->setLaunchPath(platform().bundle->pathForAuxiliaryExecutable("tervano-ask"));
    std::vector<std::string> arguments{"--question", printable(question_.text),
                                       "--detail",   "What is overwritten cannot be brought back.",
                                       "--consent",  question_.consent,
                                       "--"};
    for (auto& item : shownPaths(question_)) arguments.push_back(std::move(item));
    task->setArguments(std::move(arguments));
    helper_ = VXTaskHelper::taskHelperWithTask(task);
    helper_->setDelegate(weak_from_this());
    self_ = shared_from_this();
    try {
      helper_->launch();
    } catch (const PlatformException&) {
      helper_->cleanup();
      askOtherwise();
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
    if (isExit && (status == kConsented || status == kRefused)) {
      const auto self = std::move(self_);
      answer_(status == kConsented, "");
    } else {
      askOtherwise();
    }
  }

 private:
  void askOtherwise() {
    const auto self = std::move(self_);
    if (hasTerminal()) {
      askOnTerminal(question_, answer_);
    } else {
      answer_(false, kNobodyToAsk);
    }
  }

  Question question_;
  Answer answer_;
  std::shared_ptr<VXTaskHelper> helper_;
  // Until the answer.
  std::shared_ptr<Window> self_;
};

}  // namespace

Asker askerOfTerminal() {
  return hasTerminal() ? Asker(askOnTerminal) : Asker();
}

Asker askerOfDesktop() {
  return [](const Question& question, Answer answer) {
    std::make_shared<Window>(question, std::move(answer))->open();
  };
}

}  // namespace tervano
