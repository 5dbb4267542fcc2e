#include "tools/images/image_slots.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

constexpr int kMostSlots = 1024;
// A slot counts on so much memory, half of which its process may take.
constexpr std::uint64_t kMemoryOfSlot = std::uint64_t{3} << 29;
// A holder whose end cannot be seen, such as one in another container, is asked for again so often;
// the others are asked for again after the long time, in case an end was missed.
constexpr int kShortWait = 20;
constexpr int kLongWait = 2000;

struct flock byteLock(int slot, short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = slot;
  lock.l_len = 1;
  return lock;
}

// 0, EAGAIN while somebody else has it, or why the file cannot be locked at all.
int takeByte(int file, int slot) {
  struct flock lock = byteLock(slot, F_WRLCK);
  if (fcntl(file, F_SETLK, &lock) == 0) return 0;
  return errno == EACCES || errno == EINTR ? EAGAIN : errno;
}

// The process that holds the slot: 0 for none, -1 for one that is not to be seen from here.
pid_t holderOf(int file, int slot) {
  struct flock lock = byteLock(slot, F_WRLCK);
  if (fcntl(file, F_GETLK, &lock) != 0) return -1;
  if (lock.l_type == F_UNLCK) return 0;
  return lock.l_pid > 0 ? lock.l_pid : -1;
}

// Waits until one of the slots may have become free.
void waitForAnEnd(int file, int count) {
  std::vector<Descriptor> holders;
  std::vector<pollfd> ends;
  int wait = kLongWait;
  for (int slot = 0; slot < count; ++slot) {
    const pid_t holder = holderOf(file, slot);
    if (holder == 0) return;
    Descriptor process;
    if (holder > 0) process.reset(static_cast<int>(syscall(SYS_pidfd_open, holder, 0)));
    // Only while it still holds the slot is this number surely its own.
    if (!process || holderOf(file, slot) != holder) {
      wait = kShortWait;
      continue;
    }
    ends.push_back({process.get(), POLLIN, 0});
    holders.push_back(std::move(process));
  }
  if (poll(ends.data(), ends.size(), wait) < 0 && errno != EINTR) usleep(kShortWait * 1000);
}

Descriptor openFile(int folder, const char* name) {
  return Descriptor(openat(folder, name, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
}

}  // namespace

int imageSlotCount() {
  if (const char* const variable = std::getenv("TERVANO_IMAGE_SLOTS")) {
    const std::string_view text = variable;
    int count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error == std::errc() && end == text.data() + text.size() && count >= 1 &&
        count <= kMostSlots) {
      return count;
    }
  }
  const auto processors = std::max<std::int64_t>(sysconf(_SC_NPROCESSORS_ONLN), 1);
  struct sysinfo machine {};
  if (sysinfo(&machine) != 0) return 1;
  const auto fitting =
      static_cast<std::int64_t>(std::uint64_t{machine.totalram} * machine.mem_unit / kMemoryOfSlot);
  return static_cast<int>(std::clamp<std::int64_t>(std::min(processors, fitting), 1, kMostSlots));
}

std::uint64_t imageSlotMemory() {
  constexpr std::uint64_t kMost = std::uint64_t{1} << 32;
  struct sysinfo machine {};
  if (sysinfo(&machine) != 0) return kMemoryOfSlot / 2;
  const std::uint64_t share = std::uint64_t{machine.totalram} * machine.mem_unit / 2 /
                              static_cast<std::uint64_t>(imageSlotCount());
  return std::clamp(share, kMemoryOfSlot / 2, kMost);
}

bool takeImageSlot(int count, std::string& reason) {
  const auto failure = [&reason](int code) {
    reason = "the number of conversions at a time cannot be kept: " +
             std::generic_category().message(code);
    return false;
  };
  int code = ENOENT;
  Descriptor queue;
  Descriptor slots;
  for (const auto& candidate : RuntimeFolders::usable()) {
    const Descriptor folder = RuntimeFolders::open(candidate, "images", true);
    if (folder) queue = openFile(folder.get(), "queue");
    if (queue) slots = openFile(folder.get(), "slots");
    if (slots) break;
    code = errno;
  }
  while (slots && flock(queue.get(), LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    code = errno;
    slots.reset();
  }
  if (!slots) return failure(code);
  for (;;) {
    for (int slot = 0; slot < count; ++slot) {
      code = takeByte(slots.get(), slot);
      if (code == 0) {
        // Open, and so locked, until the process ends.
        slots.release();
        return true;
      }
      if (code != EAGAIN) return failure(code);
    }
    waitForAnEnd(slots.get(), count);
  }
}

}  // namespace tervano
