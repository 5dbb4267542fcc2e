#include "platform/linux/mail_portal.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <optional>
#include <utility>

#include "platform/linux/bus_names.h"
#include "platform/linux/guard.h"
#include "platform/linux/user_folders.h"
#include "platform/log.h"
#include "platform/platform.h"
#include "platform/user_notifications.h"

namespace tervano {

namespace {

constexpr char kPortal[] = "org.freedesktop.portal.Desktop";
constexpr char kPortalPath[] = "/org/freedesktop/portal/desktop";
constexpr char kEmail[] = "org.freedesktop.portal.Email";
constexpr char kRequest[] = "org.freedesktop.portal.Request";
constexpr guint32 kSuccess = 0;
constexpr guint32 kCancelled = 1;
// The version that knows "activation_token".
constexpr guint32 kActivationTokenVersion = 4;

constexpr char kRefused[] = "the desktop's portal could not open the message";
constexpr char kGone[] = "the desktop's portal ended";
constexpr char kSilent[] = "the desktop's portal did not answer";

std::optional<guint32> versionIn(GVariant* reply) {
  if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(v)"))) return std::nullopt;
  GVariant* boxed = nullptr;
  g_variant_get(reply, "(v)", &boxed);
  const GVariantPtr version(boxed);
  if (!g_variant_is_of_type(boxed, G_VARIANT_TYPE_UINT32)) return std::nullopt;
  return g_variant_get_uint32(boxed);
}

}  // namespace

// One request, from the first question to its end. Bus thread.
class MailPortal::Exchange : public std::enable_shared_from_this<Exchange> {
 public:
  Exchange(MailPortal& portal, std::vector<Descriptor> files, ActivationToken token)
      : portal_(portal), count_(files.size()), token_(std::move(token)) {
    std::vector<int> numbers;
    numbers.reserve(files.size());
    for (auto& file : files) numbers.push_back(file.release());
    // The list closes them.
    descriptors_.reset(
        g_unix_fd_list_new_from_array(numbers.data(), static_cast<gint>(numbers.size())));
  }
  ~Exchange() { letGo(); }

  std::future<Answer> answer() { return answer_.get_future(); }
  // Nobody waits any more: a request that has not been made is not made. Any thread.
  void abandon() { abandoned_ = true; }

  void begin() {
    restartTimer(portal_.timeouts_.accepted);
    portal_.bus_.withConnection([self = shared_from_this()](GDBusConnection* connection) {
      if (self->hasEnded()) return;
      if (connection == nullptr || (g_dbus_connection_get_capabilities(connection) &
                                    G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING) == 0) {
        self->end({});
        return;
      }
      self->connection_.reset(static_cast<GDBusConnection*>(g_object_ref(connection)));
      self->askForVersion();
    });
  }

 private:
  bool hasEnded() const { return ended_; }

  void askForVersion() {
    askWhetherReachable(portal_.bus_, kPortal, portal_.timeouts_.accepted,
                        [self = shared_from_this()](bool isReachable) {
                          if (self->hasEnded()) return;
                          if (!isReachable) {
                            self->end({});
                            return;
                          }
                          self->portal_.bus_.call(kPortal, kPortalPath,
                                                  "org.freedesktop.DBus.Properties", "Get",
                                                  g_variant_new("(ss)", kEmail, "version"),
                                                  self->portal_.timeouts_.accepted,
                                                  [self](GVariant* reply, const GError* /*error*/) {
                                                    if (self->hasEnded()) return;
                                                    const auto version = versionIn(reply);
                                                    if (version) {
                                                      self->composeEmail(*version);
                                                    } else {
                                                      self->end({});
                                                    }
                                                  });
                        });
  }

  void composeEmail(guint32 version) {
    if (abandoned_) {
      end({});
      return;
    }
    const std::string token = "tervano" + randomFileNameSuffix();
    requestPath_ = requestPathOf(token);
    // Of every request: an old portal's own path is known too late to ask for it alone.
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        connection_.get(), kPortal, kRequest, "Response", nullptr, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, didRespond, this, nullptr));
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        connection_.get(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
        "/org/freedesktop/DBus", kPortal, G_DBUS_SIGNAL_FLAGS_NONE, portalDidChange, this,
        nullptr));
    closedHandler_ = g_signal_connect(connection_.get(), "closed", G_CALLBACK(busDidClose), this);

    GVariantBuilder handles;
    g_variant_builder_init(&handles, G_VARIANT_TYPE("ah"));
    for (std::size_t i = 0; i < count_; ++i) {
      g_variant_builder_add(&handles, "h", static_cast<gint32>(i));
    }
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
    g_variant_builder_add(&options, "{sv}", "attachment_fds", g_variant_builder_end(&handles));
    if (version >= kActivationTokenVersion && !token_.token.empty()) {
      g_variant_builder_add(&options, "{sv}", "activation_token",
                            g_variant_new_string(token_.token.c_str()));
    }
    portal_.bus_.call(
        kPortal, kPortalPath, kEmail, "ComposeEmail",
        g_variant_new("(s@a{sv})", "", g_variant_builder_end(&options)), kDialogMilliseconds,
        [self = shared_from_this()](GVariant* reply, const GError* error) {
          self->didCompose(reply, error);
        },
        std::move(descriptors_));
  }

  void didCompose(GVariant* reply, const GError* error) {
    if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(o)"))) {
      end({false, error == nullptr ? kRefused : error->message});
      return;
    }
    const gchar* handle = nullptr;
    g_variant_get(reply, "(&o)", &handle);
    if (hasEnded()) {
      close(handle);
      return;
    }
    // Portals before version 0.9 make up their own path.
    requestPath_ = handle;
    accepted_ = true;
    restartTimer(portal_.timeouts_.answered);
  }

  // Where the portal's documentation puts the request of this connection with that token.
  std::string requestPathOf(const std::string& token) const {
    std::string sender = g_dbus_connection_get_unique_name(connection_.get());
    sender.erase(0, 1);
    std::replace(sender.begin(), sender.end(), '.', '_');
    return std::string(kPortalPath) + "/request/" + sender + "/" + token;
  }

  void restartTimer(int milliseconds) {
    stopTimer();
    timer_ = g_timeout_source_new(static_cast<guint>(milliseconds));
    g_source_set_callback(
        timer_,
        [](gpointer self) -> gboolean {
          guarded("the mail portal's timer",
                  [self] { static_cast<Exchange*>(self)->shared_from_this()->timerDidFire(); });
          return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(timer_, portal_.bus_.context());
  }

  void stopTimer() {
    if (timer_ == nullptr) return;
    g_source_destroy(timer_);
    g_source_unref(timer_);
    timer_ = nullptr;
  }

  void timerDidFire() {
    if (!accepted_) {
      // Nothing that it might still open is to stand beside what the caller does instead.
      if (!requestPath_.empty()) close(requestPath_);
      end({false, kSilent});
    } else if (!answered_) {
      // Perhaps the user looks at a dialog.
      tell({true, {}});
      restartTimer(kDialogMilliseconds);
    } else {
      end({true, {}});
    }
  }

  void close(const std::string& request) {
    portal_.bus_.call(kPortal, request, kRequest, "Close", g_variant_new("()"),
                      portal_.timeouts_.accepted, [](GVariant*, const GError*) {});
  }

  static void didRespond(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                         const gchar* path, const gchar* /*interface*/, const gchar* /*name*/,
                         GVariant* parameters, gpointer self) {
    guarded("an answer of the mail portal", [=] {
      const auto exchange = static_cast<Exchange*>(self)->shared_from_this();
      if (exchange->requestPath_ != path ||
          !g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ua{sv})"))) {
        return;
      }
      guint32 response = 0;
      g_variant_get(parameters, "(ua{sv})", &response, nullptr);
      if (response == kSuccess || response == kCancelled) {
        exchange->end({true, {}});
      } else {
        exchange->end({false, kRefused});
      }
    });
  }

  static void portalDidChange(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                              const gchar* /*path*/, const gchar* /*interface*/,
                              const gchar* /*name*/, GVariant* parameters, gpointer self) {
    guarded("the end of the mail portal", [=] {
      if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sss)"))) return;
      const gchar* previous = nullptr;
      g_variant_get(parameters, "(&s&s&s)", nullptr, &previous, nullptr);
      if (*previous == '\0') return;
      static_cast<Exchange*>(self)->shared_from_this()->end({false, kGone});
    });
  }

  static void busDidClose(GDBusConnection* /*connection*/, gboolean /*byPeer*/, GError* /*error*/,
                          gpointer self) {
    guarded("the end of the bus", [self] {
      static_cast<Exchange*>(self)->shared_from_this()->end({false, kGone});
    });
  }

  void tell(const Answer& answer) {
    if (!std::exchange(answered_, true)) {
      answer_.set_value(answer);
      return;
    }
    if (answer.taken) return;
    const std::string message = "Could not compose an e-mail: " + answer.reason;
    log(message);
    UserNotification notification;
    notification.title = "Tervano";
    notification.informativeText = message;
    platform().userNotifications->deliverNotification(notification);
  }

  void end(const Answer& answer) {
    if (std::exchange(ended_, true)) return;
    const auto self = shared_from_this();
    letGo();
    std::erase(portal_.exchanges_, self);
    tell(answer);
    // The end of an item wakes whoever waits for it.
    portal_.bus_.post([&pending = portal_.pendingRequests_] { --pending; });
  }

  void letGo() {
    stopTimer();
    for (const guint subscription : std::exchange(subscriptions_, {})) {
      g_dbus_connection_signal_unsubscribe(connection_.get(), subscription);
    }
    if (const auto handler = std::exchange(closedHandler_, 0); handler != 0) {
      g_signal_handler_disconnect(connection_.get(), handler);
    }
  }

  MailPortal& portal_;
  GObjectPtr<GUnixFDList> descriptors_;
  std::size_t count_;
  const ActivationToken token_;
  std::promise<Answer> answer_;
  GObjectPtr<GDBusConnection> connection_;
  std::string requestPath_;
  std::vector<guint> subscriptions_;
  gulong closedHandler_ = 0;
  GSource* timer_ = nullptr;
  std::atomic<bool> abandoned_{false};
  bool accepted_ = false;
  bool answered_ = false;
  bool ended_ = false;
};

MailPortal::MailPortal(SessionBus& bus, std::atomic<int>& pendingRequests, Timeouts timeouts)
    : bus_(bus), pendingRequests_(pendingRequests), timeouts_(timeouts) {}

MailPortal::~MailPortal() = default;

MailPortal::Answer MailPortal::compose(std::vector<Descriptor> files, ActivationToken token) {
  const auto exchange = std::make_shared<Exchange>(*this, std::move(files), std::move(token));
  auto answer = exchange->answer();
  ++pendingRequests_;
  bus_.post([this, exchange] {
    exchanges_.push_back(exchange);
    exchange->begin();
  });
  // The bus thread answers in time, unless something else holds it up.
  const auto longest =
      std::chrono::milliseconds(timeouts_.accepted + timeouts_.answered +
                                static_cast<int>(SessionBus::kConnectTimeoutMilliseconds));
  if (answer.wait_for(longest) == std::future_status::ready) return answer.get();
  exchange->abandon();
  return {false, kSilent};
}

}  // namespace tervano
