#pragma once

#include <gio/gio.h>
#include <gio/gunixfdlist.h>

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/glib_handles.h"

namespace tervano {

// The session bus on a thread and a connection of its own, so that no caller waits for it and a bus
// that goes away ends nothing. Thread and connection begin with the first item. The bus is never
// started for us: without DBUS_SESSION_BUS_ADDRESS and without $XDG_RUNTIME_DIR/bus there is none.
//
// `post` may be called on any thread, the rest on the bus thread only. The destructor, on another
// thread, runs what was posted, cancels what is under way and ends the thread.
class SessionBus {
 public:
  // Null when there is no bus.
  using ConnectionHandler = std::function<void(GDBusConnection* connection)>;
  // The answer, or null and why.
  using ReplyHandler = std::function<void(GVariant* reply, const GError* error)>;

  static constexpr unsigned kConnectTimeoutMilliseconds = 3000;

  // `didConnect` is called with every new connection, before anything is sent on it.
  explicit SessionBus(ConnectionHandler didConnect = nullptr)
      : connectionHandler_(std::move(didConnect)) {}
  SessionBus(const SessionBus&) = delete;
  SessionBus& operator=(const SessionBus&) = delete;
  ~SessionBus();

  // Runs `item` on the bus thread, in the order of posting.
  void post(std::function<void()> item);
  // The bus thread's context, for sources of the bus thread.
  GMainContext* context() const { return context_; }

  // Calls `handler` with an open connection, made now when there is none.
  void withConnection(ConnectionHandler handler);
  // Calls a method; `parameters` is a floating tuple, whose handles are places in `descriptors`. An
  // unanswered call ends with an error after `timeoutMilliseconds`.
  void call(const std::string& name, const std::string& path, const std::string& interface,
            const std::string& method, GVariant* parameters, int timeoutMilliseconds,
            ReplyHandler handler, GObjectPtr<GUnixFDList> descriptors = nullptr);

 private:
  // Makes the thread; throws when there can be none, and then nothing was made.
  void start();
  void runNextItem();
  void connect();
  void finishConnecting(GObjectPtr<GDBusConnection> connection);
  static void didConnect(GObject* source, GAsyncResult* result, gpointer self);
  static gboolean connectDidTimeOut(gpointer self);

  std::mutex mutex_;
  // Posted and not yet run, behind the mutex rather than in GLib's hands, where a race detector
  // could not follow them.
  std::deque<std::function<void()>> items_;
  std::thread thread_;
  GMainContext* context_ = nullptr;
  GMainLoop* loop_ = nullptr;

  // Of the bus thread.
  GObjectPtr<GDBusConnection> connection_;
  ConnectionHandler connectionHandler_;
  GObjectPtr<GCancellable> callsCancellable_;
  GObjectPtr<GCancellable> connectCancellable_;
  GSource* connectTimer_ = nullptr;
  std::vector<ConnectionHandler> waiting_;
  int callsUnderWay_ = 0;
  bool connecting_ = false;
  bool stopping_ = false;
};

// The address of the running session bus, nil without one.
std::optional<std::string> sessionBusAddress();

}  // namespace tervano
