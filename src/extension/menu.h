#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "extension/fi_finder_sync_controller.h"
#include "platform/image.h"

namespace tervano {

// Which menu a file manager asks for.
enum class MenuKind {
  contextualMenuForItems = 0,
  contextualMenuForContainer = 1,
  contextualMenuForSidebar = 2,
  toolbarItemMenu = 3,
};

struct MenuItem;

// A menu as plain data, built for one request. Hosts turn it into their own widgets. A value type.
struct Menu {
  std::string title;
  std::vector<MenuItem> items;
};

// One entry of a menu. It has no key equivalent and no tool tip.
struct MenuItem {
  // Plain text: a host escapes what its toolkit would interpret.
  std::string title;
  bool enabled = true;
  // 16 by 16 points; null for none.
  ImagePtr image;
  // The selector to invoke when the item is chosen: "tv_" and the action's uid. Nil: nothing.
  std::optional<std::string> action;
  // What the menu was built for, to be given back when the item is chosen. Null without an action.
  SelectedItemsPtr selection;
  // Null for none.
  std::shared_ptr<const Menu> submenu;
};

}  // namespace tervano
