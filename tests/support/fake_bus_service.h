#pragma once

#include <gio/gio.h>

#include <functional>
#include <map>
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
    // The caller's unique name, such as ":1.4".
    std::string sender;
    // What the files hold whose descriptors came with the call.
    std::vector<std::string> fileContents;
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
  // Emits a signal of another object.
  void emitSignal(const std::string& path, const std::string& interface, const std::string& name,
                  GVariant* arguments);
  // Puts one more object on the bus, whose calls are kept and answered like the others.
  void addObject(const std::string& path, const std::string& interfaceXML);
  // The value of a readable property of the interface; floating.
  void setProperty(const std::string& name, GVariant* value);

 private:
  static void didReceiveCall(GDBusConnection* connection, const gchar* sender, const gchar* path,
                             const gchar* interface, const gchar* method, GVariant* arguments,
                             GDBusMethodInvocation* invocation, gpointer self);
  static GVariant* propertyValue(GDBusConnection* connection, const gchar* sender,
                                 const gchar* path, const gchar* interface, const gchar* name,
                                 GError** error, gpointer self);

  GObjectPtr<GDBusConnection> connection_;
  std::vector<guint> registrations_;
  std::string path_;
  std::string interface_;
  Answer answer_;
  std::vector<Call> calls_;
  std::map<std::string, GVariantPtr> properties_;
  std::vector<GDBusMethodInvocation*> unanswered_;
};

}  // namespace tervano::test
