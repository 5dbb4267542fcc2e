#include "tools/remove/overwrite.h"

#include <fcntl.h>
#include <linux/falloc.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <map>

#include "tests/tools/remove/remove_test.h"

namespace tervano::test {
namespace {

class OverwriteTest : public RemoveTest {
 protected:
  Descriptor opened(const std::string& content = "") {
    return Descriptor(open(file("file", content).c_str(), O_RDWR | O_CLOEXEC));
  }
  static struct stat statusOf(const Descriptor& file) {
    struct stat status {};
    EXPECT_EQ(fstat(file.get(), &status), 0);
    return status;
  }
  std::string contents() const { return contentsOf(at("file")); }
  // How many extents the file system has not written to yet; nil when it does not tell.
  static std::optional<unsigned> unwrittenExtents(const Descriptor& file) {
    constexpr unsigned kMost = 32;
    alignas(fiemap) std::array<char, sizeof(fiemap) + kMost * sizeof(fiemap_extent)> bytes{};
    auto* const map = reinterpret_cast<fiemap*>(bytes.data());
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_flags = FIEMAP_FLAG_SYNC;
    map->fm_extent_count = kMost;
    if (ioctl(file.get(), FS_IOC_FIEMAP, map) != 0) return std::nullopt;
    const auto* const first = map->fm_extents;
    return static_cast<unsigned>(
        std::count_if(first, first + map->fm_mapped_extents, [](const fiemap_extent& extent) {
          return (extent.fe_flags & FIEMAP_EXTENT_UNWRITTEN) != 0;
        }));
  }

  RandomBytes random_;
};

TEST_F(OverwriteTest, NothingOfTheContentsStays) {
  const std::string before = marker(3000);
  const auto file = opened(before);
  ASSERT_EQ(overwriteContents(file.get(), random_), 0);
  const std::string after = contents();
  ASSERT_GE(after.size(), before.size());
  EXPECT_EQ(countOf(after, "nobody"), 0u);
  // By chance one byte in 256 is what it was.
  std::size_t same = 0;
  for (std::size_t i = 0; i < before.size(); ++i) same += before[i] == after[i] ? 1 : 0;
  EXPECT_LT(same, before.size() / 64);
}

TEST_F(OverwriteTest, TheLastBlockIsWrittenWhole) {
  for (const std::size_t size : {1U, 100U, 4095U, 4096U, 4097U, 10000U}) {
    const auto file = opened(std::string(size, 'x'));
    const auto before = statusOf(file);
    ASSERT_EQ(overwriteContents(file.get(), random_), 0);
    const auto after = statusOf(file);
    EXPECT_EQ(after.st_size % before.st_blksize, 0) << size;
    EXPECT_LT(after.st_size - static_cast<off_t>(size), before.st_blksize);
    EXPECT_EQ(after.st_blocks, before.st_blocks);
  }
}

TEST_F(OverwriteTest, AnEmptyFileStaysEmpty) {
  const auto file = opened();
  EXPECT_EQ(overwriteContents(file.get(), random_), 0);
  EXPECT_EQ(statusOf(file).st_size, 0);
}

TEST_F(OverwriteTest, AFileOfSeveralWindowsIsOverwrittenToItsEnd) {
  const auto file = opened(std::string((std::size_t{9} << 20) + 5, 'x'));
  ASSERT_EQ(overwriteContents(file.get(), random_), 0);
  const std::string after = contents();
  EXPECT_EQ(after.find(std::string(16, 'x')), std::string::npos);
  EXPECT_GE(after.size(), (std::size_t{9} << 20) + 5);
}

TEST_F(OverwriteTest, HolesStayHoles) {
  const auto file = opened();
  constexpr off_t kSize = off_t{1} << 32;
  const std::string secret = marker(10);
  for (const off_t place : {off_t{5000}, kSize / 2, kSize - 400}) {
    ASSERT_GT(pwrite(file.get(), secret.data(), secret.size(), place), 0);
  }
  const auto before = statusOf(file);
  ASSERT_LT(before.st_blocks * 512, 1 << 20);
  ASSERT_EQ(overwriteContents(file.get(), random_), 0);
  EXPECT_LE(statusOf(file).st_blocks, before.st_blocks);
  for (const off_t place : {off_t{5000}, kSize / 2, kSize - 400}) {
    std::string now(secret.size(), '\0');
    ASSERT_GT(pread(file.get(), now.data(), now.size(), place), 0);
    EXPECT_EQ(countOf(now, "nobody"), 0u) << place;
    EXPECT_NE(now, std::string(secret.size(), '\0')) << place;
  }
}

TEST_F(OverwriteTest, AFileThatIsAllHoleGetsNoBlocks) {
  const auto file = opened();
  ASSERT_EQ(ftruncate(file.get(), off_t{1} << 40), 0);
  ASSERT_EQ(overwriteContents(file.get(), random_), 0);
  EXPECT_EQ(statusOf(file).st_blocks, 0);
}

TEST_F(OverwriteTest, BlocksThatWereMadeToReadAsZerosAreOverwritten) {
  const auto file = opened(marker(20000));
  ASSERT_EQ(ftruncate(file.get(), off_t{1} << 30), 0);
  ASSERT_EQ(fsync(file.get()), 0);
  if (fallocate(file.get(), FALLOC_FL_ZERO_RANGE, 0, 400000) != 0) {
    GTEST_SKIP() << "this file system cannot zero a range";
  }
  const auto before = unwrittenExtents(file);
  ASSERT_TRUE(before) << "this file system does not tell its extents";
  ASSERT_GT(*before, 0u);
  ASSERT_EQ(overwriteContents(file.get(), random_), 0);
  EXPECT_EQ(unwrittenExtents(file), 0u);
}

TEST_F(OverwriteTest, AWriteThatFailsIsTold) {
  inChild([&] {
    const auto file = opened(std::string(3 << 20, 'x'));
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1 << 20, 1 << 20};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(overwriteContents(file.get(), random_), EFBIG);
  });
}

TEST_F(OverwriteTest, AFileThatIsOnlyOpenForReadingIsToldOf) {
  const Descriptor reading(open(file("file").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(overwriteContents(reading.get(), random_), EBADF);
}

TEST(RandomBytesTest, NothingComesTwice) {
  RandomBytes one;
  RandomBytes other;
  std::map<std::string, int> seen;
  for (int round = 0; round < 100; ++round) {
    for (RandomBytes* const random : {&one, &other}) {
      const auto bytes = random->next(16);
      ++seen[{reinterpret_cast<const char*>(bytes.data()), bytes.size()}];
    }
  }
  EXPECT_EQ(seen.size(), 200u);
}

TEST(RandomBytesTest, AnyLengthUpToTheMostIsGiven) {
  RandomBytes random;
  for (const std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{8},
                                   std::size_t{4095}, RandomBytes::kMost}) {
    EXPECT_EQ(random.next(length).size(), length);
  }
}

TEST(RandomBytesTest, AllBytesComeEquallyOften) {
  RandomBytes random;
  std::array<int, 256> counts{};
  for (const auto byte : random.next(RandomBytes::kMost)) ++counts[static_cast<unsigned>(byte)];
  // 1024 each, with a standard deviation of 32.
  EXPECT_GT(*std::min_element(counts.begin(), counts.end()), 1024 - 8 * 32);
  EXPECT_LT(*std::max_element(counts.begin(), counts.end()), 1024 + 8 * 32);
}

}  // namespace
}  // namespace tervano::test
