#include "platform/linux/mount_table_volumes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/temporary_home.h"

namespace tervano::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

std::string mountLine(const std::string& mountPoint, const std::string& fileSystem = "ext4",
                      const std::string& root = "/") {
  return "36 35 98:0 " + root + " " + mountPoint + " rw,noatime master:1 - " + fileSystem +
         " /dev/root rw\n";
}

class MountTableVolumesTest : public testing::Test {
 protected:
  std::vector<std::string> paths(const std::string& table, bool skipHidden = true) const {
    const std::string path = home_.path() + "/mountinfo";
    std::ofstream(path, std::ios::binary) << table;
    std::vector<std::string> result;
    for (const auto& url : MountTableVolumes(path).mountedVolumeURLs(skipHidden)) {
      result.push_back(url.path());
    }
    return result;
  }

  TemporaryHome home_;
};

TEST_F(MountTableVolumesTest, TheRootComesFirstAndOnce) {
  EXPECT_THAT(paths(mountLine("/home") + mountLine("/")), ElementsAre("/", "/home"));
}

TEST_F(MountTableVolumesTest, EveryVolumeIsAFolderURL) {
  const std::string path = home_.path() + "/mountinfo";
  std::ofstream(path) << mountLine("/media/disk");
  const auto urls = MountTableVolumes(path).mountedVolumeURLs(true);
  ASSERT_THAT(urls, SizeIs(2));
  EXPECT_EQ(urls[0].absoluteString(), "file:///");
  EXPECT_EQ(urls[1].absoluteString(), "file:///media/disk/");
}

TEST_F(MountTableVolumesTest, AMissingTableStillHasTheRoot) {
  const auto urls = MountTableVolumes("/nonexistent").mountedVolumeURLs(true);
  EXPECT_THAT(urls, ElementsAre(Url("file:///")));
}

TEST_F(MountTableVolumesTest, OctalEscapesAreUndone) {
  EXPECT_THAT(paths(mountLine("/media/My\\040Disk\\011a\\134b\\012c")),
              ElementsAre("/", "/media/My Disk\ta\\b\nc"));
}

TEST_F(MountTableVolumesTest, ABackslashWithoutThreeOctalDigitsStays) {
  EXPECT_THAT(paths(mountLine("/media/a\\08x\\")), ElementsAre("/", "/media/a\\08x\\"));
}

TEST_F(MountTableVolumesTest, AMountPointMayBeAnyBytes) {
  EXPECT_THAT(paths(mountLine("/media/\xff\xc3")), ElementsAre("/", "/media/\xff\xc3"));
}

TEST_F(MountTableVolumesTest, SystemFileSystemsAreLeftOut) {
  for (const char* fileSystem : {"proc", "sysfs", "cgroup2", "devpts", "mqueue", "overlay",
                                 "squashfs", "fuse.portal", "fuse.gvfsd-fuse", "nsfs", "autofs"}) {
    EXPECT_THAT(paths(mountLine("/somewhere", fileSystem)), ElementsAre("/")) << fileSystem;
  }
}

TEST_F(MountTableVolumesTest, FileSystemsOfAUserAreShown) {
  for (const char* fileSystem : {"ext4", "btrfs", "xfs", "vfat", "ntfs3", "fuseblk", "nfs4", "cifs",
                                 "fuse.sshfs", "iso9660", "tmpfs", "exfat", "zfs"}) {
    EXPECT_THAT(paths(mountLine("/somewhere", fileSystem)), ElementsAre("/", "/somewhere"))
        << fileSystem;
  }
}

TEST_F(MountTableVolumesTest, FoldersOfTheSystemAreLeftOut) {
  for (const char* place : {"/run/user/1000", "/dev/shm", "/sys/fs/cgroup", "/proc/x", "/boot",
                            "/boot/efi", "/snap/core/1", "/var/lib/docker/x", "/etc/hosts"}) {
    EXPECT_THAT(paths(mountLine(place, "tmpfs")), ElementsAre("/")) << place;
  }
}

TEST_F(MountTableVolumesTest, AFolderThatOnlyBeginsLikeOneOfTheSystemIsShown) {
  EXPECT_THAT(paths(mountLine("/development") + mountLine("/bootcamp")),
              ElementsAre("/", "/development", "/bootcamp"));
}

TEST_F(MountTableVolumesTest, RemovableMediaBelowRunAreShown) {
  EXPECT_THAT(paths(mountLine("/run/media/ann/STICK", "vfat")),
              ElementsAre("/", "/run/media/ann/STICK"));
}

TEST_F(MountTableVolumesTest, MountsBelowAHiddenFolderAreLeftOut) {
  EXPECT_THAT(paths(mountLine("/home/ann/.cache/doc") + mountLine("/home/ann/.hidden") +
                    mountLine("/home/ann/a.b")),
              ElementsAre("/", "/home/ann/a.b"));
}

TEST_F(MountTableVolumesTest, WithoutSkippingHiddenOnesEveryMountIsListed) {
  EXPECT_THAT(paths(mountLine("/proc", "proc") + mountLine("/home/ann/.hidden"), false),
              ElementsAre("/", "/proc", "/home/ann/.hidden"));
}

TEST_F(MountTableVolumesTest, APlaceThatIsMountedOverCountsByItsLastMount) {
  EXPECT_THAT(paths(mountLine("/mnt", "ext4") + mountLine("/mnt", "proc")), ElementsAre("/"));
  EXPECT_THAT(paths(mountLine("/mnt", "proc") + mountLine("/mnt", "ext4")),
              ElementsAre("/", "/mnt"));
}

TEST_F(MountTableVolumesTest, AContainersRootCountsThoughItIsAnOverlay) {
  EXPECT_THAT(paths(mountLine("/", "overlay")), ElementsAre("/"));
}

TEST_F(MountTableVolumesTest, LinesThatAreNoEntryAreLeftOut) {
  EXPECT_THAT(paths("\n \nnonsense\n36 35 98:0 / /a rw\n36 35 98:0 / /b rw -\n"
                    "x 35 98:0 / /c rw - ext4 a b\n36 35 98:0 / relative rw - ext4 a b\n" +
                    mountLine("/d")),
              ElementsAre("/", "/d"));
}

TEST_F(MountTableVolumesTest, AnEntryMayHaveAnyNumberOfOptionalFields) {
  EXPECT_THAT(
      paths("1 2 3:4 / /none rw - ext4 a b\n"
            "1 2 3:4 / /many rw shared:1 master:2 propagate_from:3 unbindable - ext4 a b\n"),
      ElementsAre("/", "/none", "/many"));
}

TEST_F(MountTableVolumesTest, ALastLineWithoutALineEndCounts) {
  auto table = mountLine("/d");
  table.pop_back();
  EXPECT_THAT(paths(table), ElementsAre("/", "/d"));
}

TEST(MountTableEntriesTest, AnEntryHasItsFields) {
  const auto entries =
      mountTableEntries("36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw\n");
  ASSERT_THAT(entries, SizeIs(1));
  EXPECT_EQ(entries[0], (MountTableEntry{36, "98:0", "/mnt1", "/mnt2", "ext3"}));
}

TEST(MountTableEntriesTest, TheMachinesOwnTableIsReadWhole) {
  std::ifstream file("/proc/self/mountinfo");
  std::string table(std::istreambuf_iterator<char>(file), {});
  const auto lines = std::count(table.begin(), table.end(), '\n');
  EXPECT_EQ(mountTableEntries(table).size(), static_cast<std::size_t>(lines));
}

TEST(MountTableVolumesOfThisMachineTest, HaveTheRootAndNoSystemMount) {
  std::vector<std::string> paths;
  for (const auto& url : MountTableVolumes().mountedVolumeURLs(true)) paths.push_back(url.path());
  EXPECT_EQ(paths.front(), "/");
  EXPECT_THAT(paths, Not(Contains("/proc")));
  EXPECT_THAT(paths, Not(Contains("/sys")));
}

}  // namespace
}  // namespace tervano::test
