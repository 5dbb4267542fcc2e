#include "platform/linux/bus_question.h"

#include <chrono>
#include <future>
#include <memory>

namespace tervano {

namespace {

std::vector<std::string> stringsOf(GVariant* reply) {
  std::vector<std::string> texts;
  for (gsize index = 0; index < g_variant_n_children(reply); ++index) {
    const GVariantPtr child(g_variant_get_child_value(reply, index));
    if (g_variant_is_of_type(child.get(), G_VARIANT_TYPE_STRING)) {
      texts.emplace_back(g_variant_get_string(child.get(), nullptr));
    }
  }
  return texts;
}

BusAnswer answerOf(GVariant* reply, const GError* error) {
  if (reply != nullptr) return {BusAnswer::Outcome::answered, stringsOf(reply), ""};
  const GErrorPtr readable(g_error_copy(error));
  g_dbus_error_strip_remote_error(readable.get());
  auto outcome = BusAnswer::Outcome::failed;
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_NOT_CONNECTED) ||
      g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED)) {
    outcome = BusAnswer::Outcome::noBus;
  } else if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
             g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
             g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_TIMED_OUT)) {
    outcome = BusAnswer::Outcome::silent;
  } else if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
             g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
    outcome = BusAnswer::Outcome::nobody;
  }
  return {outcome, {}, readable->message};
}

}  // namespace

BusAnswer askOnBus(SessionBus& bus, const std::string& name, const std::string& path,
                   const std::string& interface, const std::string& method,
                   int timeoutMilliseconds) {
  const auto promise = std::make_shared<std::promise<BusAnswer>>();
  auto answer = promise->get_future();
  bus.post([=, &bus] {
    bus.call(name, path, interface, method, g_variant_new("()"), timeoutMilliseconds,
             [promise](GVariant* reply, const GError* error) {
               promise->set_value(answerOf(reply, error));
             });
  });
  // The bus thread ends the call in time.
  return answer.get();
}

}  // namespace tervano
