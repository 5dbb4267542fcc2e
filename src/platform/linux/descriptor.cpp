#include "platform/linux/descriptor.h"

#include <cerrno>

namespace tervano {

void Descriptor::reset(int number) {
  const int previous = std::exchange(number_, number);
  if (previous < 0) return;
  const int keep = errno;
  close(previous);
  errno = keep;
}

bool writeFully(int descriptor, const void* bytes, std::size_t length) {
  const char* next = static_cast<const char*>(bytes);
  while (length > 0) {
    const ssize_t written = write(descriptor, next, length);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    next += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace tervano
