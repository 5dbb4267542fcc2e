#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>

#include "platform/linux/uniform_type_data.h"

namespace tervano {

// The built-in types as compiled-in hash tables and sets: made by the compiler, so that a lookup
// needs no preparation, and a mistake in the table does not compile.

inline constexpr std::size_t kUniformTypeCount = std::size(kUniformTypes);
// Set where there is no type.
inline constexpr std::uint16_t kNoUniformType = 0xffff;

// A set of built-in types.
class UniformTypeSet {
 public:
  constexpr void insert(std::size_t type) { words_[type / 64] |= std::uint64_t{1} << (type % 64); }
  constexpr void insertAll(const UniformTypeSet& other) {
    for (std::size_t i = 0; i < words_.size(); ++i) words_[i] |= other.words_[i];
  }
  constexpr bool contains(std::size_t type) const {
    return (words_[type / 64] >> (type % 64) & 1) != 0;
  }

 private:
  std::array<std::uint64_t, (kUniformTypeCount + 63) / 64> words_{};
};

// Takes the next word off a list that is separated by single blanks.
constexpr std::string_view nextWord(std::string_view& list) {
  const auto blank = list.find(' ');
  const auto word = list.substr(0, blank);
  list.remove_prefix(blank == std::string_view::npos ? list.size() : blank + 1);
  return word;
}

// A hash of a text's length, first eight and last eight bytes, which tell all identifiers and
// extensions well apart. Reads whole words where it can.
constexpr std::uint32_t uniformTypeHash(std::string_view text) {
  constexpr std::size_t kWord = 8;
  const auto load = [](const char* bytes, std::size_t count) {
    std::uint64_t word = 0;
    if (std::is_constant_evaluated()) {
      for (std::size_t i = 0; i < count; ++i) {
        word |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
      }
    } else {
      std::memcpy(&word, bytes, count);
    }
    return word;
  };
  static_assert(std::endian::native == std::endian::little);
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  std::uint64_t middle = 0;
  if (text.size() >= kWord) {
    first = load(text.data(), kWord);
    last = load(text.data() + text.size() - kWord, kWord);
    middle = load(text.data() + (text.size() - kWord) / 2, kWord);
  } else {
    for (const char character : text) {
      first = first << 8 | static_cast<unsigned char>(character);
    }
  }
  constexpr std::uint64_t kMultiplier = 0x9e3779b97f4a7c15;
  std::uint64_t hash = (first ^ text.size()) * kMultiplier;
  hash = (std::rotl(hash, 29) ^ last) * kMultiplier;
  hash = (std::rotl(hash, 31) ^ middle) * kMultiplier;
  return static_cast<std::uint32_t>(hash >> 32);
}

// Texts by open addressing.
template <std::size_t kSlots>
class UniformTypeIndex {
 public:
  // False when the text is there already.
  constexpr bool insert(std::string_view text, std::uint16_t type) {
    std::size_t slot = uniformTypeHash(text) % kSlots;
    while (entries_[slot].type != kNoUniformType) {
      if (entries_[slot].text == text) return false;
      slot = (slot + 1) % kSlots;
    }
    entries_[slot] = {text, type};
    return true;
  }
  constexpr std::uint16_t find(std::string_view text) const {
    std::size_t slot = uniformTypeHash(text) % kSlots;
    while (entries_[slot].type != kNoUniformType) {
      if (entries_[slot].text == text) return entries_[slot].type;
      slot = (slot + 1) % kSlots;
    }
    return kNoUniformType;
  }

 private:
  static_assert(std::has_single_bit(kSlots));
  struct Entry {
    std::string_view text;
    std::uint16_t type = kNoUniformType;
  };
  std::array<Entry, kSlots> entries_{};
};

inline constexpr auto kUniformTypesByIdentifier = [] {
  UniformTypeIndex<2048> index;
  for (std::size_t i = 0; i < kUniformTypeCount; ++i) {
    if (!index.insert(kUniformTypes[i].identifier, static_cast<std::uint16_t>(i))) {
      throw "a type is declared twice";
    }
  }
  return index;
}();

inline constexpr auto kUniformTypesByExtension = [] {
  UniformTypeIndex<4096> index;
  for (std::size_t i = 0; i < kUniformTypeCount; ++i) {
    auto list = kUniformTypes[i].extensions;
    while (!list.empty()) {
      if (!index.insert(nextWord(list), static_cast<std::uint16_t>(i))) {
        throw "an extension belongs to two types";
      }
    }
  }
  return index;
}();

inline constexpr auto kUniformTypesByMimeType = [] {
  UniformTypeIndex<2048> index;
  for (std::size_t i = 0; i < kUniformTypeCount; ++i) {
    auto list = kUniformTypes[i].mimeTypes;
    while (!list.empty()) {
      if (!index.insert(nextWord(list), static_cast<std::uint16_t>(i))) {
        throw "a MIME type belongs to two types";
      }
    }
  }
  return index;
}();

// The longest extension of the table.
inline constexpr std::size_t kLongestUniformTypeExtension = [] {
  std::size_t longest = 0;
  for (const auto& row : kUniformTypes) {
    auto list = row.extensions;
    while (!list.empty()) longest = std::max(longest, nextWord(list).size());
  }
  return longest;
}();

// For each type all that it conforms to, itself included.
inline constexpr auto kUniformTypeConformance = [] {
  std::array<UniformTypeSet, kUniformTypeCount> sets{};
  for (std::size_t i = 0; i < kUniformTypeCount; ++i) {
    sets[i].insert(i);
    auto list = kUniformTypes[i].parents;
    while (!list.empty()) {
      const auto parent = kUniformTypesByIdentifier.find(nextWord(list));
      if (parent >= i) throw "a parent does not stand above its type";
      sets[i].insertAll(sets[parent]);
    }
  }
  return sets;
}();

}  // namespace tervano
