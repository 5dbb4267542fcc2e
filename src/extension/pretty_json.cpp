#include <array>
#include <charconv>
#include <cmath>

#include "archive/utf.h"
#include "extension/hand_off.h"

namespace tervano {
namespace {

// Appends values to a text; false, with a reason, at the first that JSON cannot hold.
class PrettyWriter {
 public:
  std::string text;
  std::string complaint;

  bool write(const Value& value, std::size_t depth) {
    if (value.isNull()) return literal("null");
    if (const auto* flag = value.getIf<bool>()) return literal(*flag ? "true" : "false");
    if (const auto* integer = value.getIf<std::int64_t>()) return number(*integer);
    if (const auto* integer = value.getIf<std::uint64_t>()) return number(*integer);
    if (const auto* real = value.getIf<double>()) {
      return std::isfinite(*real) ? number(*real) : refuse("a number that is not finite");
    }
    if (const auto* string = value.getIf<std::string>()) return quoted(*string);
    if (const auto* array = value.getIf<Value::Array>()) {
      return container('[', ']', *array, depth,
                       [&](const Value& entry) { return write(entry, depth + 1); });
    }
    if (const auto* dictionary = value.getIf<Value::Dictionary>()) {
      return container('{', '}', *dictionary, depth, [&](const auto& member) {
        return quoted(member.first) && literal(" : ") && write(member.second, depth + 1);
      });
    }
    return refuse("a value of a kind that JSON does not have");
  }

 private:
  bool literal(std::string_view characters) {
    text += characters;
    return true;
  }
  bool refuse(std::string why) {
    complaint = std::move(why);
    return false;
  }
  template <typename Number>
  bool number(Number value) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    return literal({digits.data(), end.ptr});
  }
  bool quoted(const std::string& string) {
    if (!isValidUtf8(string)) {
      return refuse("a text that is not UTF-8: \"" + validUtf8(string) + "\"");
    }
    text += '"';
    for (const char character : string) appendEscaped(character);
    text += '"';
    return true;
  }
  void appendEscaped(char character) {
    constexpr std::string_view kShort = "\"\\/\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kHex = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(character);
    if (const auto at = kShort.find(character); at != std::string_view::npos) {
      text += '\\';
      text += kLetters[at];
    } else if (byte < 0x20) {
      text += "\\u00";
      text += kHex[byte >> 4U];
      text += kHex[byte & 15U];
    } else {
      text += character;
    }
  }
  // An empty container still takes three lines, the middle one empty.
  template <typename Entries, typename WriteEntry>
  bool container(char open, char close, const Entries& entries, std::size_t depth,
                 const WriteEntry& writeEntry) {
    text += open;
    text += '\n';
    bool isFirst = true;
    for (const auto& entry : entries) {
      if (!isFirst) text += ",\n";
      isFirst = false;
      text.append(2 * (depth + 1), ' ');
      if (!writeEntry(entry)) return false;
    }
    text += '\n';
    text.append(2 * depth, ' ');
    text += close;
    return true;
  }
};

}  // namespace

std::optional<std::string> prettyPrintedJSON(const Value& value, std::string* reason) {
  PrettyWriter writer;
  if (writer.write(value, 0)) return std::move(writer.text);
  if (reason != nullptr) *reason = std::move(writer.complaint);
  return std::nullopt;
}

}  // namespace tervano
