#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "archive/coding.h"
#include "archive/platform_exception.h"
#include "archive/value.h"

namespace tervano {

// Reads an object graph from the published keyed-archive layout in a binary (or XML) property list.
//
// One entry decodes to one object wherever it is referenced. Strings, numbers, data, dates, URLs,
// UUIDs, arrays and dictionaries (mutable kinds included) become plain Values; every other class
// must be in the registry. Throws PlatformException for malformed bytes, a UID out of range, a
// missing or circular class description, an unknown class of a referenced entry, a wrong type under
// a key, an object that contains itself, and nesting beyond kMaximumArchiveDepth. Unreferenced
// entries and unknown keys are ignored.
//
// The decode functions are for Coding::initWithCoder and read from the object being decoded.
class Unarchiver {
 public:
  static constexpr int kMaximumArchiveDepth = 128;

  static Value unarchiveObjectWithData(std::span<const std::uint8_t> bytes,
                                       const ClassRegistry& registry);

  bool containsValueForKey(std::string_view key) const;
  // Absent keys give false, 0 and null.
  bool decodeBool(std::string_view key);
  std::int64_t decodeInteger(std::string_view key);
  double decodeDouble(std::string_view key);
  Value decodeObject(std::string_view key);

  // Absent or nil gives nullopt or a null pointer; another kind throws.
  std::optional<std::string> decodeString(std::string_view key);
  std::optional<Url> decodeUrl(std::string_view key);
  std::optional<Value::Array> decodeArray(std::string_view key);
  std::optional<std::vector<std::string>> decodeStringArray(std::string_view key);
  // Bytes inline or by reference.
  DataPtr decodeBytes(std::string_view key);
  template <typename T>
  std::shared_ptr<T> decodeObjectOfClass(std::string_view key) {
    const Value value = decodeObject(key);
    if (value.isNull()) return nullptr;
    const auto* object = value.getIf<Value::Object>();
    auto typed = object == nullptr ? nullptr : std::dynamic_pointer_cast<T>(*object);
    if (typed == nullptr) throwWrongType(key);
    return typed;
  }

  [[noreturn]] static void throwWrongType(std::string_view key);

  Unarchiver(const Unarchiver&) = delete;
  Unarchiver& operator=(const Unarchiver&) = delete;
  ~Unarchiver();

 private:
  struct Graph;
  Unarchiver(std::span<const std::uint8_t> bytes, const ClassRegistry& registry);
  std::unique_ptr<Graph> graph_;
};

}  // namespace tervano
