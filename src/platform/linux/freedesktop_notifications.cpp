#include "platform/linux/freedesktop_notifications.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/event_sound.h"
#include "platform/linux/guard.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/run_loop.h"

namespace tervano {

namespace {

constexpr char kNotificationsName[] = "org.freedesktop.Notifications";
constexpr char kNotificationsPath[] = "/org/freedesktop/Notifications";
constexpr char kProductName[] = "Tervano";
constexpr char kIconName[] = "tervano";
constexpr char kShowAction[] = "show";
constexpr char kDefaultAction[] = "default";
// The sound theme's name for a message that has just come.
constexpr char kDefaultSound[] = "message-new-instant";
constexpr char kAlertSound[] = "complete";
constexpr char kCancelAction[] = "cancel";
constexpr int kDefaultExpiry = -1;
// How long a bar stays that nobody changes any more; whoever shows it does so more often.
constexpr int kProgressExpiryMilliseconds = 15'000;
constexpr int kWholeBar = 100;
constexpr guchar kLowUrgency = 0;
// The daemon that draws a bar for "value" and does not say so, by its own name. The one of GNOME
// draws none, nor does that of Plasma.
constexpr std::string_view kDaemonWithBars = "Xfce Notify Daemon";
constexpr char kBarCapability[] = "x-canonical-private-synchronous";
// A bus takes no more than 128 unanswered calls of a connection; the rest wait here.
constexpr int kMaximumCalls = 16;

std::string escapedMarkup(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char character : text) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

void logFailure(const GError* error) {
  log(std::string("Could not show a notification: ") +
      (error == nullptr ? "unexpected answer" : error->message));
}

GVariant* hintsFor(const UserNotification& notification, const std::string& applicationIdentifier) {
  GVariantBuilder hints;
  g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&hints, "{sv}", "desktop-entry",
                        g_variant_new_string(displayableText(applicationIdentifier).c_str()));
  if (notification.soundName) {
    const std::string sound = *notification.soundName == kUserNotificationDefaultSoundName
                                  ? kDefaultSound
                                  : displayableText(*notification.soundName);
    g_variant_builder_add(&hints, "{sv}", "sound-name", g_variant_new_string(sound.c_str()));
  } else {
    g_variant_builder_add(&hints, "{sv}", "suppress-sound", g_variant_new_boolean(TRUE));
  }
  return g_variant_builder_end(&hints);
}

GVariant* hintsFor(const ProgressNotification& progress, const std::string& applicationIdentifier) {
  GVariantBuilder hints;
  g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&hints, "{sv}", "desktop-entry",
                        g_variant_new_string(displayableText(applicationIdentifier).c_str()));
  g_variant_builder_add(&hints, "{sv}", "suppress-sound", g_variant_new_boolean(TRUE));
  g_variant_builder_add(&hints, "{sv}", "transient", g_variant_new_boolean(TRUE));
  g_variant_builder_add(&hints, "{sv}", "urgency", g_variant_new_byte(kLowUrgency));
  g_variant_builder_add(&hints, "{sv}", "category", g_variant_new_string("transfer"));
  if (progress.fraction) {
    const double part = std::clamp(*progress.fraction, 0.0, 1.0);
    g_variant_builder_add(&hints, "{sv}", "value",
                          g_variant_new_int32(static_cast<int>(part * kWholeBar)));
  }
  return g_variant_builder_end(&hints);
}

}  // namespace

std::string displayableText(const std::string& text) {
  constexpr char kReplacement[] = "\xef\xbf\xbd";
  const GCharPtr valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  std::string result;
  for (const gchar* next = valid.get(); *next != '\0'; ++next) {
    const auto byte = static_cast<unsigned char>(*next);
    const bool isControl = (byte < ' ' && byte != '\t' && byte != '\n') || byte == 0x7f;
    if (isControl) {
      result += kReplacement;
    } else {
      result += *next;
    }
  }
  return result;
}

FreedesktopNotifications::FreedesktopNotifications(std::string applicationIdentifier,
                                                   int replyTimeoutMilliseconds)
    : applicationIdentifier_(std::move(applicationIdentifier)),
      replyTimeoutMilliseconds_(replyTimeoutMilliseconds),
      bus_([this](GDBusConnection* connection) { subscribe(connection); }) {}

FreedesktopNotifications::~FreedesktopNotifications() = default;

void FreedesktopNotifications::setActivationHandler(ActivationHandler handler) {
  const std::lock_guard lock(handlers_->mutex);
  handlers_->activation = std::move(handler);
}

void FreedesktopNotifications::deliverNotification(const UserNotification& notification) {
  if (++pendingDeliveries_ > static_cast<int>(kMaximumNotifications)) {
    --pendingDeliveries_;
    log("Could not show a notification: too many are waiting");
    return;
  }
  bus_.post([this, copy = std::make_shared<const UserNotification>(notification)] {
    waiting_.push_back(copy);
    deliverWaiting();
  });
}

void FreedesktopNotifications::playAlert() {
  ++*pendingSounds_;
  bus_.post([pending = pendingSounds_] {
    if (playEventSound(kAlertSound, [pending] { --*pending; })) return;
    --*pending;
    log("Could not play the sound of a completed action");
  });
}

void FreedesktopNotifications::deliverWaiting() {
  // A new connection forgets what was known of the daemon, so it comes first.
  bus_.withConnection([this](GDBusConnection* /*connection*/) {
    if (!capabilities_) {
      askForCapabilities();
      return;
    }
    while (!waiting_.empty() && callsUnderWay_ < kMaximumCalls) {
      const auto notification = std::move(waiting_.front());
      waiting_.pop_front();
      notify(notification);
    }
  });
}

void FreedesktopNotifications::dropWaiting() {
  pendingDeliveries_ -= static_cast<int>(waiting_.size());
  waiting_.clear();
}

void FreedesktopNotifications::askForCapabilities() {
  if (std::exchange(askingForCapabilities_, true)) return;
  bus_.call(kNotificationsName, kNotificationsPath, kNotificationsName, "GetCapabilities",
            g_variant_new("()"), replyTimeoutMilliseconds_,
            [this](GVariant* reply, const GError* error) {
              askingForCapabilities_ = false;
              if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(as)"))) {
                logFailure(error);
                dropWaiting();
                giveProgressUp();
                return;
              }
              Capabilities capabilities;
              GVariantIter* names = nullptr;
              const gchar* name = nullptr;
              g_variant_get(reply, "(as)", &names);
              while (g_variant_iter_next(names, "&s", &name)) {
                if (g_str_equal(name, "actions")) capabilities.actions = true;
                if (g_str_equal(name, "body-markup")) capabilities.bodyMarkup = true;
                if (g_str_equal(name, "body")) capabilities.body = true;
                if (g_str_equal(name, kBarCapability)) capabilities.bars = true;
              }
              g_variant_iter_free(names);
              capabilities_ = capabilities;
              deliverWaiting();
              updateAllProgress();
            });
}

void FreedesktopNotifications::setProgressHandler(ProgressHandler handler) {
  const std::lock_guard lock(handlers_->mutex);
  handlers_->progress = std::move(handler);
}

void FreedesktopNotifications::showProgress(std::uint64_t number,
                                            const ProgressNotification& notification) {
  bus_.post([this, number, notification] {
    auto& progress = progress_[number];
    if (progress.isEnding) return;
    progress.wanted = notification;
    progress.hasChanged = true;
    updateProgress(number);
  });
}

void FreedesktopNotifications::endProgress(std::uint64_t number) {
  ++endingProgress_;
  bus_.post([this, number] {
    const auto found = progress_.find(number);
    if (found == progress_.end() || found->second.isEnding) {
      --endingProgress_;
      return;
    }
    found->second.isEnding = true;
    updateProgress(number);
  });
}

void FreedesktopNotifications::askForServer() {
  if (std::exchange(askingForServer_, true)) return;
  bus_.call(kNotificationsName, kNotificationsPath, kNotificationsName, "GetServerInformation",
            g_variant_new("()"), replyTimeoutMilliseconds_,
            [this](GVariant* reply, const GError* /*error*/) {
              askingForServer_ = false;
              // One that does not say who it is is none of those.
              showsProgress_ = false;
              if (reply != nullptr && g_variant_is_of_type(reply, G_VARIANT_TYPE("(ssss)"))) {
                const gchar* name = nullptr;
                g_variant_get(reply, "(&ssss)", &name, nullptr, nullptr, nullptr);
                showsProgress_ = name == kDaemonWithBars;
              }
              updateAllProgress();
            });
}

void FreedesktopNotifications::updateAllProgress() {
  std::vector<std::uint64_t> numbers;
  for (const auto& [number, progress] : progress_) numbers.push_back(number);
  for (const auto number : numbers) updateProgress(number);
}

void FreedesktopNotifications::updateProgress(std::uint64_t number) {
  // A new connection forgets what was known of the daemon, so it comes first.
  bus_.withConnection([this, number](GDBusConnection* /*connection*/) {
    const auto found = progress_.find(number);
    if (found == progress_.end() || found->second.isCalling) return;
    Progress& progress = found->second;
    if (progress.isEnding && progress.shownAs == 0) return removeProgress(number);
    if (progress.isClosed || (!progress.hasChanged && !progress.isEnding)) return;
    if (!capabilities_) return askForCapabilities();
    const bool isUsable = capabilities_->actions && capabilities_->body;
    if (isUsable && capabilities_->bars) showsProgress_ = true;
    if (isUsable && !showsProgress_) return askForServer();
    if (!isUsable || !*showsProgress_) return giveProgressUp();
    callWith(number, progress);
  });
}

void FreedesktopNotifications::callWith(std::uint64_t number, Progress& progress) {
  progress.isCalling = true;
  if (progress.isEnding) {
    bus_.call(
        kNotificationsName, kNotificationsPath, kNotificationsName, "CloseNotification",
        g_variant_new("(u)", progress.shownAs), replyTimeoutMilliseconds_,
        [this, number](GVariant* /*reply*/, const GError* /*error*/) { removeProgress(number); });
    return;
  }
  progress.hasChanged = false;
  std::string body = displayableText(progress.wanted.text);
  if (capabilities_->bodyMarkup) body = escapedMarkup(body);
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  g_variant_builder_add(&actions, "s", kCancelAction);
  g_variant_builder_add(&actions, "s", displayableText(progress.wanted.cancelTitle).c_str());
  bus_.call(
      kNotificationsName, kNotificationsPath, kNotificationsName, "Notify",
      g_variant_new("(susss@as@a{sv}i)", kProductName, progress.shownAs, kIconName,
                    displayableText(progress.wanted.title).c_str(), body.c_str(),
                    g_variant_builder_end(&actions),
                    hintsFor(progress.wanted, applicationIdentifier_), kProgressExpiryMilliseconds),
      replyTimeoutMilliseconds_, [this, number](GVariant* reply, const GError* error) {
        const auto found = progress_.find(number);
        if (found == progress_.end()) return;
        found->second.isCalling = false;
        if (reply != nullptr && g_variant_is_of_type(reply, G_VARIANT_TYPE("(u)"))) {
          found->second.hasFailed = false;
          g_variant_get(reply, "(u)", &found->second.shownAs);
          return updateProgress(number);
        }
        // The daemon may have gone in the middle of it, and there may be another one.
        if (std::exchange(found->second.hasFailed, true)) {
          logFailure(error);
          return giveProgressUp();
        }
        capabilities_.reset();
        found->second.shownAs = 0;
        found->second.hasChanged = true;
        updateProgress(number);
      });
}

void FreedesktopNotifications::giveProgressUp() {
  std::vector<std::uint64_t> numbers;
  for (const auto& [number, progress] : progress_) numbers.push_back(number);
  for (const auto number : numbers) {
    if (!progress_[number].isEnding) tellProgress(number, ProgressEvent::notShown);
    removeProgress(number);
  }
}

void FreedesktopNotifications::removeProgress(std::uint64_t number) {
  const auto found = progress_.find(number);
  if (found == progress_.end()) return;
  if (found->second.isEnding) --endingProgress_;
  progress_.erase(found);
}

void FreedesktopNotifications::tellProgress(std::uint64_t number, ProgressEvent event) const {
  platform().runLoop->dispatchAsyncOnMainQueue([handlers = handlers_, number, event] {
    ProgressHandler handler;
    {
      const std::lock_guard lock(handlers->mutex);
      handler = handlers->progress;
    }
    if (handler) handler(number, event);
  });
}

void FreedesktopNotifications::notify(const std::shared_ptr<const UserNotification>& notification) {
  const std::string title = displayableText(notification->title);
  std::string body = displayableText(notification->informativeText.value_or(""));
  if (capabilities_->bodyMarkup) body = escapedMarkup(body);
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  const bool offersAction = notification->hasActionButton && capabilities_->actions;
  if (offersAction) {
    const std::string label = displayableText(notification->actionButtonTitle.value_or("Show"));
    // "default" is a press on the notification itself; its label is not shown.
    for (const char* action : {kDefaultAction, kShowAction}) {
      g_variant_builder_add(&actions, "s", action);
      g_variant_builder_add(&actions, "s", label.c_str());
    }
  }
  ++callsUnderWay_;
  bus_.call(kNotificationsName, kNotificationsPath, kNotificationsName, "Notify",
            g_variant_new("(susss@as@a{sv}i)", kProductName, 0U, kIconName, title.c_str(),
                          body.c_str(), g_variant_builder_end(&actions),
                          hintsFor(*notification, applicationIdentifier_), kDefaultExpiry),
            replyTimeoutMilliseconds_,
            [this, notification, offersAction](GVariant* reply, const GError* error) {
              didNotify(offersAction ? notification : nullptr, reply, error);
            });
}

void FreedesktopNotifications::didNotify(const std::shared_ptr<const UserNotification>& pressable,
                                         GVariant* reply, const GError* error) {
  --callsUnderWay_;
  if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(u)"))) {
    logFailure(error);
    // A daemon that is silent now would make each of the others wait as long.
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) dropWaiting();
  } else if (pressable != nullptr) {
    std::uint32_t identifier = 0;
    g_variant_get(reply, "(u)", &identifier);
    open_[identifier] = pressable;
    // Identifiers ascend, so the lowest is the oldest.
    if (open_.size() > kMaximumNotifications) open_.erase(open_.begin());
    openNotifications_ = static_cast<int>(open_.size());
  }
  --pendingDeliveries_;
  if (!waiting_.empty()) deliverWaiting();
}

void FreedesktopNotifications::subscribe(GDBusConnection* connection) {
  forgetDaemon();
  g_dbus_connection_signal_subscribe(connection, kNotificationsName, kNotificationsName, nullptr,
                                     kNotificationsPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                     didReceiveSignal, this, nullptr);
  g_dbus_connection_signal_subscribe(connection, "org.freedesktop.DBus", "org.freedesktop.DBus",
                                     "NameOwnerChanged", "/org/freedesktop/DBus",
                                     kNotificationsName, G_DBUS_SIGNAL_FLAGS_NONE, didReceiveSignal,
                                     this, nullptr);
}

void FreedesktopNotifications::didReceiveSignal(GDBusConnection* /*connection*/,
                                                const gchar* /*sender*/, const gchar* /*path*/,
                                                const gchar* /*interface*/, const gchar* name,
                                                GVariant* parameters, gpointer self) {
  guarded("a signal of the notification daemon", [=] {
    static_cast<FreedesktopNotifications*>(self)->didReceiveSignal(name, parameters);
  });
}

void FreedesktopNotifications::didReceiveSignal(const std::string& name, GVariant* parameters) {
  if (name == "NameOwnerChanged") {
    forgetDaemon();
  } else if (name == "NotificationClosed" &&
             g_variant_is_of_type(parameters, G_VARIANT_TYPE("(uu)"))) {
    std::uint32_t identifier = 0;
    g_variant_get(parameters, "(uu)", &identifier, nullptr);
    forget(identifier);
    for (auto& [number, progress] : progress_) {
      if (progress.shownAs != identifier) continue;
      progress.isClosed = true;
      progress.shownAs = 0;
    }
  } else if (name == "ActivationToken" &&
             g_variant_is_of_type(parameters, G_VARIANT_TYPE("(us)"))) {
    const gchar* token = nullptr;
    g_variant_get(parameters, "(u&s)", &announcedIdentifier_, &token);
    announcedToken_ = ActivationToken::fromTexts(token, "");
  } else if (name == "ActionInvoked" && g_variant_is_of_type(parameters, G_VARIANT_TYPE("(us)"))) {
    std::uint32_t identifier = 0;
    const gchar* action = nullptr;
    g_variant_get(parameters, "(u&s)", &identifier, &action);
    const auto announced = std::exchange(announcedToken_, {});
    const ActivationScope scope(std::make_shared<Activation>(
        identifier == announcedIdentifier_ ? announced : ActivationToken()));
    for (const auto& [number, progress] : progress_) {
      if (progress.shownAs == identifier && g_str_equal(action, kCancelAction)) {
        tellProgress(number, ProgressEvent::cancelled);
      }
    }
    const auto pressed = open_.find(identifier);
    if (pressed == open_.end()) return;
    if (!g_str_equal(action, kShowAction) && !g_str_equal(action, kDefaultAction)) return;
    platform().runLoop->dispatchAsyncOnMainQueue(
        [handlers = handlers_, notification = pressed->second] {
          ActivationHandler handler;
          {
            const std::lock_guard lock(handlers->mutex);
            handler = handlers->activation;
          }
          if (handler) handler(*notification);
        });
  }
}

void FreedesktopNotifications::forgetDaemon() {
  // Another one knows none of our notifications and may have other capabilities.
  capabilities_.reset();
  open_.clear();
  openNotifications_ = 0;
  showsProgress_.reset();
  for (auto& [number, progress] : progress_) {
    progress.shownAs = 0;
    progress.hasChanged = true;
  }
}

void FreedesktopNotifications::forget(std::uint32_t identifier) {
  open_.erase(identifier);
  openNotifications_ = static_cast<int>(open_.size());
}

}  // namespace tervano
