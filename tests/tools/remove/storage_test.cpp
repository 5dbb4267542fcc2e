#include "tools/remove/storage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/tools/remove/disk_image.h"
#include "tests/tools/remove/remove_test.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;
using Reach = Storage::Reach;
using Medium = Storage::Medium;

TEST(ReachOfOverwritingTest, FileSystemsThatOverwriteInPlace) {
  for (const char* const type : {"ext2", "ext3", "ext4", "vfat", "exfat", "ntfs3", "hfsplus"}) {
    EXPECT_EQ(reachOfOverwriting(type, "rw,errors=remount-ro", std::nullopt), Reach::yes) << type;
  }
}

TEST(ReachOfOverwritingTest, FileSystemsThatWriteElsewhere) {
  for (const char* const type : {"btrfs", "zfs", "bcachefs", "f2fs", "overlay", "nfs", "nfs4",
                                 "cifs", "tmpfs", "fuse", "fuseblk", "fuse.sshfs"}) {
    EXPECT_EQ(reachOfOverwriting(type, "rw", std::nullopt), Reach::no) << type;
  }
}

TEST(ReachOfOverwritingTest, OfOthersNothingIsKnown) {
  EXPECT_EQ(reachOfOverwriting("somefs", "rw", std::nullopt), Reach::unknown);
  EXPECT_EQ(reachOfOverwriting("", "", std::nullopt), Reach::unknown);
}

TEST(ReachOfOverwritingTest, XfsIsJudgedByWhetherFilesShareBlocks) {
  EXPECT_EQ(reachOfOverwriting("xfs", "rw", false), Reach::yes);
  EXPECT_EQ(reachOfOverwriting("xfs", "rw", true), Reach::unknown);
  EXPECT_EQ(reachOfOverwriting("xfs", "rw", std::nullopt), Reach::unknown);
}

TEST(ReachOfOverwritingTest, AJournalOfContentsKeepsThem) {
  EXPECT_EQ(reachOfOverwriting("ext4", "rw,data=journal", std::nullopt), Reach::no);
  EXPECT_EQ(reachOfOverwriting("ext3", "data=journal,rw", std::nullopt), Reach::no);
  EXPECT_EQ(reachOfOverwriting("ext4", "rw,data=ordered", std::nullopt), Reach::yes);
  EXPECT_EQ(reachOfOverwriting("ext4", "rw,journal_path=/data=journal", std::nullopt), Reach::yes);
}

// Tables as the kernel writes them.
class StorageTest : public RemoveTest {
 protected:
  // A disk of that number with a partition.
  void addDisk(const std::string& disk, const std::string& partition,
               const std::string& rotational) const {
    file("devices/disk" + disk + "/queue/rotational", rotational);
    folder("devices/disk" + disk + "/part");
    folder("block");
    fs::create_directory_symlink(at("devices/disk" + disk), at("block/" + disk));
    fs::create_directory_symlink(at("devices/disk" + disk + "/part"), at("block/" + partition));
  }
  Storage storage(const std::string& line, std::optional<bool> sharesBlocks = std::nullopt) const {
    file("table", "21 1 0:5 / /proc rw - proc proc rw\n" + line + "\n");
    const auto found = storageOfMount(36, sharesBlocks, at("table"), at("block"));
    EXPECT_TRUE(found);
    return found.value_or(Storage{});
  }
};

TEST_F(StorageTest, APartitionHasTheMediumOfItsDisk) {
  addDisk("8:0", "8:1", "1\n");
  addDisk("259:0", "259:2", "0\n");
  EXPECT_EQ(storage("36 1 8:1 / /mnt rw - ext4 /dev/sda1 rw").medium, Medium::rotational);
  EXPECT_EQ(storage("36 1 259:2 / /mnt rw - ext4 /dev/nvme0n1p2 rw").medium, Medium::solidState);
}

TEST_F(StorageTest, AWholeDiskHasItsOwnMedium) {
  addDisk("253:0", "253:1", "0\n");
  EXPECT_EQ(storage("36 1 253:0 / /mnt rw - ext4 /dev/dm-0 rw").medium, Medium::solidState);
}

TEST_F(StorageTest, WithoutADeviceTheMediumIsUnknown) {
  EXPECT_EQ(storage("36 1 0:44 / /mnt rw - nfs4 server:/export rw").medium, Medium::unknown);
  EXPECT_EQ(storage("36 1 0:44 / /mnt rw - btrfs /nowhere rw").medium, Medium::unknown);
  EXPECT_EQ(storage("36 1 8:1 / /mnt rw - ext4 /dev/sda1 rw").medium, Medium::unknown);
}

TEST_F(StorageTest, ATableOfNonsenseTellsNothing) {
  addDisk("8:0", "8:1", "x");
  EXPECT_EQ(storage("36 1 8:0 / /mnt rw - ext4 /dev/sda rw").medium, Medium::unknown);
  file("table", "nonsense\n36\n");
  EXPECT_FALSE(storageOfMount(36, std::nullopt, at("table"), at("block")));
  EXPECT_FALSE(storageOfMount(36, std::nullopt, at("missing"), at("block")));
}

TEST_F(StorageTest, OptionsAreThoseOfTheFileSystem) {
  EXPECT_EQ(storage("36 1 8:1 / /mnt rw,data=journal - ext4 /dev/sda1 rw").reach, Reach::yes);
  EXPECT_EQ(storage("36 1 8:1 / /mnt rw - ext4 /dev/sda1 rw,data=journal").reach, Reach::no);
  EXPECT_EQ(storage("36 1 8:1 / /mnt rw shared:1 - xfs /dev/sda1 rw", false).reach, Reach::yes);
}

TEST_F(StorageTest, ALineHasFourColumns) {
  EXPECT_EQ(explanation({"ext4", "/home", Reach::yes, Medium::solidState}),
            "ext4\tyes\tsolid-state\t/home\n");
  EXPECT_EQ(explanation({"btrfs", "/a\tb\n", Reach::no, Medium::rotational}),
            "btrfs\tno\trotational\t/a\\x09b\\n\n");
  EXPECT_EQ(explanation({"xfs", "/", Reach::unknown, Medium::unknown}),
            "xfs\tunknown\tunknown\t/\n");
}

TEST_F(StorageTest, EachFileSystemIsToldOnce) {
  if (!fs::exists("/dev/shm")) GTEST_SKIP() << "needs a second file system";
  const auto outcome = runRemove({"--explain", "/dev/shm", file("one"), file("two"), "/dev/shm"});
  expectSuccess(outcome);
  EXPECT_THAT(outcome.output, StartsWith("tmpfs\tno\tunknown\t/dev/shm\n"));
  EXPECT_EQ(countOf(outcome.output, "\n"), 2u);
  EXPECT_TRUE(exists(at("one")));
}

TEST_F(StorageTest, APathThatCannotBeLookedAtIsTold) {
  const auto outcome = runRemove({"--explain", at("nothing"), file("one")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "tervano-remove: Could not look at \"" + at("nothing") +
                                "\": No such file or directory.\n");
  EXPECT_EQ(countOf(outcome.output, "\n"), 1u);
}

TEST_F(StorageTest, ALinkIsNotFollowed) {
  fs::create_symlink("/proc/version", at("link"));
  const auto outcome = runRemove({"--explain", at("link")});
  expectSuccess(outcome);
  EXPECT_EQ(outcome.output, runRemove({"--explain", home_.path()}).output);
}

class RealStorageTest : public MemoryRemoveTest {
 protected:
  void SetUp() override {
    if (!DiskImage::isPossible()) GTEST_SKIP() << "needs root and loop devices";
  }
  // What is told of a file on such a disk, without the last column.
  void expectExplanation(const std::string& expected, std::size_t megabytes,
                         const std::vector<std::string>& mkfs, const std::string& type,
                         const std::string& options = "") {
    DiskImage disk(at("image"), megabytes, mkfs);
    inChild([&] {
      ASSERT_TRUE(isolateMounts());
      disk.mount(folder("disk"), type, options);
      file("disk/file");
      const auto outcome = runRemove({"--explain", at("disk/file")});
      expectSuccess(outcome);
      EXPECT_THAT(outcome.output, StartsWith(type + "\t" + expected + "\t"));
      EXPECT_THAT(outcome.output, HasSubstr("\t" + at("disk") + "\n"));
    });
  }
};

TEST_F(RealStorageTest, Ext4OverwritesInPlace) {
  expectExplanation("yes", 24, {"/sbin/mkfs.ext4", "-q", "-F"}, "ext4");
}

TEST_F(RealStorageTest, Ext4WithAJournalOfContentsDoesNot) {
  expectExplanation("no", 24, {"/sbin/mkfs.ext4", "-q", "-F"}, "ext4", "data=journal");
}

TEST_F(RealStorageTest, XfsWithoutSharedBlocksOverwritesInPlace) {
  expectExplanation("yes", 320, {"/sbin/mkfs.xfs", "-q", "-m", "reflink=0"}, "xfs");
}

TEST_F(RealStorageTest, XfsWithSharedBlocksIsUnknown) {
  expectExplanation("unknown", 320, {"/sbin/mkfs.xfs", "-q", "-m", "reflink=1"}, "xfs");
}

}  // namespace
}  // namespace tervano::test
