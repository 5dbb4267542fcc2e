#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tervano {

// The module "appimages.so": what an application image's file system holds, read with libsquashfs
// without mounting it and without running anything.
//
// Its entry point appends the names of the desktop entries, files and symbolic links, that lie at
// the top of the squashfs 4.0 file system in `size` bytes of the open file `file` from `offset`
// on. Appends nothing when there is no such file system, when it is damaged, when its compression
// is unknown, or when its top holds more than kMaximumTopEntries items. Any thread.
using SquashfsEntries = void(int file, std::uint64_t offset, std::uint64_t size,
                             std::vector<std::string>& names);

inline constexpr char kSquashfsEntriesName[] = "tervanoSquashfsEntries";
inline constexpr int kMaximumTopEntries = 10'000;

}  // namespace tervano
