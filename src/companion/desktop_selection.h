#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/activation.h"

namespace tervano {

// What the desktop says is selected, and what the user chose to do with it.
struct DesktopSelection {
  std::vector<std::string> files;
  // Empty when nothing was to be chosen.
  std::string uid;
  // With what the next window comes to the front.
  ActivationToken token;
};

// Uid and title of each choice for the files.
using SelectionChoices = std::vector<std::pair<std::string, std::string>>;
using MakeSelectionChoices = std::function<SelectionChoices(const std::vector<std::string>& files)>;

// Reads which files are on the clipboard or, when `isPrimary`, named by the marked text. With
// `makeChoices` a window then lets the user choose; nil when the user closed it. A program of its
// own does that, which has a toolkit and the request's activation token. Throws CommandError with a
// sentence when there are no files, no display, or no answer in time, and what `makeChoices`
// throws. Runs the main loop; main thread.
std::optional<DesktopSelection> readDesktopSelection(bool isPrimary,
                                                     const MakeSelectionChoices& makeChoices);

}  // namespace tervano
