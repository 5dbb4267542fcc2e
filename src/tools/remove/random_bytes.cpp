#include "tools/remove/random_bytes.h"

#include <sys/random.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <system_error>

namespace tervano {

RandomBytes::RandomBytes() {
  // The generator gives nothing but zeros from a seed of zeros.
  while (std::ranges::count(state_, 0U) != 0) {
    if (getrandom(state_.data(), sizeof state_, 0) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
  }
}

std::span<const std::byte> RandomBytes::next(std::size_t length) {
  const std::size_t words = (length + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t);
  if (buffer_.size() < words) buffer_.resize(words);
  std::generate_n(buffer_.begin(), words, [this] { return word(); });
  return std::as_bytes(std::span(buffer_)).first(length);
}

std::uint64_t RandomBytes::word() {
  const std::uint64_t result = std::rotl(state_[1] * 5, 7) * 9;
  const std::uint64_t shifted = state_[1] << 17;
  state_[2] ^= state_[0];
  state_[3] ^= state_[1];
  state_[1] ^= state_[2];
  state_[0] ^= state_[3];
  state_[2] ^= shifted;
  state_[3] = std::rotl(state_[3], 45);
  return result;
}

}  // namespace tervano
