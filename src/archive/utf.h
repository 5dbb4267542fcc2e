#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tervano {

// Text encodings of the property-list formats. Broken sequences become U+FFFD, one for each
// maximal broken part, so that no conversion fails.

bool isAscii(std::string_view text);
bool isValidUtf8(std::string_view text);
// `bytes` holds big-endian 16-bit units; an odd last byte is not read.
std::string utf8FromUtf16BE(std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> utf16BEFromUtf8(std::string_view text);
// `text` itself when it is valid, else a copy with replacement characters.
std::string validUtf8(std::string_view text);

}  // namespace tervano
