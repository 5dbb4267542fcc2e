#include <algorithm>
#include <sstream>

#include "companion/brief_run.h"
#include "companion/finding.h"
#include "platform/bundle.h"
#include "platform/file_manager.h"
#include "platform/linux/program_lookup.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kMainPackage[] = "tervano";
constexpr double kToolSeconds = 20;

// A program of our own, and what it must do when it is asked something harmless.
struct OwnTool {
  std::string name;
  std::vector<std::string> question;
  int status;
};

const std::vector<OwnTool>& ownTools() {
  // The programs with windows can be asked nothing without a display, so they must complain.
  static const std::vector<OwnTool> tools = {
      {"tervano-images", {"--formats"}, 0}, {"tervano-remove", {"--help"}, 0},
      {"tervano-defaults", {"--help"}, 0},  {"tervano-ask", {}, 2},
      {"tervano-selection", {"--help"}, 2}, {"tervano-progress", {"--help"}, 2}};
  return tools;
}

// What the image tool can write when all of its libraries are there.
const std::vector<std::string>& allFormats() {
  static const std::vector<std::string> formats = {"jpeg", "png",  "tiff", "gif",  "bmp",
                                                   "jp2",  "webp", "heic", "avif", "pdf"};
  return formats;
}

struct OwnModule {
  std::string what;
  std::string file;
  std::string entry;
};

const std::vector<OwnModule>& ownModules() {
  static const std::vector<OwnModule> modules = {
      {trMark("icon drawings"), "pictures.so", "tervanoPictureCodec"},
      {trMark("AppImage reader"), "appimages.so", "tervanoSquashfsEntries"}};
  return modules;
}

// A program of the system: any of these does.
struct Helper {
  std::string purpose;
  std::vector<std::string> programs;
  std::string package;
  bool needed = false;
};

const std::vector<Helper>& helpers() {
  static const std::vector<Helper> all = {
      {trMark("shell scripts"), {"bash"}, "bash", true},
      {trMark("Python scripts"), {"python3"}, "python3"},
      {trMark("JavaScript scripts"), {"gjs"}, "gjs"},
      {trMark("Lua scripts"), {"lua5.4", "lua5.3", "lua"}, "lua5.4"},
      {trMark("notifications of scripts"), {"notify-send"}, "libnotify-bin"},
      {trMark("clipboard"), {"wl-copy", "xclip", "xsel"}, "xclip"},
      {trMark("extraction of archives"), {"bsdtar"}, "libarchive-tools"},
      {trMark("merging of PDF files"), {"qpdf", "pdfunite"}, "qpdf"},
      {trMark("metadata of pictures"), {"exiftool"}, "libimage-exiftool-perl"}};
  return all;
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

// A folder of the resources that must hold something.
Finding resourceFolder(const Sentence& what, const std::string& name) {
  const std::string path = platform().bundle->resourcePath() + "/" + name;
  const auto names = platform().fileManager->contentsOfDirectoryAtPath(path);
  if (!names.empty()) {
    return {what, Health::ok,
            trn("{2} holds {1} item.", "{2} holds {1} items.", names.size(), path), ""};
  }
  const bool isThere = platform().fileManager->isDirectoryAtPath(path);
  return {
      what, isThere ? Health::broken : Health::missing,
      isThere ? tr("{1} is empty or cannot be read.", path) : tr("There is no folder {1}.", path),
      installAgain(kMainPackage)};
}

// What is wrong with a run that should have ended with `status`; empty for nothing.
Sentence whyRunFailed(const BriefRun& run, int status) {
  if (!run.failure.empty()) return run.failure;
  if (run.status == status) return "";
  return run.errors.empty() ? tr("it ended with status {1}", run.status)
                            : Sentence(firstLine(run.errors));
}

Finding findingOfFormats(const std::string& output) {
  std::istringstream words(output);
  std::vector<std::string> formats;
  std::string listed;
  for (std::string word; words >> word;) {
    formats.push_back(word);
    listed.append(listed.empty() ? "" : ", ").append(word);
  }
  std::string lacking;
  for (const auto& format : allFormats()) {
    if (std::find(formats.begin(), formats.end(), format) != formats.end()) continue;
    lacking.append(lacking.empty() ? "" : ", ").append(format);
  }
  if (lacking.empty()) return {tr("picture formats"), Health::ok, listed + ".", ""};
  return {tr("picture formats"), Health::missing,
          tr("Pictures cannot be converted to {1}.", lacking),
          tr("Install the libraries that the package {1} recommends.", "libvips42"), false};
}

void addTools(std::vector<Finding>& findings) {
  for (const auto& tool : ownTools()) {
    const std::string path = platform().bundle->pathForAuxiliaryExecutable(tool.name);
    if (!platform().fileManager->fileExistsAtPath(path)) {
      findings.push_back({tool.name, Health::missing, tr("There is no program {1}.", path),
                          installAgain(kMainPackage)});
      continue;
    }
    const BriefRun run = runBriefly(path, tool.question, kToolSeconds);
    const Sentence why = whyRunFailed(run, tool.status);
    if (!why.empty()) {
      findings.push_back({tool.name, Health::broken, tr("{1} fails: {2}.", path, why),
                          installAgain(kMainPackage)});
      continue;
    }
    findings.push_back({tool.name, Health::ok, tr("{1} runs.", path), ""});
    if (tool.name == "tervano-images") findings.push_back(findingOfFormats(run.output));
  }
}

void addModules(std::vector<Finding>& findings) {
  for (const auto& module : ownModules()) {
    const std::string path = platform().bundle->pathForAuxiliaryExecutable(module.file);
    if (!platform().fileManager->fileExistsAtPath(path)) {
      findings.push_back({translated(module.what), Health::missing,
                          tr("There is no module {1}.", path), installAgain(kMainPackage)});
      continue;
    }
    const Sentence why = whyModuleFails(path, {module.entry});
    if (why.empty()) {
      findings.push_back({translated(module.what), Health::ok, tr("{1} can be loaded.", path), ""});
    } else {
      findings.push_back(
          {translated(module.what), Health::broken, tr("{1}.", why), installAgain(kMainPackage)});
    }
  }
}

}  // namespace

std::string installationPrefix() {
  const std::string& resources = platform().bundle->resourcePath();
  constexpr std::string_view kResources = "/share/tervano";
  return resources.substr(0, resources.size() - kResources.size());
}

Sentence installAgain(const std::string& package) {
  if (installationPrefix() == "/usr") {
    return tr(
        "Install the package {1} again, with \"apt install --reinstall\" and its name or its "
        ".deb file.",
        package);
  }
  return tr("Build Tervano again, so that {1} is complete.", installationPrefix());
}

Sentence whyModuleFails(const std::string& path, const std::vector<std::string>& entries) {
  std::vector<std::string> words{"doctor", "--module", path};
  words.insert(words.end(), entries.begin(), entries.end());
  const BriefRun run = runBriefly("/proc/self/exe", words, kToolSeconds);
  if (!run.failure.empty()) return tr("Loading {1} fails: {2}", path, run.failure);
  if (run.status == 0) return "";
  std::string why = firstLine(run.errors);
  constexpr std::string_view kName = "tervano: ";
  if (why.starts_with(kName)) why.erase(0, kName.size());
  if (why.ends_with('.')) why.pop_back();
  return why.empty() ? tr("Loading {1} fails", path) : Sentence(why);
}

std::vector<Finding> installationFindings() {
  std::vector<Finding> findings;
  findings.push_back(resourceFolder(tr("icons"), "icons"));
  findings.push_back(resourceFolder(tr("templates"), "Templates"));
  findings.push_back(resourceFolder(tr("default scripts"), "Default Scripts"));
  addTools(findings);
  addModules(findings);
  return findings;
}

std::vector<Finding> helperFindings() {
  std::vector<Finding> findings;
  for (const auto& helper : helpers()) {
    std::optional<std::string> path;
    for (const auto& program : helper.programs) {
      if (!path) path = programInPath(program);
    }
    if (path) {
      findings.push_back({translated(helper.purpose), Health::ok, *path + ".", "", helper.needed});
    } else {
      findings.push_back({translated(helper.purpose), Health::missing,
                          tr("There is no program {1}.", helper.programs.front()),
                          tr("Install the package {1}.", helper.package), helper.needed});
    }
  }
  return findings;
}

}  // namespace tervano
