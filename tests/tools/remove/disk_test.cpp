#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include "tests/tools/remove/disk_image.h"
#include "tests/tools/remove/remove_test.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct DiskKind {
  const char* name;
  const char* type;
  std::size_t megabytes;
  std::vector<std::string> mkfs;
};

const std::array<DiskKind, 4> kDisks = {{
    {"Ext4", "ext4", 24, {"/sbin/mkfs.ext4", "-q", "-F"}},
    {"Ext4WithSmallBlocks", "ext4", 24, {"/sbin/mkfs.ext4", "-q", "-F", "-b", "1024"}},
    {"Ext2", "ext4", 24, {"/sbin/mkfs.ext2", "-q", "-F"}},
    {"Ext4WithInlineContents",
     "ext4",
     24,
     {"/sbin/mkfs.ext4", "-q", "-F", "-I", "512", "-O", "inline_data,^has_journal"}},
}};

// A real disk, whose freed blocks are looked at afterwards.
class DiskTest : public MemoryRemoveTest {
 protected:
  void SetUp() override {
    if (!DiskImage::isPossible()) GTEST_SKIP() << "needs root and loop devices";
    mountPoint_ = folder("disk");
  }
  std::string onDisk(const std::string& name) const { return mountPoint_ + "/" + name; }
  // In a child: the disk is there while `body` runs, and everything has reached it afterwards.
  void withDisk(DiskImage& disk, const std::string& type, const std::function<void()>& body) {
    inChild([&] {
      ASSERT_TRUE(isolateMounts());
      disk.mount(mountPoint_, type);
      body();
      ASSERT_EQ(umount2(mountPoint_.c_str(), 0), 0);
    });
  }
  static void flush(const std::string& folder) {
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(syncfs(opened.get()), 0);
  }

  std::string mountPoint_;
};

class DiskKindTest : public DiskTest, public testing::WithParamInterface<DiskKind> {
 protected:
  // Files of several sizes and shapes, all on the disk.
  void makeSecrets() const {
    fs::create_directories(onDisk("tree/a/b"));
    makeFile(onDisk("tree/tiny"), marker());
    makeFile(onDisk("tree/a/small"), marker(100));
    makeFile(onDisk("tree/a/b/odd"), marker(1001));
    makeFile(onDisk("tree/large"), marker(100000));
    const std::string sparse = onDisk("tree/a/sparse");
    makeFile(sparse, marker());
    const Descriptor file(open(sparse.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_GT(pwrite(file.get(), marker().data(), marker().size(), 50 << 20), 0);
    ASSERT_GT(pwrite(file.get(), marker().data(), marker().size(), (90 << 20) + 5000), 0);
    flush(mountPoint_);
  }
};

TEST_P(DiskKindTest, APlainRemovalLeavesTheContentsOnTheDisk) {
  DiskImage disk(at("image"), GetParam().megabytes, GetParam().mkfs);
  withDisk(disk, GetParam().type, [&] {
    makeSecrets();
    expectSuccess(runRemove({"-r", onDisk("tree")}));
  });
  EXPECT_GT(disk.countOf(marker()), 100000u);
}

TEST_P(DiskKindTest, AnOverwritingRemovalLeavesNothingOnTheDisk) {
  DiskImage disk(at("image"), GetParam().megabytes, GetParam().mkfs);
  withDisk(disk, GetParam().type, [&] {
    makeSecrets();
    expectSuccess(removeSecurely(onDisk("tree")));
    EXPECT_FALSE(exists(onDisk("tree")));
  });
  EXPECT_EQ(disk.countOf("nobody"), 0u);
}

TEST_P(DiskKindTest, WhatStandsBehindTheEndOfAFileIsOverwritten) {
  DiskImage disk(at("image"), GetParam().megabytes, GetParam().mkfs);
  const std::string visible = "What everybody may read. " + std::string(700, 'x');
  withDisk(disk, GetParam().type, [&] { makeFile(onDisk("file"), visible); });
  disk.write(marker(), disk.placeOf(visible) + 800);
  ASSERT_EQ(disk.countOf("nobody"), 1u);
  withDisk(disk, GetParam().type, [&] {
    EXPECT_EQ(contentsOf(onDisk("file")), visible);
    expectSuccess(removeSecurely(onDisk("file")));
  });
  EXPECT_EQ(disk.countOf("everybody"), 0u);
  EXPECT_EQ(disk.countOf("nobody"), 0u);
}

TEST_P(DiskKindTest, AFullDiskIsNoObstacle) {
  DiskImage disk(at("image"), GetParam().megabytes, GetParam().mkfs);
  withDisk(disk, GetParam().type, [&] {
    makeSecrets();
    const Descriptor filling(
        open(onDisk("tree/filling").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string text = marker(40);
    while (write(filling.get(), text.data(), text.size()) > 0) {
    }
    ASSERT_EQ(errno, ENOSPC);
    flush(mountPoint_);
    expectSuccess(removeSecurely(onDisk("tree")));
    EXPECT_FALSE(exists(onDisk("tree")));
  });
  EXPECT_EQ(disk.countOf("nobody"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Disks, DiskKindTest, testing::ValuesIn(kDisks),
                         [](const auto& instance) { return std::string(instance.param.name); });

// File systems mounted inside a tree.
class MountTest : public MemoryRemoveTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
    file("tree/file");
    file("tree/a/file");
    folder("tree/a/mounted");
    file("victim/inside", marker());
  }
  static void bind(const std::string& what, const std::string& where) {
    ASSERT_EQ(mount(what.c_str(), where.c_str(), nullptr, MS_BIND, nullptr), 0);
  }
  void expectTold(const RemoveOutcome& outcome, const std::string& name) const {
    expectFailures(outcome, {sentence(at(name), "something is mounted there")});
  }
};

TEST_F(MountTest, AnotherFileSystemInsideATreeIsLeftAlone) {
  inChild([&] {
    ASSERT_TRUE(isolateMounts());
    ASSERT_EQ(mount("tmpfs", at("tree/a/mounted").c_str(), "tmpfs", 0, "size=1m"), 0);
    file("tree/a/mounted/inside", marker());
    expectTold(removeSecurely(at("tree")), "tree/a/mounted");
    EXPECT_EQ(contentsOf(at("tree/a/mounted/inside")), marker());
    EXPECT_FALSE(exists(at("tree/file")));
    EXPECT_FALSE(exists(at("tree/a/file")));
  });
}

TEST_F(MountTest, AFolderOfTheSameFileSystemBoundInsideATreeIsLeftAlone) {
  inChild([&] {
    ASSERT_TRUE(isolateMounts());
    bind(at("victim"), at("tree/a/mounted"));
    expectTold(removeSecurely(at("tree")), "tree/a/mounted");
    EXPECT_EQ(contentsOf(at("victim/inside")), marker());
    EXPECT_FALSE(exists(at("tree/a/file")));
  });
}

TEST_F(MountTest, AFileBoundInsideATreeIsLeftAlone) {
  inChild([&] {
    ASSERT_TRUE(isolateMounts());
    bind(at("victim/inside"), at("tree/a/file"));
    expectTold(removeSecurely(at("tree")), "tree/a/file");
    expectTold(removeSecurely(at("tree/a/file")), "tree/a/file");
    EXPECT_EQ(contentsOf(at("victim/inside")), marker());
    EXPECT_FALSE(exists(at("tree/file")));
  });
}

TEST_F(MountTest, TheRootOfAMountIsRefused) {
  inChild([&] {
    ASSERT_TRUE(isolateMounts());
    bind(at("victim"), at("tree/a/mounted"));
    expectTold(removeSecurely(at("tree/a/mounted")), "tree/a/mounted");
    EXPECT_EQ(contentsOf(at("victim/inside")), marker());
  });
}

TEST_F(MountTest, ATreeOnAMountedFileSystemIsRemoved) {
  inChild([&] {
    ASSERT_TRUE(isolateMounts());
    bind(at("victim"), at("tree/a/mounted"));
    expectSuccess(removeSecurely(at("tree/a/mounted/inside")));
    EXPECT_FALSE(exists(at("victim/inside")));
  });
}

TEST_F(MountTest, AReadOnlyFileSystemIsTold) {
  inChild([&] {
    ASSERT_TRUE(isolateMounts());
    bind(at("victim"), at("tree/a/mounted"));
    ASSERT_EQ(mount(nullptr, at("tree/a/mounted").c_str(), nullptr,
                    MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
              0);
    const std::string path = at("tree/a/mounted/inside");
    expectFailures(removeSecurely(path), {sentence(path, "Read-only file system")});
    EXPECT_EQ(contentsOf(path), marker());
  });
}

TEST_F(MountTest, AFullDiskThatCopiesOnWriteKeepsTheFile) {
  inChild([&] {
    ASSERT_TRUE(isolateMounts());
    const std::string upper = folder("upper");
    ASSERT_EQ(mount("tmpfs", upper.c_str(), "tmpfs", 0, "size=256k"), 0);
    folder("upper/data");
    folder("upper/work");
    file("lower/tree/large", marker(10000));
    file("lower/tree/empty", "");
    const std::string options =
        "lowerdir=" + at("lower") + ",upperdir=" + upper + "/data,workdir=" + upper + "/work";
    const std::string merged = folder("merged");
    if (mount("overlay", merged.c_str(), "overlay", 0, options.c_str()) != 0) {
      GTEST_SKIP() << "this kernel has no overlay file system";
    }
    const std::string path = merged + "/tree/large";
    expectFailures(removeSecurely(merged + "/tree"),
                   {"tervano-remove: Could not overwrite \"" + path +
                    "\", so it was not removed: No space left on device."});
    EXPECT_EQ(contentsOf(path), marker(10000));
    EXPECT_FALSE(exists(merged + "/tree/empty"));
  });
}

}  // namespace
}  // namespace tervano::test
