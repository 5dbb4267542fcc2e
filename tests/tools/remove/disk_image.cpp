#include "tests/tools/remove/disk_image.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/linux/descriptor.h"
#include "tests/support/program.h"
#include "tests/tools/remove/remove_test.h"

namespace tervano::test {

namespace {

constexpr char kControl[] = "/dev/loop-control";

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

// A loop device for the file that is freed with its last use.
Descriptor attach(const std::string& path, std::string& device) {
  const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
  const Descriptor control(open(kControl, O_RDWR | O_CLOEXEC));
  if (!file || !control) fail(path);
  while (true) {
    const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
    if (number < 0) fail(kControl);
    device = "/dev/loop" + std::to_string(number);
    Descriptor loop(open(device.c_str(), O_RDWR | O_CLOEXEC));
    if (!loop) fail(device);
    loop_config config{};
    config.fd = static_cast<__u32>(file.get());
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (ioctl(loop.get(), LOOP_CONFIGURE, &config) == 0) return loop;
    // Somebody else was quicker.
    if (errno != EBUSY) fail(device);
  }
}

}  // namespace

DiskImage::DiskImage(std::string path, std::size_t megabytes, std::vector<std::string> mkfs)
    : path_(std::move(path)) {
  const Descriptor file(open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file || ftruncate(file.get(), static_cast<off_t>(megabytes << 20)) != 0) fail(path_);
  const std::string program = mkfs.front();
  mkfs.erase(mkfs.begin());
  mkfs.push_back(path_);
  if (startProgram(program, mkfs).waitForExit(60) != 0) {
    throw std::runtime_error(program + " failed");
  }
}

bool DiskImage::isPossible() {
  return geteuid() == 0 && exists(kControl);
}

void DiskImage::mount(const std::string& folder, const std::string& type,
                      const std::string& options) {
  std::string device;
  const Descriptor loop = attach(path_, device);
  if (::mount(device.c_str(), folder.c_str(), type.c_str(), 0, options.c_str()) != 0) {
    fail("mounting " + type);
  }
}

std::string DiskImage::contents() const {
  const Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) fail(path_);
  std::string text;
  // Holes hold nothing.
  for (off_t at = 0; (at = lseek(file.get(), at, SEEK_DATA)) >= 0;) {
    const off_t end = lseek(file.get(), at, SEEK_HOLE);
    text.resize(static_cast<std::size_t>(end));
    while (at < end) {
      const ssize_t count =
          pread(file.get(), text.data() + at, static_cast<std::size_t>(end - at), at);
      if (count <= 0) fail(path_);
      at += count;
    }
  }
  return text;
}

std::size_t DiskImage::countOf(const std::string& text) const {
  return test::countOf(contents(), text);
}

std::size_t DiskImage::placeOf(const std::string& text) const {
  const auto place = contents().find(text);
  if (place == std::string::npos) throw std::runtime_error("the text is not on the disk");
  return place;
}

void DiskImage::write(const std::string& text, std::size_t place) const {
  const Descriptor file(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
  if (pwrite(file.get(), text.data(), text.size(), static_cast<off_t>(place)) !=
      static_cast<ssize_t>(text.size())) {
    fail(path_);
  }
}

}  // namespace tervano::test
