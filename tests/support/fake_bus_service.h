#pragma once

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/linux/glib_handles.h"

namespace tervano::test {

// An object on a bus that keeps the calls it gets. Its calls arrive on the main loop, so a test
// must run that (waitUntil) for an answer. Main thread.
class FakeBusService {
 public:
  struct Call {
    std::string method;
    // As GVariant text, such as "('a', uint32 0)".
    std::string arguments;
  };
  // The answer to a call, a floating tuple; null leaves the call unanswered.
  using Answer = std::function<GVariant*(const Call& call)>;

  // Owns `name` on the bus at `address` and answers every method of `interface` at `path`, whose
  // description is `interfaceXML`.
  FakeBusService(const std::string& address, const std::string& name, const std::string& path,
                 const std::string& interface, const std::string& interfaceXML, Answer answer);
  FakeBusService(const FakeBusService&) = delete;
  FakeBusService& operator=(const FakeBusService&) = delete;
  ~FakeBusService();

  const std::vector<Call>& calls() const { return calls_; }
  std::vector<Call> callsOf(const std::string& method) const;
  // `arguments` is a floating tuple.
  void emitSignal(const std::string& name, GVariant* arguments);

 private:
  static void didReceiveCall(GDBusConnection* connection, const gchar* sender, const gchar* path,
                             const gchar* interface, const gchar* method, GVariant* arguments,
                             GDBusMethodInvocation* invocation, gpointer self);

  GObjectPtr<GDBusConnection> connection_;
  guint registration_ = 0;
  std::string path_;
  std::string interface_;
  Answer answer_;
  std::vector<Call> calls_;
  std::vector<GDBusMethodInvocation*> unanswered_;
};

}  // namespace tervano::test
