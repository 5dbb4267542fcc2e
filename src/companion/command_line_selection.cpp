#include "companion/command_line_selection.h"

#include "companion/arguments.h"

namespace tervano {

CommandLineSelection::CommandLineSelection(MenuKind kind,
                                           const std::vector<std::string>& arguments) {
  SelectedItems items;
  items.reserve(arguments.size());
  for (const auto& argument : arguments) {
    items.push_back({Url::fileURLWithPath(absolutePath(argument)), std::nullopt});
  }
  if (kind == MenuKind::contextualMenuForContainer || kind == MenuKind::contextualMenuForSidebar) {
    if (items.size() > 1) throw UsageError("A menu of this kind is for one folder.");
    if (!items.empty()) targeted_ = items.front();
    items.clear();
  }
  selected_ = std::make_shared<const SelectedItems>(std::move(items));
}

}  // namespace tervano
