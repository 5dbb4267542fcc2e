#include "platform/linux/posix_file_manager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/linux/descriptor.h"
#include "tests/support/child_process.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::becomeNobody;
using test::forkChild;
using test::ParentLink;

constexpr char kGroup[] = "Q4T7N2XR8K.com.vessok.tervano";

class PosixFileManagerTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return home.path() + "/" + name; }
  static Data bytes(const std::string& text) { return Data(text.begin(), text.end()); }
  std::string text(const std::string& path) const {
    const auto data = files.contentsAtPath(path);
    return data ? std::string(data->begin(), data->end()) : "(nil)";
  }
  void make(const std::string& path, const std::string& text = "text") {
    ASSERT_EQ(files.writeDataToFile(bytes(text), path, false), std::nullopt);
  }
  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
  }
  // Runs `body` in a child as a user without rights, for whom the home is open.
  void asNobody(const std::function<int()>& body) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
    ASSERT_EQ(chmod(home.path().c_str(), 0777), 0);
    auto child = forkChild([&](ParentLink&) { return becomeNobody() ? body() : 98; });
    EXPECT_EQ(child.waitForExit(30), 0);
  }
  // A chain of folders of that depth below `top`, a file at its end.
  static void makeDeep(const std::string& top, int depth) {
    ASSERT_EQ(mkdir(top.c_str(), 0700), 0);
    Descriptor folder(open(top.c_str(), O_RDONLY | O_DIRECTORY));
    for (int level = 0; level < depth; ++level) {
      ASSERT_EQ(mkdirat(folder.get(), "deep", 0700), 0);
      folder.reset(openat(folder.get(), "deep", O_RDONLY | O_DIRECTORY));
      ASSERT_TRUE(folder);
    }
    const Descriptor file(openat(folder.get(), "end", O_WRONLY | O_CREAT, 0600));
    ASSERT_TRUE(file);
  }

  test::TemporaryHome home;
  PosixFileManager files;
};

TEST_F(PosixFileManagerTest, TheContainerIsAFolderOfTheDataHomeAndIsNotMadeByLookingItUp) {
  const auto container = files.containerURLForSecurityApplicationGroupIdentifier(kGroup);
  ASSERT_TRUE(container);
  EXPECT_EQ(container->path(), home.dataHome() + "/" + kGroup);
  EXPECT_TRUE(container->absoluteString().ends_with("/"));
  EXPECT_FALSE(fs::exists(container->path()));
}

TEST_F(PosixFileManagerTest, ARelativeOrEmptyDataHomeIsIgnored) {
  for (const char* const value : {"relative/share", ""}) {
    home.setVariable("XDG_DATA_HOME", value);
    EXPECT_EQ(files.containerURLForSecurityApplicationGroupIdentifier(kGroup)->path(),
              home.path() + "/.local/share/" + kGroup);
  }
}

TEST_F(PosixFileManagerTest, WithoutHomeTheAccountsHomeCounts) {
  home.setVariable("HOME", std::nullopt);
  home.setVariable("XDG_DATA_HOME", std::nullopt);
  const auto container = files.containerURLForSecurityApplicationGroupIdentifier(kGroup);
  ASSERT_TRUE(container);
  EXPECT_TRUE(container->path().ends_with(std::string("/.local/share/") + kGroup));
  EXPECT_EQ(container->path().find(home.path()), std::string::npos);
}

TEST_F(PosixFileManagerTest, AnUnknownGroupHasNoContainerUntilItIsRegistered) {
  EXPECT_EQ(files.containerURLForSecurityApplicationGroupIdentifier("other"), std::nullopt);
  EXPECT_EQ(files.containerURLForSecurityApplicationGroupIdentifier(""), std::nullopt);
  EXPECT_EQ(files.containerURLForSecurityApplicationGroupIdentifier("../x"), std::nullopt);
  files.registerGroup("other");
  EXPECT_TRUE(files.containerURLForSecurityApplicationGroupIdentifier("other"));
}

TEST_F(PosixFileManagerTest, WithoutGroupContainersNoGroupHasOne) {
  files.setSupportsGroupContainers(false);
  EXPECT_FALSE(files.supportsGroupContainers());
  EXPECT_EQ(files.containerURLForSecurityApplicationGroupIdentifier(kGroup), std::nullopt);
}

TEST_F(PosixFileManagerTest, ADanglingLinkDoesNotExistAsAFileButAsAnItem) {
  fs::create_symlink("nowhere", at("link"));
  EXPECT_FALSE(files.fileExistsAtPath(at("link")));
  EXPECT_TRUE(files.itemExistsAtPath(at("link")));
  EXPECT_FALSE(files.itemExistsAtPath(at("other")));
}

TEST_F(PosixFileManagerTest, APathWithANulNamesNothing) {
  make(at("a"));
  const std::string path = at("a") + std::string("\0b", 2);
  EXPECT_FALSE(files.fileExistsAtPath(path));
  EXPECT_FALSE(files.itemExistsAtPath(path));
  EXPECT_EQ(files.contentsAtPath(path), std::nullopt);
  EXPECT_EQ(files.removeItemAtPath(path)->code, EINVAL);
  EXPECT_EQ(files.writeDataToFile({}, path, true)->code, EINVAL);
  EXPECT_EQ(files.moveItemAtPath(path, at("c"))->code, EINVAL);
  EXPECT_EQ(files.moveItemAtPath(at("a"), path)->code, EINVAL);
  EXPECT_EQ(files.createDirectoryAtPath(path, true)->code, EINVAL);
  EXPECT_TRUE(files.fileExistsAtPath(at("a")));
}

TEST_F(PosixFileManagerTest, AFolderAndALinkToItAreDirectories) {
  fs::create_directory(at("folder"));
  fs::create_directory_symlink("folder", at("link"));
  make(at("file"));
  EXPECT_TRUE(files.isDirectoryAtPath(at("folder")));
  EXPECT_TRUE(files.isDirectoryAtPath(at("link")));
  EXPECT_FALSE(files.isDirectoryAtPath(at("file")));
}

TEST_F(PosixFileManagerTest, WritableIsWhatTheEffectiveUserMayWrite) {
  fs::create_directory(at("folder"));
  EXPECT_TRUE(files.isWritableFileAtPath(at("folder")));
  EXPECT_FALSE(files.isWritableFileAtPath(at("missing")));
  asNobody([&] { return files.isWritableFileAtPath(at("folder")) ? 1 : 0; });
}

TEST_F(PosixFileManagerTest, AFoldersNamesComeWithoutDotAndDotDot) {
  make(at("tmp/a"));
  make(at("tmp/.b"));
  make(at("tmp/\xFF\n"));
  EXPECT_THAT(files.contentsOfDirectoryAtPath(at("tmp")),
              testing::UnorderedElementsAre("a", ".b", "\xFF\n"));
  EXPECT_TRUE(files.contentsOfDirectoryAtPath(at("missing")).empty());
  EXPECT_TRUE(files.contentsOfDirectoryAtPath(at("tmp/a")).empty());
}

TEST_F(PosixFileManagerTest, ReadingTellsAMissingFileFromAnUnreadableOne) {
  std::optional<Error> error;
  EXPECT_EQ(files.contentsAtPath(at("missing"), &error), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_EQ(error->domain, "POSIX");
  EXPECT_THAT(error->message, testing::HasSubstr(at("missing")));
  EXPECT_EQ(files.contentsAtPath(home.path(), &error), std::nullopt);
  EXPECT_EQ(error->code, EISDIR);
  make(at("file"), "abc");
  EXPECT_EQ(files.contentsAtPath(at("file"), &error), bytes("abc"));
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(PosixFileManagerTest, ReadingANamedPipeDoesNotWaitForAWriter) {
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  std::optional<Error> error;
  EXPECT_EQ(files.contentsAtPath(at("pipe"), &error), std::nullopt);
  EXPECT_EQ(error->code, EINVAL);
}

TEST_F(PosixFileManagerTest, AFileWhoseSizeTheSystemDoesNotTellIsReadWhole) {
  EXPECT_THAT(text("/proc/self/status"), testing::HasSubstr("Threads:"));
}

TEST_F(PosixFileManagerTest, AnEmptyFileIsEmptyDataAndNotNil) {
  make(at("file"), "");
  EXPECT_EQ(files.contentsAtPath(at("file")), Data());
}

TEST_F(PosixFileManagerTest, AFolderIsMadeWithModeSevenHundred) {
  EXPECT_EQ(files.createDirectoryAtPath(at("folder"), false), std::nullopt);
  EXPECT_EQ(statusOf(at("folder")).st_mode & 0777, 0700u);
}

TEST_F(PosixFileManagerTest, MissingFoldersAboveAreMadeOnlyOnRequest) {
  EXPECT_EQ(files.createDirectoryAtPath(at("a/b/c"), false)->code, ENOENT);
  EXPECT_EQ(files.createDirectoryAtPath(at("a//b/c/"), true), std::nullopt);
  EXPECT_TRUE(fs::is_directory(at("a/b/c")));
  EXPECT_EQ(statusOf(at("a")).st_mode & 0777, 0700u);
}

TEST_F(PosixFileManagerTest, AnExistingFolderIsAnErrorOnlyWithoutIntermediates) {
  EXPECT_EQ(files.createDirectoryAtPath(at("tmp"), true), std::nullopt);
  EXPECT_EQ(files.createDirectoryAtPath(at("tmp"), false)->code, EEXIST);
}

TEST_F(PosixFileManagerTest, AFileInTheWayOfAFolderIsAnErrorThatNamesIt) {
  make(at("file"));
  EXPECT_EQ(files.createDirectoryAtPath(at("file"), true)->code, EEXIST);
  const auto error = files.createDirectoryAtPath(at("file/a/b"), true);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOTDIR);
  EXPECT_THAT(error->message, testing::HasSubstr(at("file")));
}

TEST_F(PosixFileManagerTest, ANewFileIsReadableByItsOwnerOnly) {
  for (const bool atomically : {false, true}) {
    const std::string path = at(atomically ? "a" : "b");
    EXPECT_EQ(files.writeDataToFile(bytes("x"), path, atomically), std::nullopt);
    EXPECT_EQ(statusOf(path).st_mode & 0777, 0600u);
    EXPECT_EQ(text(path), "x");
  }
}

TEST_F(PosixFileManagerTest, AnAtomicWriteIsAnotherFileWithTheModeOfTheOldOne) {
  make(at("file"), "old");
  ASSERT_EQ(chmod(at("file").c_str(), 0644), 0);
  const auto before = statusOf(at("file"));
  EXPECT_EQ(files.writeDataToFile(bytes("new"), at("file"), true), std::nullopt);
  EXPECT_EQ(text(at("file")), "new");
  EXPECT_EQ(statusOf(at("file")).st_mode & 0777, 0644u);
  EXPECT_NE(statusOf(at("file")).st_ino, before.st_ino);
}

TEST_F(PosixFileManagerTest, AReaderDuringAtomicWritesSeesOneContentOrTheOther) {
  const std::string first(100000, 'a');
  const std::string second(200000, 'b');
  make(at("file"), first);
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    for (int round = 0; round < 30; ++round) {
      files.writeDataToFile(bytes(round % 2 == 0 ? second : first), at("file"), true);
    }
    stop = true;
  });
  int torn = 0;
  while (!stop) {
    const std::string seen = text(at("file"));
    if (seen != first && seen != second) ++torn;
  }
  writer.join();
  EXPECT_EQ(torn, 0);
}

TEST_F(PosixFileManagerTest, AnAtomicWriteThroughALinkReplacesTheFileItPointsTo) {
  make(at("tmp/target"), "old");
  fs::create_symlink("tmp/target", at("link"));
  EXPECT_EQ(files.writeDataToFile(bytes("new"), at("link"), true), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(at("link")));
  EXPECT_EQ(text(at("tmp/target")), "new");
}

TEST_F(PosixFileManagerTest, AWriteToAFolderFailsAndLeavesNothing) {
  fs::create_directory(at("tmp/folder"));
  EXPECT_EQ(files.writeDataToFile(bytes("x"), at("tmp/folder"), true)->code, EISDIR);
  EXPECT_EQ(files.contentsOfDirectoryAtPath(at("tmp")).size(), 1u);
}

TEST_F(PosixFileManagerTest, AWriteIntoAMissingFolderIsAnErrorThatNamesTheFile) {
  const auto error = files.writeDataToFile(bytes("x"), at("missing/file"), true);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_THAT(error->message, testing::AllOf(testing::HasSubstr(at("missing/file")),
                                             testing::HasSubstr("No such file or directory")));
}

TEST_F(PosixFileManagerTest, AnAtomicWriteThatExceedsTheLimitKeepsTheOldFileAndLeavesNothing) {
  make(at("tmp/file"), "old");
  auto child = forkChild([&](ParentLink&) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    const auto error = files.writeDataToFile(Data(5000, 'x'), at("tmp/file"), true);
    return error && error->code == EFBIG ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(text(at("tmp/file")), "old");
  EXPECT_EQ(files.contentsOfDirectoryAtPath(at("tmp")).size(), 1u);
}

TEST_F(PosixFileManagerTest, TheLongestNameCanBeWrittenAtomically) {
  const std::string path = at(std::string(255, 'n'));
  EXPECT_EQ(files.writeDataToFile(bytes("x"), path, true), std::nullopt);
  EXPECT_EQ(text(path), "x");
}

TEST_F(PosixFileManagerTest, NamesOfAnyBytesCanBeWrittenReadMovedAndRemoved) {
  for (const std::string name :
       {"\xFF\xFE", "-rf", "a\nb", " ", "$(x) `y` 'z' \"w\"", "%s%n", "*", "\\"}) {
    const std::string path = at("tmp/" + name);
    EXPECT_EQ(files.writeDataToFile(bytes(name), path, true), std::nullopt);
    EXPECT_EQ(text(path), name);
    EXPECT_EQ(files.moveItemAtPath(path, path + "2"), std::nullopt);
    EXPECT_EQ(files.removeItemAtPath(path + "2"), std::nullopt);
  }
  EXPECT_TRUE(fs::is_empty(at("tmp")));
}

TEST_F(PosixFileManagerTest, RemovingAMissingItemIsAnErrorThatNamesIt) {
  const auto error = files.removeItemAtPath(at("missing"));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_THAT(error->message, testing::HasSubstr(at("missing")));
}

TEST_F(PosixFileManagerTest, RemovingALinkToAFolderLeavesTheFolderAlsoWithASlashAtTheEnd) {
  for (const char* const slash : {"", "/", "//"}) {
    fs::create_directories(at("folder"));
    make(at("folder/file"));
    fs::create_directory_symlink("folder", at("link"));
    EXPECT_EQ(files.removeItemAtPath(at("link") + slash), std::nullopt);
    EXPECT_FALSE(files.itemExistsAtPath(at("link")));
    EXPECT_TRUE(fs::exists(at("folder/file")));
  }
}

TEST_F(PosixFileManagerTest, RemovingAFolderDoesNotFollowTheLinksInside) {
  fs::create_directory(at("kept"));
  make(at("kept/file"));
  fs::create_directory(at("folder"));
  fs::create_directory_symlink(at("kept"), at("folder/link"));
  EXPECT_EQ(files.removeItemAtPath(at("folder")), std::nullopt);
  EXPECT_FALSE(fs::exists(at("folder")));
  EXPECT_TRUE(fs::exists(at("kept/file")));
}

TEST_F(PosixFileManagerTest, RemovingRefusesDotAndDotDotAndTheTop) {
  fs::create_directories(at("a/b"));
  EXPECT_EQ(files.removeItemAtPath(at("a/b/."))->code, EINVAL);
  EXPECT_EQ(files.removeItemAtPath(at("a/b/.."))->code, EINVAL);
  EXPECT_EQ(files.removeItemAtPath("/")->code, EBUSY);
  EXPECT_EQ(files.removeItemAtPath("")->code, EINVAL);
  EXPECT_TRUE(fs::exists(at("a/b")));
}

TEST_F(PosixFileManagerTest, ATreeDeeperThanAnyPathIsRemoved) {
  makeDeep(at("top"), 3000);
  EXPECT_EQ(files.removeItemAtPath(at("top")), std::nullopt);
  EXPECT_FALSE(files.itemExistsAtPath(at("top")));
}

TEST_F(PosixFileManagerTest, ADeepTreeIsRemovedWithFewDescriptors) {
  makeDeep(at("top"), 300);
  auto child = forkChild([&](ParentLink&) {
    const rlimit limit{40, 40};
    setrlimit(RLIMIT_NOFILE, &limit);
    return files.removeItemAtPath(at("top")) ? 1 : 0;
  });
  EXPECT_EQ(child.waitForExit(30), 0);
  EXPECT_FALSE(files.itemExistsAtPath(at("top")));
}

TEST_F(PosixFileManagerTest, AFolderOfManyNamesIsRemoved) {
  fs::create_directory(at("many"));
  const Descriptor folder(open(at("many").c_str(), O_RDONLY | O_DIRECTORY));
  for (int number = 0; number < 20000; ++number) {
    ASSERT_EQ(mknodat(folder.get(), std::to_string(number).c_str(), S_IFREG | 0600, 0), 0);
  }
  EXPECT_EQ(files.removeItemAtPath(at("many")), std::nullopt);
  EXPECT_FALSE(fs::exists(at("many")));
}

TEST_F(PosixFileManagerTest, AFolderThatMayNotBeChangedStopsTheRemovalWithItsPath) {
  asNobody([&] {
    fs::create_directories(at("top/closed"));
    std::ofstream(at("top/closed/file")) << "x";
    chmod(at("top/closed").c_str(), 0500);
    const auto error = files.removeItemAtPath(at("top"));
    const bool told = error && error->code == EACCES &&
                      error->message.find(at("top/closed/file")) != std::string::npos;
    const bool kept = fs::exists(at("top/closed/file"));
    chmod(at("top/closed").c_str(), 0700);
    return told && kept ? 0 : 1;
  });
}

TEST_F(PosixFileManagerTest, AMovedFileIsTheSameFile) {
  make(at("a"), "x");
  const auto before = statusOf(at("a"));
  EXPECT_EQ(files.moveItemAtPath(at("a"), at("b")), std::nullopt);
  EXPECT_EQ(statusOf(at("b")).st_ino, before.st_ino);
  EXPECT_FALSE(fs::exists(at("a")));
}

TEST_F(PosixFileManagerTest, AMoveNeverReplacesWhatIsThere) {
  make(at("a"), "new");
  make(at("b"), "old");
  fs::create_directory(at("folder"));
  fs::create_symlink("nowhere", at("dangling"));
  for (const char* const target : {"b", "folder", "dangling"}) {
    const auto error = files.moveItemAtPath(at("a"), at(target));
    ASSERT_TRUE(error) << target;
    EXPECT_EQ(error->code, EEXIST);
    EXPECT_THAT(error->message,
                testing::AllOf(testing::HasSubstr(at("a")), testing::HasSubstr(at(target))));
  }
  EXPECT_EQ(text(at("a")), "new");
  EXPECT_EQ(text(at("b")), "old");
}

TEST_F(PosixFileManagerTest, AMoveToItselfUnderAnySpellingIsAnErrorAndLosesNothing) {
  make(at("tmp/a"), "x");
  fs::create_directory_symlink("tmp", at("spelling"));
  fs::create_hard_link(at("tmp/a"), at("tmp/same"));
  for (const std::string to :
       {"tmp/a", "tmp/./a", "tmp//a", "spelling/a", "tmp/same", "tmp/../tmp/a"}) {
    EXPECT_EQ(files.moveItemAtPath(at("tmp/a"), at(to))->code, EEXIST) << to;
    EXPECT_EQ(text(at("tmp/a")), "x");
  }
}

TEST_F(PosixFileManagerTest, AFolderCannotBeMovedIntoItselfOrBelow) {
  fs::create_directories(at("folder/below"));
  fs::create_directory_symlink("folder/below", at("spelling"));
  for (const std::string to :
       {"folder/new", "folder/below/new", "spelling/new", "folder/below/../new"}) {
    const auto error = files.moveItemAtPath(at("folder"), at(to));
    ASSERT_TRUE(error) << to;
    EXPECT_EQ(error->code, EINVAL);
    EXPECT_THAT(error->message, testing::HasSubstr("into itself"));
  }
  EXPECT_TRUE(fs::exists(at("folder/below")));
}

TEST_F(PosixFileManagerTest, AFolderMayMoveBesideOneWhoseNameBeginsTheSame) {
  fs::create_directories(at("folder"));
  fs::create_directories(at("folder2"));
  EXPECT_EQ(files.moveItemAtPath(at("folder"), at("folder2/folder")), std::nullopt);
}

TEST_F(PosixFileManagerTest, SlashesAtTheEndOfAMoveDoNotCount) {
  fs::create_directory(at("folder"));
  EXPECT_EQ(files.moveItemAtPath(at("folder") + "/", at("moved") + "//"), std::nullopt);
  EXPECT_TRUE(fs::is_directory(at("moved")));
}

TEST_F(PosixFileManagerTest, ALinkIsMovedAndNotWhatItPointsTo) {
  fs::create_directory(at("folder"));
  fs::create_directory_symlink("folder", at("link"));
  EXPECT_EQ(files.moveItemAtPath(at("link") + "/", at("moved")), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(at("moved")));
  EXPECT_TRUE(fs::is_directory(at("folder")));
}

TEST_F(PosixFileManagerTest, AMissingSourceOrTargetFolderIsAnError) {
  make(at("a"));
  EXPECT_EQ(files.moveItemAtPath(at("missing"), at("b"))->code, ENOENT);
  EXPECT_EQ(files.moveItemAtPath(at("a"), at("missing/b"))->code, ENOENT);
  EXPECT_EQ(files.moveItemAtPath(at("a"), at("a/b"))->code, ENOTDIR);
  EXPECT_TRUE(fs::exists(at("a")));
}

TEST_F(PosixFileManagerTest, OfTwoThreadsThatMoveToOneNameOneWinsAndNothingIsLost) {
  for (int round = 0; round < 50; ++round) {
    make(at("tmp/a"), "a");
    make(at("tmp/b"), "b");
    std::atomic<int> moved{0};
    std::thread other([&] {
      if (!files.moveItemAtPath(at("tmp/a"), at("tmp/to"))) ++moved;
    });
    if (!files.moveItemAtPath(at("tmp/b"), at("tmp/to"))) ++moved;
    other.join();
    EXPECT_EQ(moved, 1);
    EXPECT_EQ(files.contentsOfDirectoryAtPath(at("tmp")).size(), 2u);
    for (const auto& entry : fs::directory_iterator(at("tmp"))) fs::remove(entry);
  }
}

TEST_F(PosixFileManagerTest, ACopyIsAnotherFileWithTheSameContentAndTheSourceStays) {
  make(at("a"), "content");
  EXPECT_EQ(files.copyItemAtPath(at("a"), at("b")), std::nullopt);
  EXPECT_EQ(text(at("b")), "content");
  EXPECT_NE(statusOf(at("a")).st_ino, statusOf(at("b")).st_ino);
  make(at("b"), "changed");
  EXPECT_EQ(text(at("a")), "content");
}

TEST_F(PosixFileManagerTest, ACopyKeepsModeOwnerAndTimes) {
  make(at("a"));
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(chown(at("a").c_str(), isRoot ? 1234 : geteuid(), isRoot ? 2345 : getegid()), 0);
  ASSERT_EQ(chmod(at("a").c_str(), 0745), 0);
  const struct timespec times[2] = {{1'000'000'001, 2}, {1'000'000'003, 123'456'789}};
  ASSERT_EQ(utimensat(AT_FDCWD, at("a").c_str(), times, 0), 0);
  EXPECT_EQ(files.copyItemAtPath(at("a"), at("b")), std::nullopt);
  const auto copy = statusOf(at("b"));
  const auto source = statusOf(at("a"));
  EXPECT_EQ(copy.st_mode, source.st_mode);
  EXPECT_EQ(copy.st_uid, source.st_uid);
  EXPECT_EQ(copy.st_gid, source.st_gid);
  EXPECT_EQ(copy.st_mtim.tv_sec, 1'000'000'003);
  EXPECT_EQ(copy.st_mtim.tv_nsec, 123'456'789);
}

TEST_F(PosixFileManagerTest, AReadOnlyFileAndAReadOnlyTreeAreCopied) {
  fs::create_directory(at("tree"));
  make(at("tree/a"), "content");
  ASSERT_EQ(chmod(at("tree/a").c_str(), 0444), 0);
  ASSERT_EQ(chmod(at("tree").c_str(), 0555), 0);
  asNobody([&] {
    if (files.copyItemAtPath(at("tree"), at("copy"))) return 1;
    struct stat folder {};
    struct stat file {};
    if (stat(at("copy").c_str(), &folder) != 0 || stat(at("copy/a").c_str(), &file) != 0) return 2;
    if ((folder.st_mode & 0777) != 0555 || (file.st_mode & 0777) != 0444) return 3;
    return text(at("copy/a")) == "content" ? 0 : 4;
  });
}

TEST_F(PosixFileManagerTest, ACopyKeepsExtendedAttributes) {
  make(at("a"));
  if (setxattr(at("a").c_str(), "user.tervano", "value", 5, 0) != 0) {
    GTEST_SKIP() << "this file system has no attributes of users";
  }
  EXPECT_EQ(files.copyItemAtPath(at("a"), at("b")), std::nullopt);
  char kept[16] = {};
  EXPECT_EQ(getxattr(at("b").c_str(), "user.tervano", kept, sizeof kept), 5);
  EXPECT_STREQ(kept, "value");
}

TEST_F(PosixFileManagerTest, ACopyKeepsHoles) {
  make(at("a"));
  ASSERT_EQ(truncate(at("a").c_str(), 64 << 20), 0);
  EXPECT_EQ(files.copyItemAtPath(at("a"), at("b")), std::nullopt);
  EXPECT_EQ(statusOf(at("b")).st_size, 64 << 20);
  EXPECT_LT(statusOf(at("b")).st_blocks * 512, 1 << 20);
}

TEST_F(PosixFileManagerTest, AFolderIsCopiedWithEverythingInside) {
  fs::create_directories(at("tree/sub/empty"));
  make(at("tree/one"), "1");
  make(at("tree/sub/two"), "2");
  fs::create_hard_link(at("tree/one"), at("tree/sub/same"));
  fs::create_symlink("../one", at("tree/sub/link"));
  fs::create_symlink("nowhere", at("tree/dangling"));
  ASSERT_EQ(mkfifo(at("tree/pipe").c_str(), 0640), 0);
  EXPECT_EQ(files.copyItemAtPath(at("tree"), at("copy")), std::nullopt);
  EXPECT_EQ(text(at("copy/one")), "1");
  EXPECT_EQ(text(at("copy/sub/two")), "2");
  EXPECT_TRUE(fs::is_directory(at("copy/sub/empty")));
  EXPECT_EQ(statusOf(at("copy/one")).st_ino, statusOf(at("copy/sub/same")).st_ino);
  EXPECT_NE(statusOf(at("copy/one")).st_ino, statusOf(at("tree/one")).st_ino);
  EXPECT_EQ(fs::read_symlink(at("copy/sub/link")), "../one");
  EXPECT_EQ(fs::read_symlink(at("copy/dangling")), "nowhere");
  EXPECT_TRUE(S_ISFIFO(statusOf(at("copy/pipe")).st_mode));
  EXPECT_EQ(text(at("tree/sub/two")), "2");
}

TEST_F(PosixFileManagerTest, ATreeDeeperThanAnyPathIsCopied) {
  constexpr int kDepth = 1000;
  static_assert(kDepth * sizeof("deep") > PATH_MAX);
  makeDeep(at("top"), kDepth);
  ASSERT_EQ(files.copyItemAtPath(at("top"), at("copy")), std::nullopt);
  Descriptor folder(open(at("copy").c_str(), O_RDONLY | O_DIRECTORY));
  int depth = 0;
  while (faccessat(folder.get(), "deep", F_OK, 0) == 0) {
    folder.reset(openat(folder.get(), "deep", O_RDONLY | O_DIRECTORY));
    ++depth;
  }
  EXPECT_EQ(depth, kDepth);
  EXPECT_EQ(faccessat(folder.get(), "end", F_OK, 0), 0);
  EXPECT_EQ(files.removeItemAtPath(at("top")), std::nullopt);
  EXPECT_EQ(files.removeItemAtPath(at("copy")), std::nullopt);
}

TEST_F(PosixFileManagerTest, ALinkIsCopiedAndNotWhatItPointsTo) {
  fs::create_directory(at("folder"));
  fs::create_directory_symlink("folder", at("link"));
  fs::create_symlink("nowhere", at("dangling"));
  EXPECT_EQ(files.copyItemAtPath(at("link") + "/", at("copy")), std::nullopt);
  EXPECT_EQ(fs::read_symlink(at("copy")), "folder");
  EXPECT_EQ(files.copyItemAtPath(at("dangling"), at("copy2")), std::nullopt);
  EXPECT_EQ(fs::read_symlink(at("copy2")), "nowhere");
}

TEST_F(PosixFileManagerTest, NamesOfAnyBytesCanBeCopied) {
  for (const std::string& name :
       {std::string("\xFF\xFE"), std::string("-rf"), std::string("a\nb"), std::string(" "),
        std::string("$(x) `y` 'z' \"w\""), std::string("%s%n"), std::string("*"), std::string("\\"),
        std::string(255, 'n')}) {
    fs::create_directory(at("tmp/folder"));
    make(at("tmp/folder/" + name), name);
    EXPECT_EQ(files.copyItemAtPath(at("tmp/folder/" + name), at("tmp/" + name)), std::nullopt);
    EXPECT_EQ(text(at("tmp/" + name)), name);
    EXPECT_EQ(files.copyItemAtPath(at("tmp/folder"), at("tmp/copy")), std::nullopt);
    EXPECT_EQ(text(at("tmp/copy/" + name)), name);
    for (const auto& entry : fs::directory_iterator(at("tmp"))) fs::remove_all(entry);
  }
}

TEST_F(PosixFileManagerTest, ACopyNeverReplacesWhatIsThere) {
  make(at("tmp/a"), "new");
  make(at("tmp/b"), "old");
  fs::create_directory(at("tmp/folder"));
  fs::create_symlink("nowhere", at("tmp/dangling"));
  for (const char* const target : {"tmp/b", "tmp/folder", "tmp/dangling"}) {
    const auto error = files.copyItemAtPath(at("tmp/a"), at(target));
    ASSERT_TRUE(error) << target;
    EXPECT_EQ(error->code, EEXIST);
    EXPECT_EQ(error->message,
              "Could not copy " + at("tmp/a") + " to " + at(target) + ": File exists");
  }
  EXPECT_EQ(text(at("tmp/a")), "new");
  EXPECT_EQ(text(at("tmp/b")), "old");
  EXPECT_EQ(fs::read_symlink(at("tmp/dangling")), "nowhere");
  EXPECT_EQ(files.contentsOfDirectoryAtPath(at("tmp")).size(), 4u);
}

TEST_F(PosixFileManagerTest, ACopyToItselfUnderAnySpellingIsAnErrorAndLosesNothing) {
  make(at("tmp/a"), "x");
  fs::create_directory_symlink("tmp", at("spelling"));
  for (const std::string to :
       {"tmp/a", "tmp/./a", "tmp//a", "spelling/a", "tmp/../tmp/a", "tmp/a/"}) {
    EXPECT_EQ(files.copyItemAtPath(at("tmp/a"), at(to))->code, EEXIST) << to;
    EXPECT_EQ(text(at("tmp/a")), "x");
  }
}

TEST_F(PosixFileManagerTest, AFolderCannotBeCopiedIntoItselfOrBelow) {
  fs::create_directories(at("folder/below"));
  fs::create_directory_symlink("folder/below", at("spelling"));
  for (const std::string to :
       {"folder/new", "folder/below/new", "spelling/new", "folder/below/../new"}) {
    const auto error = files.copyItemAtPath(at("folder"), at(to));
    ASSERT_TRUE(error) << to;
    EXPECT_EQ(error->code, EINVAL);
    EXPECT_EQ(error->message, "Could not copy " + at("folder") + " to " + at(to) +
                                  ": a folder cannot be copied into itself");
  }
  EXPECT_EQ(files.contentsOfDirectoryAtPath(at("folder")).size(), 1u);
  EXPECT_TRUE(files.contentsOfDirectoryAtPath(at("folder/below")).empty());
}

TEST_F(PosixFileManagerTest, AFolderMayBeCopiedBesideOneWhoseNameBeginsTheSame) {
  fs::create_directories(at("folder/inside"));
  fs::create_directories(at("folder2"));
  EXPECT_EQ(files.copyItemAtPath(at("folder"), at("folder2/folder")), std::nullopt);
  EXPECT_TRUE(fs::exists(at("folder2/folder/inside")));
}

TEST_F(PosixFileManagerTest, SlashesAtTheEndOfACopyDoNotCount) {
  fs::create_directories(at("folder/inside"));
  EXPECT_EQ(files.copyItemAtPath(at("folder") + "/", at("copy") + "//"), std::nullopt);
  EXPECT_TRUE(fs::is_directory(at("copy/inside")));
}

TEST_F(PosixFileManagerTest, ACopyOfOrToNoItemIsAnErrorThatNamesBoth) {
  make(at("a"));
  const struct {
    std::string from;
    std::string to;
    int code;
  } cases[] = {{at("missing"), at("b"), ENOENT},
               {at("a"), at("missing/b"), ENOENT},
               {at("a"), at("a/b"), ENOTDIR},
               {at("a/b"), at("b"), ENOTDIR},
               {"", at("b"), EINVAL},
               {at("a"), "", EINVAL},
               {at("a") + std::string(1, '\0'), at("b"), EINVAL},
               {at("a"), at("b") + std::string(1, '\0'), EINVAL},
               {at("."), at("b"), EINVAL},
               {at(".."), at("b"), EINVAL},
               {at("a"), at("."), EINVAL},
               {"/", at("b"), EBUSY},
               {at("a"), "/", EBUSY},
               {at("a"), at(std::string(256, 'n')), ENAMETOOLONG},
               {at(std::string(256, 'n')), at("b"), ENAMETOOLONG}};
  const auto before = files.contentsOfDirectoryAtPath(home.path()).size();
  for (const auto& one : cases) {
    const auto error = files.copyItemAtPath(one.from, one.to);
    ASSERT_TRUE(error) << one.from << " " << one.to;
    EXPECT_EQ(error->domain, "POSIX");
    EXPECT_EQ(error->code, one.code) << one.from << " " << one.to;
    EXPECT_THAT(error->message,
                testing::StartsWith("Could not copy " + one.from + " to " + one.to + ": "));
  }
  EXPECT_EQ(files.contentsOfDirectoryAtPath(home.path()).size(), before);
}

TEST_F(PosixFileManagerTest, ALoopOfLinksAboveACopyIsAnError) {
  make(at("a"));
  fs::create_symlink("loop", at("loop"));
  EXPECT_EQ(files.copyItemAtPath(at("a"), at("loop/b"))->code, ELOOP);
  EXPECT_EQ(files.copyItemAtPath(at("loop/a"), at("b"))->code, ELOOP);
}

TEST_F(PosixFileManagerTest, WhatMayNotBeReadOrWrittenStopsTheCopyAndNothingStays) {
  fs::create_directories(at("tree"));
  fs::create_directory(at("locked"));
  make(at("tree/a"));
  make(at("tree/secret"));
  make(at("plain"));
  ASSERT_EQ(chmod(at("tree").c_str(), 0755), 0);
  ASSERT_EQ(chmod(at("tree/a").c_str(), 0644), 0);
  ASSERT_EQ(chmod(at("plain").c_str(), 0644), 0);
  ASSERT_EQ(chmod(at("locked").c_str(), 0555), 0);
  asNobody([&] {
    const auto secret = files.copyItemAtPath(at("tree/secret"), at("copy"));
    if (!secret || secret->code != EACCES) return 1;
    const auto tree = files.copyItemAtPath(at("tree"), at("copy"));
    if (!tree || tree->code != EACCES) return 2;
    if (tree->message.find(at("tree/secret")) == std::string::npos) return 3;
    if (files.itemExistsAtPath(at("copy"))) return 4;
    const auto locked = files.copyItemAtPath(at("plain"), at("locked/copy"));
    return locked && locked->code == EACCES ? 0 : 5;
  });
  EXPECT_TRUE(files.contentsOfDirectoryAtPath(at("locked")).empty());
  for (const auto& name : files.contentsOfDirectoryAtPath(home.path())) {
    EXPECT_FALSE(name.starts_with(".tervano-")) << name;
  }
}

TEST_F(PosixFileManagerTest, ACopyThatExceedsTheLimitIsAnErrorAndNothingStays) {
  make(at("tmp/a"), std::string(5000, 'x'));
  auto child = forkChild([&](ParentLink&) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    const auto error = files.copyItemAtPath(at("tmp/a"), at("tmp/b"));
    return error && error->code == EFBIG ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(files.contentsOfDirectoryAtPath(at("tmp")).size(), 1u);
}

TEST_F(PosixFileManagerTest, OfTwoThreadsThatCopyToOneNameOneWins) {
  make(at("a"), "a");
  make(at("b"), "b");
  for (int round = 0; round < 20; ++round) {
    std::atomic<int> copied{0};
    std::thread other([&] {
      if (!files.copyItemAtPath(at("a"), at("tmp/to"))) ++copied;
    });
    if (!files.copyItemAtPath(at("b"), at("tmp/to"))) ++copied;
    other.join();
    EXPECT_EQ(copied, 1);
    EXPECT_EQ(files.contentsOfDirectoryAtPath(at("tmp")).size(), 1u);
    fs::remove(at("tmp/to"));
  }
}

TEST_F(PosixFileManagerTest, AModificationDateIsSetToTheNanosecond) {
  make(at("a"));
  for (const std::int64_t date : {std::int64_t(1'600'000'000'123'456'789), std::int64_t(0),
                                  std::int64_t(-1), std::int64_t(-1'500'000'000)}) {
    EXPECT_EQ(files.setAttributesOfItemAtPath({date, std::nullopt}, at("a")), std::nullopt);
    const auto time = statusOf(at("a")).st_mtim;
    EXPECT_EQ(time.tv_sec * 1'000'000'000 + time.tv_nsec, date);
  }
}

TEST_F(PosixFileManagerTest, SettingTheModificationLeavesTheRestAlone) {
  make(at("a"), "content");
  ASSERT_EQ(chmod(at("a").c_str(), 0640), 0);
  const struct timespec times[2] = {{1'000'000'001, 2}, {1'000'000'003, 4}};
  ASSERT_EQ(utimensat(AT_FDCWD, at("a").c_str(), times, 0), 0);
  EXPECT_EQ(files.setAttributesOfItemAtPath({5, 6}, at("a")), std::nullopt);
  const auto status = statusOf(at("a"));
  EXPECT_EQ(status.st_atim.tv_sec, 1'000'000'001);
  EXPECT_EQ(status.st_atim.tv_nsec, 2);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_EQ(text(at("a")), "content");
}

TEST_F(PosixFileManagerTest, WithoutModificationDateNothingIsSet) {
  make(at("a"));
  const struct timespec times[2] = {{1'000'000'001, 2}, {1'000'000'003, 4}};
  ASSERT_EQ(utimensat(AT_FDCWD, at("a").c_str(), times, 0), 0);
  EXPECT_EQ(files.setAttributesOfItemAtPath({}, at("a")), std::nullopt);
  EXPECT_EQ(files.setAttributesOfItemAtPath({std::nullopt, 7}, at("a")), std::nullopt);
  EXPECT_EQ(statusOf(at("a")).st_mtim.tv_sec, 1'000'000'003);
  EXPECT_EQ(statusOf(at("a")).st_mtim.tv_nsec, 4);
}

TEST_F(PosixFileManagerTest, FoldersReadOnlyFilesAndOddNamesAreDatedToo) {
  fs::create_directory(at("folder"));
  make(at("read only"));
  ASSERT_EQ(chmod(at("read only").c_str(), 0400), 0);
  make(at("\xFF\n-rf"));
  for (const std::string name : {"folder", "folder/", "read only", "\xFF\n-rf"}) {
    EXPECT_EQ(files.setAttributesOfItemAtPath({5'000'000'000, std::nullopt}, at(name)),
              std::nullopt);
    EXPECT_EQ(statusOf(at(name)).st_mtim.tv_sec, 5) << name;
  }
}

TEST_F(PosixFileManagerTest, TheDatesOfALinkAreItsOwn) {
  make(at("a"));
  fs::create_symlink("a", at("link"));
  fs::create_symlink("nowhere", at("dangling"));
  const auto before = statusOf(at("a")).st_mtim;
  for (const char* const name : {"link", "dangling"}) {
    EXPECT_EQ(files.setAttributesOfItemAtPath({5'000'000'000, std::nullopt}, at(name)),
              std::nullopt);
    EXPECT_EQ(statusOf(at(name)).st_mtim.tv_sec, 5);
  }
  EXPECT_EQ(statusOf(at("a")).st_mtim.tv_sec, before.tv_sec);
  EXPECT_EQ(statusOf(at("a")).st_mtim.tv_nsec, before.tv_nsec);
}

TEST_F(PosixFileManagerTest, DatesThatCannotBeSetAreAnErrorThatNamesTheItem) {
  make(at("a"));
  ASSERT_EQ(chmod(at("a").c_str(), 0644), 0);
  const struct {
    std::string path;
    int code;
  } cases[] = {{at("missing"), ENOENT},
               {at("a/b"), ENOTDIR},
               {"", EINVAL},
               {at("a") + std::string(1, '\0') + "b", EINVAL},
               {at(std::string(256, 'n')), ENAMETOOLONG}};
  for (const auto& one : cases) {
    const auto error = files.setAttributesOfItemAtPath({5, std::nullopt}, one.path);
    ASSERT_TRUE(error) << one.path;
    EXPECT_EQ(error->domain, "POSIX");
    EXPECT_EQ(error->code, one.code) << one.path;
    EXPECT_THAT(error->message,
                testing::StartsWith("Could not set the dates of " + one.path + ": "));
  }
  asNobody([&] {
    const auto error = files.setAttributesOfItemAtPath({5, std::nullopt}, at("a"));
    return error && (error->code == EACCES || error->code == EPERM) ? 0 : 1;
  });
}

}  // namespace
}  // namespace tervano
