#include "tools/remove/overwrite.h"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>

namespace tervano {

namespace {

// How much is written before the disk has to have what was written before that.
constexpr off_t kWindow = off_t{4} << 20;
// The unit of stat's st_blocks.
constexpr off_t kBlockUnit = 512;

struct Range {
  off_t begin;
  off_t end;
};

// The end of the block in which a file of that size ends.
off_t endOfBlock(off_t size, off_t block) {
  const off_t inside = size % block;
  const off_t missing = inside == 0 ? 0 : block - inside;
  return missing <= std::numeric_limits<off_t>::max() - size ? size + missing : size;
}

// The file system's own map of the file; nil when it has none. An empty range is the end.
std::optional<Range> mappedRange(int file, off_t from) {
  alignas(fiemap) std::array<std::byte, sizeof(fiemap) + sizeof(fiemap_extent)> bytes{};
  fiemap request{};
  request.fm_start = static_cast<__u64>(from);
  request.fm_length = FIEMAP_MAX_OFFSET - request.fm_start;
  // What is still without a place on the disk gets one.
  if (from == 0) request.fm_flags = FIEMAP_FLAG_SYNC;
  request.fm_extent_count = 1;
  std::memcpy(bytes.data(), &request, sizeof request);
  if (ioctl(file, FS_IOC_FIEMAP, bytes.data()) != 0) return std::nullopt;
  fiemap_extent extent{};
  std::memcpy(&request, bytes.data(), sizeof request);
  std::memcpy(&extent, bytes.data() + sizeof request, sizeof extent);
  if (request.fm_mapped_extents == 0) return Range{from, from};
  return Range{std::max(from, static_cast<off_t>(extent.fe_logical)),
               static_cast<off_t>(extent.fe_logical + extent.fe_length)};
}

// The next part of the file at or behind `from` that is no hole; nil at the end.
std::optional<Range> allocatedRange(int file, off_t from, off_t end) {
  auto range = mappedRange(file, from);
  if (!range) {
    const off_t begin = lseek(file, from, SEEK_DATA);
    if (begin < 0) return std::nullopt;
    range = Range{begin, lseek(file, begin, SEEK_HOLE)};
    // What ends at the end of the file goes on to the end of its block.
    if (struct stat status{}; fstat(file, &status) == 0 && range->end >= status.st_size) {
      range->end = end;
    }
  }
  range->end = std::min(range->end, end);
  if (range->begin >= range->end) return std::nullopt;
  return range;
}

class Overwriter {
 public:
  Overwriter(int file, RandomBytes& random) : file_(file), random_(random) {}

  int overwrite(Range range) {
    for (off_t at = range.begin; at < range.end;) {
      const auto length = static_cast<std::size_t>(
          std::min<off_t>(range.end - at, static_cast<off_t>(RandomBytes::kMost)));
      if (const int code = write(random_.next(length), at); code != 0) return code;
      at += static_cast<off_t>(length);
      if (at - windowBegin_ >= kWindow) {
        if (const int code = endWindow(at); code != 0) return code;
      }
    }
    return 0;
  }

 private:
  int write(std::span<const std::byte> bytes, off_t at) {
    while (!bytes.empty()) {
      const ssize_t written = pwrite(file_, bytes.data(), bytes.size(), at);
      if (written < 0) {
        if (errno == EINTR) continue;
        return errno;
      }
      bytes = bytes.subspan(static_cast<std::size_t>(written));
      at += written;
    }
    return 0;
  }

  // Hands a window to the disk, and waits for and forgets the one before.
  int endWindow(off_t at) {
    if (sync_file_range(file_, windowBegin_, at - windowBegin_, SYNC_FILE_RANGE_WRITE) != 0) {
      return errno;
    }
    if (const off_t length = windowBegin_ - previousBegin_; length > 0) {
      constexpr unsigned kWait =
          SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
      if (sync_file_range(file_, previousBegin_, length, kWait) != 0) return errno;
      posix_fadvise(file_, previousBegin_, length, POSIX_FADV_DONTNEED);
    }
    previousBegin_ = windowBegin_;
    windowBegin_ = at;
    return 0;
  }

  const int file_;
  RandomBytes& random_;
  off_t previousBegin_ = 0;
  off_t windowBegin_ = 0;
};

}  // namespace

int overwriteContents(int file, RandomBytes& random) {
  struct stat status {};
  if (fstat(file, &status) != 0) return errno;
  const off_t allocated = status.st_blocks * kBlockUnit;
  const off_t block = std::max<off_t>(status.st_blksize, kBlockUnit);
  // Contents without a block of their own lie in the file's record and are overwritten there.
  const off_t end = allocated < block ? status.st_size : endOfBlock(status.st_size, block);
  Overwriter overwriter(file, random);
  if (allocated >= status.st_size && allocated <= end) {
    if (const int code = overwriter.overwrite({0, allocated}); code != 0) return code;
  } else {
    auto range = allocatedRange(file, 0, end);
    while (range) {
      if (const int code = overwriter.overwrite(*range); code != 0) return code;
      range = allocatedRange(file, range->end, end);
    }
  }
  return fdatasync(file) == 0 ? 0 : errno;
}

}  // namespace tervano
