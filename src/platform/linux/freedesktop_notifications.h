#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/linux/activation.h"
#include "platform/linux/session_bus.h"
#include "platform/user_notifications.h"

namespace tervano {

// Notifications through the desktop's notification daemon: the interface
// org.freedesktop.Notifications of the Desktop Notifications Specification 1.2, on the session bus.
//
// Texts that are not UTF-8 are shown with replacement characters; the body is escaped where the
// daemon reads markup. A daemon that does not answer is given up after a while.
// What cannot be shown is one line in the log. The press of a button is a request of its own with
// the token that the daemon gave for it (version 1.3 of the protocol; activation.h).
//
// Progress is shown where the daemon draws a bar for the hint "value" and has buttons. The standard
// has no word for the bar: a daemon has it when it says so with a capability of the first daemon
// that had one, "x-canonical-private-synchronous", or is known by its name to have it. When this
// process is killed its bar goes away by itself after a while.
class FreedesktopNotifications : public UserNotifications {
 public:
  static constexpr int kReplyTimeoutMilliseconds = 5000;
  // Deliveries beyond that are dropped, and the oldest open notification beyond it is forgotten.
  static constexpr std::size_t kMaximumNotifications = 256;

  // `applicationIdentifier` is the name of the desktop entry, for the daemon's settings.
  explicit FreedesktopNotifications(std::string applicationIdentifier,
                                    int replyTimeoutMilliseconds = kReplyTimeoutMilliseconds);
  ~FreedesktopNotifications() override;

  void deliverNotification(const UserNotification& notification) override;
  // The sound "complete" of the sound theme.
  void playAlert() override;
  void setActivationHandler(ActivationHandler handler) override;
  // A bar that was to go away counts until it has.
  int pendingDeliveries() const override {
    return pendingDeliveries_ + *pendingSounds_ + endingProgress_;
  }
  int openNotifications() const override { return openNotifications_; }
  void showProgress(std::uint64_t number, const ProgressNotification& notification) override;
  void endProgress(std::uint64_t number) override;
  void setProgressHandler(ProgressHandler handler) override;

 private:
  struct Capabilities {
    bool actions = false;
    bool bodyMarkup = false;
    bool body = false;
    bool bars = false;
  };
  struct Progress {
    ProgressNotification wanted;
    // The daemon's number; 0 for none.
    std::uint32_t shownAs = 0;
    bool hasChanged = false;
    bool isCalling = false;
    bool hasFailed = false;
    bool isClosed = false;
    bool isEnding = false;
  };
  struct Handlers {
    std::mutex mutex;
    ActivationHandler activation;
    ProgressHandler progress;
  };

  // All of the bus thread.
  void askForCapabilities();
  void notify(const std::shared_ptr<const UserNotification>& notification);
  // `pressable` is null for a notification without an action on the screen.
  void didNotify(const std::shared_ptr<const UserNotification>& pressable, GVariant* reply,
                 const GError* error);
  void deliverWaiting();
  void dropWaiting();
  void askForServer();
  void updateAllProgress();
  void updateProgress(std::uint64_t number);
  void callWith(std::uint64_t number, Progress& progress);
  void giveProgressUp();
  void removeProgress(std::uint64_t number);
  void tellProgress(std::uint64_t number, ProgressEvent event) const;
  void subscribe(GDBusConnection* connection);
  void forget(std::uint32_t identifier);
  void forgetDaemon();
  void didReceiveSignal(const std::string& name, GVariant* parameters);
  static void didReceiveSignal(GDBusConnection* connection, const gchar* sender, const gchar* path,
                               const gchar* interface, const gchar* name, GVariant* parameters,
                               gpointer self);

  std::string applicationIdentifier_;
  int replyTimeoutMilliseconds_;
  std::atomic<int> pendingDeliveries_{0};
  std::atomic<int> openNotifications_{0};
  std::atomic<int> endingProgress_{0};
  // Shared with the ends of sounds, which may come late.
  std::shared_ptr<std::atomic<int>> pendingSounds_ = std::make_shared<std::atomic<int>>(0);
  // Shared with activations that are on their way to the main queue.
  std::shared_ptr<Handlers> handlers_ = std::make_shared<Handlers>();

  std::optional<Capabilities> capabilities_;
  bool askingForCapabilities_ = false;
  // Whether it draws bars; nil until it was asked who it is.
  std::optional<bool> showsProgress_;
  bool askingForServer_ = false;
  int callsUnderWay_ = 0;
  std::deque<std::shared_ptr<const UserNotification>> waiting_;
  std::map<std::uint32_t, std::shared_ptr<const UserNotification>> open_;
  // What the daemon announced last: the token of a press that is about to be told.
  std::uint32_t announcedIdentifier_ = 0;
  ActivationToken announcedToken_;
  std::map<std::uint64_t, Progress> progress_;

  // Last, so that its thread ends before what it uses.
  SessionBus bus_;
};

// `text` as a bus string: valid UTF-8 without control characters other than tabs and line ends.
std::string displayableText(const std::string& text);

}  // namespace tervano
