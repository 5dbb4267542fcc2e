#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/volumes.h"

namespace tervano {

// One line of the kernel's mount table (proc(5), "/proc/self/mountinfo").
struct MountTableEntry {
  std::uint64_t identifier = 0;
  // "major:minor" of the file system.
  std::string device;
  // The folder of that file system which is mounted; "/" except for bind mounts.
  std::string root;
  std::string mountPoint;
  std::string fileSystem;
  // What is mounted: a device's path, or what the file system makes of it.
  std::string source{};
  // The options of the file system, with commas between them.
  std::string options{};

  // The same mount: a remount changes only its options.
  friend bool operator==(const MountTableEntry& one, const MountTableEntry& other) {
    return std::tie(one.identifier, one.device, one.root, one.mountPoint, one.fileSystem) ==
           std::tie(other.identifier, other.device, other.root, other.mountPoint, other.fileSystem);
  }
};

// The entries in the table's order, octal escapes undone; lines that are no entry are left out.
std::vector<MountTableEntry> mountTableEntries(std::string_view table);

// Whether the system rather than the user has a use for the mount, judged by its file system and
// its place alone. "/" is the user's.
bool isSystemMount(const MountTableEntry& entry);

// Volumes from the mount table. A place that is mounted over counts once, by the last mount.
class MountTableVolumes : public Volumes {
 public:
  explicit MountTableVolumes(std::string tablePath = "/proc/self/mountinfo");
  std::vector<Url> mountedVolumeURLs(bool skipHidden) const override;

 private:
  std::string tablePath_;
};

// The whole table file as text, empty when it cannot be read.
std::string mountTableText(const std::string& tablePath);

}  // namespace tervano
