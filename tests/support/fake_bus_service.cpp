#include "tests/support/fake_bus_service.h"

#include <gio/gunixfdlist.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tervano::test {

namespace {

// A descriptor made with O_PATH cannot be read itself.
std::vector<std::string> contentsOfFiles(GDBusMethodInvocation* invocation) {
  std::vector<std::string> contents;
  GUnixFDList* list =
      g_dbus_message_get_unix_fd_list(g_dbus_method_invocation_get_message(invocation));
  gint count = 0;
  const gint* descriptors = list == nullptr ? nullptr : g_unix_fd_list_peek_fds(list, &count);
  for (gint i = 0; i < count; ++i) {
    std::ifstream file("/proc/self/fd/" + std::to_string(descriptors[i]), std::ios::binary);
    if (!file) throw std::runtime_error("a descriptor leads nowhere");
    contents.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return contents;
}

}  // namespace

FakeBusService::FakeBusService(const std::string& address, const std::string& name,
                               const std::string& path, const std::string& interface,
                               const std::string& interfaceXML, Answer answer)
    : path_(path), interface_(interface), answer_(std::move(answer)) {
  connection_.reset(g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr));
  if (connection_ == nullptr) throw std::runtime_error("no bus at " + address);
  addObject(path, interfaceXML);
  constexpr guint32 kDoNotQueue = 4;
  const GVariantPtr reply(g_dbus_connection_call_sync(
      connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", name.c_str(), kDoNotQueue), nullptr,
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  if (reply == nullptr) throw std::runtime_error("cannot own " + name);
}

void FakeBusService::addObject(const std::string& path, const std::string& interfaceXML) {
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(interfaceXML.c_str(), nullptr);
  if (node == nullptr) throw std::runtime_error("bad interface description");
  GDBusInterfaceVTable table{};
  table.method_call = didReceiveCall;
  table.get_property = propertyValue;
  registrations_.push_back(g_dbus_connection_register_object(
      connection_.get(), path.c_str(), node->interfaces[0], &table, this, nullptr, nullptr));
  g_dbus_node_info_unref(node);
}

FakeBusService::~FakeBusService() {
  for (GDBusMethodInvocation* invocation : unanswered_) g_object_unref(invocation);
  for (const guint registration : registrations_) {
    g_dbus_connection_unregister_object(connection_.get(), registration);
  }
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

std::vector<FakeBusService::Call> FakeBusService::callsOf(const std::string& method) const {
  std::vector<Call> calls;
  for (const auto& call : calls_) {
    if (call.method == method) calls.push_back(call);
  }
  return calls;
}

void FakeBusService::emitSignal(const std::string& name, GVariant* arguments) {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, path_.c_str(), interface_.c_str(),
                                name.c_str(), arguments, nullptr);
}

void FakeBusService::emitSignal(const std::string& path, const std::string& interface,
                                const std::string& name, GVariant* arguments) {
  g_dbus_connection_emit_signal(connection_.get(), nullptr, path.c_str(), interface.c_str(),
                                name.c_str(), arguments, nullptr);
}

void FakeBusService::setProperty(const std::string& name, GVariant* value) {
  properties_[name].reset(g_variant_ref_sink(value));
}

GVariant* FakeBusService::propertyValue(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                                        const gchar* /*path*/, const gchar* /*interface*/,
                                        const gchar* name, GError** error, gpointer self) {
  const auto& properties = static_cast<FakeBusService*>(self)->properties_;
  const auto value = properties.find(name);
  if (value != properties.end()) return g_variant_ref(value->second.get());
  g_set_error_literal(error, G_DBUS_ERROR, G_DBUS_ERROR_FAILED, "no value");
  return nullptr;
}

void FakeBusService::didReceiveCall(GDBusConnection* /*connection*/, const gchar* sender,
                                    const gchar* /*path*/, const gchar* /*interface*/,
                                    const gchar* method, GVariant* arguments,
                                    GDBusMethodInvocation* invocation, gpointer self) {
  auto* service = static_cast<FakeBusService*>(self);
  const GCharPtr text(g_variant_print(arguments, TRUE));
  service->calls_.push_back({method, text.get(), sender, contentsOfFiles(invocation)});
  GVariant* answer = service->answer_(service->calls_.back());
  if (answer == nullptr) {
    service->unanswered_.push_back(invocation);
  } else {
    g_dbus_method_invocation_return_value(invocation, answer);
  }
}

}  // namespace tervano::test
