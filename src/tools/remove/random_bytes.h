#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tervano {

// Fresh data to overwrite files with: xoshiro256** (Blackman and Vigna, "Scrambled linear
// pseudorandom number generators", 2021), seeded by getrandom(2). It is no cipher and need not be
// one: the data stands readable on the disk and only has to differ from what was there and not to
// compress. Ten times as fast as getrandom(2) itself, so the disk never waits for it. One thread.
class RandomBytes {
 public:
  static constexpr std::size_t kMost = std::size_t{256} << 10;

  // Throws std::system_error when the system has no seed.
  RandomBytes();
  // `length` bytes, at most kMost, that were never given before. They stay until the next call.
  std::span<const std::byte> next(std::size_t length);

 private:
  std::uint64_t word();

  std::array<std::uint64_t, 4> state_{};
  std::vector<std::uint64_t> buffer_;
};

}  // namespace tervano
