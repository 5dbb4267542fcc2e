#include "companion/first_run.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>

#include "archive/platform_exception.h"
#include "archive/url.h"
#include "companion/action_kinds.h"
#include "companion/action_settings.h"
#include "companion/action_store.h"
#include "model/tv_action_group.h"
#include "platform/bundle.h"
#include "platform/file_manager.h"
#include "platform/linux/default_handlers.h"
#include "platform/linux/user_folders.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

namespace {

constexpr char kTemplatesResource[] = "Templates";
// Of the templates, those that are programs.
constexpr std::array kProgramTemplates = {"Python Script.py", "Shell Script.sh"};
constexpr std::array kFormats = {"jpeg", "png", "tiff", "gif", "bmp", "webp", "pdf"};
// The types whose default applications are offered for any file.
constexpr std::array kOpenedTypes = {"text/plain", "image/png",  "application/pdf",
                                     "text/html",  "audio/mpeg", "video/mp4"};

struct UserFolder {
  // As "user-dirs.dirs" has it, and the usual name.
  std::string name;
  std::string usual;
};

const std::vector<UserFolder>& userFolderNames() {
  static const std::vector<UserFolder> names = {
      {"DESKTOP", "Desktop"}, {"DOCUMENTS", "Documents"}, {"DOWNLOAD", "Downloads"},
      {"MUSIC", "Music"},     {"PICTURES", "Pictures"},   {"VIDEOS", "Videos"}};
  return names;
}

// Nil when the user has switched it off.
std::optional<std::string> pathOfUserFolder(const UserFolder& folder) {
  if (const auto path = userDirectory(folder.name)) {
    return *path == homeFolder() ? std::nullopt : path;
  }
  return homeFolder() + "/" + folder.usual;
}

std::vector<std::string> existingUserFolders() {
  std::vector<std::string> paths;
  for (const auto& folder : userFolderNames()) {
    const auto path = pathOfUserFolder(folder);
    if (path && platform().fileManager->isDirectoryAtPath(*path)) paths.push_back(*path);
  }
  return paths;
}

std::vector<std::string> templateNames() {
  auto names = platform().fileManager->contentsOfDirectoryAtPath(platform().bundle->resourcePath() +
                                                                 "/" + kTemplatesResource);
  std::sort(names.begin(), names.end());
  return names;
}

std::string pathOfTemplate(const std::string& name) {
  if (const auto folder = pathOfUserFolder({"TEMPLATES", "Templates"})) {
    std::string own = *folder + "/" + name;
    if (platform().fileManager->fileExistsAtPath(own)) return own;
  }
  return platform().bundle->resourcePath() + "/" + kTemplatesResource + "/" + name;
}

std::shared_ptr<TVAction> made(const std::vector<std::string>& words) {
  return newAction(Arguments(words, {allSettings(), {}}));
}

std::shared_ptr<TVAction> group(const std::string& kind, const ActionList& members) {
  auto group = made({kind});
  static_cast<TVActionGroup&>(*group).updateActions(members);
  return group;
}

ActionList actionsOfFolders(const std::string& kind, const std::vector<std::string>& folders) {
  ActionList actions;
  for (const auto& folder : folders) actions.push_back(made({kind, "--to", folder}));
  return actions;
}

ActionList openers() {
  ActionList actions;
  std::set<std::string> known;
  for (const auto* type : kOpenedTypes) {
    const auto entry = handlerEntryOfType(type);
    if (entry && known.insert(*entry).second) {
      actions.push_back(made({"open-with", "--app", *entry}));
    }
  }
  return actions;
}

ActionList newFiles() {
  ActionList actions;
  for (const auto& name : templateNames()) {
    const bool isProgram = std::find(kProgramTemplates.begin(), kProgramTemplates.end(), name) !=
                           kProgramTemplates.end();
    actions.push_back(made({"new-file", "--template", pathOfTemplate(name), "--executable",
                            isProgram ? "yes" : "no"}));
  }
  return actions;
}

ActionList conversions() {
  ActionList actions;
  for (const auto* format : kFormats) actions.push_back(made({"convert", "--format", format}));
  return actions;
}

ActionList firstActions() {
  const auto folders = existingUserFolders();
  auto favourites = folders;
  favourites.insert(favourites.begin(), homeFolder());
  return {group("group-move", actionsOfFolders("move", folders)),
          group("group-copy", actionsOfFolders("copy", folders)),
          group("group-open-with", openers()),
          group("group-new-file", newFiles()),
          group("group-convert", conversions()),
          group("group-open-folder", actionsOfFolders("open-folder", favourites)),
          made({"mail"}),
          made({"compress"}),
          made({"secure-delete"}),
          made({"reset-app"})};
}

ActionList scripts() {
  ActionList actions;
  for (const auto& name : bundledScriptNames()) actions.push_back(made({"bundled", name}));
  return actions;
}

void makeTemplates(FirstRun& firstRun) {
  firstRun.templatesFolder = pathOfUserFolder({"TEMPLATES", "Templates"});
  const auto userDefaults = TVUserDefaults::create();
  if (userDefaults->didCreateDefaultTemplates()) return;
  if (firstRun.templatesFolder) {
    const std::string& folder = *firstRun.templatesFolder;
    auto& files = *platform().fileManager;
    if (const auto error = files.createDirectoryAtPath(folder, true)) {
      firstRun.templatesComplaint = tr("The templates could not be made: {1}", error->message);
      return;
    }
    for (const auto& name : templateNames()) {
      const std::string target = appendingPathComponent(folder, name);
      if (files.itemExistsAtPath(target)) continue;
      const auto error = files.copyItemAtPath(
          platform().bundle->resourcePath() + "/" + kTemplatesResource + "/" + name, target);
      // Another process may be as far.
      if (error && error->code == EEXIST) continue;
      if (error) {
        firstRun.templatesComplaint = tr("The template could not be made: {1}", error->message);
        return;
      }
      firstRun.templates.push_back(name);
    }
  }
  userDefaults->setDidCreateDefaultTemplates(true);
}

void makeActions(FirstRun& firstRun) {
  const auto userDefaults = TVUserDefaults::create();
  const bool needsActions = !userDefaults->didCreateDefaultActions();
  const bool needsScripts = !userDefaults->didCreateDefaultActions2();
  if (!needsActions && !needsScripts) return;
  const auto url = TVActionsManager().saveURL();
  firstRun.foundList = url && platform().fileManager->itemExistsAtPath(url->path());
  if (!firstRun.foundList) {
    changeActions([&](TVActionsManager& manager) {
      // Another process may have been faster.
      firstRun.foundList = !manager.actions().empty();
      if (firstRun.foundList) return;
      auto list = needsActions ? firstActions() : ActionList();
      if (needsScripts) {
        const auto more = scripts();
        list.insert(list.end(), more.begin(), more.end());
      }
      firstRun.actions = list.size();
      manager.updateActions(std::move(list));
    });
  }
  // Only now that the list is on the disk.
  if (needsActions) userDefaults->setDidCreateDefaultActions(true);
  if (needsScripts) userDefaults->setDidCreateDefaultActions2(true);
}

}  // namespace

FirstRun makeFirstRun() {
  FirstRun firstRun;
  makeTemplates(firstRun);
  makeActions(firstRun);
  return firstRun;
}

void makeFirstRunAtStart() {
  try {
    const FirstRun firstRun = makeFirstRun();
    if (firstRun.templatesComplaint) log(firstRun.templatesComplaint->english());
  } catch (const PlatformException& exception) {
    log("Could not make the first actions and templates: " + exception.reason());
  } catch (const std::exception& error) {
    log(std::string("Could not make the first actions and templates: ") + error.what());
  }
}

}  // namespace tervano
