#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "archive/value.h"
#include "messaging/vx_wormhole_transiting.h"
#include "platform/notification_center.h"
#include "platform/subscription.h"

namespace tervano {

// The local notification that carries a received name to its messenger: sender is the messenger,
// and the user info has the one key "identifier".
inline constexpr char kWormholeNotificationName[] = "VXWormholeNotificationName";
inline constexpr char kWormholeNotificationIdentifierKey[] = "identifier";

// The value of a transiting type that selects the coordinated file transport.
inline constexpr std::uint64_t kWormholeTransitingTypeCoordinatedFile = 1;

// Carries small messages between the processes of an application group. A message is an object
// stored under an identifier by the transport; a system-wide notification of just that name then
// tells every listening process, which reads the object and calls its listener on the main queue.
// Notifications that have not been delivered yet may merge; the last one is never lost.
//
// Sending: any thread, synchronous. Everything about listeners: main thread.
class VXWormhole : public std::enable_shared_from_this<VXWormhole> {
  class Birth {
    friend class VXWormhole;
    Birth() = default;
  };

 public:
  // Gets the message object, null when none is stored or it cannot be read. Lives, with what it
  // captured, until it is replaced or removed; a call already scheduled keeps it until then.
  using Listener = std::function<void(const Value& messageObject)>;
  using ListenerBlocks = std::map<std::string, Listener, std::less<>>;

  // Not usable; always null.
  static std::shared_ptr<VXWormhole> init() { return nullptr; }
  // Null on a system without group containers. Messages live in `directory` of the container, in
  // the container itself when nil; nothing is created before the first message.
  static std::shared_ptr<VXWormhole> initWithApplicationGroupIdentifier(
      const std::optional<std::string>& identifier, const std::optional<std::string>& directory);
  // `transitingType` 1 selects the coordinated file transport, anything else the plain one.
  static std::shared_ptr<VXWormhole> initWithApplicationGroupIdentifier(
      const std::optional<std::string>& identifier, const std::optional<std::string>& directory,
      std::uint64_t transitingType);

  explicit VXWormhole(Birth) {}
  // Ends every observation. Any thread.
  ~VXWormhole();
  VXWormhole(const VXWormhole&) = delete;
  VXWormhole& operator=(const VXWormhole&) = delete;

  // Stores the object, then announces it; announces nothing when storing failed. A null object is
  // a pure signal: nothing is written, and the receiver reads what was stored last.
  void passMessageObject(const Value& messageObject, const std::optional<std::string>& identifier);
  Value messageWithIdentifier(const std::optional<std::string>& identifier) const;
  void clearMessageContentsForIdentifier(const std::optional<std::string>& identifier);
  void clearAllMessageContents();

  // Replaces the identifier's listener; an empty one removes it. One notification makes one call,
  // however often this was called. A nil identifier does nothing.
  void listenForMessageWithIdentifier(const std::optional<std::string>& identifier,
                                      Listener listener);
  // A call that was scheduled before still comes. A nil identifier does nothing.
  void stopListeningForMessageWithIdentifier(const std::optional<std::string>& identifier);

  // The steps that the above are made of.
  void sendNotificationForMessageWithIdentifier(const std::optional<std::string>& identifier);
  void registerForNotificationsWithIdentifier(const std::string& identifier);
  void unregisterForNotificationsWithIdentifier(const std::string& identifier);
  void didReceiveMessageNotification(const Notification& notification);
  // An empty function when there is none.
  Listener listenerBlockForIdentifier(const std::string& identifier) const;
  void notifyListenerForMessageWithIdentifier(const std::string& identifier, const Value& message);

  // While it is null every write fails and every read gives null.
  const std::shared_ptr<VXWormholeTransiting>& wormholeMessenger() const {
    return wormholeMessenger_;
  }
  void setWormholeMessenger(std::shared_ptr<VXWormholeTransiting> messenger) {
    wormholeMessenger_ = std::move(messenger);
  }
  ListenerBlocks& listenerBlocks() { return listenerBlocks_; }
  const ListenerBlocks& listenerBlocks() const { return listenerBlocks_; }
  void setListenerBlocks(ListenerBlocks blocks) { listenerBlocks_ = std::move(blocks); }

 private:
  ListenerBlocks listenerBlocks_;
  std::shared_ptr<VXWormholeTransiting> wormholeMessenger_;
  Subscription localObservation_;
};

// What the system-wide channel calls in the observing process: posts the local notification with
// `observer` as its sender. The channel carries names only, hence no object and no user info.
void wormholeNotificationCallback(const VXWormhole* observer, const std::string& name);

}  // namespace tervano
