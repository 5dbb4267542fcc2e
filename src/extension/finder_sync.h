#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/value.h"
#include "extension/fi_finder_sync_controller.h"
#include "extension/menu.h"
#include "messaging/vx_wormhole.h"
#include "model/tv_action.h"
#include "platform/subscription.h"
#include "prefs/tv_user_defaults.h"

namespace tervano {

// The extension inside a file manager: watches every visible volume, follows changes of the action
// list and of the preferences, builds menus of the actions that fit a selection, and hands a chosen
// action over to the application. Runs no action itself. Main thread.
//
// Building a menu starts no process and does not touch the disk, except that the preferences store
// looks whether its file changed, and for items without an extension of which the file manager does
// not know whether they are folders.
class FinderSync : public std::enable_shared_from_this<FinderSync> {
  class Birth {
    friend class FinderSync;
    Birth() = default;
  };

 public:
  // The prefix of the selectors of menu items; the rest is the action's uid.
  static constexpr std::string_view kSelectorPrefix = "tv_";

  // A started extension: everything is loaded and listened to. Never null.
  static std::shared_ptr<FinderSync> create(std::shared_ptr<FIFinderSyncController> controller);

  FinderSync(Birth, std::shared_ptr<FIFinderSyncController> controller);
  FinderSync(const FinderSync&) = delete;
  FinderSync& operator=(const FinderSync&) = delete;

  std::string toolbarItemName() const;
  std::string toolbarItemToolTip() const;
  ImagePtr toolbarItemImage() const;

  // The menu for what the controller has selected or targeted now.
  Menu menuForMenuKind(MenuKind menuKind) const;
  // The menu for a selection that comes with the request. Items that are no local files are left
  // out; when that leaves none of several, no action fits. Null counts as empty.
  Menu menuForMenuKind(MenuKind menuKind, const SelectedItemsPtr& items) const;

  // Replaces `userDefaults` by a fresh object.
  void preferencesDidChange();
  // Replaces `actionsArray` by the list on disk; nil when it cannot be loaded.
  void reloadData();
  // Gives the controller every visible volume.
  void updateDirectoryURLs();

  // The controller's selection, else its targeted folder, else nothing. Never null.
  SelectedItemsPtr selectedItems() const;
  // The types of the selection, each once, in no defined order.
  std::vector<std::string> selectedFileUTIs() const;
  std::vector<std::string> selectedFileUTIs(const SelectedItems& items) const;
  // Whether every one of `UTIs` conforms to every one of `types`; false without any `UTIs`.
  static bool allUTIsConformToTypes(const std::vector<std::string>& UTIs,
                                    const std::vector<std::string>& types);

  // Adds the method of a selector that begins with "tv_" to the class, for the life of the process;
  // false for any other. Any thread.
  static bool resolveInstanceMethod(std::string_view selector);
  // Whether the class has the selector's method already. Any thread.
  static bool instancesRespondToSelector(std::string_view selector);
  // What choosing a menu item does: performs the selector, resolving it when it is not known yet.
  // False, and nothing done, for a selector that cannot be resolved. With `items` the selection is
  // the one that came with the menu, otherwise what the controller has now.
  bool invoke(std::string_view selector);
  bool invoke(std::string_view selector, const SelectedItemsPtr& items);
  // Writes the paths to a fresh hand-off file and opens the hand-off URL. Nothing is opened when
  // the paths cannot be written as JSON, or when none of several items is a local file. Never
  // checks the uid.
  void resolveActionWithUID(const std::string& uid);
  void resolveActionWithUID(const std::string& uid, const SelectedItems& items);
  // Writes the dictionary as JSON to a file of a fresh name in the application group's container;
  // answers the name, also when the writing failed. Nil, logged, for what JSON cannot hold.
  std::optional<std::string> saveDictionary(const Value::Dictionary& dictionary) const;

  // Neither set nor read by the extension.
  const std::optional<Url>& myFolderURL() const { return myFolderURL_; }
  void setMyFolderURL(std::optional<Url> url) { myFolderURL_ = std::move(url); }
  // Null on a system without group containers: changes are not followed.
  const std::shared_ptr<VXWormhole>& wormhole() const { return wormhole_; }
  void setWormhole(std::shared_ptr<VXWormhole> wormhole) { wormhole_ = std::move(wormhole); }
  // The snapshots that menus are built from.
  const std::optional<ActionList>& actionsArray() const { return actionsArray_; }
  void setActionsArray(std::optional<ActionList> actions);
  const std::shared_ptr<TVUserDefaults>& userDefaults() const { return userDefaults_; }
  void setUserDefaults(std::shared_ptr<TVUserDefaults> userDefaults) {
    userDefaults_ = std::move(userDefaults);
  }

 private:
  void init();

  std::shared_ptr<FIFinderSyncController> controller_;
  std::optional<Url> myFolderURL_;
  std::shared_ptr<VXWormhole> wormhole_;
  std::optional<ActionList> actionsArray_;
  std::shared_ptr<TVUserDefaults> userDefaults_;
  std::vector<Subscription> volumeObservations_;
};

}  // namespace tervano
