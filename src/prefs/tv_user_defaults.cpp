#include "prefs/tv_user_defaults.h"

#include "messaging/message_identifiers.h"

namespace tervano {

namespace {

constexpr char kSuiteName[] = "com.vessok.tervano.preferences";

constexpr VXUserDefaults::Property kProperties[] = {
    {.name = "wormhole", .type = '@', .hasOwnImplementation = true},
    {.name = "suppressActionDeletionAlert", .type = 'c'},
    {.name = "didCreateDefaultTemplates", .type = 'c'},
    {.name = "didCreateDefaultActions", .type = 'c'},
    {.name = "didCreateDefaultActions2", .type = 'c'},
    {.name = "showIconInToolbar", .type = 'c'},
    {.name = "useBlackAndWhiteIcon", .type = 'c'},
    {.name = "useSubmenu", .type = 'c'},
    {.name = "playAlertOnCompletion", .type = 'c'},
    {.name = "showFileOnMoveCopyComplete", .type = 'c'},
    {.name = "disableActionNotifications", .type = 'c'},
    {.name = "overwriteDestinationFile", .type = 'c'},
};

const VXUserDefaults::Property* findPreference(std::string_view name) {
  for (const auto& property : kProperties) {
    if (!property.hasOwnImplementation && property.name == name) return &property;
  }
  return nullptr;
}

}  // namespace

bool TVUserDefaults::init() {
  if (!VXUserDefaults::init()) return false;
  wormhole_ = VXWormhole::initWithApplicationGroupIdentifier(kApplicationGroupIdentifier,
                                                             kWormholeDirectory);
  return true;
}

std::span<const VXUserDefaults::Property> TVUserDefaults::properties() {
  return kProperties;
}

std::optional<std::string> TVUserDefaults::suiteName() const {
  return kSuiteName;
}

Value::Dictionary TVUserDefaults::setupDefaults() const {
  return {{"showIconInToolbar", true},
          {"useSubmenu", true},
          {"showFileOnMoveCopyComplete", true},
          {"overwriteDestinationFile", false}};
}

void TVUserDefaults::willChangeValueForKey(const std::string&) {}

void TVUserDefaults::didChangeValueForKey(const std::string&) {
  if (wormhole_ != nullptr) {
    wormhole_->passMessageObject(nullptr, kUserDefaultsDidChangeNotification);
  }
}

const std::vector<std::string>& TVUserDefaults::preferenceNames() {
  static const auto& names = *[] {
    auto* list = new std::vector<std::string>;
    for (const auto& property : kProperties) {
      if (!property.hasOwnImplementation) list->push_back(property.name);
    }
    return list;
  }();
  return names;
}

std::optional<bool> TVUserDefaults::preferenceNamed(std::string_view name) const {
  const auto* preference = findPreference(name);
  if (preference == nullptr) return std::nullopt;
  return read<bool>(preference->getterName());
}

bool TVUserDefaults::setPreferenceNamed(std::string_view name, bool value) {
  const auto* preference = findPreference(name);
  if (preference == nullptr) return false;
  write(preference->setterName(), value);
  return true;
}

}  // namespace tervano
