#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "companion/finding.h"
#include "platform/file_manager.h"
#include "platform/linux/desktop_settings.h"
#include "platform/linux/program_lookup.h"
#include "platform/linux/running_programs.h"
#include "platform/platform.h"

namespace tervano {

namespace {

// When a file manager looks for its modules.
enum class Loading {
  // Before it shows anything.
  atStart,
  // All of them at the first menu.
  atFirstMenu,
  // Whenever it shows a menu.
  atEachMenu,
};

// A file manager and its module. The folder is where it looks, and nowhere else.
struct SupportedFileManager {
  std::string name;
  std::string program;
  std::string package;
  std::string module;
  std::string folder;
  std::string folderBelowPrefix;
  // The same in a build tree.
  std::string folderInBuild;
  std::vector<std::string> entries;
  Loading loading = Loading::atStart;
  // The words that end all of it.
  std::string quit;
};

constexpr char kQtNamespace[] = "/kf5/kfileitemaction";

const std::vector<SupportedFileManager>& supportedFileManagers() {
  static const std::vector<SupportedFileManager> all = {
      {"GNOME Files",
       "nautilus",
       "tervano-nautilus",
       "libtervano-nautilus.so",
       NAUTILUS_MODULES,
       NAUTILUS_MODULES_BELOW_PREFIX,
       "lib/nautilus",
       {"nautilus_module_initialize", "nautilus_module_shutdown", "nautilus_module_list_types"},
       Loading::atStart,
       "nautilus -q"},
      {"Caja",
       "caja",
       "tervano-caja",
       "libtervano-caja.so",
       CAJA_MODULES,
       CAJA_MODULES_BELOW_PREFIX,
       "lib/caja",
       {"caja_module_initialize", "caja_module_shutdown", "caja_module_list_types"},
       Loading::atStart,
       "caja -q"},
      {"Nemo",
       "nemo",
       "tervano-nemo",
       "libtervano-nemo.so",
       NEMO_MODULES,
       NEMO_MODULES_BELOW_PREFIX,
       "lib/nemo",
       {"nemo_module_initialize", "nemo_module_shutdown", "nemo_module_list_types"},
       Loading::atStart,
       "nemo -q"},
      {"Thunar",
       "thunar",
       "tervano-thunar",
       "libtervano-thunar.so",
       THUNAR_MODULES,
       THUNAR_MODULES_BELOW_PREFIX,
       "lib/thunar",
       {"thunar_extension_initialize", "thunar_extension_shutdown", "thunar_extension_list_types"},
       Loading::atFirstMenu,
       "thunar -q"},
      {"Dolphin",
       "dolphin",
       "tervano-dolphin",
       "tervano.so",
       DOLPHIN_MODULES,
       DOLPHIN_MODULES_BELOW_PREFIX,
       std::string("lib/dolphin") + kQtNamespace,
       {"qt_plugin_instance", "qt_plugin_query_metadata"},
       Loading::atEachMenu,
       "kquitapp5 dolphin"}};
  return all;
}

// Where the file manager looks, best first. Programs of Qt look into other folders first.
std::vector<std::string> foldersOf(const SupportedFileManager& manager) {
  std::vector<std::string> folders;
  const char* variable = std::getenv("QT_PLUGIN_PATH");
  if (manager.program == "dolphin" && variable != nullptr) {
    std::istringstream paths(variable);
    for (std::string path; std::getline(paths, path, ':');) {
      if (path.starts_with("/")) folders.push_back(path + kQtNamespace);
    }
  }
  folders.push_back(manager.folder);
  return folders;
}

std::optional<std::string> seenModule(const SupportedFileManager& manager) {
  for (const auto& folder : foldersOf(manager)) {
    const std::string path = folder + "/" + manager.module;
    if (platform().fileManager->itemExistsAtPath(path)) return path;
  }
  return std::nullopt;
}

// One that was built or installed where the file manager does not look.
std::optional<std::string> unseenModule(const SupportedFileManager& manager) {
  for (const auto& folder : {manager.folderBelowPrefix, manager.folderInBuild}) {
    const std::string path = installationPrefix() + "/" + folder + "/" + manager.module;
    if (platform().fileManager->fileExistsAtPath(path)) return path;
  }
  return std::nullopt;
}

// Where the user has switched our module off in the file manager's own settings; empty when it is
// on.
std::string switchedOffIn(const SupportedFileManager& manager) {
  if (manager.program == "caja") {
    const auto names = settingsList("org.mate.caja.extensions", "disabled-extensions");
    const bool isOff = std::find(names.begin(), names.end(), "libtervano-caja") != names.end();
    return isOff ? "the preferences of Caja, \"Extensions\"" : "";
  }
  if (manager.program == "dolphin") {
    const auto value = configFileValue("kservicemenurc", "Show", "tervano");
    return value == "false" ? "the settings of Dolphin, \"Context Menu\"" : "";
  }
  return "";
}

Finding findingOfManager(const SupportedFileManager& manager) {
  const auto program = programInPath(manager.program);
  const auto module = seenModule(manager);
  if (!module) {
    const std::string installed = program ? *program + " is there" : "It is not installed";
    const auto unseen = unseenModule(manager);
    // Nobody needs all of them; whether one is there at all is a finding of its own.
    return {
        manager.name, Health::missing,
        installed + (unseen ? ", and its module is " + *unseen + ", where it does not look."
                            : (program ? ", but not our module." : ", nor is our module.")),
        (unseen ? "Put a link to the module into " + manager.folder + ", or install the package "
                : "Install the package ") +
            manager.package + (program ? "." : ", which brings it along."),
        false};
  }
  const std::string why = whyModuleFails(*module, manager.entries);
  if (!why.empty()) {
    return {manager.name, Health::broken, why + ".", installAgain(manager.package)};
  }
  if (!program) {
    return {manager.name, Health::missing,
            "Its module is " + *module + ", but it is not installed.",
            "Install the package " + manager.program + ".", false};
  }
  if (const std::string where = switchedOffIn(manager); !where.empty()) {
    // Somebody may want it so.
    return {manager.name, Health::broken, "Its module is switched off in " + where + ".",
            "Switch it on there, and open it again after \"" + manager.quit + "\".", false};
  }
  return {manager.name, Health::ok, *program + " loads " + *module + ".", ""};
}

// Whether it has looked for modules and will not do so again.
bool hasLookedForModules(pid_t pid, const SupportedFileManager& manager) {
  return manager.loading == Loading::atStart ||
         (manager.loading == Loading::atFirstMenu && processHasLoadedFrom(pid, manager.folder));
}

// A process that was started before the module was there, or has an older one. What may still load
// it is no finding.
void addRunning(const SupportedFileManager& manager, std::vector<Finding>& findings) {
  const std::string what = "running " + manager.name;
  bool isLoaded = false;
  for (const pid_t pid : processesOfProgram(manager.program)) {
    if (processHasLoaded(pid, manager.module)) {
      isLoaded = true;
    } else if (hasLookedForModules(pid, manager)) {
      findings.push_back({what, Health::broken,
                          "Process " + std::to_string(pid) + " has not loaded the module.",
                          "End it with \"" + manager.quit + "\" and open it again."});
      return;
    }
  }
  if (isLoaded) findings.push_back({what, Health::ok, "It has loaded the module.", ""});
}

}  // namespace

std::vector<Finding> fileManagerFindings() {
  std::vector<Finding> findings;
  std::string showing;
  bool isBroken = false;
  for (const auto& manager : supportedFileManagers()) {
    findings.push_back(findingOfManager(manager));
    const Health health = findings.back().health;
    isBroken = isBroken || health == Health::broken;
    if (health != Health::ok) continue;
    showing += (showing.empty() ? "" : ", ") + manager.name;
    addRunning(manager, findings);
  }
  if (!showing.empty()) {
    findings.push_back({"menu", Health::ok, "It is shown by " + showing + ".", ""});
  } else {
    findings.push_back(
        {"menu", isBroken ? Health::broken : Health::missing,
         "No file manager shows it; on the command line \"tervano menu\" does.",
         isBroken ? "Mend the module of the file manager."
                  : "Install one of the packages tervano-nautilus, tervano-nemo, tervano-caja, "
                    "tervano-thunar and tervano-dolphin."});
  }
  return findings;
}

}  // namespace tervano
