#include "platform/linux/secret.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace tervano {

namespace {

// The longest password, the two bytes of a line's end or one that shows that it is longer, and the
// end.
constexpr std::size_t kSecretMapping = Secret::kLongest + 3;

// Keeps the memory of this process from dumps, and from other processes of the same user, while
// there is a secret.
class DumpGuard {
 public:
  void secretIsMade() {
    const std::lock_guard lock(mutex_);
    if (++secrets_ > 1) return;
    wasDumpable_ = prctl(PR_GET_DUMPABLE) == 1;
    if (wasDumpable_) prctl(PR_SET_DUMPABLE, 0);
  }
  void secretIsGone() {
    const std::lock_guard lock(mutex_);
    if (--secrets_ == 0 && wasDumpable_) prctl(PR_SET_DUMPABLE, 1);
  }

 private:
  std::mutex mutex_;
  std::size_t secrets_ = 0;
  bool wasDumpable_ = false;
};

DumpGuard& dumpGuard() {
  static DumpGuard guard;
  return guard;
}

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
  dumpGuard().secretIsMade();
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
  dumpGuard().secretIsGone();
}

void Secret::clear() {
  explicit_bzero(memory_, kSecretMapping);
  size_ = 0;
}

bool Secret::readFrom(int descriptor, bool line) {
  clear();
  int reason = 0;
  while (reason == 0) {
    // Byte by byte, so that nothing behind a line is taken.
    const ssize_t count = read(descriptor, memory_ + size_, line ? 1 : kLongest + 1 - size_);
    if (count < 0) reason = errno;
    if (count <= 0) break;
    if (line && memory_[size_] == '\n') {
      if (size_ > 0 && memory_[size_ - 1] == '\r') --size_;
      std::memset(memory_ + size_, 0, 2);
      break;
    }
    size_ += static_cast<std::size_t>(count);
    // One more may be the first half of a line's end.
    const bool mayEnd = line && size_ == kLongest + 1 && memory_[kLongest] == '\r';
    if (size_ > kLongest && !mayEnd) reason = EMSGSIZE;
  }
  if (reason == 0 && size_ > kLongest) reason = EMSGSIZE;
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
