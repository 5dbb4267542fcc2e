#include "tools/defaults/settings_database.h"

#define G_SETTINGS_ENABLE_BACKEND
#include <gio/gsettingsbackend.h>

#include <memory>
#include <string_view>

namespace tervano {

namespace {

constexpr char kService[] = "ca.desrt.dconf";
constexpr std::string_view kBackendOfDconf = "DConfSettingsBackend";

struct ChangesetUnref {
  void operator()(DConfChangeset* changeset) const { dconf_changeset_unref(changeset); }
};

std::string takeBusMessage(GError* failure) {
  g_dbus_error_strip_remote_error(failure);
  const GErrorPtr error(failure);
  return error->message;
}

}  // namespace

SettingsDatabase::SettingsDatabase() : client_(dconf_client_new()) {}

std::optional<std::string> SettingsDatabase::otherBackend() {
  const GObjectPtr<GSettingsBackend> backend(g_settings_backend_get_default());
  const std::string name = G_OBJECT_TYPE_NAME(backend.get());
  if (name == kBackendOfDconf) return std::nullopt;
  return name;
}

GVariantPtr SettingsDatabase::userValue(const std::string& key) const {
  return GVariantPtr(
      dconf_client_read_full(client_.get(), key.c_str(), DCONF_READ_USER_VALUE, nullptr));
}

bool SettingsDatabase::isWritable(const std::string& key) const {
  return dconf_client_is_writable(client_.get(), key.c_str()) != FALSE;
}

std::vector<std::string> SettingsDatabase::contentsOf(const std::string& folder) const {
  gint count = 0;
  gchar** names = dconf_client_list(client_.get(), folder.c_str(), &count);
  std::vector<std::string> contents(names, names + count);
  g_strfreev(names);
  return contents;
}

std::optional<std::string> SettingsDatabase::reachService() {
  GError* failure = nullptr;
  bus_.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &failure));
  if (bus_ == nullptr) return takeBusMessage(failure);
  // The same connection is the client's; a bus that ends is an error, not the end of the process.
  g_dbus_connection_set_exit_on_close(bus_.get(), FALSE);
  // Starts it, or finds it running.
  const GVariantPtr answer(
      g_dbus_connection_call_sync(bus_.get(), kService, "/", "org.freedesktop.DBus.Peer", "Ping",
                                  nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &failure));
  if (answer == nullptr) return takeBusMessage(failure);
  return std::nullopt;
}

std::optional<std::string> SettingsDatabase::set(const Settings& settings) {
  return change(settings, true);
}

std::optional<std::string> SettingsDatabase::reset(const Settings& settings) {
  return change(settings, false);
}

std::optional<std::string> SettingsDatabase::change(const Settings& settings, bool toValues) {
  if (settings.empty()) return std::nullopt;
  const std::unique_ptr<DConfChangeset, ChangesetUnref> changes(dconf_changeset_new());
  for (const auto& [key, value] : settings) {
    dconf_changeset_set(changes.get(), key.c_str(), toValues ? value.get() : nullptr);
  }
  gchar* tag = nullptr;
  GError* failure = nullptr;
  const bool isDone =
      dconf_client_change_sync(client_.get(), changes.get(), &tag, nullptr, &failure) != FALSE;
  const GCharPtr tagOwner(tag);
  if (!isDone) {
    return failure == nullptr ? "the settings service gave no reason" : takeBusMessage(failure);
  }
  // A new client reads the file anew. A service that was started for other folders has changed
  // other settings.
  const SettingsDatabase now;
  for (const auto& [key, value] : settings) {
    const GVariantPtr current = now.userValue(key);
    const bool isAsWanted = toValues
                                ? current != nullptr && g_variant_equal(current.get(), value.get())
                                : current == nullptr;
    if (!isAsWanted)
      return "the change of " + key + " did not last, since its program or another service sets it";
  }
  return std::nullopt;
}

}  // namespace tervano
