#include "tests/support/memory_search.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <string_view>
#include <vector>

#include "platform/linux/descriptor.h"

namespace tervano::test {

int occurrencesInMemory(pid_t process, const std::string& text) {
  constexpr std::size_t kChunk = std::size_t{1} << 20;
  // What is larger are the tables of a sanitizer.
  constexpr std::uint64_t kLargestMapping = std::uint64_t{64} << 30;
  const std::string folder = "/proc/" + std::to_string(process);
  const Descriptor memory(open((folder + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(memory) << "the memory cannot be read";
  std::ifstream maps(folder + "/maps");
  int found = 0;
  for (std::string line; std::getline(maps, line);) {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    char readable = '-';
    if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %c", &begin, &end, &readable) != 3)
      continue;
    if (readable != 'r' || end - begin > kLargestMapping) continue;
    // Chunks overlap, so that no occurrence is cut.
    std::vector<char> chunk(kChunk + text.size() - 1);
    for (std::uint64_t at = begin; at < end; at += kChunk) {
      const auto wanted = std::min<std::uint64_t>(chunk.size(), end - at);
      const ssize_t count = pread(memory.get(), chunk.data(), wanted, static_cast<off_t>(at));
      // Pages that were never used, and those of the kernel, cannot be read.
      if (count <= 0) break;
      const std::string_view bytes(chunk.data(), static_cast<std::size_t>(count));
      for (auto hit = bytes.find(text); hit != std::string_view::npos && hit < kChunk;
           hit = bytes.find(text, hit + 1)) {
        ++found;
      }
    }
  }
  return found;
}

}  // namespace tervano::test
