#include "platform/linux/secret.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace tervano {

namespace {

// The longest password, one byte that shows that it is longer, and the end.
constexpr std::size_t kSecretMapping = Secret::kLongest + 2;

}  // namespace

Secret::Secret() {
  const auto map = [](int more) {
    return mmap(nullptr, kSecretMapping, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | more,
                -1, 0);
  };
  void* memory = map(MAP_LOCKED);
  // Locking is limited for ordinary users; without it the secret is still overwritten.
  if (memory == MAP_FAILED) memory = map(0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  memory_ = static_cast<char*>(memory);
  madvise(memory_, kSecretMapping, MADV_DONTDUMP);
}

Secret::Secret(Secret&& other) noexcept
    : memory_(std::exchange(other.memory_, nullptr)), size_(std::exchange(other.size_, 0)) {}

Secret& Secret::operator=(Secret&& other) noexcept {
  std::swap(memory_, other.memory_);
  std::swap(size_, other.size_);
  return *this;
}

Secret::~Secret() {
  if (memory_ == nullptr) return;
  clear();
  munmap(memory_, kSecretMapping);
}

void Secret::clear() {
  explicit_bzero(memory_, kSecretMapping);
  size_ = 0;
}

bool Secret::readFrom(int descriptor, bool line) {
  clear();
  int reason = 0;
  while (reason == 0) {
    if (size_ > kLongest) {
      reason = EMSGSIZE;
      break;
    }
    // Byte by byte, so that nothing behind a line is taken.
    const ssize_t count = read(descriptor, memory_ + size_, line ? 1 : kLongest + 1 - size_);
    if (count < 0) reason = errno;
    if (count <= 0) break;
    if (line && memory_[size_] == '\n') {
      memory_[size_] = '\0';
      break;
    }
    size_ += static_cast<std::size_t>(count);
  }
  if (reason == 0 && std::memchr(memory_, '\0', size_) != nullptr) reason = EINVAL;
  if (reason == 0) return true;
  clear();
  errno = reason;
  return false;
}

bool operator==(const Secret& left, const Secret& right) {
  return left.text() == right.text();
}

}  // namespace tervano
