#pragma once

#include <unistd.h>

#include <utility>

namespace tervano {

// Owns one file descriptor; -1 is none. Move-only.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(std::exchange(other.number_, -1));
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }
  // Gives the descriptor up without closing it.
  int release() { return std::exchange(number_, -1); }
  // Closes the descriptor and leaves errno as it was.
  void reset(int number = -1);

 private:
  int number_ = -1;
};

// write(2) until everything is written; false with errno set on failure.
bool writeFully(int descriptor, const void* bytes, std::size_t length);

}  // namespace tervano
