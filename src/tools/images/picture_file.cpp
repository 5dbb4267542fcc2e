#include "tools/images/picture_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace tervano {

namespace {

const char* kindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "it is a folder";
    case S_IFIFO:
      return "it is a pipe, not a file";
    case S_IFSOCK:
      return "it is a socket, not a file";
    default:
      return "it is a device, not a file";
  }
}

Descriptor failure(int code, std::string& reason) {
  reason = std::generic_category().message(code);
  return {};
}

}  // namespace

Descriptor openPictureFile(const std::string& path, std::string& reason) {
  // A mere handle: opening a pipe or a device for reading may already do something to it.
  const Descriptor handle(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (!handle || fstat(handle.get(), &status) != 0) return failure(errno, reason);
  if (!S_ISREG(status.st_mode)) {
    reason = kindOf(status.st_mode);
    return {};
  }
  if (status.st_size == 0) {
    reason = "the file is empty";
    return {};
  }
  const std::string again = "/proc/self/fd/" + std::to_string(handle.get());
  Descriptor file(open(again.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!file) return failure(errno, reason);
  return file;
}

}  // namespace tervano
