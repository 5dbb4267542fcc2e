#include "companion/action_settings.h"

#include <strings.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

#include "actions/tv_apple_script_action.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_new_file_action.h"
#include "actions/tv_open_faves_action.h"
#include "actions/tv_open_with_app_action.h"
#include "actions/tv_send_via_email_action.h"
#include "actions/tv_shell_script_action.h"
#include "extension/hand_off.h"
#include "platform/applications.h"
#include "platform/bundle.h"
#include "platform/file_manager.h"
#include "platform/image.h"
#include "platform/platform.h"
#include "platform/uniform_types.h"
#include "platform/workspace.h"

namespace tervano {

namespace {

struct Setting {
  std::string placeholder;
  std::string meaning;
  // What an action without this setting lacks: "folder".
  std::string noun;
  // False when the action is of a kind that does not have it.
  bool (*apply)(TVAction& action, const std::string& value);
};

// A text that an archive and the hand-off can hold.
void requireText(const std::string& setting, const std::string& text) {
  if (!prettyPrintedJSON(Value(text))) {
    throw UsageError(tr("The text of --{1} is not valid UTF-8.", setting));
  }
}

// One component of a path.
void requireNamePart(const std::string& setting, const std::string& text) {
  requireText(setting, text);
  if (text.find('/') != std::string::npos || text.find('\0') != std::string::npos) {
    throw UsageError(
        tr("The text of --{1} is part of a file's name, so it has no \"/\".", setting));
  }
}

// "T,..." or "any".
std::optional<std::vector<std::string>> typesOf(const std::string& words) {
  if (words == "any") return std::nullopt;
  std::vector<std::string> types;
  for (std::size_t begin = 0; begin <= words.size();) {
    const std::size_t end = std::min(words.find(',', begin), words.size());
    types.push_back(words.substr(begin, end - begin));
    if (types.back().empty()) {
      throw UsageError(tr("--types takes type identifiers with commas between them, or \"any\"."));
    }
    begin = end + 1;
  }
  for (const auto& type : types) {
    if (!platform().uniformTypes->isDeclared(type)) {
      std::cerr << tr("Note: no file has the type {1} on this system.", printable(type)) << "\n";
    }
  }
  if (types.size() > 1) {
    std::cerr << tr("Note: shown only when every selected item conforms to every one of these "
                    "types.")
              << "\n";
  }
  return types;
}

Url folderOf(const std::string& argument) {
  const std::string folder = absolutePath(argument);
  const auto& fileManager = *platform().fileManager;
  if (!fileManager.fileExistsAtPath(folder)) {
    std::cerr << tr("Note: the folder {1} does not exist yet.", printable(folder)) << "\n";
  } else if (!fileManager.isDirectoryAtPath(folder)) {
    throw UsageError(tr("{1} is not a folder.", printable(folder)));
  }
  return Url::fileURLWithPath(folder, true);
}

ImagePtr iconOf(const std::string& argument) {
  const std::string path = absolutePath(argument);
  std::optional<Error> error;
  auto bytes = platform().fileManager->contentsAtPath(path, &error);
  if (!bytes) throw UsageError(tr("The icon cannot be read: {1}", error->message));
  auto image = Image::imageWithData(std::make_shared<const Data>(*std::move(bytes)));
  if (image == nullptr)
    throw UsageError(tr("{1} is not a picture that can be an icon.", printable(path)));
  return image;
}

Url fileOf(const std::string& setting, const std::string& argument) {
  const std::string path = absolutePath(argument);
  const auto& fileManager = *platform().fileManager;
  if (!fileManager.fileExistsAtPath(path)) {
    std::cerr << tr("Note: the file {1} does not exist yet.", printable(path)) << "\n";
  } else if (fileManager.isDirectoryAtPath(path)) {
    throw UsageError(tr("{1} is a folder, and --{2} takes a file.", printable(path), setting));
  }
  return Url::fileURLWithPath(path);
}

// A file of the user's, or a template that comes with the program under its name.
Url templateOf(const std::string& argument) {
  if (argument.find('/') == std::string::npos &&
      !platform().fileManager->fileExistsAtPath(absolutePath(argument))) {
    if (const auto path = platform().bundle->pathForResource(argument, "", "Templates")) {
      return Url::fileURLWithPath(*path);
    }
  }
  return fileOf("template", argument);
}

// The name of an installed application; or a path: a desktop entry, a program or a folder bundle.
Url applicationOf(const std::string& argument) {
  if (argument.find('/') == std::string::npos) {
    requireText("app", argument);
    if (auto url = platform().workspace->URLForApplicationWithBundleIdentifier(argument)) {
      return *url;
    }
    if (!platform().fileManager->fileExistsAtPath(absolutePath(argument))) {
      throw UsageError(tr("No application with the name {1} is installed.", printable(argument)));
    }
  }
  const std::string path = absolutePath(argument);
  const auto& fileManager = *platform().fileManager;
  if (!fileManager.fileExistsAtPath(path)) {
    std::cerr << tr("Note: the application {1} does not exist yet.", printable(path)) << "\n";
  } else if (fileManager.isDirectoryAtPath(path) &&
             strcasecmp(pathExtension(path).c_str(), "app") != 0) {
    throw UsageError(tr("{1} is a folder and no application.", printable(path)));
  }
  return Url::fileURLWithPath(path);
}

bool yesOrNo(const std::string& setting, const std::string& value) {
  if (value != "yes" && value != "no") throw UsageError(tr("--{1} takes yes or no.", setting));
  return value == "yes";
}

template <typename T>
bool changed(TVAction& action, const std::function<void(T&)>& change) {
  auto* const typed = dynamic_cast<T*>(&action);
  if (typed == nullptr) return false;
  change(*typed);
  return true;
}

bool applyTitle(TVAction& action, const std::string& value) {
  requireText("title", value);
  action.setTitle(value);
  return true;
}

bool applyTypes(TVAction& action, const std::string& value) {
  requireText("types", value);
  action.setFileTypes(typesOf(value));
  return true;
}

bool applyIcon(TVAction& action, const std::string& value) {
  action.setIcon(iconOf(value));
  return true;
}

bool applyDescription(TVAction& action, const std::string& value) {
  requireText("description", value);
  action.setActionDescription(value);
  return true;
}

bool applyFolder(TVAction& action, const std::string& value) {
  const auto apply = [&](auto& typed) { typed.setDestinationURL(folderOf(value)); };
  return changed<TVMoveToAction>(action, apply) || changed<TVCopyToAction>(action, apply) ||
         changed<TVOpenFavesAction>(action, apply);
}

bool applyApplication(TVAction& action, const std::string& value) {
  // Each run of a mail action looks its application up itself.
  if (dynamic_cast<TVSendViaEmailAction*>(&action) != nullptr) return false;
  return changed<TVOpenWithAppAction>(
      action, [&](auto& typed) { typed.setApplicationURL(applicationOf(value)); });
}

bool applyTemplate(TVAction& action, const std::string& value) {
  return changed<TVNewFileAction>(action,
                                  [&](auto& typed) { typed.setTemplateURL(templateOf(value)); });
}

bool applyName(TVAction& action, const std::string& value) {
  return changed<TVNewFileAction>(action, [&](auto& typed) {
    requireNamePart("name", value);
    if (value.empty() || value == "." || value == "..") {
      throw UsageError(tr("A new file needs a name."));
    }
    typed.setFileName(value);
  });
}

bool applyExtension(TVAction& action, const std::string& value) {
  requireNamePart("extension", value);
  const std::string extension = value.starts_with('.') ? value.substr(1) : value;
  return changed<TVNewFileAction>(action, [&](auto& typed) { typed.setExtension(extension); }) ||
         changed<TVConvertImageAction>(action, [&](auto& typed) {
           if (extension.empty()) throw UsageError(tr("A converted picture needs an extension."));
           typed.setOutputExtension(extension);
         });
}

bool applyExecutable(TVAction& action, const std::string& value) {
  return changed<TVNewFileAction>(
      action, [&](auto& typed) { typed.setExecutable(yesOrNo("executable", value)); });
}

bool applyFormat(TVAction& action, const std::string& value) {
  return changed<TVConvertImageAction>(action, [&](auto& typed) {
    requireText("format", value);
    if (value.empty()) throw UsageError(tr("--format takes the name of a format, such as png."));
    typed.setOutputFormat(value);
  });
}

bool applyFile(TVAction& action, const std::string& value) {
  const auto* const shell = dynamic_cast<TVShellScriptAction*>(&action);
  if (shell != nullptr && !shell->isEditable()) {
    throw UsageError(tr("The script of this action comes with it and cannot be another one."));
  }
  const auto apply = [&](auto& typed) { typed.setScriptURL(fileOf("file", value)); };
  return changed<TVShellScriptAction>(action, apply) || changed<TVAppleScriptAction>(action, apply);
}

const std::map<std::string, Setting>& settings() {
  static const std::map<std::string, Setting> table = {
      {"title", {"TITLE", trMark("The text of the menu entry."), trMark("title"), applyTitle}},
      {"types",
       {"TYPE,...|any",
        trMark("Type identifiers. The entry appears only when every selected item conforms to "
               "every one "
               "of them; a member of a group appears by the filter of its group alone. \"any\" "
               "removes "
               "the filter."),
        trMark("types"), applyTypes}},
      {"icon",
       {"FILE", trMark("A picture: SVG, PNG, JPEG, GIF, BMP, ICO or TIFF."), trMark("icon"),
        applyIcon}},
      {"description",
       {"TEXT", trMark("One line that explains the action."), trMark("description"),
        applyDescription}},
      {"to",
       {"FOLDER", trMark("The folder that receives the files, or that is opened."),
        trMark("folder"), applyFolder}},
      {"app",
       {"NAME|FILE",
        trMark("The application that opens the files: the name of an installed one, its desktop "
               "entry, or "
               "a program."),
        trMark("application"), applyApplication}},
      {"template",
       {"FILE",
        trMark("What the new file is a copy of: a file, or the name of a template that comes with "
               "Tervano."),
        trMark("template"), applyTemplate}},
      {"name",
       {"NAME", trMark("The new file's name, without extension."), trMark("file name"), applyName}},
      {"extension",
       {"EXTENSION", trMark("The extension of the new file or of the converted pictures."),
        trMark("extension"), applyExtension}},
      {"executable",
       {"yes|no", trMark("Notes that the template is meant for programs."),
        trMark("executable flag"), applyExecutable}},
      {"format",
       {"FORMAT", trMark("The format of the converted pictures, such as jpeg, png, tiff or pdf."),
        trMark("picture format"), applyFormat}},
      {"file", {"FILE", trMark("The script that is run."), trMark("script"), applyFile}},
  };
  return table;
}

std::string stem(const std::string& path) {
  const std::string name = std::filesystem::path(path).stem().string();
  return prettyPrintedJSON(Value(name)) ? name : std::string();
}

std::optional<std::string> textOrNil(std::string text) {
  return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::optional<std::string> titleOfFolder(const std::optional<Url>& url) {
  if (!url) return std::nullopt;
  const std::string name = lastPathComponent(url->path());
  return prettyPrintedJSON(Value(name)) ? name : "Folder";
}

std::string titleOfFormat(const std::string& format) {
  if (format == "jp2") return "JPEG 2000";
  if (format == "webp") return "WebP";
  std::string title = format;
  std::transform(title.begin(), title.end(), title.begin(),
                 [](unsigned char character) { return std::toupper(character); });
  return title;
}

}  // namespace

const std::set<std::string>& commonSettings() {
  static const std::set<std::string> names = {"title", "types", "icon", "description"};
  return names;
}

const std::set<std::string>& allSettings() {
  static const std::set<std::string> names = [] {
    std::set<std::string> all;
    for (const auto& [name, setting] : settings()) all.insert(name);
    return all;
  }();
  return names;
}

std::pair<std::string, std::string> helpOfSetting(const std::string& setting) {
  const auto& known = settings().at(setting);
  return {"--" + setting + " " + known.placeholder, known.meaning};
}

void applySettings(TVAction& action, const Arguments& arguments) {
  for (const auto& [name, setting] : settings()) {
    const auto value = arguments.value(name);
    if (value && !setting.apply(action, *value)) {
      throw UsageError(tr("An action of this kind has no {1}, so --{2} does not fit it.",
                          translated(setting.noun), name));
    }
  }
}

std::optional<std::string> titleFromSettings(const TVAction& action) {
  if (const auto* move = dynamic_cast<const TVMoveToAction*>(&action)) {
    return titleOfFolder(move->destinationURL());
  }
  if (const auto* copy = dynamic_cast<const TVCopyToAction*>(&action)) {
    return titleOfFolder(copy->destinationURL());
  }
  if (const auto* favourite = dynamic_cast<const TVOpenFavesAction*>(&action)) {
    return titleOfFolder(favourite->destinationURL());
  }
  if (dynamic_cast<const TVSendViaEmailAction*>(&action) != nullptr) return std::nullopt;
  if (const auto* opener = dynamic_cast<const TVOpenWithAppAction*>(&action)) {
    if (!opener->applicationURL()) return std::nullopt;
    const std::string path = opener->applicationURL()->path();
    if (auto name = platform().applications->displayNameAtPath(path)) return name;
    return textOrNil(stem(path));
  }
  if (const auto* newFile = dynamic_cast<const TVNewFileAction*>(&action)) {
    return newFile->templateURL() ? textOrNil(stem(newFile->templateURL()->path())) : std::nullopt;
  }
  if (const auto* convert = dynamic_cast<const TVConvertImageAction*>(&action)) {
    return convert->outputFormat() ? std::optional(titleOfFormat(*convert->outputFormat()))
                                   : std::nullopt;
  }
  if (const auto* script = dynamic_cast<const TVAppleScriptAction*>(&action)) {
    return script->scriptURL() ? textOrNil(stem(script->scriptURL()->path())) : std::nullopt;
  }
  return std::nullopt;
}

std::string usualExtensionOfFormat(const std::string& format) {
  return format == "jpeg" ? "jpg" : format;
}

}  // namespace tervano
