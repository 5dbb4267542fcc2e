#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "archive/value.h"

namespace tervano {

// Four characters as one number, the first the highest byte.
using FourCharCode = std::uint32_t;

constexpr FourCharCode fourCharCode(const char (&text)[5]) {
  FourCharCode code = 0;
  for (int i = 0; i < 4; ++i) {
    code = (code << 8U) | static_cast<unsigned char>(text[i]);
  }
  return code;
}

inline constexpr FourCharCode kTypeProcessSerialNumber = fourCharCode("psn ");
inline constexpr FourCharCode kASAppleScriptSuite = fourCharCode("ascr");
inline constexpr FourCharCode kASSubroutineEvent = fourCharCode("psbr");
inline constexpr FourCharCode kASSubroutineName = fourCharCode("snam");
inline constexpr FourCharCode kDirectObject = fourCharCode("----");
inline constexpr std::int16_t kAutoGenerateReturnID = -1;
inline constexpr std::int32_t kAnyTransactionID = 0;
inline constexpr std::uint32_t kCurrentProcess = 2;

// A part of a call between programs: a text, a list, or the bytes of another type. A value.
class AppleEventDescriptor {
 public:
  using List = std::vector<AppleEventDescriptor>;
  struct Bytes {
    FourCharCode type = 0;
    Data bytes;
    friend bool operator==(const Bytes&, const Bytes&) = default;
  };

  static AppleEventDescriptor listDescriptor() { return AppleEventDescriptor(List()); }
  // The string's bytes as they are, also where they are not UTF-8.
  static AppleEventDescriptor descriptorWithString(std::string text) {
    return AppleEventDescriptor(std::move(text));
  }
  static AppleEventDescriptor descriptorWithDescriptorType(FourCharCode type, Data bytes) {
    return AppleEventDescriptor(Bytes{type, std::move(bytes)});
  }

  // Positions count from 1; position numberOfItems() + 1, and 0, append. For lists only.
  void insertDescriptor(AppleEventDescriptor descriptor, std::size_t index);
  // Null when the descriptor is of another form.
  const List* list() const { return std::get_if<List>(&content_); }
  const std::string* string() const { return std::get_if<std::string>(&content_); }
  const Bytes* bytes() const { return std::get_if<Bytes>(&content_); }

  friend bool operator==(const AppleEventDescriptor&, const AppleEventDescriptor&) = default;

 private:
  using Content = std::variant<List, std::string, Bytes>;
  explicit AppleEventDescriptor(Content content) : content_(std::move(content)) {}

  Content content_;
};

// A call of a handler in another program or a script. A value.
struct AppleEvent {
  FourCharCode eventClass = 0;
  FourCharCode eventID = 0;
  AppleEventDescriptor targetDescriptor = AppleEventDescriptor::listDescriptor();
  std::int16_t returnID = kAutoGenerateReturnID;
  std::int32_t transactionID = kAnyTransactionID;
  // In the order in which they were set; a keyword stands there once.
  std::vector<std::pair<FourCharCode, AppleEventDescriptor>> parameters;

  void setParamDescriptor(AppleEventDescriptor descriptor, FourCharCode keyword);
  // Null when it is not set.
  const AppleEventDescriptor* paramDescriptor(FourCharCode keyword) const;
};

}  // namespace tervano
