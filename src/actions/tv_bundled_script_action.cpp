#include "actions/tv_bundled_script_action.h"

#include "platform/bundle.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "prefs/vx_dictionary.h"

namespace tervano {
namespace {

std::optional<std::string> bundledDescription(const std::string& fileName) {
  const auto descriptions = vx_dictionaryFromPropertyListWithName("BundledDescriptions");
  if (!descriptions) return std::nullopt;
  const auto entry = descriptions->find(fileName);
  const auto* text = entry == descriptions->end() ? nullptr : entry->second.getIf<std::string>();
  return text == nullptr ? std::nullopt : std::optional(*text);
}

}  // namespace

std::optional<std::string> TVBundledScriptAction::pathForBundledFileName(
    const std::string& fileName) {
  auto path = platform().bundle->pathForResource(fileName, "sh", "Default Scripts");
  if (path && !path->empty()) return path;
  log("Couldn't find file: " + fileName);
  return std::nullopt;
}

void TVBundledScriptAction::takeBundledFile(const std::string& fileName, const std::string& path) {
  if (platform().bundle->pathForImageNamed(fileName)) setIcon(Image::imageNamed(fileName));
  const auto description = bundledDescription(fileName);
  setDefaultTitle(fileName);
  setTitle(fileName);
  setActionDescription(description);
  setScriptURL(Url::fileURLWithPath(path));
}

void TVBundledScriptAction::init() {
  TVShellScriptAction::init();
  setIsEditable(false);
  setIsDefault(true);
}

std::optional<std::string> TVBundledScriptAction::defaultTitle() const {
  // The base answers what was set, the class between a constant.
  const auto stored = TVAction::defaultTitle();  // NOLINT(bugprone-parent-virtual-call)
  return stored ? stored : TVShellScriptAction::defaultTitle();
}

std::optional<std::string> TVBundledScriptAction::editorClassName() const {
  return "TVResetAppModule";
}

std::shared_ptr<TVAction> TVBundledScriptAction::makeBlank() const {
  return std::make_shared<TVBundledScriptAction>();
}

}  // namespace tervano
