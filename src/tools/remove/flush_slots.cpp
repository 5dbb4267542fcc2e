#include "tools/remove/flush_slots.h"

#include <fcntl.h>

#include <utility>

#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

constexpr auto kPause = std::chrono::milliseconds(50);

Descriptor openSlotFile() {
  for (const auto& candidate : RuntimeFolders::usable()) {
    const Descriptor folder = RuntimeFolders::open(candidate, "locks", true);
    if (!folder) continue;
    Descriptor file(openat(folder.get(), "remove-slots",
                           O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (file) return file;
  }
  return {};
}

}  // namespace

bool FlushSlots::take() {
  if (!std::exchange(isOpened_, true)) file_ = openSlotFile();
  const auto now = std::chrono::steady_clock::now();
  if (now < nextTry_) return false;
  for (int slot = 0; slot < kSlots; ++slot) {
    if (taken_.contains(slot)) continue;
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = slot;
    lock.l_len = 1;
    if (file_ && fcntl(file_.get(), F_OFD_SETLK, &lock) != 0) continue;
    taken_.insert(slot);
    return true;
  }
  nextTry_ = now + kPause;
  return false;
}

}  // namespace tervano
