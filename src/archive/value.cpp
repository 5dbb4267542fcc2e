#include "archive/value.h"

#include <locale.h>
#include <sys/random.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <system_error>

namespace tervano {
namespace {

bool sameNumber(double left, double right) {
  return left == right || (std::isnan(left) && std::isnan(right));
}

bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string_view withoutLeadingBlanks(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  return text;
}

// "YES", "true" or a number that is not zero, judged by the first telling character.
bool boolOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
  while (!text.empty() && text.front() == '0') text.remove_prefix(1);
  if (text.empty()) return false;
  const char first = text.front();
  return first == 'Y' || first == 'y' || first == 'T' || first == 't' || isDigit(first);
}

// The leading decimal digits, held at the ends of the range.
std::int64_t integerOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  std::int64_t value = 0;
  for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1)) {
    const int digit = text.front() - '0';
    if (__builtin_mul_overflow(value, 10, &value) || __builtin_sub_overflow(value, digit, &value)) {
      return negative ? INT64_MIN : INT64_MAX;
    }
  }
  // Counted downwards, because the negative range is the larger one.
  if (negative) return value;
  return value == INT64_MIN ? INT64_MAX : -value;
}

// The leading decimal number, whatever the locale; neither hexadecimal nor names of values.
double realOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  std::size_t at = 0;
  const auto skipDigits = [&] {
    const std::size_t start = at;
    while (at < text.size() && isDigit(text[at])) ++at;
    return at - start;
  };
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
  std::size_t digits = skipDigits();
  if (at < text.size() && text[at] == '.') {
    ++at;
    digits += skipDigits();
  }
  if (digits == 0) return 0;
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    const std::size_t mantissaEnd = at++;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
    if (skipDigits() == 0) at = mantissaEnd;
  }
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(std::string(text.substr(0, at)).c_str(), nullptr, plain);
}

std::int64_t integerOfReal(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 9223372036854775808.0) return INT64_MAX;
  if (value < -9223372036854775808.0) return INT64_MIN;
  return static_cast<std::int64_t>(value);
}

}  // namespace

Uuid Uuid::random() {
  Uuid uuid;
  std::size_t filled = 0;
  while (filled < uuid.bytes.size()) {
    const ssize_t got = getrandom(uuid.bytes.data() + filled, uuid.bytes.size() - filled, 0);
    if (got < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    if (got > 0) filled += static_cast<std::size_t>(got);
  }
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x40);
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);
  return uuid;
}

std::string Uuid::UUIDString() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kDigits[bytes[i] >> 4]);
    text.push_back(kDigits[bytes[i] & 0x0F]);
  }
  return text;
}

const Value* Value::find(std::string_view key) const {
  const auto* dictionary = getIf<Dictionary>();
  if (dictionary == nullptr) return nullptr;
  const auto found = dictionary->find(key);
  return found == dictionary->end() ? nullptr : &found->second;
}

bool operator==(const Value& left, const Value& right) {
  if (left.storage_.index() != right.storage_.index()) return false;
  if (const auto* data = left.getIf<DataPtr>()) {
    const DataPtr& other = *right.getIf<DataPtr>();
    return *data == other || (*data != nullptr && other != nullptr && **data == *other);
  }
  if (const auto* real = left.getIf<double>()) return sameNumber(*real, *right.getIf<double>());
  if (const auto* date = left.getIf<Date>()) {
    return sameNumber(date->secondsSinceReferenceDate,
                      right.getIf<Date>()->secondsSinceReferenceDate);
  }
  return left.storage_ == right.storage_;
}

bool boolValue(const Value& value) {
  if (const auto* boolean = value.getIf<bool>()) return *boolean;
  if (const auto* number = value.getIf<std::int64_t>()) return *number != 0;
  if (const auto* number = value.getIf<std::uint64_t>()) return *number != 0;
  if (const auto* number = value.getIf<double>()) return *number != 0;
  if (const auto* text = value.getIf<std::string>()) return boolOfText(*text);
  return false;
}

std::int64_t longLongValue(const Value& value) {
  if (const auto* boolean = value.getIf<bool>()) return *boolean ? 1 : 0;
  if (const auto* number = value.getIf<std::int64_t>()) return *number;
  // The same 64 bits, as the platform's numbers answer.
  if (const auto* number = value.getIf<std::uint64_t>()) return static_cast<std::int64_t>(*number);
  if (const auto* number = value.getIf<double>()) return integerOfReal(*number);
  if (const auto* text = value.getIf<std::string>()) return integerOfText(*text);
  return 0;
}

double doubleValue(const Value& value) {
  if (const auto* boolean = value.getIf<bool>()) return *boolean ? 1 : 0;
  if (const auto* number = value.getIf<std::int64_t>()) return static_cast<double>(*number);
  if (const auto* number = value.getIf<std::uint64_t>()) return static_cast<double>(*number);
  if (const auto* number = value.getIf<double>()) return *number;
  if (const auto* text = value.getIf<std::string>()) return realOfText(*text);
  return 0;
}

}  // namespace tervano
