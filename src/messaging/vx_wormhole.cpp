#include "messaging/vx_wormhole.h"

#include "messaging/vx_wormhole_coordinated_file_transiting.h"
#include "messaging/vx_wormhole_file_transiting.h"
#include "platform/file_manager.h"
#include "platform/notify_channel.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

std::shared_ptr<VXWormhole> VXWormhole::initWithApplicationGroupIdentifier(
    const std::optional<std::string>& identifier, const std::optional<std::string>& directory) {
  if (!platform().fileManager->supportsGroupContainers()) return nullptr;
  auto wormhole = std::make_shared<VXWormhole>(Birth());
  wormhole->wormholeMessenger_ = std::make_shared<VXWormholeFileTransiting>(identifier, directory);
  wormhole->localObservation_ = platform().notificationCenter->addObserver(
      kWormholeNotificationName, wormhole.get(),
      [weak = std::weak_ptr(wormhole)](const Notification& notification) {
        if (const auto self = weak.lock()) self->didReceiveMessageNotification(notification);
      });
  return wormhole;
}

std::shared_ptr<VXWormhole> VXWormhole::initWithApplicationGroupIdentifier(
    const std::optional<std::string>& identifier, const std::optional<std::string>& directory,
    std::uint64_t transitingType) {
  auto wormhole = initWithApplicationGroupIdentifier(identifier, directory);
  if (wormhole != nullptr && transitingType == kWormholeTransitingTypeCoordinatedFile) {
    wormhole->setWormholeMessenger(
        std::make_shared<VXWormholeCoordinatedFileTransiting>(identifier, directory));
  }
  return wormhole;
}

VXWormhole::~VXWormhole() {
  localObservation_.cancel();
  platform().notifyChannel->removeEveryObserver(this);
}

void VXWormhole::passMessageObject(const Value& messageObject,
                                   const std::optional<std::string>& identifier) {
  if (wormholeMessenger_ == nullptr) return;
  if (wormholeMessenger_->writeMessageObject(messageObject, identifier)) {
    sendNotificationForMessageWithIdentifier(identifier);
  }
}

Value VXWormhole::messageWithIdentifier(const std::optional<std::string>& identifier) const {
  if (wormholeMessenger_ == nullptr) return nullptr;
  return wormholeMessenger_->messageObjectForIdentifier(identifier);
}

void VXWormhole::clearMessageContentsForIdentifier(const std::optional<std::string>& identifier) {
  if (wormholeMessenger_ != nullptr) wormholeMessenger_->deleteContentForIdentifier(identifier);
}

void VXWormhole::clearAllMessageContents() {
  if (wormholeMessenger_ != nullptr) wormholeMessenger_->deleteContentForAllMessages();
}

void VXWormhole::listenForMessageWithIdentifier(const std::optional<std::string>& identifier,
                                                Listener listener) {
  if (!identifier) return;
  if (listener) {
    listenerBlocks_.insert_or_assign(*identifier, std::move(listener));
  } else {
    listenerBlocks_.erase(*identifier);
  }
  registerForNotificationsWithIdentifier(*identifier);
}

void VXWormhole::stopListeningForMessageWithIdentifier(
    const std::optional<std::string>& identifier) {
  if (!identifier) return;
  listenerBlocks_.erase(*identifier);
  unregisterForNotificationsWithIdentifier(*identifier);
}

void VXWormhole::sendNotificationForMessageWithIdentifier(
    const std::optional<std::string>& identifier) {
  if (identifier) platform().notifyChannel->post(*identifier);
}

void VXWormhole::registerForNotificationsWithIdentifier(const std::string& identifier) {
  unregisterForNotificationsWithIdentifier(identifier);
  platform().notifyChannel->addObserver(this, identifier,
                                        [weak = weak_from_this()](const std::string& name) {
                                          if (const auto self = weak.lock())
                                            wormholeNotificationCallback(self.get(), name);
                                        });
}

void VXWormhole::unregisterForNotificationsWithIdentifier(const std::string& identifier) {
  platform().notifyChannel->removeObserver(this, identifier);
}

void VXWormhole::didReceiveMessageNotification(const Notification& notification) {
  const auto entry = notification.userInfo.find(kWormholeNotificationIdentifierKey);
  if (entry == notification.userInfo.end()) return;
  const auto* identifier = entry->second.getIf<std::string>();
  if (identifier == nullptr) return;
  notifyListenerForMessageWithIdentifier(*identifier, messageWithIdentifier(*identifier));
}

VXWormhole::Listener VXWormhole::listenerBlockForIdentifier(const std::string& identifier) const {
  const auto entry = listenerBlocks_.find(identifier);
  return entry == listenerBlocks_.end() ? nullptr : entry->second;
}

void VXWormhole::notifyListenerForMessageWithIdentifier(const std::string& identifier,
                                                        const Value& message) {
  auto listener = listenerBlockForIdentifier(identifier);
  if (!listener) return;
  platform().runLoop->dispatchAsyncOnMainQueue(
      [listener = std::move(listener), message] { listener(message); });
}

void wormholeNotificationCallback(const VXWormhole* observer, const std::string& name) {
  platform().notificationCenter->post(
      {kWormholeNotificationName, observer, {{kWormholeNotificationIdentifierKey, name}}});
}

}  // namespace tervano
