#include "tools/remove/storage.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <set>
#include <string_view>

#include "archive/printable.h"
#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/mount_table_volumes.h"

namespace tervano {

namespace {

constexpr std::array<std::string_view, 14> kOverwritesInPlace = {
    "ext2",  "ext3", "ext4",    "vfat", "msdos", "exfat", "ntfs",
    "ntfs3", "hfs",  "hfsplus", "jfs",  "minix", "ufs",   "affs"};

// They write elsewhere, do not know where, or keep contents in memory that can be swapped out.
constexpr std::array<std::string_view, 20> kOverwritesElsewhere = {
    "btrfs", "zfs",  "bcachefs", "f2fs", "nilfs2", "ubifs", "jffs2", "overlay", "aufs", "nfs",
    "nfs4",  "cifs", "smb3",     "9p",   "ceph",   "afs",   "tmpfs", "ramfs",   "fuse", "fuseblk"};

template <std::size_t Size>
bool contains(const std::array<std::string_view, Size>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool hasOption(std::string_view options, std::string_view option) {
  while (!options.empty()) {
    const auto comma = options.find(',');
    if (options.substr(0, comma) == option) return true;
    options.remove_prefix(comma == std::string_view::npos ? options.size() : comma + 1);
  }
  return false;
}

// "MAJOR:MINOR" of the device that the file system lies on. Some file systems have a number of
// their own and only name the device.
std::string deviceOf(const MountTableEntry& entry) {
  struct stat status {};
  if (entry.device.starts_with("0:") && entry.source.starts_with("/") &&
      stat(entry.source.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
    return std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
  }
  return entry.device;
}

Storage::Medium mediumOf(const std::string& device, const std::string& devicesPath) {
  // A partition's queue is that of its disk.
  for (const char* const queue : {"/queue/rotational", "/../queue/rotational"}) {
    std::ifstream file(std::string(devicesPath).append("/").append(device).append(queue));
    char digit = 0;
    if (!file.get(digit)) continue;
    if (digit == '1') return Storage::Medium::rotational;
    if (digit == '0') return Storage::Medium::solidState;
  }
  return Storage::Medium::unknown;
}

// XFS tells by its geometry (xfs_fs.h, XFS_IOC_FSGEOMETRY_V1) whether files can share blocks; nil
// for other file systems.
std::optional<bool> sharesBlocks(const std::string& path) {
  struct Geometry {
    std::array<std::uint32_t, 7> sizes;
    std::array<std::uint64_t, 4> blocks;
    std::array<unsigned char, 16> uuid;
    std::uint32_t sunit;
    std::uint32_t swidth;
    std::int32_t version;
    std::uint32_t flags;
    std::array<std::uint32_t, 3> more;
  };
  static_assert(sizeof(Geometry) == 112);
  constexpr std::uint32_t kReflink = 1U << 20;
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
  Geometry geometry{};
  if (!folder || ioctl(folder.get(), _IOR('X', 100, Geometry), &geometry) != 0) {
    return std::nullopt;
  }
  return (geometry.flags & kReflink) != 0;
}

}  // namespace

Storage::Reach reachOfOverwriting(const std::string& fileSystem, const std::string& options,
                                  std::optional<bool> sharesBlocks) {
  if (fileSystem.starts_with("fuse.") || contains(kOverwritesElsewhere, fileSystem)) {
    return Storage::Reach::no;
  }
  if (hasOption(options, "data=journal")) return Storage::Reach::no;
  if (contains(kOverwritesInPlace, fileSystem)) return Storage::Reach::yes;
  if (fileSystem == "xfs" && sharesBlocks == false) return Storage::Reach::yes;
  return Storage::Reach::unknown;
}

std::optional<Storage> storageOfMount(std::uint64_t mount, std::optional<bool> sharesBlocks,
                                      const std::string& tablePath,
                                      const std::string& devicesPath) {
  for (const auto& entry : mountTableEntries(mountTableText(tablePath))) {
    if (entry.identifier != mount) continue;
    return Storage{entry.fileSystem, entry.mountPoint,
                   reachOfOverwriting(entry.fileSystem, entry.options, sharesBlocks),
                   mediumOf(deviceOf(entry), devicesPath)};
  }
  return std::nullopt;
}

std::string explanation(const Storage& storage) {
  std::string line = storage.fileSystem;
  switch (storage.reach) {
    case Storage::Reach::yes:
      line += "\tyes";
      break;
    case Storage::Reach::no:
      line += "\tno";
      break;
    case Storage::Reach::unknown:
      line += "\tunknown";
      break;
  }
  switch (storage.medium) {
    case Storage::Medium::rotational:
      line += "\trotational";
      break;
    case Storage::Medium::solidState:
      line += "\tsolid-state";
      break;
    case Storage::Medium::unknown:
      line += "\tunknown";
      break;
  }
  return line + "\t" + printable(storage.mountPoint) + "\n";
}

bool explainStorage(const std::vector<std::string>& paths) {
  std::set<std::pair<std::uint32_t, std::uint32_t>> told;
  bool isComplete = true;
  for (const auto& path : paths) {
    struct statx status {};
    std::optional<Storage> storage;
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &status) == 0) {
      if (!told.insert({status.stx_dev_major, status.stx_dev_minor}).second) continue;
      storage = storageOfMount(status.stx_mnt_id, std::nullopt);
      if (storage && storage->fileSystem == "xfs") {
        storage = storageOfMount(status.stx_mnt_id, sharesBlocks(storage->mountPoint));
      }
      if (!storage) errno = ENODEV;
    }
    if (storage) {
      std::cout << explanation(*storage);
    } else {
      std::cerr << "tervano-remove: "
                << posixError(errno, "Could not look at \"" + printable(path) + "\"").message
                << ".\n";
      isComplete = false;
    }
  }
  std::cout << std::flush;
  return isComplete;
}

}  // namespace tervano
