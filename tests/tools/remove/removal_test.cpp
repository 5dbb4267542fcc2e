#include "tools/remove/removal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "tests/support/child_process.h"
#include "tests/support/program.h"
#include "tests/tools/remove/remove_test.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr char kOverwriteFailure[] = "tervano-remove: Could not overwrite \"";

class RemovalTest : public MemoryRemoveTest {
 protected:
  // Folders one inside the other, made without paths that are too long.
  static void makeDeepTree(const std::string& top, int levels) {
    ASSERT_EQ(mkdir(top.c_str(), 0700), 0);
    Descriptor folder(open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int level = 0; level < levels; ++level) {
      ASSERT_EQ(mkdirat(folder.get(), "d", 0700), 0);
      folder.reset(openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      const Descriptor file(openat(folder.get(), "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      ASSERT_EQ(write(file.get(), "text", 4), 4);
    }
  }
  void makeFiles(const std::string& name, int count) const {
    folder(name);
    for (int number = 0; number < count; ++number) {
      makeFile(at(name + "/" + std::to_string(number)));
    }
  }
};

// Tests that belong to another user than the superuser.
class OtherUserTest : public RemovalTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
    ASSERT_EQ(chown(home_.path().c_str(), kNobody, kNobody), 0);
  }
};

TEST_F(RemovalTest, AFileIsOverwrittenRemovedAndListed) {
  const std::string path = file("name", marker());
  const Witness witness(path);
  const auto outcome = removeSecurely(path);
  expectSuccess(outcome);
  EXPECT_EQ(outcome.output, path + "\n");
  EXPECT_FALSE(exists(path));
  EXPECT_GE(witness.contents().size(), marker().size());
  EXPECT_EQ(countOf(witness.contents(), "nobody"), 0u);
}

TEST_F(RemovalTest, AFolderGoesWithAllThatLiesInIt) {
  const Witness first(file("tree/a/b/one", marker()));
  const Witness second(file("tree/two", marker()));
  folder("tree/c/empty");
  file("tree/empty file", "");
  const auto outcome = removeSecurely(at("tree"));
  expectSuccess(outcome);
  EXPECT_FALSE(exists(at("tree")));
  EXPECT_THAT(linesOf(outcome.output),
              UnorderedElementsAre(at("tree/a/b/one"), at("tree/two"), at("tree/empty file"),
                                   at("tree/a/b"), at("tree/a"), at("tree/c/empty"), at("tree/c"),
                                   at("tree")));
  EXPECT_EQ(linesOf(outcome.output).back(), at("tree"));
  EXPECT_EQ(countOf(first.contents() + second.contents(), "nobody"), 0u);
}

TEST_F(RemovalTest, SlashesBehindAFolderAreLeftOut) {
  file("tree/file");
  const auto outcome = removeSecurely(at("tree//"));
  expectSuccess(outcome);
  EXPECT_EQ(outcome.output, at("tree/file") + "\n" + at("tree") + "\n");
}

TEST_F(RemovalTest, WithoutVNothingIsListed) {
  const auto outcome = runRemove({"-rP", file("file")});
  expectSuccess(outcome);
  EXPECT_EQ(outcome.output, "");
}

TEST_F(RemovalTest, WithoutPContentsAreNotTouched) {
  const Witness witness(file("tree/file", marker()));
  expectSuccess(runRemove({"-r", at("tree")}));
  EXPECT_FALSE(exists(at("tree")));
  EXPECT_EQ(witness.contents(), marker());
}

TEST_F(RemovalTest, WithoutRAFolderStays) {
  file("tree/file");
  expectFailures(runRemove({"-vfP", at("tree"), file("other")}),
                 {sentence(at("tree"), "it is a folder, and -r was not given")});
  EXPECT_TRUE(exists(at("tree/file")));
  EXPECT_FALSE(exists(at("other")));
}

TEST_F(RemovalTest, AMissingPathIsQuietWithF) {
  for (const std::string& path :
       std::vector<std::string>{at("nothing"), at("no/thing"), file("file") + "/below", ""}) {
    const auto outcome = removeSecurely(path);
    expectSuccess(outcome);
    EXPECT_EQ(outcome.output, "");
  }
}

TEST_F(RemovalTest, AMissingPathIsAFailureWithoutF) {
  expectFailures(runRemove({"-rP", at("nothing")}),
                 {sentence(at("nothing"), "No such file or directory")});
  expectFailures(runRemove({"-rP", file("file") + "/below"}),
                 {sentence(at("file/below"), "Not a directory")});
}

TEST_F(RemovalTest, AFailureStopsNothingElse) {
  expectFailures(runRemove({"-rP", at("nothing"), file("a"), at("."), file("b")}),
                 {sentence(at("nothing"), "No such file or directory"),
                  sentence(at("."), "a path must not end in \".\" or \"..\"")});
  EXPECT_FALSE(exists(at("a")));
  EXPECT_FALSE(exists(at("b")));
}

TEST_F(RemovalTest, TheRootOfTheSystemIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to try it in a safe place";
  file("etc/file");
  inChild([&] {
    // What is removed should the tool ever do it.
    ASSERT_EQ(chroot(home_.path().c_str()), 0);
    ASSERT_EQ(chdir("/"), 0);
    const Descriptor errors(open("/errors", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    Report report(false, -1, errors.get());
    {
      Removal removal({true, true, true}, report);
      for (const char* const path : {"/", "//", "/.", "/..", "/etc/..", ".", "..", "./", "../"}) {
        removal.remove(path);
      }
    }
    EXPECT_FALSE(report.finish());
    EXPECT_TRUE(exists("/etc/file"));
  });
}

TEST_F(RemovalTest, EachRefusedPathHasItsSentence) {
  inChild([&] {
    ASSERT_EQ(chroot(home_.path().c_str()), 0);
    const Descriptor errors(open("/errors", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    Report report(false, -1, errors.get());
    Removal removal({true, true, true}, report);
    removal.remove("/");
    removal.remove("/..");
    report.finish();
    EXPECT_EQ(contentsOf("/errors"), sentence("/", "it holds the whole system") + "\n" +
                                         sentence("/..", "a path must not end in \".\" or \"..\"") +
                                         "\n");
  });
}

TEST_F(RemovalTest, ASymbolicLinkIsRemovedAndItsTargetStays) {
  file("target", marker());
  file("folder/inside", marker());
  folder("tree");
  fs::create_symlink(at("target"), at("tree/link"));
  fs::create_symlink("nowhere", at("tree/dangling"));
  fs::create_directory_symlink(at("folder"), at("tree/folder link"));
  fs::create_directory_symlink(at("folder"), at("top"));
  expectSuccess(removeSecurely(at("tree")));
  expectSuccess(removeSecurely(at("top")));
  EXPECT_FALSE(exists(at("tree")));
  EXPECT_FALSE(exists(at("top")));
  EXPECT_EQ(contentsOf(at("target")), marker());
  EXPECT_EQ(contentsOf(at("folder/inside")), marker());
}

TEST_F(RemovalTest, ALinkIsNotFollowedBecauseOfASlashBehindIt) {
  file("folder/inside");
  fs::create_directory_symlink(at("folder"), at("link"));
  expectFailures(removeSecurely(at("link/")), {sentence(at("link/"), "Not a directory")});
  EXPECT_TRUE(exists(at("link")));
  EXPECT_TRUE(exists(at("folder/inside")));
}

TEST_F(RemovalTest, LinksInFrontOfTheLastNameAreFollowed) {
  file("folder/inside");
  fs::create_directory_symlink(at("folder"), at("link"));
  expectSuccess(removeSecurely(at("link/inside")));
  EXPECT_FALSE(exists(at("folder/inside")));
  EXPECT_TRUE(exists(at("link")));
}

TEST_F(RemovalTest, AFileWithAnotherNameElsewhereIsOnlyUnlinked) {
  file("tree/file", marker());
  fs::create_hard_link(at("tree/file"), at("elsewhere"));
  const auto outcome = removeSecurely(at("tree"));
  expectSuccess(outcome);
  EXPECT_THAT(outcome.output, HasSubstr(at("tree/file")));
  EXPECT_FALSE(exists(at("tree")));
  EXPECT_EQ(contentsOf(at("elsewhere")), marker());
}

TEST_F(RemovalTest, AFileWithAllItsNamesInTheTreeIsOverwrittenWithTheLast) {
  for (int round = 0; round < 5; ++round) {
    const Witness witness(file("tree/a/first", marker()));
    folder("tree/b");
    for (int link = 0; link < 8; ++link) {
      fs::create_hard_link(at("tree/a/first"), at("tree/a/" + std::to_string(link)));
      fs::create_hard_link(at("tree/a/first"), at("tree/b/" + std::to_string(link)));
    }
    expectSuccess(removeSecurely(at("tree")));
    EXPECT_EQ(witness.status().st_nlink, 0u);
    EXPECT_EQ(countOf(witness.contents(), "nobody"), 0u);
  }
}

TEST_F(RemovalTest, TwoProcessesWithANameEachOverwriteTheContents) {
  for (int round = 0; round < 10; ++round) {
    const Witness witness(file("one", marker()));
    fs::create_hard_link(at("one"), at("two"));
    auto first = forkChild([&](ParentLink&) { return removeSecurely(at("one")).status; });
    auto second = forkChild([&](ParentLink&) { return removeSecurely(at("two")).status; });
    EXPECT_EQ(first.waitForExit(60), 0);
    EXPECT_EQ(second.waitForExit(60), 0);
    EXPECT_EQ(witness.status().st_nlink, 0u);
    EXPECT_EQ(countOf(witness.contents(), "nobody"), 0u);
  }
}

TEST_F(RemovalTest, PipesSocketsAndDevicesAreNeverOpened) {
  folder("tree");
  ASSERT_EQ(mkfifo(at("tree/pipe").c_str(), 0600), 0);
  ASSERT_TRUE(geteuid() != 0 ||
              mknod(at("tree/device").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0);
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{AF_UNIX, {}};
  std::strncpy(address.sun_path, at("tree/socket").c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  file("tree/file");
  const Descriptor events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(events.get(), at("tree").c_str(), IN_OPEN | IN_MODIFY), 0);
  expectSuccess(removeSecurely(at("tree")));
  EXPECT_FALSE(exists(at("tree")));
  std::string opened;
  alignas(inotify_event) char buffer[8192];
  const ssize_t length = read(events.get(), buffer, sizeof buffer);
  for (ssize_t place = 0; place < length;) {
    const auto* const event = reinterpret_cast<const inotify_event*>(buffer + place);
    if (event->len > 0) opened += std::string(event->name) + " ";
    place += static_cast<ssize_t>(sizeof *event + event->len);
  }
  EXPECT_THAT(opened, HasSubstr("file"));
  EXPECT_THAT(opened, Not(HasSubstr("pipe")));
  EXPECT_THAT(opened, Not(HasSubstr("device")));
  EXPECT_THAT(opened, Not(HasSubstr("socket")));
}

TEST_F(RemovalTest, NamesAreAnyBytes) {
  folder("tree");
  std::vector<std::string> expected{at("tree")};
  for (int byte = 1; byte < 256; ++byte) {
    if (byte == '/') continue;
    const std::string name = "a" + std::string(1, static_cast<char>(byte));
    makeFile(at("tree/" + name));
    if (byte != '\n') expected.push_back(at("tree/" + name));
  }
  makeFile(at("tree/-rf"));
  makeFile(at("tree/" + std::string(255, '\xFF')));
  const auto outcome = removeSecurely(at("tree"));
  expectSuccess(outcome);
  EXPECT_FALSE(exists(at("tree")));
  const auto lines = linesOf(outcome.output);
  for (const auto& line : expected) EXPECT_THAT(lines, testing::Contains(line));
  EXPECT_THAT(outcome.output, HasSubstr(at("tree/a\n\n")));
}

TEST_F(RemovalTest, APathThatIsTooLongIsTold) {
  const std::string path = at(std::string(5000, 'x'));
  const auto outcome = removeSecurely(path);
  expectFailures(outcome, {sentence(path, "File name too long")});
}

TEST_F(RemovalTest, AHomeFolderIsRemovedWhenThatIsAsked) {
  const std::string home = folder("home");
  file("home/.config/file");
  home_.setVariable("HOME", home);
  expectSuccess(removeSecurely(home));
  EXPECT_FALSE(exists(home));
}

TEST_F(RemovalTest, TreesAreTwoThousandLevelsDeepWithFewDescriptors) {
  makeDeepTree(at("deep"), 2000);
  const auto outcome = removeSecurely(at("deep"), [] {
    limitDescriptors(64);
    return true;
  });
  expectSuccess(outcome);
  EXPECT_EQ(linesOf(outcome.output).size(), 4001u);
  EXPECT_FALSE(exists(at("deep")));
}

TEST_F(RemovalTest, AHundredThousandFilesGoWithFewDescriptors) {
  constexpr int kFiles = 100000;
  constexpr int kWithContents = 5000;
  makeFiles("many", kWithContents);
  // Without contents they need no memory of the file system.
  for (int number = kWithContents; number < kFiles; ++number) {
    file("many/" + std::to_string(number), "");
  }
  const auto outcome = removeSecurely(at("many"), [] {
    limitDescriptors(64);
    return true;
  });
  expectSuccess(outcome);
  EXPECT_EQ(linesOf(outcome.output).size(), kFiles + 1u);
  EXPECT_FALSE(exists(at("many")));
}

TEST_F(RemovalTest, ManyPathsAreTakenAtOnce) {
  makeFiles("many", 500);
  std::vector<std::string> words{"-P"};
  for (int number = 0; number < 500; ++number)
    words.push_back(at("many/" + std::to_string(number)));
  expectSuccess(runRemove(words));
  EXPECT_TRUE(fs::is_empty(at("many")));
}

TEST_F(RemovalTest, OverlappingPathsAreNoFailure) {
  file("tree/a/file");
  expectSuccess(runRemove({"-frP", at("tree/a/file"), at("tree/a"), at("tree"), at("tree")}));
  EXPECT_FALSE(exists(at("tree")));
}

TEST_F(RemovalTest, WhatCannotBeOverwrittenIsNotRemoved) {
  const std::string small = file("tree/small", "small");
  const std::string large = file("tree/a/large", std::string(2 << 20, 'x'));
  const auto outcome = removeSecurely(at("tree"), [] {
    const rlimit limit{1 << 20, 1 << 20};
    return setrlimit(RLIMIT_FSIZE, &limit) == 0;
  });
  expectFailures(outcome,
                 {kOverwriteFailure + large + "\", so it was not removed: File too large."});
  EXPECT_FALSE(exists(small));
  EXPECT_TRUE(exists(large));
  EXPECT_THAT(outcome.output, Not(HasSubstr("large")));
}

TEST_F(RemovalTest, AFileThatAnotherProgramHoldsIsToldAndNotWaitedFor) {
  const std::string path = file("tree/file");
  file("tree/other");
  const Descriptor holder(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::signal(SIGIO, SIG_IGN);
  ASSERT_EQ(fcntl(holder.get(), F_SETLEASE, F_RDLCK), 0) << std::strerror(errno);
  expectFailures(
      removeSecurely(at("tree")),
      {kOverwriteFailure + path + "\", so it was not removed: Resource temporarily unavailable."});
  EXPECT_TRUE(exists(path));
  EXPECT_FALSE(exists(at("tree/other")));
}

TEST_F(RemoveTest, ARunningProgramIsToldAndStays) {
  folder("tree");
  fs::copy_file("/bin/cat", at("tree/program"));
  file("tree/file");
  auto running = startProgram(at("tree/program"));
  running.say("running");
  ASSERT_EQ(running.hear(), "running");
  expectFailures(removeSecurely(at("tree")), {kOverwriteFailure + at("tree/program") +
                                              "\", so it was not removed: Text file busy."});
  EXPECT_TRUE(exists(at("tree/program")));
  EXPECT_FALSE(exists(at("tree/file")));
}

TEST_F(OtherUserTest, AReadOnlyFileOfTheUserIsOverwritten) {
  const std::string path = file("tree/file", marker());
  ASSERT_EQ(chmod(path.c_str(), 0400), 0);
  giveToNobody(at("tree"));
  const Witness witness(path);
  expectSuccess(removeSecurely(at("tree"), becomeNobody));
  EXPECT_FALSE(exists(at("tree")));
  EXPECT_EQ(countOf(witness.contents(), "nobody"), 0u);
}

TEST_F(OtherUserTest, AReadOnlyFileThatCannotBeOverwrittenKeepsItsMode) {
  const std::string path = file("tree/file", std::string(2 << 20, 'x'));
  ASSERT_EQ(chmod(path.c_str(), 0440), 0);
  giveToNobody(at("tree"));
  const auto outcome = removeSecurely(at("tree"), [] {
    const rlimit limit{1 << 20, 1 << 20};
    return becomeNobody() && setrlimit(RLIMIT_FSIZE, &limit) == 0;
  });
  EXPECT_EQ(outcome.status, 1);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0440u);
}

TEST_F(OtherUserTest, AFileOfSomebodyElseStaysUntouched) {
  folder("tree");
  giveToNobody(at("tree"));
  const std::string path = file("tree/file", marker());
  expectFailures(removeSecurely(at("tree"), becomeNobody),
                 {kOverwriteFailure + path + "\", so it was not removed: Permission denied."});
  EXPECT_EQ(contentsOf(path), marker());
}

TEST_F(OtherUserTest, AnEmptyFileOfSomebodyElseNeedsNoOverwriting) {
  folder("tree");
  giveToNobody(at("tree"));
  file("tree/file", "");
  expectSuccess(removeSecurely(at("tree"), becomeNobody));
  EXPECT_FALSE(exists(at("tree")));
}

TEST_F(OtherUserTest, AReadOnlyFolderKeepsItsItemsUntouchedAndTheRestGoes) {
  const std::string kept = file("tree/locked/file", marker());
  fs::create_symlink("x", at("tree/locked/link"));
  folder("tree/locked/folder");
  const Witness witness(file("tree/locked/folder/inside", marker()));
  file("tree/other/file");
  giveToNobody(at("tree"));
  ASSERT_EQ(chmod(at("tree/locked").c_str(), 0500), 0);
  expectFailures(
      removeSecurely(at("tree"), becomeNobody),
      {sentence(kept, "Permission denied"), sentence(at("tree/locked/link"), "Permission denied"),
       sentence(at("tree/locked/folder"), "Permission denied")});
  EXPECT_EQ(contentsOf(kept), marker());
  EXPECT_FALSE(exists(at("tree/other")));
  EXPECT_FALSE(exists(at("tree/locked/folder/inside")));
  EXPECT_EQ(countOf(witness.contents(), "nobody"), 0u);
}

TEST_F(OtherUserTest, AFileInAReadOnlyFolderStaysUntouched) {
  const std::string path = file("locked/file", marker());
  giveToNobody(at("locked"));
  ASSERT_EQ(chmod(at("locked").c_str(), 0500), 0);
  expectFailures(removeSecurely(path, becomeNobody), {sentence(path, "Permission denied")});
  EXPECT_EQ(contentsOf(path), marker());
}

TEST_F(OtherUserTest, AStickyFolderKeepsWhatBelongsToOthersUntouched) {
  folder("sticky");
  ASSERT_EQ(chmod(at("sticky").c_str(), 01777), 0);
  const std::string others = file("sticky/theirs", marker());
  ASSERT_EQ(chmod(others.c_str(), 0666), 0);
  const std::string own = file("sticky/own", marker());
  ASSERT_EQ(chown(own.c_str(), kNobody, kNobody), 0);
  const auto outcome = runRemove({"-fP", others, own}, becomeNobody);
  expectFailures(outcome, {sentence(others, "Operation not permitted")});
  EXPECT_EQ(contentsOf(others), marker());
  EXPECT_FALSE(exists(own));
}

TEST_F(OtherUserTest, AnUnreadableFolderIsToldOnce) {
  file("tree/closed/file");
  file("tree/other");
  giveToNobody(at("tree"));
  ASSERT_EQ(chmod(at("tree/closed").c_str(), 0300), 0);
  expectFailures(removeSecurely(at("tree"), becomeNobody),
                 {sentence(at("tree/closed"), "Permission denied")});
  EXPECT_FALSE(exists(at("tree/other")));
  EXPECT_TRUE(exists(at("tree/closed/file")));
}

TEST_F(OtherUserTest, AnUnreadableFolderThatIsEmptyGoes) {
  folder("tree/closed");
  giveToNobody(at("tree"));
  ASSERT_EQ(chmod(at("tree/closed").c_str(), 0), 0);
  const auto outcome = removeSecurely(at("tree"), becomeNobody);
  expectSuccess(outcome);
  EXPECT_EQ(outcome.output, at("tree/closed") + "\n" + at("tree") + "\n");
}

TEST_F(OtherUserTest, ThousandsOfFailuresAreSummedUp) {
  makeFiles("tree", 2000);
  giveToNobody(at("tree"));
  ASSERT_EQ(chmod(at("tree").c_str(), 0500), 0);
  const auto outcome = removeSecurely(at("tree"), becomeNobody);
  EXPECT_EQ(outcome.status, 1);
  const auto lines = linesOf(outcome.errors);
  ASSERT_EQ(lines.size(), Report::kMostSentences + 1);
  EXPECT_EQ(lines.back(), "tervano-remove: 1900 more items could not be removed.");
}

TEST_F(OtherUserTest, ANameInASentenceCannotBreakTheLine) {
  const std::string path = file("tree/a\nb\xFF\x1B", "x");
  giveToNobody(at("tree"));
  ASSERT_EQ(chmod(at("tree").c_str(), 0500), 0);
  expectFailures(removeSecurely(at("tree"), becomeNobody),
                 {sentence(at("tree/a\\nb\\xff\\x1b"), "Permission denied")});
}

// The flags of chattr(1), which not every file system has.
class FlaggedTest : public RemoveTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to set the flags";
    file("tree/file", marker());
    file("tree/flagged/inside", marker());
  }
  void TearDown() override {
    for (const auto& [path, flags] : flagged_) change(path, 0, flags);
  }
  // False where the file system has no flags.
  bool flag(const std::string& name, int flags) {
    flagged_.emplace_back(at(name), flags);
    return change(at(name), flags, 0);
  }

 private:
  static bool change(const std::string& path, int added, int removed) {
    const Descriptor item(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    int flags = 0;
    if (ioctl(item.get(), FS_IOC_GETFLAGS, &flags) != 0) return false;
    flags = (flags | added) & ~removed;
    EXPECT_EQ(ioctl(item.get(), FS_IOC_SETFLAGS, &flags), 0) << std::strerror(errno);
    return true;
  }

  std::vector<std::pair<std::string, int>> flagged_;
};

TEST_F(FlaggedTest, AnImmutableFileIsToldAndStaysUntouched) {
  if (!flag("tree/file", FS_IMMUTABLE_FL)) GTEST_SKIP() << "this file system has no such flag";
  expectFailures(removeSecurely(at("tree")),
                 {kOverwriteFailure + at("tree/file") +
                  "\", so it was not removed: Operation not permitted."});
  EXPECT_EQ(contentsOf(at("tree/file")), marker());
  EXPECT_FALSE(exists(at("tree/flagged")));
}

TEST_F(FlaggedTest, AnImmutableFolderIsToldAndItsItemsStayUntouched) {
  if (!flag("tree/flagged", FS_IMMUTABLE_FL)) GTEST_SKIP() << "this file system has no such flag";
  expectFailures(removeSecurely(at("tree")),
                 {sentence(at("tree/flagged/inside"), "Operation not permitted")});
  EXPECT_EQ(contentsOf(at("tree/flagged/inside")), marker());
  EXPECT_FALSE(exists(at("tree/file")));
}

TEST_F(FlaggedTest, AnAppendOnlyFolderIsToldAndItsItemsStayUntouched) {
  if (!flag("tree/flagged", FS_APPEND_FL)) GTEST_SKIP() << "this file system has no such flag";
  expectFailures(removeSecurely(at("tree")),
                 {sentence(at("tree/flagged/inside"), "Operation not permitted")});
  EXPECT_EQ(contentsOf(at("tree/flagged/inside")), marker());
  EXPECT_FALSE(exists(at("tree/file")));
}

TEST_F(FlaggedTest, AnAppendOnlyFileIsToldAndStaysUntouched) {
  if (!flag("tree/file", FS_APPEND_FL)) GTEST_SKIP() << "this file system has no such flag";
  expectFailures(removeSecurely(at("tree")),
                 {kOverwriteFailure + at("tree/file") +
                  "\", so it was not removed: Operation not permitted."});
  EXPECT_EQ(contentsOf(at("tree/file")), marker());
}

// What the tool's standard streams may be.
class OutputTest : public RemovalTest {
 protected:
  void SetUp() override { makeFiles("tree", 3000); }
  void expectGone(const RemoveOutcome& outcome) const {
    expectSuccess(outcome);
    EXPECT_FALSE(exists(at("tree")));
  }
};

TEST_F(OutputTest, AClosedOutputStopsNothingAndGetsIntoNoFile) {
  const Witness witness(at("tree/0"));
  expectGone(removeSecurely(at("tree"), [] {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    return true;
  }));
  EXPECT_EQ(countOf(witness.contents(), "tree/"), 0u);
}

TEST_F(OutputTest, WithoutAnyStandardStreamNoFileIsMistakenForOne) {
  const Witness witness(at("tree/0"));
  const auto outcome = runRemove({"-vP", at("tree/0"), at("tree/1"), at("nothing")}, [] {
    for (const int stream : {0, 1, 2}) close(stream);
    return true;
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_FALSE(exists(at("tree/0")));
  EXPECT_EQ(countOf(witness.contents(), "tree/"), 0u);
  EXPECT_EQ(countOf(witness.contents(), "tervano-remove"), 0u);
}

TEST_F(OutputTest, AFullOutputStopsNothing) {
  expectGone(removeSecurely(at("tree"), [] {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    return dup2(full, STDOUT_FILENO) == STDOUT_FILENO;
  }));
}

TEST_F(OutputTest, AReaderThatIsGoneStopsNothing) {
  expectGone(removeSecurely(at("tree"), [] {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    close(ends[0]);
    return dup2(ends[1], STDOUT_FILENO) == STDOUT_FILENO;
  }));
}

TEST_F(OutputTest, AReaderThatDoesNotReadStopsNothing) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Descriptor readEnd(ends[0]);
  const Descriptor writeEnd(ends[1]);
  expectGone(removeSecurely(at("tree"),
                            [&] { return dup2(writeEnd.get(), STDOUT_FILENO) == STDOUT_FILENO; }));
  // What fits into the pipe is there.
  pollfd readable{readEnd.get(), POLLIN, 0};
  EXPECT_EQ(poll(&readable, 1, 0), 1);
}

TEST_F(OutputTest, AReaderOfErrorsWhoDoesNotReadStopsNothing) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Descriptor readEnd(ends[0]);
  const Descriptor writeEnd(ends[1]);
  ASSERT_GT(fcntl(writeEnd.get(), F_SETPIPE_SZ, 4096), 0);
  std::vector<std::string> words{"-rP"};
  for (int number = 0; number < 200; ++number) words.push_back(at("no" + std::to_string(number)));
  words.push_back(at("tree"));
  const auto outcome =
      runRemove(words, [&] { return dup2(writeEnd.get(), STDERR_FILENO) == STDERR_FILENO; });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_FALSE(exists(at("tree")));
}

TEST_F(RemoveTest, ATerminationEndsItSoonAndLosesNothingElse) {
  constexpr int kFiles = 300;
  for (int number = 0; number < kFiles; ++number) file("tree/" + std::to_string(number), marker());
  // Whatever the machine, this takes longer than the signal.
  const Descriptor large(open(file("tree/folder/large").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(posix_fallocate(large.get(), 0, off_t{1} << 30), 0);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  auto child = forkChild([&](ParentLink&) {
    dup2(ends[1], STDOUT_FILENO);
    execl(TERVANO_REMOVE, TERVANO_REMOVE, "-vfrP", at("tree").c_str(), nullptr);
    return 97;
  });
  close(ends[1]);
  const Descriptor output(ends[0]);
  char character = 0;
  ASSERT_EQ(read(output.get(), &character, 1), 1);
  child.kill(SIGTERM);
  EXPECT_EQ(child.waitForExit(60), -SIGTERM);
  EXPECT_TRUE(exists(at("tree/folder/large")));
  std::size_t gone = 0;
  for (int number = 0; number < kFiles; ++number) {
    const std::string path = at("tree/" + std::to_string(number));
    if (!exists(path)) {
      ++gone;
      continue;
    }
    const std::string text = contentsOf(path);
    EXPECT_TRUE(text == marker() || countOf(text, "nobody") == 0)
        << "neither whole nor overwritten";
  }
  EXPECT_GT(gone, 0u);
  ASSERT_EQ(ftruncate(large.get(), 0), 0);
  expectSuccess(removeSecurely(at("tree")));
  EXPECT_FALSE(exists(at("tree")));
}

}  // namespace
}  // namespace tervano::test
