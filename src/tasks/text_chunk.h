#pragma once

#include <cstdint>
#include <span>

namespace tervano {

// Whether the bytes are valid UTF-8 (RFC 3629: no overlong form, no surrogate, nothing beyond
// U+10FFFF) with at least one character that is neither white space nor a line end. White space is
// Unicode's general category Z, the tab, U+000A to U+000D and U+0085. Any thread.
bool holdsText(std::span<const std::uint8_t> bytes);

}  // namespace tervano
