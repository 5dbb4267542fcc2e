#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "archive/value.h"

namespace tervano {

// The texts inside the elements of an XML property list. Readers give nullopt for text that is no
// such value; blanks around it are allowed.

// Decimal, or hexadecimal after "0x"; an int64_t, or a uint64_t beyond its range.
std::optional<Value> integerOfXMLText(std::string_view text);
// Decimal, "nan", "inf" or "infinity" with a sign.
std::optional<double> realOfXMLText(std::string_view text);
std::string XMLTextOfReal(double value);
// "2001-01-01T00:00:00Z", years 0001 to 9999.
std::optional<Date> dateOfXMLText(std::string_view text);
// Whole seconds, rounded down. Nullopt outside those years.
std::optional<std::string> XMLTextOfDate(Date date);
// Base64 (RFC 4648) with padding; blanks anywhere. Appends to `out`, false for anything else.
bool appendBase64XMLText(std::string_view text, Data& out);
// Lines of 76 characters, each one begun with `indent`.
std::string base64XMLText(std::span<const std::uint8_t> bytes, std::string_view indent);

bool isXMLBlank(std::string_view text);

}  // namespace tervano
