#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "archive/value.h"

namespace tervano {

// The sound name that asks for the desktop's default notification sound.
inline constexpr char kUserNotificationDefaultSoundName[] = "NSUserNotificationDefaultSoundName";

// One message to the user.
struct UserNotification {
  std::string title;
  std::optional<std::string> informativeText;
  Value::Dictionary userInfo;
  bool hasActionButton = false;
  std::optional<std::string> actionButtonTitle;
  // Nil: silent.
  std::optional<std::string> soundName;
};

// How far something has come, in one notification that changes until it ends.
struct ProgressNotification {
  std::string title;
  std::string text;
  // From 0 to 1; nil when it is not known.
  std::optional<double> fraction;
  // The button that stops it.
  std::string cancelTitle;

  friend bool operator==(const ProgressNotification&, const ProgressNotification&) = default;
};

// What becomes of one that is shown. Closing it is none of these.
enum class ProgressEvent {
  // The user pressed the button.
  cancelled,
  // There is nobody who shows it, with a bar and a button.
  notShown,
};

// The desktop's notifications. Any thread may deliver; delivery never blocks and never fails
// visibly, also without a bus or a notification daemon.
class UserNotifications {
 public:
  using ActivationHandler = std::function<void(const UserNotification&)>;

  virtual ~UserNotifications() = default;
  virtual void deliverNotification(const UserNotification& notification) = 0;
  // Plays the desktop's sound for something that was done; neither blocks nor fails visibly. Any
  // thread.
  virtual void playAlert() = 0;
  // Called on the main queue when the user presses the action button of a notification that this
  // process delivered. Null removes it.
  virtual void setActivationHandler(ActivationHandler handler) = 0;
  // Deliveries that the daemon has not answered yet, and sounds that have not ended; a short-lived
  // program waits for 0.
  virtual int pendingDeliveries() const = 0;
  // Notifications with an action button that are still on the screen.
  virtual int openNotifications() const = 0;

  // Shows the notification of that number of the caller's, or changes it. One that the user has
  // closed stays closed.
  virtual void showProgress(std::uint64_t number, const ProgressNotification& notification) = 0;
  // Takes it away; nothing when there is none. The number may be used again.
  virtual void endProgress(std::uint64_t number) = 0;
  // Called on the main queue. Null removes it.
  using ProgressHandler = std::function<void(std::uint64_t number, ProgressEvent event)>;
  virtual void setProgressHandler(ProgressHandler handler) = 0;
};

class ForwardingUserNotifications : public UserNotifications {
 public:
  explicit ForwardingUserNotifications(UserNotifications& real) : real_(real) {}
  void deliverNotification(const UserNotification& notification) override {
    real_.deliverNotification(notification);
  }
  void playAlert() override { real_.playAlert(); }
  void setActivationHandler(ActivationHandler handler) override {
    real_.setActivationHandler(std::move(handler));
  }
  int pendingDeliveries() const override { return real_.pendingDeliveries(); }
  int openNotifications() const override { return real_.openNotifications(); }
  void showProgress(std::uint64_t number, const ProgressNotification& notification) override {
    real_.showProgress(number, notification);
  }
  void endProgress(std::uint64_t number) override { real_.endProgress(number); }
  void setProgressHandler(ProgressHandler handler) override {
    real_.setProgressHandler(std::move(handler));
  }

 private:
  UserNotifications& real_;
};

}  // namespace tervano
