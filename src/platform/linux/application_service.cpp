#include "platform/linux/application_service.h"

#include <gio/gio.h>

#include "platform/linux/bus_names.h"
#include "platform/linux/glib_handles.h"
#include "platform/linux/session_bus.h"
#include "platform/log.h"

namespace tervano {

namespace {

constexpr char kApplicationInterface[] = "org.freedesktop.Application";
constexpr char kIntrospection[] =
    "<node><interface name='org.freedesktop.Application'>"
    "<method name='Activate'><arg type='a{sv}' name='platform_data' direction='in'/></method>"
    "<method name='Open'><arg type='as' name='uris' direction='in'/>"
    "<arg type='a{sv}' name='platform_data' direction='in'/></method>"
    "<method name='ActivateAction'><arg type='s' name='action_name' direction='in'/>"
    "<arg type='av' name='parameter' direction='in'/>"
    "<arg type='a{sv}' name='platform_data' direction='in'/></method>"
    "</interface></node>";
constexpr int kForwardTimeoutMilliseconds = 10'000;

// A connection of its own; null without a bus, and with one that does not answer.
GDBusConnection* connectToSessionBus() {
  const auto address = sessionBusAddress();
  if (!address) return nullptr;
  struct Attempt {
    GDBusConnection* connection = nullptr;
    bool ended = false;
  } attempt;
  // Nothing else of the main loop may run in here.
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  const GObjectPtr<GCancellable> cancellable(g_cancellable_new());
  GSource* timer = g_timeout_source_new(SessionBus::kConnectTimeoutMilliseconds);
  g_source_set_callback(
      timer,
      [](gpointer cancelled) -> gboolean {
        g_cancellable_cancel(G_CANCELLABLE(cancelled));
        return G_SOURCE_REMOVE;
      },
      cancellable.get(), nullptr);
  g_source_attach(timer, context);
  g_dbus_connection_new_for_address(
      address->c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, cancellable.get(),
      [](GObject*, GAsyncResult* result, gpointer data) {
        auto* attempted = static_cast<Attempt*>(data);
        attempted->connection = g_dbus_connection_new_for_address_finish(result, nullptr);
        attempted->ended = true;
      },
      &attempt);
  while (!attempt.ended) g_main_context_iteration(context, TRUE);
  g_source_destroy(timer);
  g_source_unref(timer);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  return attempt.connection;
}

std::vector<std::string> textsInList(GVariant* list) {
  std::vector<std::string> words;
  for (gsize at = 0; at < g_variant_n_children(list); ++at) {
    const GVariantPtr text(g_variant_get_child_value(list, at));
    words.emplace_back(g_variant_get_string(text.get(), nullptr));
  }
  return words;
}

}  // namespace

struct ApplicationService::State {
  std::string identifier;
  Requests requests;
  Ownership ownership = Ownership::noBus;
  GDBusConnection* connection = nullptr;
  guint registration = 0;

  // Calls a method of the bus itself and answers its unsigned result, 0 on any error.
  guint32 callBus(const char* method, GVariant* parameters) {
    GVariant* reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        parameters, G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (reply == nullptr) return 0;
    guint32 result = 0;
    g_variant_get(reply, "(u)", &result);
    g_variant_unref(reply);
    return result;
  }

  void handle(const char* method, GVariant* parameters) {
    if (g_str_equal(method, "Open")) {
      const GVariantPtr uris(g_variant_get_child_value(parameters, 0));
      requests.open(textsInList(uris.get()));
    } else if (g_str_equal(method, "Activate")) {
      requests.activate();
    }
  }

  // Nil when the action was begun, else why it was not.
  std::optional<std::string> beginAction(GVariant* parameters) {
    const gchar* name = nullptr;
    GVariant* boxed = nullptr;
    g_variant_get(parameters, "(&s@ava{sv})", &name, &boxed, nullptr);
    const GVariantPtr list(boxed);
    if (!requests.activateAction) return "There are no application actions.";
    std::vector<std::string> words;
    for (gsize at = 0; at < g_variant_n_children(boxed); ++at) {
      const GVariantPtr box(g_variant_get_child_value(boxed, at));
      const GVariantPtr value(g_variant_get_variant(box.get()));
      if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_STRING)) {
        return "The parameters of an action are texts.";
      }
      words.emplace_back(g_variant_get_string(value.get(), nullptr));
    }
    try {
      return requests.activateAction(name, words);
    } catch (const std::exception& exception) {
      return exception.what();
    }
  }

  static void answerAction(GDBusMethodInvocation* invocation,
                           const std::optional<std::string>& problem) {
    if (problem) {
      g_dbus_method_invocation_return_dbus_error(
          invocation, "org.freedesktop.DBus.Error.InvalidArgs", problem->c_str());
    } else {
      g_dbus_method_invocation_return_value(invocation, nullptr);
    }
  }

  static void onMethodCall(GDBusConnection*, const char*, const char*, const char*,
                           const char* method, GVariant* parameters,
                           GDBusMethodInvocation* invocation, gpointer data) {
    auto* const self = static_cast<State*>(data);
    const GVariantPtr platformData(
        g_variant_get_child_value(parameters, g_variant_n_children(parameters) - 1));
    const ActivationScope scope(
        std::make_shared<Activation>(ActivationToken::fromPlatformData(platformData.get())));
    try {
      if (g_str_equal(method, "ActivateAction")) {
        answerAction(invocation, self->beginAction(parameters));
        return;
      }
      // Answered first: the sender must not wait for the work.
      g_dbus_method_invocation_return_value(invocation, nullptr);
      self->handle(method, parameters);
    } catch (const std::exception& exception) {
      log(std::string("Could not handle a request because of error: ") + exception.what());
    }
  }
};

ApplicationService::ApplicationService(std::string identifier, Requests requests)
    : state_(std::make_unique<State>()) {
  state_->identifier = std::move(identifier);
  state_->requests = std::move(requests);
  state_->connection = connectToSessionBus();
  if (state_->connection == nullptr) return;

  static const GDBusInterfaceVTable kVirtualTable = {&State::onMethodCall, nullptr, nullptr, {}};
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
  state_->registration = g_dbus_connection_register_object(
      state_->connection, applicationObjectPath(state_->identifier).c_str(),
      g_dbus_node_info_lookup_interface(node, kApplicationInterface), &kVirtualTable, state_.get(),
      nullptr, nullptr);
  g_dbus_node_info_unref(node);

  constexpr guint32 kDoNotQueue = 4;
  constexpr guint32 kPrimaryOwner = 1;
  constexpr guint32 kAlreadyOwner = 4;
  const guint32 reply = state_->callBus(
      "RequestName", g_variant_new("(su)", state_->identifier.c_str(), kDoNotQueue));
  state_->ownership =
      reply == kPrimaryOwner || reply == kAlreadyOwner ? Ownership::owner : Ownership::other;
}

ApplicationService::~ApplicationService() {
  if (state_->connection == nullptr) return;
  release();
  if (state_->registration != 0) {
    g_dbus_connection_unregister_object(state_->connection, state_->registration);
  }
  g_dbus_connection_close_sync(state_->connection, nullptr, nullptr);
  g_object_unref(state_->connection);
}

ApplicationService::Ownership ApplicationService::ownership() const {
  return state_->ownership;
}

bool ApplicationService::isReachable() const {
  return state_->ownership == Ownership::owner && !g_dbus_connection_is_closed(state_->connection);
}

bool ApplicationService::forwardOpen(const std::vector<std::string>& uris,
                                     const ActivationToken& token) {
  GVariantBuilder list;
  g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
  for (const auto& uri : uris) {
    // The wire carries UTF-8 only; a hand-off URL is ASCII, so nothing else can be meant.
    if (!g_utf8_validate(uri.c_str(), -1, nullptr)) {
      g_variant_builder_clear(&list);
      return false;
    }
    g_variant_builder_add(&list, "s", uri.c_str());
  }
  GVariant* reply = g_dbus_connection_call_sync(
      state_->connection, state_->identifier.c_str(),
      applicationObjectPath(state_->identifier).c_str(), kApplicationInterface, "Open",
      g_variant_new("(as@a{sv})", &list, token.platformData()), nullptr, G_DBUS_CALL_FLAGS_NONE,
      kForwardTimeoutMilliseconds, nullptr, nullptr);
  if (reply == nullptr) return false;
  g_variant_unref(reply);
  return true;
}

void ApplicationService::release() {
  if (state_->ownership != Ownership::owner) return;
  state_->ownership = Ownership::other;
  state_->callBus("ReleaseName", g_variant_new("(s)", state_->identifier.c_str()));
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

}  // namespace tervano
