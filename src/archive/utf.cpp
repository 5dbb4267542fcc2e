#include "archive/utf.h"

#include <cstring>

namespace tervano {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kBroken = 0xFFFFFFFF;

void appendUtf8(std::string& out, char32_t code) {
  if (code < 0x80) {
    out.push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (code >> 6)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else if (code < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (code >> 12)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (code >> 18)));
    out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
}

// Reads one code point and moves `at` behind it; kBroken for a broken part, which is skipped too.
char32_t nextCodePoint(std::string_view text, std::size_t& at) {
  const auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
  const std::uint8_t lead = byte(at++);
  if (lead < 0x80) return lead;
  int more = 0;
  std::uint8_t low = 0x80;
  std::uint8_t high = 0xBF;
  char32_t code = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    more = 1;
    code = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    more = 2;
    code = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    more = 3;
    code = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return kBroken;
  }
  for (; more > 0; --more) {
    if (at >= text.size() || byte(at) < low || byte(at) > high) return kBroken;
    code = (code << 6) | (byte(at++) & 0x3F);
    low = 0x80;
    high = 0xBF;
  }
  return code;
}

}  // namespace

bool isAscii(std::string_view text) {
  std::size_t at = 0;
  for (; at + 8 <= text.size(); at += 8) {
    std::uint64_t eight;
    std::memcpy(&eight, text.data() + at, 8);
    if ((eight & 0x8080808080808080U) != 0) return false;
  }
  for (; at < text.size(); ++at) {
    if ((static_cast<std::uint8_t>(text[at]) & 0x80) != 0) return false;
  }
  return true;
}

bool isValidUtf8(std::string_view text) {
  if (isAscii(text)) return true;
  for (std::size_t at = 0; at < text.size();) {
    if (nextCodePoint(text, at) == kBroken) return false;
  }
  return true;
}

std::string utf8FromUtf16BE(std::span<const std::uint8_t> bytes) {
  const std::size_t units = bytes.size() / 2;
  const auto unit = [&](std::size_t index) {
    return static_cast<char32_t>((bytes[2 * index] << 8) | bytes[2 * index + 1]);
  };
  std::string out;
  out.reserve(units + units / 2);
  for (std::size_t i = 0; i < units; ++i) {
    char32_t code = unit(i);
    if (code >= 0xD800 && code <= 0xDFFF) {
      if (code <= 0xDBFF && i + 1 < units && unit(i + 1) >= 0xDC00 && unit(i + 1) <= 0xDFFF) {
        code = 0x10000 + ((code - 0xD800) << 10) + (unit(++i) - 0xDC00);
      } else {
        code = kReplacement;
      }
    }
    appendUtf8(out, code);
  }
  return out;
}

std::vector<std::uint8_t> utf16BEFromUtf8(std::string_view text) {
  std::vector<std::uint8_t> out;
  out.reserve(text.size() * 2);
  const auto put = [&](char32_t unit) {
    out.push_back(static_cast<std::uint8_t>(unit >> 8));
    out.push_back(static_cast<std::uint8_t>(unit));
  };
  for (std::size_t at = 0; at < text.size();) {
    char32_t code = nextCodePoint(text, at);
    if (code == kBroken) code = kReplacement;
    if (code >= 0x10000) {
      put(0xD800 + ((code - 0x10000) >> 10));
      put(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      put(code);
    }
  }
  return out;
}

std::string validUtf8(std::string_view text) {
  if (isValidUtf8(text)) return std::string(text);
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t code = nextCodePoint(text, at);
    appendUtf8(out, code == kBroken ? kReplacement : code);
  }
  return out;
}

}  // namespace tervano
