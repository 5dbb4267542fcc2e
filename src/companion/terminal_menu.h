#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tervano {

// One line of a terminal menu. An entry with a submenu opens it; any other is chosen by its index.
struct TerminalMenuEntry {
  std::string title;
  bool enabled = true;
  // What `runTerminalMenu` answers when this entry is chosen; empty for one that does nothing.
  std::string choice;
  std::vector<TerminalMenuEntry> submenu;
  bool hasSubmenu = false;
};

// Shows the entries on the controlling terminal of standard input and output. Up and Down (or k and
// j) move, Enter and Right choose or open, Left and Escape go back, q leaves. Answers the choice,
// or nil when the person left without one. The terminal's settings are restored before it returns.
std::optional<std::string> runTerminalMenu(const std::string& heading,
                                           const std::vector<TerminalMenuEntry>& entries);

}  // namespace tervano
