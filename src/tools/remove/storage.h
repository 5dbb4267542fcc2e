#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tervano {

// What is known of the place where a file's contents lie, and of what overwriting them does there.
struct Storage {
  enum class Reach { yes, no, unknown };
  enum class Medium { rotational, solidState, unknown };

  std::string fileSystem;
  std::string mountPoint;
  // Whether the file system writes new contents to the blocks of the old ones. What the disk below
  // makes of that is not known.
  Reach reach = Reach::unknown;
  Medium medium = Medium::unknown;
};

// Whether a file system of that type, mounted with those options, overwrites in place. Whether
// files may share blocks (copies by reference) matters for XFS only; nil is not known.
Storage::Reach reachOfOverwriting(const std::string& fileSystem, const std::string& options,
                                  std::optional<bool> sharesBlocks);

// The storage of the mount of that number, from a mount table (proc(5), mountinfo) and the block
// devices of sysfs; nil when the table does not list it.
std::optional<Storage> storageOfMount(std::uint64_t mount, std::optional<bool> sharesBlocks,
                                      const std::string& tablePath = "/proc/self/mountinfo",
                                      const std::string& devicesPath = "/sys/dev/block");

// One line of `--explain`, with its line end.
std::string explanation(const Storage& storage);

// Prints one line on standard output for each file system that the paths lie on, in their order,
// and one sentence on standard error for each path that cannot be looked at. Symbolic links are
// taken for what they are. Answers whether there was no such path.
bool explainStorage(const std::vector<std::string>& paths);

}  // namespace tervano
