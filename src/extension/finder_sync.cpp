#include "extension/finder_sync.h"

#include <mutex>
#include <set>

#include "extension/action_walk.h"
#include "extension/hand_off.h"
#include "extension/selection_filter.h"
#include "messaging/message_identifiers.h"
#include "model/action_list.h"
#include "platform/file_manager.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/uniform_types.h"
#include "platform/volumes.h"
#include "platform/workspace.h"
#include "store/tv_actions_manager.h"

namespace tervano {
namespace {

// The methods that have been added to the class, by selector.
class MethodTable {
 public:
  void add(std::string_view selector) {
    const std::lock_guard lock(mutex_);
    selectors_.emplace(selector);
  }
  bool contains(std::string_view selector) {
    const std::lock_guard lock(mutex_);
    return selectors_.contains(selector);
  }

 private:
  std::mutex mutex_;
  std::set<std::string, std::less<>> selectors_;
};

MethodTable& methodTable() {
  static auto& table = *new MethodTable;
  return table;
}

MenuItem itemOfAction(const TVAction& action, const SelectedItemsPtr& items) {
  MenuItem item;
  if (const auto& title = action.title()) item.title = *title;
  item.image = action.icon();
  const std::string_view uid = action.uid() ? std::string_view(*action.uid()) : std::string_view();
  std::string& selector = item.action.emplace();
  selector.reserve(FinderSync::kSelectorPrefix.size() + uid.size());
  selector.append(FinderSync::kSelectorPrefix).append(uid);
  item.selection = items;
  return item;
}

MenuItem itemWithSubmenu(std::string title, ImagePtr image, Menu submenu) {
  MenuItem item;
  item.title = std::move(title);
  item.image = std::move(image);
  item.submenu = std::make_shared<const Menu>(std::move(submenu));
  return item;
}

// Makes the items of what the walk over the list shows.
class MenuBuilder {
 public:
  explicit MenuBuilder(const SelectedItemsPtr& items) : items_(items) {}

  void show(const std::shared_ptr<TVAction>& action) {
    menu.items.push_back(itemOfAction(*action, items_));
  }
  void showMember(const std::shared_ptr<TVAction>& action) {
    submenu_.items.push_back(itemOfAction(*action, items_));
  }
  void showGroup(const std::shared_ptr<TVAction>& action) {
    menu.items.push_back(
        itemWithSubmenu(action->title().value_or(""), action->icon(), std::move(submenu_)));
    submenu_ = Menu();
  }
  void leaveOut(const std::shared_ptr<TVAction>& /*action*/, LeftOut /*why*/) {}
  void leaveOutMember(const std::shared_ptr<TVAction>& /*action*/, LeftOut /*why*/) {}

  Menu menu;

 private:
  const SelectedItemsPtr& items_;
  // Of the group that is walked.
  Menu submenu_;
};

// The items of the actions that fit, in the list's order.
Menu menuOfActions(const ActionList& actions, SelectionFilter& filter,
                   const SelectedItemsPtr& items) {
  MenuBuilder builder(items);
  builder.menu.items.reserve(actions.size());
  walkActions(actions, filter, builder);
  return std::move(builder.menu);
}

}  // namespace

std::shared_ptr<FinderSync> FinderSync::create(std::shared_ptr<FIFinderSyncController> controller) {
  auto finderSync = std::make_shared<FinderSync>(Birth(), std::move(controller));
  finderSync->init();
  return finderSync;
}

FinderSync::FinderSync(Birth /*birth*/, std::shared_ptr<FIFinderSyncController> controller)
    : controller_(std::move(controller)) {}

void FinderSync::init() {
  updateDirectoryURLs();
  preferencesDidChange();
  reloadData();
  wormhole_ = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                             kWormholeDirectory);
  const std::weak_ptr<FinderSync> weakSelf = weak_from_this();
  if (wormhole_ != nullptr) {
    wormhole_->listenForMessageWithIdentifier(kActionsDidChangeNotification,
                                              [weakSelf](const Value&) {
                                                if (const auto self = weakSelf.lock()) {
                                                  self->reloadData();
                                                }
                                              });
    wormhole_->listenForMessageWithIdentifier(kUserDefaultsDidChangeNotification,
                                              [weakSelf](const Value&) {
                                                if (const auto self = weakSelf.lock()) {
                                                  self->preferencesDidChange();
                                                }
                                              });
  }
  for (const char* name : {kWorkspaceDidMountNotification, kWorkspaceDidUnmountNotification,
                           kWorkspaceDidRenameVolumeNotification}) {
    volumeObservations_.push_back(platform().workspace->notificationCenter().addObserver(
        name, nullptr, [weakSelf](const Notification&) {
          if (const auto self = weakSelf.lock()) self->updateDirectoryURLs();
        }));
  }
}

std::string FinderSync::toolbarItemName() const {
  return "Tervano";
}

std::string FinderSync::toolbarItemToolTip() const {
  return "Click the toolbar item for a menu.";
}

ImagePtr FinderSync::toolbarItemImage() const {
  return Image::imageNamed("icon-tervano");
}

Menu FinderSync::menuForMenuKind(MenuKind menuKind) const {
  return menuForMenuKind(menuKind, selectedItems());
}

Menu FinderSync::menuForMenuKind(MenuKind menuKind, const SelectedItemsPtr& items) const {
  const SelectedItems none;
  const SelectedItems& selection = items == nullptr ? none : *items;
  Menu menu;
  if (actionsArray_ && (selection.empty() || hasLocalItem(selection))) {
    SelectionFilter filter(selectedFileUTIs(selection));
    menu = menuOfActions(*actionsArray_, filter, items);
  }
  if (menuKind == MenuKind::toolbarItemMenu) {
    if (menu.items.empty()) {
      MenuItem item;
      item.title = "No Actions Enabled";
      item.enabled = false;
      menu.items.push_back(std::move(item));
    }
    return menu;
  }
  if (userDefaults_ == nullptr || !userDefaults_->useSubmenu()) return menu;
  Menu wrapper;
  wrapper.items.push_back(
      itemWithSubmenu("Tervano", Image::imageNamed("icon-contextmenu"), std::move(menu)));
  return wrapper;
}

void FinderSync::preferencesDidChange() {
  userDefaults_ = TVUserDefaults::create();
}

void FinderSync::reloadData() {
  const auto manager = TVActionsManager::create();
  setActionsArray(manager == nullptr ? std::nullopt : std::optional(manager->actions()));
}

void FinderSync::setActionsArray(std::optional<ActionList> actions) {
  if (actions) *actions = withoutNull(std::move(*actions));
  actionsArray_ = std::move(actions);
}

void FinderSync::updateDirectoryURLs() {
  const auto volumes = platform().volumes->mountedVolumeURLs(true);
  controller_->setDirectoryURLs(UrlSet(volumes.begin(), volumes.end()));
}

SelectedItemsPtr FinderSync::selectedItems() const {
  auto selected = controller_->selectedItemURLs();
  if (selected != nullptr && !selected->empty()) return selected;
  auto targeted = std::make_shared<SelectedItems>();
  if (auto folder = controller_->targetedURL()) targeted->push_back(std::move(*folder));
  return targeted;
}

std::vector<std::string> FinderSync::selectedFileUTIs() const {
  return selectedFileUTIs(*selectedItems());
}

std::vector<std::string> FinderSync::selectedFileUTIs(const SelectedItems& items) const {
  return typesOfItems(items);
}

bool FinderSync::allUTIsConformToTypes(const std::vector<std::string>& UTIs,
                                       const std::vector<std::string>& types) {
  if (UTIs.empty()) return false;
  for (const std::string& type : types) {
    for (const std::string& UTI : UTIs) {
      if (!platform().uniformTypes->conformsTo(UTI, type)) return false;
    }
  }
  return true;
}

bool FinderSync::resolveInstanceMethod(std::string_view selector) {
  if (!selector.starts_with(kSelectorPrefix)) return false;
  methodTable().add(selector);
  return true;
}

bool FinderSync::instancesRespondToSelector(std::string_view selector) {
  return methodTable().contains(selector);
}

bool FinderSync::invoke(std::string_view selector) {
  return invoke(selector, selectedItems());
}

bool FinderSync::invoke(std::string_view selector, const SelectedItemsPtr& items) {
  if (!instancesRespondToSelector(selector) && !resolveInstanceMethod(selector)) return false;
  resolveActionWithUID(std::string(selector.substr(kSelectorPrefix.size())),
                       items == nullptr ? SelectedItems() : *items);
  return true;
}

void FinderSync::resolveActionWithUID(const std::string& uid) {
  resolveActionWithUID(uid, *selectedItems());
}

void FinderSync::resolveActionWithUID(const std::string& uid, const SelectedItems& items) {
  Value::Array paths;
  paths.reserve(items.size());
  for (const SelectedItem& item : items) {
    if (std::string path = item.url.path(); !path.empty()) paths.emplace_back(std::move(path));
  }
  if (paths.empty() && !items.empty()) {
    log("Nothing to hand over: none of the selected items is a local file");
    return;
  }
  if (const auto fileName = saveDictionary({{"paths", std::move(paths)}})) {
    platform().workspace->openURL(handOffURL(uid, *fileName));
  }
}

std::optional<std::string> FinderSync::saveDictionary(const Value::Dictionary& dictionary) const {
  const auto folder = handOffFolder();
  std::string fileName = Uuid::random().UUIDString();
  std::string reason;
  const auto json = prettyPrintedJSON(dictionary, &reason);
  if (!json) {
    log("Could not convert to JSON: " + reason);
    return std::nullopt;
  }
  // A write that fails is not reported here: the application misses the file and says so.
  if (folder) {
    static_cast<void>(platform().fileManager->writeDataToFile(
        Data(json->begin(), json->end()), appendingPathComponent(*folder, fileName), false));
  }
  return fileName;
}

}  // namespace tervano
