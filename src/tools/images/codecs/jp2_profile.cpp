#include "tools/images/codecs/jp2_profile.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>

namespace tervano {

namespace {

constexpr std::uint64_t kBoxHead = 8;
// Before the profile: method, precedence and approximation.
constexpr std::uint64_t kColourHead = 3;
constexpr std::uint8_t kWithProfile = 2;
constexpr std::uint64_t kLargestProfile = std::uint64_t{16} << 20;
constexpr std::size_t kMostBoxes = 1000;

// A box: where its content begins and ends.
struct Box {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::uint64_t head() const { return begin - kBoxHead; }
};

using BytesAt = std::function<bool(std::uint64_t offset, void* bytes, std::size_t count)>;

// The first box of that name between two offsets, as long as their lengths have 32 bits: those that
// are looked for come before any longer one.
std::optional<Box> findBox(const BytesAt& bytesAt, std::string_view name, std::uint64_t from,
                           std::uint64_t to) {
  std::array<std::uint8_t, kBoxHead> head{};
  for (std::size_t count = 0; count < kMostBoxes && from + kBoxHead <= to; ++count) {
    if (!bytesAt(from, head.data(), head.size())) return std::nullopt;
    const std::uint64_t length = std::uint64_t{head[0]} << 24 | std::uint64_t{head[1]} << 16 |
                                 std::uint64_t{head[2]} << 8 | head[3];
    if (length < kBoxHead || length > to - from) return std::nullopt;
    if (std::memcmp(head.data() + 4, name.data(), 4) == 0)
      return Box{from + kBoxHead, from + length};
    from += length;
  }
  return std::nullopt;
}

void appendNumber(Data& data, std::uint64_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    data.push_back(static_cast<std::uint8_t>(value >> shift));
}

bool rewrite(OutputStream& file, std::uint64_t offset, const Data& data) {
  return file.seek(static_cast<std::int64_t>(offset), SEEK_SET) >= 0 &&
         file.write(data.data(), data.size());
}

}  // namespace

Data profileOfJp2(InputStream& file) {
  const BytesAt bytesAt = [&file](std::uint64_t offset, void* bytes, std::size_t count) {
    return file.readAt(offset, bytes, count);
  };
  const auto header = findBox(bytesAt, "jp2h", 0, file.size());
  if (!header) return {};
  const auto colour = findBox(bytesAt, "colr", header->begin, header->end);
  std::uint8_t method = 0;
  if (!colour || colour->end - colour->begin <= kColourHead ||
      !file.readAt(colour->begin, &method, 1) || method != kWithProfile) {
    return {};
  }
  return file.dataAt(colour->begin + kColourHead, colour->end - colour->begin - kColourHead,
                     kLargestProfile);
}

bool insertProfileIntoJp2(OutputStream& file, const Data& profile) {
  const BytesAt bytesAt = [&file](std::uint64_t offset, void* bytes, std::size_t count) {
    return file.seek(static_cast<std::int64_t>(offset), SEEK_SET) >= 0 &&
           file.read(bytes, count) == static_cast<std::int64_t>(count);
  };
  const std::int64_t size = file.seek(0, SEEK_END);
  if (size < 0) return false;
  const auto end = static_cast<std::uint64_t>(size);
  const auto header = findBox(bytesAt, "jp2h", 0, end);
  const auto colour = header ? findBox(bytesAt, "colr", header->begin, header->end) : std::nullopt;
  const std::uint64_t length = kBoxHead + kColourHead + profile.size();
  if (!colour || length < colour->end - colour->head()) return false;
  const std::uint64_t growth = length - (colour->end - colour->head());

  // What follows moves up, its end first.
  constexpr std::uint64_t kBlock = std::uint64_t{1} << 20;
  Data block;
  for (std::uint64_t at = end; at > colour->end;) {
    block.resize(std::min(kBlock, at - colour->end));
    at -= block.size();
    if (!bytesAt(at, block.data(), block.size()) || !rewrite(file, at + growth, block))
      return false;
  }
  Data box;
  appendNumber(box, length);
  box.insert(box.end(), {'c', 'o', 'l', 'r', kWithProfile, 0, 0});
  box.insert(box.end(), profile.begin(), profile.end());
  Data headerLength;
  appendNumber(headerLength, header->end - header->head() + growth);
  return rewrite(file, colour->head(), box) && rewrite(file, header->head(), headerLength) &&
         file.flush();
}

}  // namespace tervano
