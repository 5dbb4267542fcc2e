#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "archive/value.h"

namespace tervano {

// A value as JSON (RFC 8259) for people and scripts: data as Base64 text, dates as ISO 8601 in UTC,
// URLs and UUIDs as their text, a UID as {"CF$UID": n}, real numbers that JSON lacks as null.
nlohmann::json jsonOfValue(const Value& value);

// Bytes as Base64 text (RFC 4648) and back; nil for what is none.
std::string base64OfData(const Data& bytes);
std::optional<Data> dataOfBase64(std::string_view text);

// JSON as text with two-space indentation and a line end; bytes that are not UTF-8 are replaced.
std::string jsonText(const nlohmann::json& json);
std::string jsonText(const nlohmann::ordered_json& json);

}  // namespace tervano
