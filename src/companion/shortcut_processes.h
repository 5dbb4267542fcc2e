#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tervano {

// The application actions by which a desktop runs an action on what is selected: each is one run of
// this very program with the command "shortcut", so that nothing that waits for the desktop holds
// the companion up. Main thread.
class ShortcutProcesses {
 public:
  ShortcutProcesses();
  ShortcutProcesses(const ShortcutProcesses&) = delete;
  ShortcutProcesses& operator=(const ShortcutProcesses&) = delete;
  ~ShortcutProcesses();

  // Begins the action of that name: "run-on-clipboard" and "run-on-selection" let the user choose,
  // "run-action" takes a uid and, when it is not the clipboard, "primary". Nil when it was begun,
  // else a sentence.
  std::optional<std::string> begin(const std::string& name,
                                   const std::vector<std::string>& parameters);
  // Those that have not ended.
  std::size_t running() const;

 private:
  struct Running;
  std::shared_ptr<Running> running_;
};

}  // namespace tervano
