#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "archive/value.h"

namespace tervano::testing {

// A binary property list put together byte by byte, well-formed or not.
struct RawPropertyList {
  std::vector<std::string> objects;
  unsigned offsetWidth = 1;
  unsigned referenceWidth = 1;
  std::uint64_t root = 0;
  std::string magic = "bplist00";
  // Bytes between the objects and the offset table.
  std::string gap;

  // What a field of the trailer says instead of the truth.
  std::optional<std::uint64_t> objectCount;
  std::optional<std::uint64_t> tableStart;
  std::optional<unsigned> saidOffsetWidth;
  std::optional<unsigned> saidReferenceWidth;
  // The offset of object i says instead of the truth.
  std::map<std::size_t, std::uint64_t> offsets;

  Data bytes() const {
    std::string out = magic;
    std::vector<std::uint64_t> starts;
    for (const std::string& object : objects) {
      starts.push_back(out.size());
      out += object;
    }
    out += gap;
    const std::uint64_t table = out.size();
    if (offsetWidth < 8 && (table >> (8 * offsetWidth)) != 0) {
      throw std::logic_error("the offsets need a greater width");
    }
    for (std::size_t i = 0; i < starts.size(); ++i) {
      const auto said = offsets.find(i);
      out += bigEndian(said == offsets.end() ? starts[i] : said->second, offsetWidth);
    }
    out += std::string(6, '\0');
    out += static_cast<char>(saidOffsetWidth.value_or(offsetWidth));
    out += static_cast<char>(saidReferenceWidth.value_or(referenceWidth));
    out += bigEndian(objectCount.value_or(objects.size()), 8);
    out += bigEndian(root, 8);
    out += bigEndian(tableStart.value_or(table), 8);
    return {out.begin(), out.end()};
  }

  static std::string bigEndian(std::uint64_t value, unsigned width) {
    std::string out;
    for (unsigned i = width; i > 0; --i) {
      out += i > 8 ? '\0' : static_cast<char>(value >> (8 * (i - 1)));
    }
    return out;
  }
};

// Bytes from hexadecimal digits and blanks.
inline std::string hex(std::string_view digits) {
  std::string out;
  int high = -1;
  for (const char c : digits) {
    if (c == ' ') continue;
    const int digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    if (high < 0) {
      high = digit;
    } else {
      out += static_cast<char>(high * 16 + digit);
      high = -1;
    }
  }
  return out;
}

inline Data dataOf(std::string_view text) {
  return {text.begin(), text.end()};
}

// A keyed archive from the values of its "$objects"; the root is entry 1.
inline Value keyedArchive(Value::Array objects, Value top = Value::Dictionary{{"root", Uid{1}}}) {
  return Value::Dictionary{{"$version", 100000},
                           {"$archiver", "NSKeyedArchiver"},
                           {"$top", std::move(top)},
                           {"$objects", std::move(objects)}};
}

// A class description.
inline Value classNamed(std::vector<std::string> chain) {
  Value::Array classes;
  for (const std::string& name : chain) classes.push_back(name);
  return Value::Dictionary{{"$classname", chain.front()}, {"$classes", std::move(classes)}};
}

}  // namespace tervano::testing
