#pragma once

#include <optional>
#include <string>
#include <vector>

#include "extension/fi_finder_sync_controller.h"
#include "extension/menu.h"

namespace tervano {

// The kind of menu of that name: "items", "container", "sidebar", "toolbar". Throws UsageError.
MenuKind requireMenuKind(const std::string& name);

// The command line as a file manager: the paths of a command are the selection or, for a folder's
// background and the sidebar, the targeted folder.
class CommandLineSelection : public FIFinderSyncController {
 public:
  // Throws UsageError when a targeted folder is wanted and more than one path is given.
  CommandLineSelection(MenuKind kind, const std::vector<std::string>& arguments);

  SelectedItemsPtr selectedItemURLs() const override { return selected_; }
  std::optional<SelectedItem> targetedURL() const override { return targeted_; }
  // Nobody watches folders here.
  void setDirectoryURLs(const UrlSet& urls) override { static_cast<void>(urls); }

 private:
  SelectedItemsPtr selected_;
  std::optional<SelectedItem> targeted_;
};

}  // namespace tervano
