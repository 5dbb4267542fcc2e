#include "platform/linux/activation.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "platform/linux/glib_handles.h"

namespace tervano {

namespace {

constexpr char kTokenKey[] = "activation-token";
constexpr char kStartupIdentifierKey[] = "desktop-startup-id";
constexpr char kTokenVariable[] = "XDG_ACTIVATION_TOKEN";
constexpr char kStartupIdentifierVariable[] = "DESKTOP_STARTUP_ID";
// No desktop makes longer ones, and an environment has no room for any length.
constexpr std::size_t kLongestToken = 1024;

// The innermost scope of the thread. Plain, so that a thread of a host ends without our code.
thread_local const ActivationScope* innermostScope = nullptr;

std::string usableToken(const std::string& text) {
  const bool isUsable = text.size() <= kLongestToken &&
                        g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr);
  return isUsable ? text : "";
}

std::string textIn(GVariant* data, const char* key) {
  const GVariantPtr value(g_variant_lookup_value(data, key, G_VARIANT_TYPE_STRING));
  return value == nullptr ? "" : g_variant_get_string(value.get(), nullptr);
}

std::string initialVariable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

Activation& activationOfProcess() {
  static auto* const activation = new Activation(ActivationToken::fromTexts(
      initialVariable(kTokenVariable), initialVariable(kStartupIdentifierVariable)));
  return *activation;
}

bool isActivationVariable(std::string_view text) {
  for (const std::string_view name : {kTokenVariable, kStartupIdentifierVariable}) {
    if (text.starts_with(name) && text.substr(name.size()).starts_with('=')) return true;
  }
  return false;
}

}  // namespace

GVariant* ActivationToken::platformData() const {
  GVariantBuilder data;
  g_variant_builder_init(&data, G_VARIANT_TYPE("a{sv}"));
  const auto add = [&data](const char* key, const std::string& value) {
    if (!value.empty()) {
      g_variant_builder_add(&data, "{sv}", key, g_variant_new_string(value.c_str()));
    }
  };
  add(kTokenKey, token);
  add(kStartupIdentifierKey, startupIdentifier);
  return g_variant_builder_end(&data);
}

ActivationToken ActivationToken::fromPlatformData(GVariant* data) {
  return fromTexts(textIn(data, kTokenKey), textIn(data, kStartupIdentifierKey));
}

ActivationToken ActivationToken::fromTexts(const std::string& token,
                                           const std::string& startupIdentifier) {
  return {usableToken(token), usableToken(startupIdentifier)};
}

ActivationToken Activation::take() {
  return isTaken_.exchange(true) ? ActivationToken() : std::move(token_);
}

std::shared_ptr<Activation> currentActivation() {
  return innermostScope == nullptr ? nullptr : innermostScope->activation_;
}

ActivationScope::ActivationScope(std::shared_ptr<Activation> activation)
    : activation_(std::move(activation)), outer_(innermostScope) {
  innermostScope = this;
}

ActivationScope::~ActivationScope() {
  innermostScope = outer_;
}

ActivationToken takeActivationToken() {
  const auto activation = currentActivation();
  return activation == nullptr ? activationOfProcess().take() : activation->take();
}

std::vector<std::string> environmentWithToken(const ActivationToken& token) {
  std::vector<std::string> variables;
  for (char** next = environ; *next != nullptr; ++next) {
    if (!isActivationVariable(*next)) variables.emplace_back(*next);
  }
  const auto add = [&variables](const char* name, const std::string& value) {
    if (!value.empty()) variables.push_back(std::string(name) + "=" + value);
  };
  add(kTokenVariable, token.token);
  add(kStartupIdentifierVariable, token.startupIdentifier);
  return variables;
}

}  // namespace tervano
