#include "prefs/vx_user_defaults.h"

#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kIsPriorKey[] = "notificationIsPrior";

enum class AccessorKind { object, boolean, integer, number, singleReal, doubleReal, unsupported };

AccessorKind kindOfType(char type) {
  switch (type) {
    case '@':
      return AccessorKind::object;
    case 'B':
    case 'c':
      return AccessorKind::boolean;
    case 'i':
      return AccessorKind::integer;
    case 'C':
    case 'I':
    case 'L':
    case 'Q':
    case 'S':
    case 'l':
    case 'q':
    case 's':
      return AccessorKind::number;
    case 'f':
      return AccessorKind::singleReal;
    case 'd':
      return AccessorKind::doubleReal;
    default:
      return AccessorKind::unsupported;
  }
}

struct SharedInstances {
  std::mutex mutex;
  std::map<std::type_index, std::shared_ptr<VXUserDefaults>> byClass;
};

SharedInstances& sharedInstances() {
  static auto& instances = *new SharedInstances;
  return instances;
}

}  // namespace

std::string VXUserDefaults::Property::getterName() const {
  return getter != nullptr ? getter : name;
}

std::string VXUserDefaults::Property::setterName() const {
  if (setter != nullptr) return setter;
  const std::string_view rest(name + 1);
  // Without regard to the locale, in some of which "i" has another capital.
  const char first = name[0];
  const auto initial = first >= 'a' && first <= 'z' ? static_cast<char>(first - 'a' + 'A') : first;
  return std::string("set").append(1, initial).append(rest).append(":");
}

// The accessors of one class by selector. Immutable once installed, shared by all instances.
struct VXUserDefaults::Accessors {
  struct Accessor {
    AccessorKind kind;
    std::string types;
  };
  std::map<std::string, Accessor, std::less<>> bySelector;

  AccessorKind kindOf(std::string_view selector) const {
    const auto entry = bySelector.find(selector);
    return entry == bySelector.end() ? AccessorKind::unsupported : entry->second.kind;
  }
};

bool VXUserDefaults::init() {
  const auto& store = userDefaults();
  if (hooks_.setupDefaults != nullptr) {
    Value::Dictionary registered;
    const auto defaults = hooks_.setupDefaults(*this);
    if (defaults) {
      for (const auto& [name, value] : *defaults) registered[_transformKey(name)] = value;
    }
    if (store != nullptr) store->registerDefaults(registered);
  }
  generateAccessorMethods();
  return true;
}

const std::shared_ptr<DefaultsStore>& VXUserDefaults::userDefaults() const {
  if (userDefaults_ == nullptr) {
    const auto suite = _suiteName();
    if (suite && !suite->empty()) {
      userDefaults_ = platform().defaultsStores->initWithSuiteName(*suite);
      prefix_ = suite;
    } else {
      userDefaults_ = platform().defaultsStores->standardUserDefaults();
    }
  }
  return userDefaults_;
}

std::string VXUserDefaults::defaultsKeyForPropertyNamed(const char* name) const {
  return _transformKey(name);
}

std::optional<std::string> VXUserDefaults::defaultsKeyForSelector(std::string_view selector) const {
  const auto entry = mapping_.find(selector);
  if (entry == mapping_.end()) return std::nullopt;
  return entry->second;
}

std::string VXUserDefaults::_transformKey(const std::string& key) const {
  return transformKey(key);
}

std::string VXUserDefaults::transformKey(const std::string& key) const {
  return prefix_ ? *prefix_ + "." + key : key;
}

std::optional<std::string> VXUserDefaults::_suiteName() const {
  if (hooks_.suitName != nullptr) return hooks_.suitName(*this);
  if (hooks_.suiteName != nullptr) return hooks_.suiteName(*this);
  return std::nullopt;
}

void VXUserDefaults::generateAccessorMethods() {
  mapping_.clear();
  if (hooks_.properties != nullptr) {
    for (const auto& property : hooks_.properties()) {
      const auto key = defaultsKeyForPropertyNamed(property.name);
      mapping_[property.getterName()] = key;
      mapping_[property.setterName()] = key;
    }
  }
  accessors_ = installedAccessors(hooks_);
}

std::optional<std::string> VXUserDefaults::typesOfAccessor(std::string_view selector) const {
  if (accessors_ == nullptr) return std::nullopt;
  const auto entry = accessors_->bySelector.find(selector);
  if (entry == accessors_->bySelector.end()) return std::nullopt;
  return entry->second.types;
}

Value VXUserDefaults::get(std::string_view getter) const {
  const auto key = defaultsKeyForSelector(getter);
  const auto& store = userDefaults();
  if (!key || store == nullptr || accessors_ == nullptr) return nullptr;
  switch (accessors_->kindOf(getter)) {
    case AccessorKind::object:
      return store->objectForKey(*key);
    case AccessorKind::boolean:
      return store->boolForKey(*key);
    case AccessorKind::integer:
      return static_cast<std::int32_t>(store->integerForKey(*key));
    case AccessorKind::number:
      return longLongValue(store->objectForKey(*key));
    case AccessorKind::singleReal:
      return static_cast<double>(store->floatForKey(*key));
    case AccessorKind::doubleReal:
      return store->doubleForKey(*key);
    case AccessorKind::unsupported:
      break;
  }
  return nullptr;
}

void VXUserDefaults::set(std::string_view setter, const Value& value) {
  const auto key = defaultsKeyForSelector(setter);
  const auto store = userDefaults();
  if (!key || store == nullptr || accessors_ == nullptr) return;
  const auto kind = accessors_->kindOf(setter);
  if (kind == AccessorKind::unsupported) return;

  willChangeValueForKey(*key);
  switch (kind) {
    case AccessorKind::object:
      if (value.isNull()) {
        store->removeObjectForKey(*key);
      } else {
        store->setObject(value, *key);
      }
      break;
    case AccessorKind::boolean:
      store->setBool(boolValue(value), *key);
      break;
    case AccessorKind::integer:
      store->setInteger(static_cast<std::int32_t>(longLongValue(value)), *key);
      break;
    case AccessorKind::number:
      store->setObject(longLongValue(value), *key);
      break;
    case AccessorKind::singleReal:
      store->setFloat(static_cast<float>(doubleValue(value)), *key);
      break;
    case AccessorKind::doubleReal:
      store->setDouble(doubleValue(value), *key);
      break;
    case AccessorKind::unsupported:
      break;
  }
  store->synchronize();
  didChangeValueForKey(*key);
}

Subscription VXUserDefaults::addObserver(const std::string& key, Observer observer) {
  if (!observer) return {};
  return observers_.addObserver(
      key, nullptr, [observer = std::move(observer)](const Notification& notification) {
        observer(notification.name, notification.userInfo.contains(kIsPriorKey)
                                        ? ValueChange::before
                                        : ValueChange::after);
      });
}

void VXUserDefaults::willChangeValueForKey(const std::string& key) {
  observers_.post({key, this, {{kIsPriorKey, true}}});
}

void VXUserDefaults::didChangeValueForKey(const std::string& key) {
  observers_.post({key, this, {}});
}

std::shared_ptr<VXUserDefaults> VXUserDefaults::sharedInstance(const Hooks& hooks) {
  auto& instances = sharedInstances();
  const std::lock_guard lock(instances.mutex);
  const auto entry = instances.byClass.find(hooks.type);
  return entry == instances.byClass.end() ? nullptr : entry->second;
}

void VXUserDefaults::setSharedInstance(const Hooks& hooks,
                                       std::shared_ptr<VXUserDefaults> instance) {
  auto& instances = sharedInstances();
  const std::lock_guard lock(instances.mutex);
  instances.byClass[hooks.type] = std::move(instance);
}

std::shared_ptr<const VXUserDefaults::Accessors> VXUserDefaults::installedAccessors(
    const Hooks& hooks) {
  static auto& mutex = *new std::mutex;
  static auto& byClass = *new std::map<std::type_index, std::shared_ptr<const Accessors>>;
  const std::lock_guard lock(mutex);
  auto& installed = byClass[hooks.type];
  if (installed == nullptr) {
    auto accessors = std::make_shared<Accessors>();
    // Adding never replaces an accessor that is there, least of all one that the class implements.
    const auto add = [&](const Property& property, AccessorKind kind) {
      const Accessors::Accessor accessor{kind, std::string(1, property.type) + "@:"};
      accessors->bySelector.try_emplace(property.getterName(), accessor);
      accessors->bySelector.try_emplace(property.setterName(), accessor);
    };
    if (hooks.properties != nullptr) {
      for (const auto& property : hooks.properties()) {
        if (property.hasOwnImplementation) add(property, AccessorKind::unsupported);
      }
      for (const auto& property : hooks.properties()) {
        if (!property.hasOwnImplementation) add(property, kindOfType(property.type));
      }
    }
    installed = std::move(accessors);
  }
  return installed;
}

}  // namespace tervano
