#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "archive/url.h"

namespace tervano {

class Coding;

// Raw bytes. Shared and immutable inside a Value, so that copying a Value never copies them.
using Data = std::vector<std::uint8_t>;
using DataPtr = std::shared_ptr<const Data>;

// A property-list UID: a reference into the object table of a keyed archive.
struct Uid {
  std::uint64_t value = 0;
  friend auto operator<=>(const Uid&, const Uid&) = default;
};

// A point in time in seconds since 2001-01-01 00:00:00 UTC.
struct Date {
  double secondsSinceReferenceDate = 0;
  friend auto operator<=>(const Date&, const Date&) = default;
};

// A universally unique identifier (RFC 9562).
struct Uuid {
  std::array<std::uint8_t, 16> bytes{};
  // A fresh random (version 4) identifier.
  static Uuid random();
  // 36 characters, upper-case hexadecimal in groups of 8-4-4-4-12.
  std::string UUIDString() const;
  friend auto operator<=>(const Uuid&, const Uuid&) = default;
};

template <typename T>
concept PlainInteger = std::is_integral_v<T> && !std::is_same_v<T, bool>;

template <typename T>
concept ArchivableObject = std::is_base_of_v<Coding, T>;

// Anything that a property list or a keyed archive can hold. Null stands for nil.
//
// A property list holds bool, integers, reals, strings, data, dates, UIDs, arrays and dictionaries;
// a keyed archive in addition null, URLs, UUIDs and objects of registered classes. Strings are
// UTF-8 (lone surrogates of a foreign file become U+FFFD). A value type; copies of containers are
// deep except for data and objects, which are shared.
class Value {
 public:
  using Array = std::vector<Value>;
  using Dictionary = std::map<std::string, Value, std::less<>>;
  using Object = std::shared_ptr<Coding>;

  Value() = default;
  Value(std::nullptr_t) {}
  Value(bool value) : storage_(value) {}
  // Unsigned values beyond the signed 64-bit range keep their own alternative; every other integer
  // is a std::int64_t.
  template <PlainInteger Integer>
  Value(Integer value) {
    if (std::is_unsigned_v<Integer> && static_cast<std::uint64_t>(value) > INT64_MAX) {
      storage_ = static_cast<std::uint64_t>(value);
    } else {
      storage_ = static_cast<std::int64_t>(value);
    }
  }
  Value(double value) : storage_(value) {}
  Value(std::string value) : storage_(std::move(value)) {}
  Value(std::string_view value) : storage_(std::string(value)) {}
  Value(const char* value) : storage_(std::string(value)) {}
  Value(Data value) : storage_(std::make_shared<const Data>(std::move(value))) {}
  Value(DataPtr value) : storage_(std::move(value)) {}
  Value(Date value) : storage_(value) {}
  Value(Uid value) : storage_(value) {}
  Value(Url value) : storage_(std::move(value)) {}
  Value(Uuid value) : storage_(value) {}
  Value(Array value) : storage_(std::move(value)) {}
  Value(Dictionary value) : storage_(std::move(value)) {}
  template <ArchivableObject T>
  Value(std::shared_ptr<T> object) {
    if (object != nullptr) storage_ = Object(std::move(object));
  }
  template <typename T>
  Value(const std::optional<T>& value) {
    if (value) *this = Value(*value);
  }

  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }

  // The content when it is of exactly that kind, else a null pointer. T is one of bool,
  // std::int64_t, std::uint64_t, double, std::string, DataPtr, Date, Uid, Url, Uuid, Array,
  // Dictionary, Object.
  template <typename T>
  const T* getIf() const {
    return std::get_if<T>(&storage_);
  }
  template <typename T>
  T* getIf() {
    return std::get_if<T>(&storage_);
  }

  // The entry under a key when this is a dictionary that has it, else a null pointer.
  const Value* find(std::string_view key) const;

  // Equality by content; data by bytes, objects by identity. true and 1 differ.
  friend bool operator==(const Value& left, const Value& right);

 private:
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, DataPtr,
               Date, Uid, Url, Uuid, Array, Dictionary, Object>
      storage_;
};

// Platform-style conversions of a stored number or text, 0 when there is none: what a preferences
// store answers for boolForKey, integerForKey and doubleForKey.
bool boolValue(const Value& value);
std::int64_t longLongValue(const Value& value);
double doubleValue(const Value& value);

}  // namespace tervano
