#pragma once

#include <cstddef>
#include <string_view>

namespace tervano {

// A password in memory of its own: kept out of the swap space and of memory dumps as far as the
// system permits, and overwritten when it is let go. While there is one, the process leaves no
// memory dump at all and other processes of the user cannot look into it (PR_SET_DUMPABLE). At most
// kLongest bytes, none of them NUL. Move-only. One thread at a time.
class Secret {
 public:
  static constexpr std::size_t kLongest = 1023;

  // An empty one. Throws std::bad_alloc when there is no memory.
  Secret();
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&& other) noexcept;
  ~Secret();

  // Reads what a descriptor holds into this secret, up to its end, or up to one line's end when
  // `line`; the line end, "\n" or "\r\n", is left out. False with errno set when it cannot be read
  // (EINTR for a signal, EAGAIN when nothing more is there yet), is longer than kLongest
  // (EMSGSIZE), or has a NUL in it (EINVAL); the secret is empty then.
  bool readFrom(int descriptor, bool line);

  bool empty() const { return size_ == 0; }
  // Valid as long as this secret; followed by a NUL.
  std::string_view text() const { return {memory_, size_}; }
  friend bool operator==(const Secret& left, const Secret& right);

 private:
  void clear();

  // A mapping of its own; null in what was moved from.
  char* memory_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace tervano
