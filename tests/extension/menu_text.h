#pragma once

#include <string>

#include "extension/menu.h"

namespace tervano::test {

// A menu as text, one line for each item: two blanks for each level, the title, then in brackets
// the image's name, "disabled" and the selector, as far as there is one.
inline std::string menuText(const Menu& menu, const std::string& indent = "") {
  std::string text;
  for (const MenuItem& item : menu.items) {
    text += indent + item.title;
    if (item.image != nullptr && !item.image->name().empty())
      text += " [" + item.image->name() + "]";
    if (!item.enabled) text += " [disabled]";
    if (item.action) text += " [" + *item.action + "]";
    text += item.submenu == nullptr ? "\n" : ":\n";
    if (item.submenu != nullptr) text += menuText(*item.submenu, indent + "  ");
  }
  return text;
}

}  // namespace tervano::test
