#include "archive/xml_text.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <system_error>

namespace tervano {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(kBlanks);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

template <typename Number, typename... Form>
std::optional<Number> wholeNumber(std::string_view text, Form... form) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, form...);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}

constexpr std::chrono::sys_days kReferenceDay = std::chrono::sys_days(std::chrono::year_month_day(
    std::chrono::year(2001), std::chrono::month(1), std::chrono::day(1)));

// A fixed-width decimal field; -1 when a character is no digit.
int field(std::string_view text, std::size_t start, std::size_t width) {
  int value = 0;
  for (std::size_t i = start; i < start + width; ++i) {
    if (text[i] < '0' || text[i] > '9') return -1;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  return c == '/' ? 63 : -1;
}

}  // namespace

bool isXMLBlank(std::string_view text) {
  return text.find_first_not_of(kBlanks) == std::string_view::npos;
}

std::optional<Value> integerOfXMLText(std::string_view text) {
  text = trimmed(text);
  bool negative = false;
  if (text.starts_with('+') || text.starts_with('-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  // An unsigned reading takes no sign, so a second one is refused here.
  const std::optional<std::uint64_t> magnitude = wholeNumber<std::uint64_t>(text, base);
  if (!magnitude) return std::nullopt;
  if (!negative) return Value(*magnitude);
  constexpr std::uint64_t kLowest = std::uint64_t{1} << 63;
  if (*magnitude > kLowest) return std::nullopt;
  return Value(static_cast<std::int64_t>(0 - *magnitude));
}

std::optional<double> realOfXMLText(std::string_view text) {
  text = trimmed(text);
  bool negative = false;
  if (text.starts_with('+') || text.starts_with('-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (text.starts_with('+') || text.starts_with('-')) return std::nullopt;
  std::optional<double> value;
  const std::string word = text.size() <= 8 ? lowered(text) : std::string();
  if (word == "nan") {
    value = std::numeric_limits<double>::quiet_NaN();
  } else if (word == "inf" || word == "infinity") {
    value = std::numeric_limits<double>::infinity();
  } else if (!text.empty() &&
             (text.front() == '.' || (text.front() >= '0' && text.front() <= '9'))) {
    value = wholeNumber<double>(text);
  }
  if (value && negative) value = -*value;
  return value;
}

std::string XMLTextOfReal(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "+infinity" : "-infinity";
  char text[64];
  const auto [end, error] = std::to_chars(text, text + sizeof text, value);
  return {text, end};
}

std::optional<Date> dateOfXMLText(std::string_view text) {
  text = trimmed(text);
  static constexpr std::string_view kShape = "0000-00-00T00:00:00Z";
  if (text.size() != kShape.size()) return std::nullopt;
  for (std::size_t i = 0; i < kShape.size(); ++i) {
    if (kShape[i] != '0' && text[i] != kShape[i]) return std::nullopt;
  }
  const int year = field(text, 0, 4);
  const int month = field(text, 5, 2);
  const int day = field(text, 8, 2);
  const int hour = field(text, 11, 2);
  const int minute = field(text, 14, 2);
  const int second = field(text, 17, 2);
  if (year < 1 || month < 1 || day < 1 || hour < 0 || hour > 23 || minute < 0 || minute > 59 ||
      second < 0 || second > 59) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date(std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  if (!date.ok()) return std::nullopt;
  const auto days = (std::chrono::sys_days(date) - kReferenceDay).count();
  const std::int64_t minutes = (std::int64_t{days} * 24 + hour) * 60 + minute;
  return Date{static_cast<double>(minutes * 60 + second)};
}

std::optional<std::string> XMLTextOfDate(Date date) {
  const double seconds = std::floor(date.secondsSinceReferenceDate);
  constexpr double kFarthest = 400e9;
  if (!(std::abs(seconds) < kFarthest)) return std::nullopt;
  const auto whole = static_cast<std::int64_t>(seconds);
  const std::int64_t days = (whole >= 0 ? whole : whole - 86399) / 86400;
  const auto ofDay = static_cast<int>(whole - days * 86400);
  const std::chrono::year_month_day day(kReferenceDay + std::chrono::days(days));
  const int year = static_cast<int>(day.year());
  if (year < 1 || year > 9999) return std::nullopt;
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", year,
                static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), ofDay / 3600,
                ofDay / 60 % 60, ofDay % 60);
  return text;
}

bool appendBase64XMLText(std::string_view text, Data& out) {
  std::uint32_t bits = 0;
  int filled = 0;
  int padding = 0;
  for (const char c : text) {
    if (kBlanks.find(c) != std::string_view::npos) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int six = sextet(c);
    if (six < 0 || padding > 0) return false;
    bits = (bits << 6) | static_cast<std::uint32_t>(six);
    if (++filled == 4) {
      out.push_back(static_cast<std::uint8_t>(bits >> 16));
      out.push_back(static_cast<std::uint8_t>(bits >> 8));
      out.push_back(static_cast<std::uint8_t>(bits));
      bits = 0;
      filled = 0;
    }
  }
  if (filled == 0) return padding == 0;
  if (filled == 1 || filled + padding != 4) return false;
  bits <<= 6 * padding;
  out.push_back(static_cast<std::uint8_t>(bits >> 16));
  if (filled == 3) out.push_back(static_cast<std::uint8_t>(bits >> 8));
  return true;
}

std::string base64XMLText(std::span<const std::uint8_t> bytes, std::string_view indent) {
  constexpr std::size_t kBytesPerLine = 57;
  std::string out;
  out.reserve(bytes.size() / kBytesPerLine * (77 + indent.size()) + 80 + indent.size());
  for (std::size_t line = 0; line < bytes.size(); line += kBytesPerLine) {
    const std::size_t end = std::min(line + kBytesPerLine, bytes.size());
    out.append(indent);
    for (std::size_t i = line; i < end; i += 3) {
      const std::size_t left = end - i;
      const std::uint32_t bits = (std::uint32_t{bytes[i]} << 16) |
                                 (left > 1 ? std::uint32_t{bytes[i + 1]} << 8 : 0U) |
                                 (left > 2 ? std::uint32_t{bytes[i + 2]} : 0U);
      out.push_back(kAlphabet[bits >> 18]);
      out.push_back(kAlphabet[(bits >> 12) & 0x3F]);
      out.push_back(left > 1 ? kAlphabet[(bits >> 6) & 0x3F] : '=');
      out.push_back(left > 2 ? kAlphabet[bits & 0x3F] : '=');
    }
    out.push_back('\n');
  }
  return out;
}

}  // namespace tervano
