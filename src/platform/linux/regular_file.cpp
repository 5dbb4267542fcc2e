#include "platform/linux/regular_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tervano {

Descriptor openRegularFile(const std::string& path, int folder) {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return {};
  }
  Descriptor file(openat(folder, path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode)) {
    file.reset();
    errno = EINVAL;
  }
  return file;
}

std::optional<Data> contentsOfOpenFile(int file, off_t limit) {
  struct stat status {};
  if (fstat(file, &status) != 0) return std::nullopt;
  if (status.st_size > limit) {
    errno = EFBIG;
    return std::nullopt;
  }
  Data bytes(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count =
        pread(file, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return bytes;
}

std::optional<Data> contentsOfRegularFile(const std::string& path, off_t limit, int folder) {
  const Descriptor file = openRegularFile(path, folder);
  if (!file) return std::nullopt;
  return contentsOfOpenFile(file.get(), limit);
}

}  // namespace tervano
