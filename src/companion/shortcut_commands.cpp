#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "archive/platform_exception.h"
#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/command_line_selection.h"
#include "companion/desktop_selection.h"
#include "companion/explanation_text.h"
#include "companion/hand_over.h"
#include "extension/explanation.h"
#include "extension/finder_sync.h"
#include "platform/error.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_notifications.h"
#include "translation/translation.h"

namespace tervano {

namespace {

constexpr double kToldTimeoutSeconds = 10;

// Whoever pressed a key sees no terminal.
void tellOnDesktop(const std::string& sentence) {
  if (isatty(STDERR_FILENO) == 1) return;
  UserNotification notification;
  notification.title = "Tervano";
  notification.informativeText = sentence;
  platform().userNotifications->deliverNotification(notification);
  platform().runLoop->runMainLoopUntil(
      [] { return platform().userNotifications->pendingDeliveries() == 0; }, kToldTimeoutSeconds);
}

// What was copied may be gone by now.
void requireFiles(const std::vector<std::string>& files) {
  for (const auto& file : files) {
    struct stat status {};
    if (lstat(file.c_str(), &status) == 0) continue;
    throw CommandError(posixError(errno, "\"" + printable(file) + "\"").message + ".");
  }
}

std::string titleOfExplained(const Explanation& explanation) {
  return explanation.action->title().value_or("(no title)");
}

const Explanation* findExplanation(const std::vector<Explanation>& explanations,
                                   const std::string& uid) {
  for (const auto& explanation : explanations) {
    if (explanation.action->uid() == uid) return &explanation;
    if (const auto* member = findExplanation(explanation.members, uid)) return member;
  }
  return nullptr;
}

// The files of a shortcut, and what the menu for them would show.
class ShortcutMenu {
 public:
  explicit ShortcutMenu(const std::vector<std::string>& files)
      : selection_(std::make_shared<CommandLineSelection>(MenuKind::contextualMenuForItems, files)),
        explanations_(explainActions(loadActions()->actions(), *selection_->selectedItemURLs())) {}

  // What a menu shows for the files; members behind their group's title.
  SelectionChoices choices() const {
    SelectionChoices choices;
    for (const auto& explanation : explanations_) {
      if (!explanation.isShown()) continue;
      const bool isGroup = dynamic_cast<const TVActionGroup*>(explanation.action.get()) != nullptr;
      if (!isGroup) choices.emplace_back(uidOf(explanation), titleOfExplained(explanation));
      for (const auto& member : explanation.members) {
        if (!member.isShown()) continue;
        choices.emplace_back(uidOf(member),
                             titleOfExplained(explanation) + " › " + titleOfExplained(member));
      }
    }
    return choices;
  }

  // Throws unless a menu for the files would show the action.
  void require(const std::string& uid) const {
    const auto* explanation = findExplanation(explanations_, uid);
    if (explanation == nullptr) {
      throw CommandError(tr("There is no action with the uid {1} in the list.", uid));
    }
    if (dynamic_cast<const TVActionGroup*>(explanation->action.get()) != nullptr) {
      throw CommandError(tr("\"{1}\" is a group, and a group cannot be run.",
                            printable(titleOfExplained(*explanation))));
    }
    if (explanation->isShown()) return;
    const TypedItems items(*selection_->selectedItemURLs());
    const auto reason = sentenceOfExplanation(*explanation, items);
    throw CommandError(tr("\"{1}\" does not fit: {2}.", printable(titleOfExplained(*explanation)),
                          Sentence(printable(reason.english()), printable(reason.shown()))));
  }

  int handOverTo(const std::string& uid) const {
    return handOver(*FinderSync::create(selection_),
                    std::string(FinderSync::kSelectorPrefix) + uid);
  }

 private:
  static std::string uidOf(const Explanation& explanation) {
    return explanation.action->uid().value_or("");
  }

  std::shared_ptr<CommandLineSelection> selection_;
  std::vector<Explanation> explanations_;
};

int runShortcut(bool isPrimary, const std::optional<std::string>& uid) {
  if (uid && !isUid(*uid)) {
    throw UsageError(
        tr("\"{1}\" is no uid; a uid has 32 characters of 0 to 9 and A to F.", printable(*uid)));
  }
  loadDesktopTypes();
  // What cannot be read is told before anybody chooses.
  loadActions();
  const auto choicesFor = [](const std::vector<std::string>& files) {
    requireFiles(files);
    return ShortcutMenu(files).choices();
  };
  const auto selection = readDesktopSelection(isPrimary, uid ? MakeSelectionChoices() : choicesFor);
  if (!selection) return kExitSuccess;
  requireFiles(selection->files);
  const ActivationScope scope(std::make_shared<Activation>(selection->token));
  const std::string chosen = uid.value_or(selection->uid);
  const ShortcutMenu menu(selection->files);
  menu.require(chosen);
  return menu.handOverTo(chosen);
}

int shortcut(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{}, {"clipboard", "primary"}});
  arguments.requirePositional(0, 1, "");
  if (arguments.has("clipboard") && arguments.has("primary")) {
    throw UsageError(tr("Give --clipboard or --primary, not both."));
  }
  const auto uid =
      arguments.positional().empty() ? std::nullopt : std::optional(arguments.positional().front());
  try {
    return runShortcut(arguments.has("primary"), uid);
  } catch (const PlatformException& exception) {
    tellOnDesktop(exception.reason());
    throw;
  } catch (const std::exception& error) {
    tellOnDesktop(error.what());
    throw;
  }
}

}  // namespace

std::vector<Command> shortcutCommands() {
  return {
      {{"shortcut",
        trMark("run an action on the copied files, for a key of the desktop"),
        {"[--clipboard|--primary] [UID]"},
        {trMark(
             "Bind this command to a key in the keyboard settings of the desktop. It takes the "
             "files "
             "that were copied in a file manager, or a text whose lines are absolute paths or file "
             "URIs, and hands them over just as a choice in a menu does: an action that a menu "
             "would "
             "not show for these files is refused with the reason. Without a uid a window shows "
             "the "
             "actions that fit, and typing searches in them. What goes wrong is a notification, "
             "too."),
         trMark("The desktop entry com.vessok.tervano.desktop offers the same as the actions "
                "run-on-clipboard and run-on-selection, and "
                "org.freedesktop.Application.ActivateAction "
                "on the session bus takes these names and run-action with the uid and, optionally, "
                "\"clipboard\" or \"primary\".")},
        {{"--clipboard", trMark("The copied files; the default.")},
         {"--primary", trMark("The files that the marked text names.")}}},
       shortcut},
  };
}

}  // namespace tervano
