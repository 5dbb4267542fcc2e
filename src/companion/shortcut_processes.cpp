#include "companion/shortcut_processes.h"

#include <map>

#include "archive/platform_exception.h"
#include "archive/printable.h"
#include "companion/action_store.h"
#include "platform/linux/installed_bundle.h"
#include "platform/notification_center.h"
#include "platform/platform.h"
#include "platform/process.h"

namespace tervano {

namespace {

// The words of the command for an application action; nil, with a sentence, for none.
std::optional<std::vector<std::string>> wordsOfApplicationAction(
    const std::string& name, const std::vector<std::string>& parameters, std::string& problem) {
  const bool runs = name == "run-action";
  if (!runs && name != "run-on-clipboard" && name != "run-on-selection") {
    problem = "There is no application action \"" + printable(name) + "\".";
    return std::nullopt;
  }
  std::vector<std::string> words{"shortcut", "--clipboard"};
  if (!runs) {
    if (!parameters.empty()) {
      problem = "The application action \"" + name + "\" takes no parameters.";
      return std::nullopt;
    }
    if (name == "run-on-selection") words.back() = "--primary";
    return words;
  }
  const bool isPrimary = parameters.size() == 2 && parameters[1] == "primary";
  const bool isClipboard =
      parameters.size() == 1 || (parameters.size() == 2 && parameters[1] == "clipboard");
  if (!(isPrimary || isClipboard) || !isUid(parameters.front())) {
    problem =
        "The application action \"run-action\" takes the uid of an action and perhaps "
        "\"clipboard\" or \"primary\".";
    return std::nullopt;
  }
  if (isPrimary) words.back() = "--primary";
  words.push_back(parameters.front());
  return words;
}

}  // namespace

struct ShortcutProcesses::Running {
  std::map<const Process*, Subscription> ends;
};

ShortcutProcesses::ShortcutProcesses() : running_(std::make_shared<Running>()) {}

ShortcutProcesses::~ShortcutProcesses() = default;

std::size_t ShortcutProcesses::running() const {
  return running_->ends.size();
}

std::optional<std::string> ShortcutProcesses::begin(const std::string& name,
                                                    const std::vector<std::string>& parameters) {
  std::string problem;
  auto words = wordsOfApplicationAction(name, parameters, problem);
  if (!words) return problem;
  const auto process = platform().processes->createProcess();
  process->setLaunchPath(pathOfRunningCode());
  process->setArguments(std::move(*words));
  auto end = platform().notificationCenter->addObserver(
      kTaskDidTerminateNotification, process.get(),
      [running = running_, process = process.get()](const Notification&) {
        // Ends the observation, which holds this block.
        const auto ended = running->ends.extract(process);
      });
  try {
    process->launch();
  } catch (const PlatformException& exception) {
    return exception.reason();
  }
  running_->ends.emplace(process.get(), std::move(end));
  return std::nullopt;
}

}  // namespace tervano
