#include "archive/printable.h"

#include <algorithm>

#include "archive/utf.h"

namespace tervano {

namespace {

// The bytes of the first character; 1 for a byte that begins none.
std::size_t lengthOfCharacter(std::string_view text) {
  constexpr std::size_t kLongest = 4;
  for (std::size_t length = 1; length <= std::min(kLongest, text.size()); ++length) {
    if (isValidUtf8(text.substr(0, length))) return length;
  }
  return 1;
}

// Characters that show as nothing but change the lines or the order of what stands around them:
// U+200E, U+200F, U+2028 to U+202E and U+2066 to U+2069.
bool isInvisibleControl(std::string_view character) {
  return character == "\u200e" || character == "\u200f" ||
         (character >= "\u2028" && character <= "\u202e") ||
         (character >= "\u2066" && character <= "\u2069");
}

}  // namespace

std::string printable(std::string_view text) {
  constexpr char kHexadecimal[] = "0123456789abcdef";
  std::string shown;
  const auto escape = [&](char character) {
    const auto byte = static_cast<unsigned char>(character);
    shown += "\\x";
    shown += kHexadecimal[byte >> 4];
    shown += kHexadecimal[byte & 0xf];
  };
  while (!text.empty()) {
    const std::string_view character = text.substr(0, lengthOfCharacter(text));
    const auto first = static_cast<unsigned char>(character.front());
    // U+0080 to U+009F are control characters as well.
    const bool isControl = first < 0x20 || first == 0x7f ||
                           (first == 0xc2 && static_cast<unsigned char>(character.back()) < 0xa0);
    if (character == "\n") {
      shown += "\\n";
    } else if (isControl || isInvisibleControl(character) || !isValidUtf8(character)) {
      std::for_each(character.begin(), character.end(), escape);
    } else {
      shown += character;
    }
    text.remove_prefix(character.size());
  }
  return shown;
}

}  // namespace tervano
