#include "platform/linux/tree_copy.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/linux/posix_file_manager.h"
#include "platform/linux/unfinished_items.h"
#include "tests/support/child_process.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"
#include "tests/support/watching_observer.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::forkChild;
using test::ParentLink;

// Each test runs in a child with a mount namespace of its own, in which "far" is another file
// system.
class MoveAcrossFileSystemsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
    fs::create_directory(far);
  }

  std::string at(const std::string& name) const { return home.path() + "/" + name; }

  static bool mountFar(const std::string& far, const char* options) {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", far.c_str(), "tmpfs", 0, options) == 0;
  }

  // Runs `body` in the child; its failed expectations become the test's own.
  void withFar(const std::function<void()>& body, const char* options = "size=64m") {
    auto child = forkChild([&](ParentLink& parent) {
      if (!mountFar(far, options)) return 98;
      body();
      const auto* const result = testing::UnitTest::GetInstance()->current_test_info()->result();
      for (int part = 0; part < result->total_part_count(); ++part) {
        std::string text = result->GetTestPartResult(part).summary();
        for (char& character : text) {
          if (character == '\n') character = ' ';
        }
        parent.say(std::to_string(result->GetTestPartResult(part).line_number()) + ": " + text);
      }
      return result->Failed() ? 1 : 0;
    });
    while (const auto line = child.hear(60)) ADD_FAILURE() << *line;
    EXPECT_EQ(child.waitForExit(60), 0);
  }

  static void make(const std::string& path, const std::string& text = "text") {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string text(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path << ": " << std::strerror(errno);
    return status;
  }
  std::size_t itemsIn(const std::string& path) const {
    return files.contentsOfDirectoryAtPath(path).size();
  }

  test::TemporaryHome home;
  const std::string far = home.path() + "/far";
  PosixFileManager files;
};

TEST_F(MoveAcrossFileSystemsTest, AFileArrivesWholeAndTheSourceIsGone) {
  withFar([&] {
    std::string content;
    for (int number = 0; number < 300000; ++number) content += static_cast<char>(number * 7);
    make(at("file"), content);
    EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file"), std::nullopt);
    EXPECT_EQ(text(far + "/file"), content);
    EXPECT_FALSE(fs::exists(at("file")));
    EXPECT_EQ(itemsIn(far), 1u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AnObserverHearsOfTheHiddenNameAndOfEveryByte) {
  withFar([&] {
    make(at("file"), std::string(300000, 'x'));
    test::WatchingObserver observer;
    EXPECT_EQ(files.performMove({at("file"), far + "/file", &observer}), std::nullopt);
    EXPECT_EQ(observer.processed, 300000u);
    ASSERT_EQ(observer.temporaries.size(), 1u);
    EXPECT_TRUE(observer.temporaries.front().starts_with(far + "/.tervano-"));
    EXPECT_EQ(itemsIn(far), 1u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AStoppedMoveLeavesTheSourceWholeAndNothingElse) {
  withFar([&] {
    fs::create_directory(at("folder"));
    for (const char* name : {"a", "b", "c"}) make(at("folder/") + name, std::string(5 << 20, 'x'));
    test::WatchingObserver observer;
    observer.onBytes = [&] { observer.cancelled = observer.processed >= 7 << 20; };
    const auto error = files.performMove({at("folder"), far + "/folder", &observer});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ECANCELED);
    EXPECT_EQ(itemsIn(at("folder")), 3u);
    EXPECT_EQ(text(at("folder/c")).size(), 5u << 20);
    EXPECT_EQ(itemsIn(far), 0u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AMoveOnOneFileSystemCopiesNothing) {
  withFar([&] {
    make(at("file"));
    test::WatchingObserver observer;
    EXPECT_EQ(files.performMove({at("file"), at("moved"), &observer}), std::nullopt);
    EXPECT_EQ(observer.processed, 0u);
    EXPECT_TRUE(observer.temporaries.empty());
  });
}

TEST_F(MoveAcrossFileSystemsTest, ModeOwnerAndTimesInNanosecondsStay) {
  withFar([&] {
    make(at("file"));
    ASSERT_EQ(chown(at("file").c_str(), 1234, 5678), 0);
    ASSERT_EQ(chmod(at("file").c_str(), 04751), 0);
    const timespec times[2] = {{1000000000, 123456789}, {1100000000, 987654321}};
    ASSERT_EQ(utimensat(AT_FDCWD, at("file").c_str(), times, 0), 0);
    EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file"), std::nullopt);
    const auto status = statusOf(far + "/file");
    EXPECT_EQ(status.st_uid, 1234u);
    EXPECT_EQ(status.st_gid, 5678u);
    EXPECT_EQ(status.st_mode & 07777, 04751u);
    EXPECT_EQ(status.st_atim.tv_nsec, 123456789);
    EXPECT_EQ(status.st_mtim.tv_sec, 1100000000);
    EXPECT_EQ(status.st_mtim.tv_nsec, 987654321);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AUserWhoCannotGiveAwayFilesLosesTheSetUserIdBit) {
  withFar(
      [&] {
        ASSERT_EQ(chmod(home.path().c_str(), 0777), 0);
        make(at("file"));
        ASSERT_EQ(chmod(at("file").c_str(), 06755), 0);
        ASSERT_TRUE(test::becomeNobody());
        EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file"), std::nullopt);
        EXPECT_EQ(statusOf(far + "/file").st_mode & 07777, 0755u);
        EXPECT_EQ(statusOf(far + "/file").st_uid, test::kNobody);
      },
      "size=64m,mode=0777");
}

TEST_F(MoveAcrossFileSystemsTest, AReadOnlyFileIsMoved) {
  withFar(
      [&] {
        ASSERT_EQ(chmod(home.path().c_str(), 0777), 0);
        ASSERT_TRUE(test::becomeNobody());
        make(at("file"));
        ASSERT_EQ(chmod(at("file").c_str(), 0400), 0);
        EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file"), std::nullopt);
        EXPECT_EQ(statusOf(far + "/file").st_mode & 07777, 0400u);
        EXPECT_EQ(text(far + "/file"), "text");
      },
      "size=64m,mode=0777");
}

TEST_F(MoveAcrossFileSystemsTest, ExtendedAttributesStay) {
  withFar([&] {
    make(at("file"));
    const std::string value(3000, 'v');
    ASSERT_EQ(setxattr(at("file").c_str(), "trusted.tervano", value.data(), value.size(), 0), 0);
    EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file"), std::nullopt);
    std::string kept(4000, '\0');
    const ssize_t size =
        getxattr((far + "/file").c_str(), "trusted.tervano", kept.data(), kept.size());
    ASSERT_GE(size, 0) << std::strerror(errno);
    EXPECT_EQ(kept.substr(0, static_cast<std::size_t>(size)), value);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AccessListsStayAndNoneIsInherited) {
  withFar([&] {
    // Version 2; owner rw, user 1234 r, group -, mask r, others -.
    const std::array<unsigned char, 44> list = {
        2, 0,    0,    0,    1,    0,    6,    0, 0xFF, 0xFF, 0xFF, 0xFF, 2,    0,    4,
        0, 0xD2, 4,    0,    0,    4,    0,    0, 0,    0xFF, 0xFF, 0xFF, 0xFF, 0x10, 0,
        4, 0,    0xFF, 0xFF, 0xFF, 0xFF, 0x20, 0, 0,    0,    0xFF, 0xFF, 0xFF, 0xFF};
    make(at("listed"));
    make(at("plain"));
    ASSERT_EQ(chmod(at("plain").c_str(), 0644), 0);
    ASSERT_EQ(
        setxattr(at("listed").c_str(), "system.posix_acl_access", list.data(), list.size(), 0), 0)
        << std::strerror(errno);
    ASSERT_EQ(setxattr(far.c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
    EXPECT_EQ(files.moveItemAtPath(at("listed"), far + "/listed"), std::nullopt);
    EXPECT_EQ(files.moveItemAtPath(at("plain"), far + "/plain"), std::nullopt);
    std::array<unsigned char, 100> kept{};
    EXPECT_EQ(
        getxattr((far + "/listed").c_str(), "system.posix_acl_access", kept.data(), kept.size()),
        static_cast<ssize_t>(list.size()));
    EXPECT_TRUE(std::equal(list.begin(), list.end(), kept.begin()));
    EXPECT_LT(getxattr((far + "/plain").c_str(), "system.posix_acl_access", nullptr, 0), 0);
    EXPECT_EQ(statusOf(far + "/plain").st_mode & 0777, 0644u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, HolesStayHoles) {
  withFar([&] {
    const Descriptor file(open(at("sparse").c_str(), O_WRONLY | O_CREAT, 0600));
    constexpr off_t kSize = 1L << 30;
    ASSERT_EQ(pwrite(file.get(), "begin", 5, 0), 5);
    ASSERT_EQ(pwrite(file.get(), "middle", 6, kSize / 2), 6);
    ASSERT_EQ(ftruncate(file.get(), kSize), 0);
    EXPECT_EQ(files.moveItemAtPath(at("sparse"), far + "/sparse"), std::nullopt);
    const auto status = statusOf(far + "/sparse");
    EXPECT_EQ(status.st_size, kSize);
    EXPECT_LT(status.st_blocks * 512, 1 << 20);
    const Descriptor moved(open((far + "/sparse").c_str(), O_RDONLY));
    std::array<char, 6> middle{};
    EXPECT_EQ(pread(moved.get(), middle.data(), 6, kSize / 2), 6);
    EXPECT_EQ(std::string(middle.data(), 6), "middle");
  });
}

TEST_F(MoveAcrossFileSystemsTest, ATreeKeepsItsLinksHardLinksPipesSocketsAndDevices) {
  withFar([&] {
    fs::create_directories(at("tree/a/b"));
    make(at("tree/a/b/file"), "shared");
    fs::create_hard_link(at("tree/a/b/file"), at("tree/hard"));
    fs::create_hard_link(at("tree/a/b/file"), at("tree/a/hard"));
    fs::create_symlink("nowhere/\xFF", at("tree/dangling"));
    fs::create_directory_symlink("a", at("tree/link"));
    ASSERT_EQ(mkfifo(at("tree/pipe").c_str(), 0640), 0);
    ASSERT_EQ(mknod(at("tree/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    ASSERT_EQ(mknod(at("tree/socket").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_EQ(files.moveItemAtPath(at("tree"), far + "/tree"), std::nullopt);
    EXPECT_FALSE(fs::exists(at("tree")));
    EXPECT_EQ(text(far + "/tree/hard"), "shared");
    EXPECT_EQ(statusOf(far + "/tree/hard").st_ino, statusOf(far + "/tree/a/b/file").st_ino);
    EXPECT_EQ(statusOf(far + "/tree/hard").st_ino, statusOf(far + "/tree/a/hard").st_ino);
    EXPECT_EQ(statusOf(far + "/tree/hard").st_nlink, 3u);
    EXPECT_EQ(fs::read_symlink(far + "/tree/dangling").string(), "nowhere/\xFF");
    EXPECT_EQ(fs::read_symlink(far + "/tree/link").string(), "a");
    EXPECT_EQ(statusOf(far + "/tree/pipe").st_mode, S_IFIFO | 0640u);
    EXPECT_EQ(statusOf(far + "/tree/device").st_rdev, makedev(1, 3));
    EXPECT_TRUE(S_ISCHR(statusOf(far + "/tree/device").st_mode));
    EXPECT_TRUE(S_ISSOCK(statusOf(far + "/tree/socket").st_mode));
  });
}

TEST_F(MoveAcrossFileSystemsTest, ADeviceThatMayNotBeMadeIsAnErrorAndTheSourceStays) {
  withFar(
      [&] {
        fs::create_directory(at("tree"));
        ASSERT_EQ(mknod(at("tree/device").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
        for (const char* const path : {"", "tree"}) ASSERT_EQ(chmod(at(path).c_str(), 0777), 0);
        ASSERT_TRUE(test::becomeNobody());
        const auto error = files.moveItemAtPath(at("tree"), far + "/tree");
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, EPERM);
        EXPECT_THAT(error->message, testing::HasSubstr(at("tree/device")));
        EXPECT_TRUE(fs::exists(at("tree/device")));
        EXPECT_EQ(itemsIn(far), 0u);
      },
      "size=64m,mode=0777");
}

TEST_F(MoveAcrossFileSystemsTest, FoldersKeepTheirModesAndTimes) {
  withFar([&] {
    fs::create_directories(at("tree/closed"));
    make(at("tree/closed/file"));
    const timespec times[2] = {{1000000000, 1}, {1000000000, 2}};
    ASSERT_EQ(utimensat(AT_FDCWD, at("tree/closed").c_str(), times, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, at("tree").c_str(), times, 0), 0);
    ASSERT_EQ(chmod(at("tree/closed").c_str(), 0500), 0);
    EXPECT_EQ(files.moveItemAtPath(at("tree"), far + "/tree"), std::nullopt);
    EXPECT_EQ(statusOf(far + "/tree/closed").st_mode & 07777, 0500u);
    EXPECT_EQ(statusOf(far + "/tree/closed").st_mtim.tv_nsec, 2);
    EXPECT_EQ(statusOf(far + "/tree").st_mtim.tv_nsec, 2);
  });
}

TEST_F(MoveAcrossFileSystemsTest, ATreeDeeperThanAnyPathIsMovedWithFewDescriptors) {
  withFar([&] {
    ASSERT_EQ(mkdir(at("top").c_str(), 0700), 0);
    Descriptor folder(open(at("top").c_str(), O_RDONLY | O_DIRECTORY));
    for (int level = 0; level < 2500; ++level) {
      ASSERT_EQ(mkdirat(folder.get(), "deep", 0700), 0);
      folder.reset(openat(folder.get(), "deep", O_RDONLY | O_DIRECTORY));
    }
    ASSERT_EQ(mknodat(folder.get(), "end", S_IFREG | 0600, 0), 0);
    ASSERT_EQ(linkat(folder.get(), "end", folder.get(), "again", 0), 0);
    folder.reset();
    const rlimit limit{64, 64};
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(files.moveItemAtPath(at("top"), far + "/top"), std::nullopt);
    EXPECT_FALSE(fs::exists(at("top")));
    folder.reset(open((far + "/top").c_str(), O_RDONLY | O_DIRECTORY));
    for (int level = 0; level < 2500; ++level) {
      folder.reset(openat(folder.get(), "deep", O_RDONLY | O_DIRECTORY));
      ASSERT_TRUE(folder) << level;
    }
    struct stat status {};
    ASSERT_EQ(fstatat(folder.get(), "again", &status, 0), 0);
    EXPECT_EQ(status.st_nlink, 2u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AnExistingTargetStopsTheMoveBeforeAnythingIsCopied) {
  withFar([&] {
    make(at("file"), "new");
    make(far + "/file", "old");
    EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file")->code, EEXIST);
    EXPECT_EQ(text(at("file")), "new");
    EXPECT_EQ(text(far + "/file"), "old");
    EXPECT_EQ(itemsIn(far), 1u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AFullDiskIsReportedTheSourceIsWholeAndNothingStays) {
  withFar(
      [&] {
        fs::create_directories(at("tree/sub"));
        const std::string content(700 * 1024, 'x');
        make(at("tree/one"), content);
        make(at("tree/sub/two"), content);
        const auto error = files.moveItemAtPath(at("tree"), far + "/tree");
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, ENOSPC);
        EXPECT_THAT(error->message, testing::HasSubstr("No space left on device"));
        EXPECT_EQ(text(at("tree/one")), content);
        EXPECT_EQ(text(at("tree/sub/two")), content);
        EXPECT_EQ(itemsIn(far), 0u);
      },
      "size=1m");
}

TEST_F(MoveAcrossFileSystemsTest, AnUnreadableFileInATreeStopsTheMoveAndNothingStays) {
  withFar(
      [&] {
        fs::create_directory(at("tree"));
        make(at("tree/readable"));
        make(at("tree/secret"));
        ASSERT_EQ(chmod(at("tree/secret").c_str(), 0600), 0);
        for (const char* const path : {"", "tree"}) ASSERT_EQ(chmod(at(path).c_str(), 0777), 0);
        ASSERT_TRUE(test::becomeNobody());
        const auto error = files.moveItemAtPath(at("tree"), far + "/tree");
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, EACCES);
        EXPECT_THAT(error->message, testing::HasSubstr(at("tree/secret")));
        EXPECT_TRUE(fs::exists(at("tree/readable")));
        EXPECT_TRUE(fs::exists(at("tree/secret")));
        EXPECT_EQ(itemsIn(far), 0u);
      },
      "size=64m,mode=0777");
}

TEST_F(MoveAcrossFileSystemsTest, ASourceFolderThatMayNotBeChangedIsFoundOutBeforeCopying) {
  withFar(
      [&] {
        fs::create_directory(at("closed"));
        make(at("closed/file"));
        ASSERT_EQ(chmod(at("closed/file").c_str(), 0644), 0);
        ASSERT_EQ(chmod(at("closed").c_str(), 0555), 0);
        ASSERT_EQ(chmod(home.path().c_str(), 0755), 0);
        ASSERT_TRUE(test::becomeNobody());
        EXPECT_EQ(files.moveItemAtPath(at("closed/file"), far + "/file")->code, EACCES);
        EXPECT_TRUE(fs::exists(at("closed/file")));
        EXPECT_EQ(itemsIn(far), 0u);
      },
      "size=64m,mode=0777");
}

TEST_F(MoveAcrossFileSystemsTest, WhenTheSourceCannotBeRemovedTheErrorSaysSoAndBothStay) {
  withFar(
      [&] {
        fs::create_directories(at("tree/closed"));
        make(at("tree/closed/file"));
        ASSERT_EQ(chmod(at("tree/closed/file").c_str(), 0644), 0);
        ASSERT_EQ(chmod(at("tree/closed").c_str(), 0555), 0);
        for (const char* const path : {"", "tree"}) ASSERT_EQ(chmod(at(path).c_str(), 0777), 0);
        ASSERT_TRUE(test::becomeNobody());
        const auto error = files.moveItemAtPath(at("tree"), far + "/tree");
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, EACCES);
        EXPECT_THAT(error->message, testing::AllOf(testing::StartsWith("Copied " + at("tree")),
                                                   testing::HasSubstr("is still there"),
                                                   testing::HasSubstr(at("tree/closed/file"))));
        EXPECT_EQ(text(at("tree/closed/file")), "text");
        EXPECT_EQ(text(far + "/tree/closed/file"), "text");
      },
      "size=64m,mode=0777");
}

TEST_F(MoveAcrossFileSystemsTest, AMountInsideTheTreeIsRefusedAndTheSourceStays) {
  withFar([&] {
    fs::create_directories(at("tree/mounted"));
    ASSERT_EQ(mount("tmpfs", at("tree/mounted").c_str(), "tmpfs", 0, "size=1m"), 0);
    make(at("tree/mounted/file"));
    EXPECT_EQ(files.moveItemAtPath(at("tree"), far + "/tree")->code, EBUSY);
    EXPECT_EQ(files.removeItemAtPath(at("tree"))->code, EBUSY);
    EXPECT_EQ(files.moveItemAtPath(at("tree/mounted"), far + "/tree")->code, EBUSY);
    EXPECT_TRUE(fs::exists(at("tree/mounted/file")));
    EXPECT_EQ(itemsIn(far), 0u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AFolderCannotBeMovedBelowItselfThroughAnotherMountOfItself) {
  withFar([&] {
    fs::create_directories(at("tree/below"));
    ASSERT_EQ(mount(at("tree").c_str(), far.c_str(), nullptr, MS_BIND, nullptr), 0);
    const auto error = files.moveItemAtPath(at("tree"), far + "/below/new");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, EINVAL);
    EXPECT_EQ(itemsIn(at("tree/below")), 0u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AMoveThatIsKilledLeavesTheSourceWhole) {
  withFar([&] {
    fs::create_directory(at("tree"));
    const std::string content(8 * 1024 * 1024, 'x');
    for (int number = 0; number < 4; ++number) make(at("tree/" + std::to_string(number)), content);
    int killed = 0;
    for (int round = 0; round < 50 && killed < 3; ++round) {
      auto mover = forkChild(
          [&](ParentLink&) { return files.moveItemAtPath(at("tree"), far + "/tree") ? 1 : 0; });
      // Killed as soon as the copy has begun.
      while (itemsIn(far) == 0) {
      }
      mover.kill(SIGKILL);
      ASSERT_TRUE(mover.waitForExit(30));
      if (fs::exists(far + "/tree")) {
        // It was quicker than the kill.
        fs::remove_all(at("tree"));
        fs::copy(far + "/tree", at("tree"), fs::copy_options::recursive);
        fs::remove_all(far + "/tree");
        continue;
      }
      ++killed;
      for (int number = 0; number < 4; ++number) {
        EXPECT_EQ(fs::file_size(at("tree/" + std::to_string(number))), content.size());
      }
      for (const auto& entry : fs::directory_iterator(far)) {
        EXPECT_TRUE(entry.path().filename().string().starts_with(".tervano-"));
        fs::remove_all(entry.path());
      }
    }
    EXPECT_EQ(killed, 3);
    EXPECT_EQ(files.moveItemAtPath(at("tree"), far + "/tree"), std::nullopt);
    EXPECT_EQ(text(far + "/tree/3"), content);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AFileThatWasNotCopiedIsNotRemoved) {
  withFar([&] {
    make(at("file"), "old");
    CopiedItems copied;
    const Descriptor near(open(home.path().c_str(), O_RDONLY | O_DIRECTORY));
    const Descriptor target(open(far.c_str(), O_RDONLY | O_DIRECTORY));
    ASSERT_EQ(
        copyTree({near.get(), "file", at("file")}, {target.get(), "file", far + "/file"}, &copied),
        std::nullopt);
    EXPECT_TRUE(copied.contains(statusOf(at("file"))));
    make(at("file"), "changed");
    EXPECT_FALSE(copied.contains(statusOf(at("file"))));
    make(at("new"));
    EXPECT_FALSE(copied.contains(statusOf(at("new"))));
  });
}

TEST_F(MoveAcrossFileSystemsTest, ACopyNeverReplacesAndLeavesWhatWasThere) {
  withFar([&] {
    make(at("file"), "new");
    make(far + "/file", "old");
    const Descriptor near(open(home.path().c_str(), O_RDONLY | O_DIRECTORY));
    const Descriptor target(open(far.c_str(), O_RDONLY | O_DIRECTORY));
    const auto error =
        copyTree({near.get(), "file", at("file")}, {target.get(), "file", far + "/file"});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, EEXIST);
    EXPECT_EQ(text(far + "/file"), "old");
  });
}

TEST_F(MoveAcrossFileSystemsTest, FilesOfNoSizeAndOfManySizesArriveWhole) {
  withFar([&] {
    fs::create_directory(at("tree"));
    for (const std::size_t size :
         {0ul, 1ul, 511ul, 512ul, 4095ul, 4096ul, 4097ul, 262144ul, 262145ul, 3000000ul}) {
      make(at("tree/" + std::to_string(size)), std::string(size, 'x'));
    }
    EXPECT_EQ(files.moveItemAtPath(at("tree"), far + "/tree"), std::nullopt);
    for (const auto& entry : fs::directory_iterator(far + "/tree")) {
      const auto size = std::stoul(entry.path().filename().string());
      EXPECT_EQ(text(entry.path().string()), std::string(size, 'x'));
    }
    EXPECT_EQ(itemsIn(far + "/tree"), 10u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AReadOnlyTargetIsAnErrorAndTheSourceStays) {
  withFar([&] {
    make(at("file"));
    ASSERT_EQ(mount(nullptr, far.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file")->code, EROFS);
    EXPECT_EQ(text(at("file")), "text");
  });
}

TEST_F(MoveAcrossFileSystemsTest, WhatAKilledMoveLeftIsRemovedAndTheSourceIsWhole) {
  withFar([&] {
    make(at("file"), std::string(3 << 20, 'x'));
    auto child = forkChild([&](ParentLink&) {
      // Ends it in the middle, as soon as the copy is that long.
      const rlimit noDump{0, 0};
      const rlimit limit{1 << 20, 1 << 20};
      setrlimit(RLIMIT_CORE, &noDump);
      setrlimit(RLIMIT_FSIZE, &limit);
      files.moveItemAtPath(at("file"), far + "/file");
      return 0;
    });
    EXPECT_EQ(child.waitForExit(), -SIGXFSZ);
    EXPECT_EQ(itemsIn(far), 1u);
    EXPECT_EQ(UnfinishedItem::removeLeftOvers().size(), 1u);
    EXPECT_EQ(itemsIn(far), 0u);
    EXPECT_EQ(text(at("file")).size(), std::size_t{3} << 20);
  });
}

TEST_F(MoveAcrossFileSystemsTest, AMoveLeavesNoNote) {
  withFar([&] {
    make(at("file"));
    EXPECT_EQ(files.moveItemAtPath(at("file"), far + "/file"), std::nullopt);
    EXPECT_EQ(itemsIn(home.path() + "/.local/state/tervano/unfinished"), 0u);
  });
}

TEST_F(MoveAcrossFileSystemsTest, ACopyToAFullDiskLeavesNothingAndKeepsWhatItWouldReplace) {
  withFar(
      [&] {
        make(at("big"), std::string(3 * 1024 * 1024, 'x'));
        make(far + "/big", "old");
        const auto error = files.performCopy({at("big"), far + "/big", true, nullptr});
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, ENOSPC);
        EXPECT_THAT(error->message, testing::HasSubstr("No space left on device"));
        EXPECT_EQ(text(far + "/big"), "old");
        EXPECT_EQ(itemsIn(far), 1u);
      },
      "size=1m");
}

}  // namespace
}  // namespace tervano
