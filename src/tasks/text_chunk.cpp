#include "tasks/text_chunk.h"

#include <cstddef>

namespace tervano {

namespace {

bool isWhiteSpaceOrNewline(std::uint32_t character) {
  return (character >= 0x09 && character <= 0x0D) || character == 0x20 || character == 0x85 ||
         character == 0xA0 || character == 0x1680 || (character >= 0x2000 && character <= 0x200A) ||
         character == 0x2028 || character == 0x2029 || character == 0x202F || character == 0x205F ||
         character == 0x3000;
}

}  // namespace

bool holdsText(std::span<const std::uint8_t> bytes) {
  bool found = false;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::uint8_t lead = bytes[at++];
    int following = 0;
    std::uint32_t character = lead;
    std::uint32_t smallest = 0;
    if (lead >= 0xF0 && lead <= 0xF4) {
      following = 3, character = lead & 0x07U, smallest = 0x10000;
    } else if (lead >= 0xE0 && lead < 0xF0) {
      following = 2, character = lead & 0x0FU, smallest = 0x800;
    } else if (lead >= 0xC2 && lead < 0xE0) {
      following = 1, character = lead & 0x1FU, smallest = 0x80;
    } else if (lead >= 0x80) {
      return false;
    }
    for (; following > 0; --following) {
      if (at == bytes.size() || (bytes[at] & 0xC0U) != 0x80U) return false;
      character = character << 6U | (bytes[at++] & 0x3FU);
    }
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < smallest || surrogate || character > 0x10FFFF) return false;
    found = found || !isWhiteSpaceOrNewline(character);
  }
  return found;
}

}  // namespace tervano
