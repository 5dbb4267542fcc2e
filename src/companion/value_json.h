#pragma once

#include <nlohmann/json.hpp>

#include "archive/value.h"

namespace tervano {

// A value as JSON (RFC 8259) for people and scripts: data as Base64 text, dates as ISO 8601 in UTC,
// URLs and UUIDs as their text, a UID as {"CF$UID": n}, real numbers that JSON lacks as null.
nlohmann::json jsonOfValue(const Value& value);

// JSON as text with two-space indentation and a line end; bytes that are not UTF-8 are replaced.
std::string jsonText(const nlohmann::json& json);
std::string jsonText(const nlohmann::ordered_json& json);

}  // namespace tervano
