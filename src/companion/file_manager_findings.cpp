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

bool isListed(const std::string& schema, const std::string& name) {
  const auto names = settingsList(schema, "disabled-extensions");
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Where the user has switched our module off in the file manager's own settings; empty when it is
// on. Each knows it by another name: of its file, of its type, of its metadata.
Sentence switchedOffIn(const SupportedFileManager& manager) {
  if (manager.program == "caja" && isListed("org.mate.caja.extensions", "libtervano-caja")) {
    return tr("the preferences of Caja, \"Extensions\"");
  }
  if (manager.program == "nemo" && isListed("org.nemo.plugins", "TervanoMenuProvider")) {
    return tr("the preferences of Nemo, \"Plugins\"");
  }
  if (manager.program == "dolphin" &&
      configFileValue("kservicemenurc", "Show", "tervano") == "false") {
    return tr("the settings of Dolphin, \"Context Menu\"");
  }
  return {};
}

Finding findingWithoutModule(const SupportedFileManager& manager,
                             const std::optional<std::string>& program) {
  const Sentence package =
      program ? Sentence(manager.package) : tr("{1}, which brings it along", manager.package);
  if (const auto unseen = unseenModule(manager)) {
    return {
        manager.name, Health::missing,
        program
            ? tr("{1} is there, and its module is {2}, where it does not look.", *program, *unseen)
            : tr("It is not installed, and its module is {1}, where it does not look.", *unseen),
        tr("Put a link to the module into {1}, or install the package {2}.", manager.folder,
           package),
        false};
  }
  return {manager.name, Health::missing,
          program ? tr("{1} is there, but not our module.", *program)
                  : tr("It is not installed, nor is our module."),
          tr("Install the package {1}.", package), false};
}

Finding findingOfManager(const SupportedFileManager& manager) {
  const auto program = programInPath(manager.program);
  const auto module = seenModule(manager);
  if (!module) {
    // Nobody needs all of them; whether one is there at all is a finding of its own.
    return findingWithoutModule(manager, program);
  }
  const Sentence why = whyModuleFails(*module, manager.entries);
  if (!why.empty()) {
    return {manager.name, Health::broken, tr("{1}.", why), installAgain(manager.package)};
  }
  if (!program) {
    return {manager.name, Health::missing,
            tr("Its module is {1}, but it is not installed.", *module),
            tr("Install the package {1}.", manager.program), false};
  }
  if (const Sentence where = switchedOffIn(manager); !where.empty()) {
    // Somebody may want it so.
    return {manager.name, Health::broken, tr("Its module is switched off in {1}.", where),
            tr("Switch it on there, and open it again after \"{1}\".", manager.quit), false};
  }
  return {manager.name, Health::ok, tr("{1} loads {2}.", *program, *module), ""};
}

// Whether it has looked for modules and will not do so again.
bool hasLookedForModules(pid_t pid, const SupportedFileManager& manager) {
  return manager.loading == Loading::atStart ||
         (manager.loading == Loading::atFirstMenu && processHasLoadedFrom(pid, manager.folder));
}

// A process that was started before the module was there, or has an older one. What may still load
// it is no finding.
void addRunning(const SupportedFileManager& manager, std::vector<Finding>& findings) {
  const Sentence what = tr("running {1}", manager.name);
  bool isLoaded = false;
  for (const pid_t pid : processesOfProgram(manager.program)) {
    if (processHasLoaded(pid, manager.module)) {
      isLoaded = true;
    } else if (hasLookedForModules(pid, manager)) {
      findings.push_back({what, Health::broken, tr("Process {1} has not loaded the module.", pid),
                          tr("End it with \"{1}\" and open it again.", manager.quit)});
      return;
    }
  }
  if (isLoaded) findings.push_back({what, Health::ok, tr("It has loaded the module."), ""});
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
    findings.push_back({tr("menu"), Health::ok, tr("It is shown by {1}.", showing), ""});
  } else {
    findings.push_back(
        {tr("menu"), isBroken ? Health::broken : Health::missing,
         tr("No file manager shows it; on the command line \"tervano menu\" does."),
         isBroken ? tr("Mend the module of the file manager.")
                  : tr("Install one of the packages tervano-nautilus, tervano-nemo, tervano-caja, "
                       "tervano-thunar and tervano-dolphin.")});
  }
  return findings;
}

}  // namespace tervano
