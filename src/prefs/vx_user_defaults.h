#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeindex>

#include "archive/value.h"
#include "platform/defaults_stores.h"
#include "platform/notification_center.h"
#include "platform/subscription.h"

namespace tervano {

// Turns the declared properties of a subclass into typed preferences kept in a defaults store. Each
// property has a getter and a setter selector; both find the property's key through `mapping` and
// then read or write the store. Nothing is cached: a getter sees what was stored last, by whatever
// process. Every set is flushed at once.
//
// A subclass inherits the constructor, may declare any of these public members, and writes each
// accessor as one call of `read` or `write` with the accessor's selector:
//
//   static std::span<const Property> properties();   its own properties; a subclass of a subclass
//                                                     that adds none declares an empty list
//   std::optional<std::string> suitName() const;      the suite; nil or empty: the standard store
//   std::optional<std::string> suiteName() const;     asked when suitName is not declared at all
//   Value::Dictionary setupDefaults() const;          fallbacks by property name
//
// One instance belongs to one thread at a time; observers are called on the thread that sets.
class VXUserDefaults {
  struct Hooks;

 public:
  // One declared property.
  struct Property {
    const char* name;
    // "@" object; "B" "c" boolean; "i" 32-bit integer; "C" "I" "L" "Q" "S" "l" "q" "s" other
    // integers, kept as a 64-bit signed number; "f" "d" reals. Any other type is mapped but has no
    // working accessors: it reads as nothing and ignores writes.
    char type;
    // The class has accessors of its own; the property is mapped, never stored.
    bool hasOwnImplementation = false;
    // Null: `name` itself, and "set", the name with its first character in upper case, and ":".
    const char* getter = nullptr;
    const char* setter = nullptr;

    std::string getterName() const;
    std::string setterName() const;
  };

  // When a key-value observer is called: before and after the store is written.
  enum class ValueChange { before, after };
  using Observer = std::function<void(const std::string& key, ValueChange change)>;

  // What makes instances; only `make` has one.
  class Birth {
    friend class VXUserDefaults;
    explicit Birth(const Hooks& hooks) : hooks(hooks) {}
    const Hooks& hooks;
  };
  explicit VXUserDefaults(const Birth& birth) : hooks_(birth.hooks) {}
  virtual ~VXUserDefaults() = default;
  VXUserDefaults(const VXUserDefaults&) = delete;
  VXUserDefaults& operator=(const VXUserDefaults&) = delete;

  // A new, initialised instance of exactly T; null when `init` answers false.
  template <typename T>
  static std::shared_ptr<T> make() {
    static_assert(std::is_base_of_v<VXUserDefaults, T>);
    auto instance = std::make_shared<T>(Birth(hooksOf<T>()));
    return instance->init() ? instance : nullptr;
  }
  // The one shared instance of T, made by the first call; lives as long as the process. Any thread.
  template <typename T>
  static std::shared_ptr<T> standardUserDefaults() {
    static auto& lock = *new std::recursive_mutex;
    const std::lock_guard guard(lock);
    auto instance = std::static_pointer_cast<T>(sharedInstance(hooksOf<T>()));
    if (instance == nullptr) {
      instance = make<T>();
      setSharedInstance(hooksOf<T>(), instance);
    }
    return instance;
  }

  // Opens the store, registers the fallbacks and generates the accessors. An override calls its
  // base class first and answers false when that does.
  virtual bool init();

  // The store, made by the first call from the suite's name; from then on `prefix` is set when the
  // suite has a name.
  const std::shared_ptr<DefaultsStore>& userDefaults() const;
  void setUserDefaults(std::shared_ptr<DefaultsStore> store) { userDefaults_ = std::move(store); }
  const std::optional<std::string>& prefix() const { return prefix_; }

  // The key of a property, declared or not.
  std::string defaultsKeyForPropertyNamed(const char* name) const;
  // The entry of `mapping`; a setter's selector ends in ":".
  std::optional<std::string> defaultsKeyForSelector(std::string_view selector) const;
  std::string _transformKey(const std::string& key) const;
  // The prefix, a dot and the key; the key itself without a prefix. The suite's name thus stands in
  // every key of the suite: stored preferences depend on it.
  virtual std::string transformKey(const std::string& key) const;
  std::optional<std::string> _suiteName() const;

  // Rebuilds `mapping`, and installs the class's accessors unless an earlier instance did.
  void generateAccessorMethods();
  // From accessor selector to key.
  using Mapping = std::map<std::string, std::string, std::less<>>;
  const Mapping& mapping() const { return mapping_; }
  void setMapping(Mapping mapping) { mapping_ = std::move(mapping); }
  // The type string of an installed accessor, the type character and "@:"; nil when there is none.
  std::optional<std::string> typesOfAccessor(std::string_view selector) const;

  // Invokes an installed accessor by its selector, with the conversions of its type. Null for a
  // selector that is not installed or not mapped; a set does nothing then. Setting null removes an
  // object property. Throws PlatformException for an object that no store can hold.
  Value get(std::string_view getter) const;
  void set(std::string_view setter, const Value& value);

  // Calls `observer` for every set under the derived key (not the property's name).
  Subscription addObserver(const std::string& key, Observer observer);
  // Sent by every setter with the derived key, around the write.
  virtual void willChangeValueForKey(const std::string& key);
  virtual void didChangeValueForKey(const std::string& key);

 protected:
  // The bodies of a subclass's accessors. T is the property's declared type, Value for objects.
  template <typename T>
  T read(std::string_view getter) const {
    if constexpr (std::is_same_v<T, Value>) {
      return get(getter);
    } else if constexpr (std::is_same_v<T, bool>) {
      return boolValue(get(getter));
    } else if constexpr (std::is_floating_point_v<T>) {
      return static_cast<T>(doubleValue(get(getter)));
    } else {
      static_assert(std::is_integral_v<T>);
      return static_cast<T>(longLongValue(get(getter)));
    }
  }
  template <typename T>
  void write(std::string_view setter, const T& value) {
    if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
      set(setter, Value(static_cast<std::int64_t>(value)));
    } else if constexpr (std::is_floating_point_v<T>) {
      set(setter, Value(static_cast<double>(value)));
    } else {
      set(setter, Value(value));
    }
  }

 private:
  // What the concrete class declares; a null entry is a member that it does not have, which differs
  // from one that answers nil.
  struct Hooks {
    std::span<const Property> (*properties)() = nullptr;
    std::optional<std::string> (*suitName)(const VXUserDefaults&) = nullptr;
    std::optional<std::string> (*suiteName)(const VXUserDefaults&) = nullptr;
    std::optional<Value::Dictionary> (*setupDefaults)(const VXUserDefaults&) = nullptr;
    // The class itself.
    std::type_index type = typeid(VXUserDefaults);
  };
  struct Accessors;

  template <typename T>
  static Hooks findHooks();
  template <typename T>
  static const Hooks& hooksOf() {
    static const auto& hooks = *new Hooks(findHooks<T>());
    return hooks;
  }
  static std::shared_ptr<VXUserDefaults> sharedInstance(const Hooks& hooks);
  static void setSharedInstance(const Hooks& hooks, std::shared_ptr<VXUserDefaults> instance);
  static std::shared_ptr<const Accessors> installedAccessors(const Hooks& hooks);

  const Hooks& hooks_;
  // Made on first use, also by a getter.
  mutable std::shared_ptr<DefaultsStore> userDefaults_;
  mutable std::optional<std::string> prefix_;
  Mapping mapping_;
  std::shared_ptr<const Accessors> accessors_;
  NotificationCenter observers_;
};

template <typename T>
VXUserDefaults::Hooks VXUserDefaults::findHooks() {
  Hooks hooks;
  hooks.type = typeid(T);
  if constexpr (requires { T::properties(); }) hooks.properties = &T::properties;
  if constexpr (requires(const T& self) { self.suitName(); }) {
    hooks.suitName = [](const VXUserDefaults& self) -> std::optional<std::string> {
      return static_cast<const T&>(self).suitName();
    };
  }
  if constexpr (requires(const T& self) { self.suiteName(); }) {
    hooks.suiteName = [](const VXUserDefaults& self) -> std::optional<std::string> {
      return static_cast<const T&>(self).suiteName();
    };
  }
  if constexpr (requires(const T& self) { self.setupDefaults(); }) {
    hooks.setupDefaults = [](const VXUserDefaults& self) -> std::optional<Value::Dictionary> {
      return static_cast<const T&>(self).setupDefaults();
    };
  }
  return hooks;
}

}  // namespace tervano
