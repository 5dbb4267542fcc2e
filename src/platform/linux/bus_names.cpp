#include "platform/linux/bus_names.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>

namespace tervano {

namespace {

constexpr char kBus[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";

bool containsName(GVariant* reply, const std::string& name) {
  if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(as)"))) return false;
  const GVariantPtr list(g_variant_get_child_value(reply, 0));
  const gchar** names = g_variant_get_strv(list.get(), nullptr);
  const bool contains = g_strv_contains(names, name.c_str()) != FALSE;
  g_free(names);
  return contains;
}

}  // namespace

std::string applicationObjectPath(const std::string& name) {
  std::string path = "/" + name;
  std::replace(path.begin(), path.end(), '.', '/');
  std::replace(path.begin(), path.end(), '-', '_');
  return path;
}

void askWhetherReachable(SessionBus& bus, const std::string& name, int timeoutMilliseconds,
                         std::function<void(bool isReachable)> handler) {
  struct Question {
    std::function<void(bool)> handler;
    int answers = 0;
    bool isReachable = false;

    void add(bool answer) {
      isReachable = isReachable || answer;
      if (++answers == 2) handler(isReachable);
    }
  };
  const auto question = std::make_shared<Question>();
  question->handler = std::move(handler);
  bus.call(kBus, kBusPath, kBus, "NameHasOwner", g_variant_new("(s)", name.c_str()),
           timeoutMilliseconds, [question](GVariant* reply, const GError* /*error*/) {
             gboolean hasOwner = FALSE;
             if (reply != nullptr && g_variant_is_of_type(reply, G_VARIANT_TYPE("(b)"))) {
               g_variant_get(reply, "(b)", &hasOwner);
             }
             question->add(hasOwner != FALSE);
           });
  bus.call(kBus, kBusPath, kBus, "ListActivatableNames", g_variant_new("()"), timeoutMilliseconds,
           [question, name](GVariant* reply, const GError* /*error*/) {
             question->add(containsName(reply, name));
           });
}

bool isReachable(SessionBus& bus, const std::string& name, int timeoutMilliseconds) {
  const auto promise = std::make_shared<std::promise<bool>>();
  auto answer = promise->get_future();
  bus.post([&bus, name, timeoutMilliseconds, promise] {
    askWhetherReachable(bus, name, timeoutMilliseconds,
                        [promise](bool isReachable) { promise->set_value(isReachable); });
  });
  // The bus thread ends the question in time, unless something else holds it up.
  const auto longest = std::chrono::milliseconds(
      timeoutMilliseconds + static_cast<int>(SessionBus::kConnectTimeoutMilliseconds));
  return answer.wait_for(longest) == std::future_status::ready && answer.get();
}

bool wasNotDelivered(const GError& error) {
  if (error.domain == G_DBUS_ERROR) {
    return error.code == G_DBUS_ERROR_SERVICE_UNKNOWN ||
           error.code == G_DBUS_ERROR_NAME_HAS_NO_OWNER ||
           (error.code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
            error.code <= G_DBUS_ERROR_SPAWN_NO_MEMORY);
  }
  return g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_NOT_CONNECTED) != FALSE;
}

}  // namespace tervano
