#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "extension/finder_sync.h"
#include "hosts/common/icon_files.h"
#include "messaging/vx_wormhole.h"

namespace tervano {

class HostController;

// The one extension of a file manager's process, started at the first use and never ended. Main
// thread.
class HostExtension {
 public:
  // Whether the file manager draws icons from files.
  enum class Icons { none, files };

  // Null, and the reason logged, when the extension could not be started. Never throws. The first
  // call decides about the icons.
  static HostExtension* shared(Icons icons);

  explicit HostExtension(Icons icons);
  HostExtension(const HostExtension&) = delete;
  HostExtension& operator=(const HostExtension&) = delete;

  Menu menuForItems(SelectedItems items) const;
  Menu menuForItems(const SelectedItemsPtr& items) const;
  // The background menu of a folder.
  Menu menuForFolder(SelectedItem folder) const;
  // The menu of the toolbar button in a window where these are selected, or whose folder it is.
  Menu toolbarMenu(SelectedItems items) const;
  // What choosing an item does, with the selection it was built for. Nothing for an item without an
  // action.
  void choose(const MenuItem& item) const;

  // Whether the user wants a button in the toolbar.
  bool showsToolbarItem() const;
  const FinderSync& finderSync() const { return *finderSync_; }
  // Every visible volume, kept up to date while volumes come and go. File managers have no such
  // setting: whatever they show of this machine lies below one of these.
  const UrlSet& watchedDirectories() const;
  // What the toolbar button shows: the extension's image, or its one-coloured form when the user
  // wants that.
  ImagePtr toolbarImage() const;
  // Empty for none, and where the file manager draws no icons.
  std::string iconPathOf(const ImagePtr& image) const;

  // Called when another menu may be due: the list, a preference or the icons changed. Lives as long
  // as this.
  void observeChanges(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

 private:
  void listDidChange();
  void preferencesDidChange();
  // Reads the preferences now and for the menus to come: they change with their message only.
  void keepPreferences();
  // Looks for the files of the images that the list does not have now, not in a menu request.
  void findImages();
  void notify();

  std::shared_ptr<HostController> controller_;
  std::shared_ptr<FinderSync> finderSync_;
  std::shared_ptr<VXWormhole> wormhole_;
  // Null where no icons are drawn.
  std::shared_ptr<IconFiles> icons_;
  std::vector<std::function<void()>> observers_;
  // Ends with this object.
  std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
};

}  // namespace tervano
