#include "hosts/common/host_extension.h"

#include <thread>

#include "actions/register_action_classes.h"
#include "hosts/common/kept_defaults.h"
#include "messaging/message_identifiers.h"
#include "model/action_list.h"
#include "platform/linux/blocked_signals.h"
#include "platform/linux/guard.h"
#include "platform/linux/linux_platform.h"
#include "platform/linux/uniform_type_table.h"
#include "platform/log.h"
#include "platform/platform.h"

namespace tervano {

// File managers give the selection with each request.
class HostController : public FIFinderSyncController {
 public:
  SelectedItemsPtr selectedItemURLs() const override { return nullptr; }
  std::optional<SelectedItem> targetedURL() const override { return std::nullopt; }
  void setDirectoryURLs(const UrlSet& urls) override { directoryURLs_ = urls; }
  const UrlSet& directoryURLs() const { return directoryURLs_; }

 private:
  UrlSet directoryURLs_;
};

namespace {

void installServices() {
  static auto& registry = *new ClassRegistry;
  registerActionClasses(registry);
  LinuxPlatformOptions options;
  options.classRegistry = &registry;
  const Platform& services = linuxPlatform(options);
  installPlatform(services);
  // Reads many files. Without it the types of the system are known.
  guarded("the start of a thread", [&services] {
    const BlockedSignals blocked;
    std::thread([&services] {
      guarded("the desktop's types", [&services] {
        if (auto* table = dynamic_cast<UniformTypeTable*>(services.uniformTypes)) {
          table->loadDesktopTypes();
        }
      });
    }).detach();
  });
}

}  // namespace

HostExtension* HostExtension::shared(Icons icons) {
  static HostExtension* const extension = [icons]() -> HostExtension* {
    HostExtension* started = nullptr;
    guarded("the start of the extension", [&] {
      installServices();
      started = new HostExtension(icons);
    });
    return started;
  }();
  return extension;
}

HostExtension::HostExtension(Icons icons)
    : controller_(std::make_shared<HostController>()),
      finderSync_(FinderSync::create(controller_)),
      wormhole_(VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                               kWormholeDirectory)) {
  if (icons == Icons::files) {
    icons_ = std::make_shared<IconFiles>([this] { notify(); });
    icons_->prepare(finderSync_->actionsArray());
    findImages();
  }
  if (wormhole_ == nullptr) return;
  // What it posted may be run after its end.
  const auto later = [this](void (HostExtension::*member)()) {
    return [this, member, alive = std::weak_ptr<const bool>(alive_)](const Value&) {
      platform().runLoop->dispatchAsyncOnMainQueue([this, member, alive] {
        if (!alive.expired()) (this->*member)();
      });
    };
  };
  // The extension hears of the change by the same notification; it goes first.
  wormhole_->listenForMessageWithIdentifier(kActionsDidChangeNotification,
                                            later(&HostExtension::listDidChange));
  wormhole_->listenForMessageWithIdentifier(kUserDefaultsDidChangeNotification,
                                            later(&HostExtension::preferencesDidChange));
  keepPreferences();
}

Menu HostExtension::menuForItems(SelectedItems items) const {
  return menuForItems(std::make_shared<const SelectedItems>(std::move(items)));
}

Menu HostExtension::menuForItems(const SelectedItemsPtr& items) const {
  return finderSync_->menuForMenuKind(MenuKind::contextualMenuForItems, items);
}

Menu HostExtension::menuForFolder(SelectedItem folder) const {
  return finderSync_->menuForMenuKind(
      MenuKind::contextualMenuForContainer,
      std::make_shared<const SelectedItems>(SelectedItems{std::move(folder)}));
}

Menu HostExtension::toolbarMenu(SelectedItems items) const {
  return finderSync_->menuForMenuKind(MenuKind::toolbarItemMenu,
                                      std::make_shared<const SelectedItems>(std::move(items)));
}

void HostExtension::choose(const MenuItem& item) const {
  if (item.enabled && item.action) finderSync_->invoke(*item.action, item.selection);
}

bool HostExtension::showsToolbarItem() const {
  return finderSync_->userDefaults()->showIconInToolbar();
}

const UrlSet& HostExtension::watchedDirectories() const {
  return controller_->directoryURLs();
}

ImagePtr HostExtension::toolbarImage() const {
  return finderSync_->userDefaults()->useBlackAndWhiteIcon()
             ? Image::imageNamed("icon-tervano-symbolic")
             : finderSync_->toolbarItemImage();
}

std::string HostExtension::iconPathOf(const ImagePtr& image) const {
  return icons_ == nullptr ? std::string() : icons_->pathOf(image);
}

void HostExtension::listDidChange() {
  if (icons_ != nullptr) icons_->prepare(finderSync_->actionsArray());
  notify();
}

void HostExtension::preferencesDidChange() {
  finderSync_->preferencesDidChange();
  keepPreferences();
  notify();
}

void HostExtension::keepPreferences() {
  const auto& preferences = finderSync_->userDefaults();
  if (preferences == nullptr || preferences->userDefaults() == nullptr) return;
  preferences->setUserDefaults(std::make_shared<KeptDefaults>(preferences->userDefaults()));
  static_cast<void>(preferences->useSubmenu());
  static_cast<void>(preferences->showIconInToolbar());
  static_cast<void>(preferences->useBlackAndWhiteIcon());
}

void HostExtension::findImages() {
  for (const char* name : {"icon-contextmenu", "icon-tervano", "icon-tervano-symbolic"}) {
    static_cast<void>(iconPathOf(Image::imageNamed(name)));
  }
}

void HostExtension::notify() {
  // An observer may add another one, which moves them all; that one has nothing to hear yet.
  const std::size_t count = observers_.size();
  for (std::size_t i = 0; i < count; ++i) {
    guarded("a file manager's observer", [&] {
      const auto observer = observers_[i];
      observer();
    });
  }
}

}  // namespace tervano
