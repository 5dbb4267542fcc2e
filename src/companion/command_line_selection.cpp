#include "companion/command_line_selection.h"

#include <map>

#include "companion/arguments.h"

namespace tervano {

MenuKind requireMenuKind(const std::string& name) {
  static const std::map<std::string, MenuKind> kinds = {
      {"items", MenuKind::contextualMenuForItems},
      {"container", MenuKind::contextualMenuForContainer},
      {"sidebar", MenuKind::contextualMenuForSidebar},
      {"toolbar", MenuKind::toolbarItemMenu},
  };
  const auto kind = kinds.find(name);
  if (kind == kinds.end()) {
    throw UsageError(tr("The kinds of menu are items, container, sidebar and toolbar."));
  }
  return kind->second;
}

CommandLineSelection::CommandLineSelection(MenuKind kind,
                                           const std::vector<std::string>& arguments) {
  SelectedItems items;
  items.reserve(arguments.size());
  for (const auto& argument : arguments) {
    items.push_back({Url::fileURLWithPath(absolutePath(argument)), std::nullopt});
  }
  if (kind == MenuKind::contextualMenuForContainer || kind == MenuKind::contextualMenuForSidebar) {
    if (items.size() > 1) throw UsageError(tr("A menu of this kind is for one folder."));
    if (!items.empty()) targeted_ = items.front();
    items.clear();
  }
  selected_ = std::make_shared<const SelectedItems>(std::move(items));
}

}  // namespace tervano
