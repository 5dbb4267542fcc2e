#include "store/value_text.h"

#include <array>
#include <charconv>

#include "archive/coding.h"

namespace tervano {
namespace {

template <typename Number>
std::string numberText(Number number) {
  std::array<char, 32> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number);
  return {text.data(), end.ptr};
}

}  // namespace

std::string textOfValue(const Value& value) {
  if (const auto* flag = value.getIf<bool>()) return *flag ? "1" : "0";
  if (const auto* integer = value.getIf<std::int64_t>()) return numberText(*integer);
  if (const auto* integer = value.getIf<std::uint64_t>()) return numberText(*integer);
  if (const auto* real = value.getIf<double>()) return numberText(*real);
  if (const auto* text = value.getIf<std::string>()) return *text;
  if (const auto* url = value.getIf<Url>()) return url->absoluteString();
  if (const auto* uuid = value.getIf<Uuid>()) return uuid->UUIDString();
  if (const auto* uid = value.getIf<Uid>()) return numberText(uid->value);
  if (const auto* date = value.getIf<Date>()) return numberText(date->secondsSinceReferenceDate);
  if (const auto* data = value.getIf<DataPtr>()) {
    return "<" + numberText(*data == nullptr ? 0 : (*data)->size()) + " bytes>";
  }
  if (const auto* object = value.getIf<Value::Object>()) {
    return "<" + std::string((*object)->className()) + ">";
  }
  if (const auto* array = value.getIf<Value::Array>()) {
    std::string text = "(";
    for (const Value& entry : *array) {
      if (text.size() > 1) text += ", ";
      text += textOfValue(entry);
    }
    return text + ")";
  }
  if (const auto* dictionary = value.getIf<Value::Dictionary>()) {
    std::string text = "{";
    for (const auto& [key, entry] : *dictionary) text += key + " = " + textOfValue(entry) + "; ";
    return text + "}";
  }
  return "(null)";
}

}  // namespace tervano
