#include "companion/value_json.h"

#include <array>
#include <cmath>
#include <ctime>

namespace tervano {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

nlohmann::json jsonOfDate(Date date) {
  constexpr double kReferenceDate = 978307200;  // 2001-01-01 in seconds since 1970-01-01.
  const double seconds = std::floor(date.secondsSinceReferenceDate + kReferenceDate);
  // Years 0 to 9999; anything else has no text of this form.
  if (!(seconds >= -62167219200.0 && seconds <= 253402300799.0)) return nullptr;
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

}  // namespace

std::string base64OfData(const Data& bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t index = 0; index < bytes.size(); index += 3) {
    const std::size_t left = bytes.size() - index;
    const unsigned group = bytes[index] << 16U | (left > 1 ? bytes[index + 1] << 8U : 0U) |
                           (left > 2 ? bytes[index + 2] : 0U);
    text += kAlphabet[group >> 18U];
    text += kAlphabet[group >> 12U & 63U];
    text += left > 1 ? kAlphabet[group >> 6U & 63U] : '=';
    text += left > 2 ? kAlphabet[group & 63U] : '=';
  }
  return text;
}

std::optional<Data> dataOfBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  text.remove_suffix(padding);
  Data bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  unsigned group = 0;
  int bits = 0;
  for (const char character : text) {
    const auto digit = kAlphabet.find(character);
    if (digit == std::string_view::npos) return std::nullopt;
    group = group << 6U | static_cast<unsigned>(digit);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes.push_back(static_cast<std::uint8_t>(group >> static_cast<unsigned>(bits)));
  }
  return bytes;
}

nlohmann::json jsonOfValue(const Value& value) {
  if (const auto* content = value.getIf<bool>()) return *content;
  if (const auto* content = value.getIf<std::int64_t>()) return *content;
  if (const auto* content = value.getIf<std::uint64_t>()) return *content;
  if (const auto* content = value.getIf<double>()) {
    return std::isfinite(*content) ? nlohmann::json(*content) : nullptr;
  }
  if (const auto* content = value.getIf<std::string>()) return *content;
  if (const auto* content = value.getIf<DataPtr>()) return base64OfData(**content);
  if (const auto* content = value.getIf<Date>()) return jsonOfDate(*content);
  if (const auto* content = value.getIf<Uid>()) return {{"CF$UID", content->value}};
  if (const auto* content = value.getIf<Url>()) return content->absoluteString();
  if (const auto* content = value.getIf<Uuid>()) return content->UUIDString();
  if (const auto* content = value.getIf<Value::Array>()) {
    auto json = nlohmann::json::array();
    for (const auto& entry : *content) json.push_back(jsonOfValue(entry));
    return json;
  }
  if (const auto* content = value.getIf<Value::Dictionary>()) {
    auto json = nlohmann::json::object();
    for (const auto& [key, entry] : *content) json[key] = jsonOfValue(entry);
    return json;
  }
  return nullptr;
}

std::string jsonText(const nlohmann::json& json) {
  return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string jsonText(const nlohmann::ordered_json& json) {
  return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tervano
