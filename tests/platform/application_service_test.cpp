#include "platform/linux/application_service.h"

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/linux/glib_handles.h"
#include "tests/support/private_bus.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kOddIdentifier[] = "org.example.Odd-App";

// A service that notes what it is asked for, and a sender on a connection of its own.
class ApplicationServiceTest : public testing::Test {
 protected:
  ApplicationServiceTest() {
    connection_.reset(g_dbus_connection_new_for_address_sync(
        bus_.address().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr));
  }

  ApplicationService::Requests requests() {
    const auto note = [this](const std::string& what) {
      noted_.push_back(what + " [" + takeActivationToken().text() + "]");
    };
    return {[note] { note("activate"); },
            [note](const std::vector<std::string>& uris) {
              std::string what = "open";
              for (const auto& uri : uris) what += " " + uri;
              note(what);
            },
            [note](const std::string& name,
                   const std::vector<std::string>& parameters) -> std::optional<std::string> {
              if (name == "throw") throw std::runtime_error("It broke.");
              if (name != "run") return "There is no action \"" + name + "\".";
              std::string what = "run";
              for (const auto& parameter : parameters) what += " " + parameter;
              note(what);
              return std::nullopt;
            }};
  }

  // Calls a method with arguments as GVariant text; answers the error's text, "" for none.
  std::string call(const char* method, const char* arguments) {
    GVariant* const parameters = g_variant_parse(nullptr, arguments, nullptr, nullptr, nullptr);
    EXPECT_NE(parameters, nullptr) << arguments;
    std::optional<std::string> answer;
    g_dbus_connection_call(
        connection_.get(), kOddIdentifier, "/org/example/Odd_App", "org.freedesktop.Application",
        method, parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          GError* error = nullptr;
          GVariant* const reply =
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
          const GErrorPtr failure(error);
          if (reply != nullptr) g_variant_unref(reply);
          *static_cast<std::optional<std::string>*>(data) = failure ? failure->message : "";
        },
        &answer);
    EXPECT_TRUE(waitUntil([&] { return answer.has_value(); }, 20));
    return answer.value_or("no answer");
  }

  ScopedPlatform platform_;
  const PrivateBus bus_;
  GObjectPtr<GDBusConnection> connection_;
  std::vector<std::string> noted_;
};

}  // namespace

TEST_F(ApplicationServiceTest, EachRequestHasTheTokenOfItsOwnPlatformData) {
  const ApplicationService service(kOddIdentifier, requests());
  ASSERT_EQ(service.ownership(), ApplicationService::Ownership::owner);
  EXPECT_EQ(call("Open", "(['a:1', 'a:2'], {'activation-token': <'one'>})"), "");
  EXPECT_EQ(call("Open", "(['a:3'], @a{sv} {})"), "");
  EXPECT_EQ(call("Activate", "({'desktop-startup-id': <'two'>},)"), "");
  EXPECT_EQ(call("ActivateAction", "('run', [<'x'>], {'activation-token': <'three'>})"), "");
  EXPECT_EQ(call("ActivateAction", "('run', @av [], {'activation-token': <uint32 3>})"), "");
  EXPECT_THAT(noted_, ElementsAre("open a:1 a:2 [one]", "open a:3 []", "activate [two]",
                                  "run x [three]", "run []"));
}

TEST_F(ApplicationServiceTest, AnActionThatCannotBeBegunIsRefusedWithTheReason) {
  const ApplicationService service(kOddIdentifier, requests());
  EXPECT_THAT(call("ActivateAction", "('walk', @av [], @a{sv} {})"),
              testing::EndsWith("There is no action \"walk\"."));
  EXPECT_THAT(call("ActivateAction", "('run', [<5>], @a{sv} {})"),
              testing::EndsWith("The parameters of an action are texts."));
  EXPECT_THAT(call("ActivateAction", "('throw', @av [], @a{sv} {})"),
              testing::EndsWith("It broke."));
  EXPECT_THAT(noted_, IsEmpty());
}

TEST_F(ApplicationServiceTest, WithoutActionsOfItsOwnEveryActionIsRefused) {
  auto without = requests();
  without.activateAction = nullptr;
  const ApplicationService service(kOddIdentifier, without);
  EXPECT_THAT(call("ActivateAction", "('run', @av [], @a{sv} {})"),
              testing::EndsWith("There are no application actions."));
}

}  // namespace tervano::test
