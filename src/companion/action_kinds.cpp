#include "companion/action_kinds.h"

#include <algorithm>

#include "actions/tv_apple_script_action.h"
#include "actions/tv_bundled_script_action.h"
#include "actions/tv_compress_password_action.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_new_file_action.h"
#include "actions/tv_open_faves_action.h"
#include "actions/tv_open_with_app_action.h"
#include "actions/tv_reset_app_preferences_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_send_via_email_action.h"
#include "actions/tv_shell_script_action.h"
#include "archive/utf.h"
#include "companion/action_settings.h"
#include "model/tv_action_groups.h"
#include "platform/bundle.h"
#include "platform/file_manager.h"
#include "platform/file_name.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kScriptsFolder[] = "Default Scripts";
constexpr char kScriptExtension[] = ".sh";
constexpr char kDefaultFileName[] = "untitled";

void requireNoWords(const std::vector<std::string>& words) {
  if (!words.empty()) {
    throw UsageError(tr("\"{1}\" is one word too many.", printable(words.front())));
  }
}

template <typename T>
std::shared_ptr<TVAction> make(const std::vector<std::string>& words) {
  requireNoWords(words);
  return action<T>();
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

std::shared_ptr<TVAction> makeBundled(const std::vector<std::string>& words) {
  const auto names = bundledScriptNames();
  if (words.empty()) {
    throw UsageError(tr("The name of the script is missing; there are {1}.", joined(names)));
  }
  requireNoWords({words.begin() + 1, words.end()});
  if (std::find(names.begin(), names.end(), words.front()) == names.end()) {
    throw UsageError(
        tr("There is no script \"{1}\"; there are {2}.", printable(words.front()), joined(names)));
  }
  return TVBundledScriptAction::actionWithBundledFileName(words.front());
}

std::shared_ptr<TVAction> makeNewFile(const std::vector<std::string>& words) {
  requireNoWords(words);
  const auto made = action<TVNewFileAction>();
  made->setFileName(kDefaultFileName);
  return made;
}

// What was left out and follows from what was given.
void completeSettings(TVAction& action, const Arguments& arguments) {
  if (arguments.value("extension")) return;
  if (auto* convert = dynamic_cast<TVConvertImageAction*>(&action)) {
    const std::string extension = usualExtensionOfFormat(convert->outputFormat().value_or(""));
    if (!isFileName(extension)) {
      throw UsageError(tr("The format {1} needs --extension.", printable(extension)));
    }
    convert->setOutputExtension(extension);
  } else if (auto* newFile = dynamic_cast<TVNewFileAction*>(&action)) {
    const std::string extension = pathExtension(newFile->templateURL()->path());
    // An archive holds no bytes that are no text.
    if (!extension.empty() && isValidUtf8(extension)) newFile->setExtension(extension);
  }
}

}  // namespace

const std::vector<ActionKind>& actionKinds() {
  static const std::vector<ActionKind> kinds = {
      {"move",
       trMark("moves the files to a folder"),
       "TVMoveToAction",
       {"to"},
       {},
       "Move",
       make<TVMoveToAction>},
      {"copy",
       trMark("copies the files to a folder"),
       "TVCopyToAction",
       {"to"},
       {},
       "Copy",
       make<TVCopyToAction>},
      {"open-with",
       trMark("opens the files with an application"),
       "TVOpenWithAppAction",
       {"app"},
       {"app"},
       "Open",
       make<TVOpenWithAppAction>},
      {"mail",
       trMark("sends the files with the default mail program"),
       "TVSendViaEmailAction",
       {},
       {},
       std::nullopt,
       make<TVSendViaEmailAction>},
      {"new-file",
       trMark("makes a new file from a template in the folder"),
       "TVNewFileAction",
       {"template", "name", "extension", "executable"},
       {"template"},
       "New file",
       makeNewFile},
      {"convert",
       trMark("converts pictures to another format"),
       "TVConvertImageAction",
       {"format", "extension"},
       {"format"},
       "Convert",
       make<TVConvertImageAction>},
      {"script",
       trMark("runs a shell script with the paths as its arguments"),
       "TVShellScriptAction",
       {"file"},
       {"file"},
       std::nullopt,
       make<TVShellScriptAction>},
      {"bundled",
       trMark("runs a script that comes with Tervano; its name follows"),
       "TVBundledScriptAction",
       {},
       {},
       std::nullopt,
       makeBundled},
      {"user-script",
       trMark("calls runWithPaths of a Python, JavaScript, shell or Lua file"),
       "TVAppleScriptAction",
       {"file"},
       {"file"},
       "User script",
       make<TVAppleScriptAction>},
      {"secure-delete",
       trMark("overwrites and removes the files for good"),
       "TVSecureRemoveAction",
       {},
       {},
       std::nullopt,
       make<TVSecureRemoveAction>},
      {"reset-app",
       trMark("resets the preferences of an application"),
       "TVResetAppPreferencesAction",
       {},
       {},
       std::nullopt,
       make<TVResetAppPreferencesAction>},
      {"compress",
       trMark("makes a zip file with a password"),
       "TVCompressPasswordAction",
       {},
       {},
       std::nullopt,
       make<TVCompressPasswordAction>},
      {"open-folder",
       trMark("opens a folder in a new window"),
       "TVOpenFavesAction",
       {"to"},
       {"to"},
       "Open folder",
       make<TVOpenFavesAction>},
      {"group-move",
       trMark("gathers actions that move"),
       "TVMoveActionGroup",
       {},
       {},
       std::nullopt,
       make<TVMoveActionGroup>},
      {"group-copy",
       trMark("gathers actions that copy"),
       "TVCopyActionGroup",
       {},
       {},
       std::nullopt,
       make<TVCopyActionGroup>},
      {"group-open-with",
       trMark("gathers applications"),
       "TVOpenWithActionGroup",
       {},
       {},
       std::nullopt,
       make<TVOpenWithActionGroup>},
      {"group-new-file",
       trMark("gathers templates"),
       "TVNewFileActionGroup",
       {},
       {},
       std::nullopt,
       make<TVNewFileActionGroup>},
      {"group-convert",
       trMark("gathers picture formats"),
       "TVConvertImageActionGroup",
       {},
       {},
       std::nullopt,
       make<TVConvertImageActionGroup>},
      {"group-open-folder",
       trMark("gathers favourite folders"),
       "TVOpenFavesActionGroup",
       {},
       {},
       std::nullopt,
       make<TVOpenFavesActionGroup>},
  };
  return kinds;
}

const ActionKind& requireKind(const std::string& name) {
  std::vector<std::string> known;
  for (const auto& kind : actionKinds()) {
    if (kind.name == name) return kind;
    known.push_back(kind.name);
  }
  throw UsageError(
      tr("There is no kind \"{1}\"; the kinds are {2}.", printable(name), joined(known)));
}

std::vector<std::string> bundledScriptNames() {
  const std::string folder = platform().bundle->resourcePath() + "/" + kScriptsFolder;
  std::vector<std::string> names;
  for (const auto& file : platform().fileManager->contentsOfDirectoryAtPath(folder)) {
    if (!file.ends_with(kScriptExtension)) continue;
    names.push_back(file.substr(0, file.size() - std::string_view(kScriptExtension).size()));
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::shared_ptr<TVAction> newAction(const Arguments& arguments) {
  const auto& words = arguments.positional();
  const ActionKind& kind = requireKind(words.front());
  auto made = kind.make({words.begin() + 1, words.end()});
  if (made == nullptr) throw UsageError(tr("The action cannot be made."));
  applySettings(*made, arguments);
  for (const auto& required : kind.required) {
    if (!arguments.value(required)) {
      throw UsageError(tr("The kind {1} needs --{2}.", kind.name, required));
    }
  }
  completeSettings(*made, arguments);
  if (!arguments.value("title")) {
    if (auto title = titleFromSettings(*made)) {
      made->setTitle(std::move(title));
    } else if (kind.title) {
      made->setTitle(kind.title);
    }
  }
  return made;
}

}  // namespace tervano
