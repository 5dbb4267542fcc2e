#include "platform/linux/session_bus.h"

#include <pthread.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/linux/blocked_signals.h"
#include "platform/linux/guard.h"

namespace tervano {

namespace {

// Whoever runs the main loop until the pending work is done looks again.
void wakeMainLoop() {
  g_main_context_wakeup(nullptr);
}

}  // namespace

std::optional<std::string> sessionBusAddress() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
      address != nullptr && *address != '\0') {
    return address;
  }
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || *runtime != '/') return std::nullopt;
  const std::string path = std::string(runtime) + "/bus";
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return std::nullopt;
  const GCharPtr escaped(g_dbus_address_escape_value(path.c_str()));
  return std::string("unix:path=") + escaped.get();
}

SessionBus::~SessionBus() {
  if (!thread_.joinable()) return;
  post([this] {
    stopping_ = true;
    g_cancellable_cancel(callsCancellable_.get());
    g_cancellable_cancel(connectCancellable_.get());
    // Their callbacks refer to this object: let them end first.
    while (connecting_ || callsUnderWay_ > 0) g_main_context_iteration(context_, TRUE);
    connection_.reset();
    g_main_loop_quit(loop_);
  });
  thread_.join();
  g_main_loop_unref(loop_);
  g_main_context_unref(context_);
}

void SessionBus::post(std::function<void()> item) {
  {
    const std::lock_guard lock(mutex_);
    if (context_ == nullptr) start();
    items_.push_back(std::move(item));
  }
  // One turn of the loop for each item.
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer self) -> gboolean {
        guarded("an item of the bus thread",
                [self] { static_cast<SessionBus*>(self)->runNextItem(); });
        wakeMainLoop();
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
  g_source_attach(source, context_);
  g_source_unref(source);
}

void SessionBus::start() {
  GMainContext* const context = g_main_context_new();
  GMainLoop* const loop = g_main_loop_new(context, FALSE);
  try {
    const BlockedSignals blocked;
    thread_ = std::thread([context, loop] {
      pthread_setname_np(pthread_self(), "tervano-bus");
      g_main_context_push_thread_default(context);
      g_main_loop_run(loop);
      g_main_context_pop_thread_default(context);
    });
  } catch (...) {
    g_main_loop_unref(loop);
    g_main_context_unref(context);
    throw;
  }
  context_ = context;
  loop_ = loop;
  callsCancellable_.reset(g_cancellable_new());
}

void SessionBus::runNextItem() {
  std::function<void()> item;
  {
    const std::lock_guard lock(mutex_);
    item = std::move(items_.front());
    items_.pop_front();
  }
  item();
}

void SessionBus::withConnection(ConnectionHandler handler) {
  if (connection_ != nullptr && !g_dbus_connection_is_closed(connection_.get())) {
    handler(connection_.get());
    return;
  }
  waiting_.push_back(std::move(handler));
  connect();
}

void SessionBus::connect() {
  if (connecting_) return;
  connection_.reset();
  const auto address = sessionBusAddress();
  if (!address || stopping_) {
    finishConnecting(nullptr);
    return;
  }
  connecting_ = true;
  connectCancellable_.reset(g_cancellable_new());
  connectTimer_ = g_timeout_source_new(kConnectTimeoutMilliseconds);
  g_source_set_callback(connectTimer_, connectDidTimeOut, this, nullptr);
  g_source_attach(connectTimer_, context_);
  g_dbus_connection_new_for_address(
      address->c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, connectCancellable_.get(), didConnect, this);
}

gboolean SessionBus::connectDidTimeOut(gpointer self) {
  g_cancellable_cancel(static_cast<SessionBus*>(self)->connectCancellable_.get());
  return G_SOURCE_CONTINUE;
}

void SessionBus::didConnect(GObject* /*source*/, GAsyncResult* result, gpointer self) {
  guarded("a connection to the session bus", [result, bus = static_cast<SessionBus*>(self)] {
    GObjectPtr<GDBusConnection> connection(
        g_dbus_connection_new_for_address_finish(result, nullptr));
    g_source_destroy(bus->connectTimer_);
    g_source_unref(bus->connectTimer_);
    bus->connectTimer_ = nullptr;
    bus->connecting_ = false;
    bus->finishConnecting(std::move(connection));
  });
  wakeMainLoop();
}

void SessionBus::finishConnecting(GObjectPtr<GDBusConnection> connection) {
  connection_ = std::move(connection);
  if (connection_ != nullptr && connectionHandler_) connectionHandler_(connection_.get());
  const auto waiting = std::exchange(waiting_, {});
  for (const auto& handler : waiting) handler(connection_.get());
}

void SessionBus::call(const std::string& name, const std::string& path,
                      const std::string& interface, const std::string& method, GVariant* parameters,
                      int timeoutMilliseconds, ReplyHandler handler,
                      GObjectPtr<GUnixFDList> descriptors) {
  struct Call {
    SessionBus* bus;
    ReplyHandler handler;
  };
  const std::shared_ptr<GVariant> kept(g_variant_ref_sink(parameters), g_variant_unref);
  const std::shared_ptr<GUnixFDList> sent(std::move(descriptors));
  withConnection([=, this, handler = std::move(handler)](GDBusConnection* connection) {
    if (connection == nullptr) {
      const GErrorPtr error(
          g_error_new_literal(G_IO_ERROR, G_IO_ERROR_NOT_CONNECTED, "there is no session bus"));
      handler(nullptr, error.get());
      return;
    }
    ++callsUnderWay_;
    g_dbus_connection_call_with_unix_fd_list(
        connection, name.c_str(), path.c_str(), interface.c_str(), method.c_str(), kept.get(),
        nullptr, G_DBUS_CALL_FLAGS_NONE, timeoutMilliseconds, sent.get(), callsCancellable_.get(),
        [](GObject* source, GAsyncResult* result, gpointer data) {
          std::unique_ptr<Call> finished(static_cast<Call*>(data));
          --finished->bus->callsUnderWay_;
          guarded("an answer on the session bus", [&] {
            GError* failure = nullptr;
            const GVariantPtr reply(g_dbus_connection_call_with_unix_fd_list_finish(
                G_DBUS_CONNECTION(source), nullptr, result, &failure));
            const GErrorPtr error(failure);
            finished->handler(reply.get(), error.get());
          });
          // What the handler held has ended before anybody looks.
          finished.reset();
          wakeMainLoop();
        },
        new Call{this, handler});
  });
}

}  // namespace tervano
