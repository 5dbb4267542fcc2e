#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "archive/url.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/posix_file_manager.h"
#include "platform/linux/unfinished_items.h"
#include "tests/support/child_process.h"
#include "tests/support/refused_calls.h"
#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"
#include "tests/support/watching_observer.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

// Copies that somebody follows, stops or has replace something.
class WatchedCopyTest : public testing::Test {
 protected:
  WatchedCopyTest() { fs::create_directory(at("to")); }

  std::string at(const std::string& name) const { return home_.path() + "/" + name; }
  std::string make(const std::string& name, const std::string& text = "text") const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  std::vector<std::string> namesIn(const std::string& folder) const {
    auto names = files_.contentsOfDirectoryAtPath(at(folder));
    std::sort(names.begin(), names.end());
    return names;
  }
  std::optional<Error> copy(const std::string& from, const std::string& to, bool replaces = false) {
    return files_.performCopy({at(from), at(to), replaces, &observer_});
  }

  TemporaryHome home_;
  PosixFileManager files_;
  WatchingObserver observer_;
};

}  // namespace

TEST_F(WatchedCopyTest, EveryByteIsTold) {
  make("tree/a", std::string(3'000'000, 'a'));
  make("tree/sub/b", std::string(500, 'b'));
  make("tree/empty", "");
  EXPECT_EQ(copy("tree", "to/tree"), std::nullopt);
  EXPECT_EQ(observer_.processed, 3'000'500U);
}

TEST_F(WatchedCopyTest, HolesAreToldAndStayHoles) {
  constexpr off_t kSize = off_t{1} << 30;
  make("a", "begin");
  ASSERT_EQ(truncate(at("a").c_str(), kSize), 0);
  EXPECT_EQ(copy("a", "to/a"), std::nullopt);
  EXPECT_EQ(observer_.processed, static_cast<std::uint64_t>(kSize));
  struct stat status {};
  ASSERT_EQ(stat(at("to/a").c_str(), &status), 0);
  EXPECT_EQ(status.st_size, kSize);
  EXPECT_LT(status.st_blocks, 2048) << "512 bytes each";
}

TEST_F(WatchedCopyTest, ItGrowsUnderAHiddenNameBesideItsTarget) {
  make("a");
  std::vector<std::string> seen;
  observer_.onBytes = [&] { seen = namesIn("to"); };
  EXPECT_EQ(copy("a", "to/a"), std::nullopt);
  ASSERT_EQ(observer_.temporaries.size(), 1U);
  const std::string temporary = observer_.temporaries.front();
  EXPECT_EQ(deletingLastPathComponent(temporary), at("to"));
  EXPECT_THAT(seen, ElementsAre(lastPathComponent(temporary)));
  EXPECT_THAT(lastPathComponent(temporary), testing::StartsWith(UnfinishedItem::kPrefix));
  EXPECT_THAT(namesIn("to"), ElementsAre("a"));
}

TEST_F(WatchedCopyTest, AStopInsideALargeFileLeavesNothing) {
  make("big", std::string(64'000'000, 'x'));
  observer_.onBytes = [&] { observer_.cancelled = true; };
  EXPECT_EQ(copy("big", "to/big")->code, ECANCELED);
  EXPECT_LT(observer_.processed, 64'000'000U);
  EXPECT_TRUE(namesIn("to").empty());
}

TEST_F(WatchedCopyTest, AStopBetweenSmallFilesLeavesNothing) {
  for (int i = 0; i < 50; ++i) make("tree/" + std::to_string(i), "");
  make("tree/sub/first");
  observer_.cancelled = true;
  EXPECT_EQ(copy("tree", "to/tree")->code, ECANCELED);
  EXPECT_TRUE(namesIn("to").empty());
}

TEST_F(WatchedCopyTest, WhatIsReplacedIsThereUntilTheCopyIsWhole) {
  make("a", "new");
  make("to/a", "old");
  std::string during;
  observer_.onBytes = [&] { during = contentsOf(at("to/a")); };
  EXPECT_EQ(copy("a", "to/a", true), std::nullopt);
  EXPECT_EQ(during, "old");
  EXPECT_EQ(contentsOf(at("to/a")), "new");
  EXPECT_THAT(namesIn("to"), ElementsAre("a"));
}

TEST_F(WatchedCopyTest, AStopKeepsWhatWasToBeReplaced) {
  make("a", "new");
  make("to/a", "old");
  observer_.onBytes = [&] { observer_.cancelled = true; };
  EXPECT_EQ(copy("a", "to/a", true)->code, ECANCELED);
  EXPECT_EQ(contentsOf(at("to/a")), "old");
  EXPECT_THAT(namesIn("to"), ElementsAre("a"));
}

TEST_F(WatchedCopyTest, AnyKindOfItemReplacesAnyOther) {
  const std::string kept = make("kept", "kept");
  make("file", "new");
  make("folder/inside", "new");
  fs::create_symlink("/no/such", at("link"));
  for (const std::string from : {"file", "folder", "link"}) {
    for (const std::string old : {"file", "folder", "link"}) {
      SCOPED_TRACE(from + " over " + old);
      fs::remove_all(at("to"));
      fs::create_directory(at("to"));
      if (old == "file") make("to/x", "old");
      if (old == "folder") make("to/x/old");
      if (old == "link") fs::create_symlink(kept, at("to/x"));
      EXPECT_EQ(copy(from, "to/x", true), std::nullopt);
      EXPECT_THAT(namesIn("to"), ElementsAre("x"));
      EXPECT_EQ(fs::symlink_status(at("to/x")).type(), fs::symlink_status(at(from)).type());
      EXPECT_FALSE(fs::exists(at("to/x/old")));
      EXPECT_EQ(contentsOf(kept), "kept");
    }
  }
}

TEST_F(WatchedCopyTest, WithoutReplacingAnExistingItemStays) {
  make("a", "new");
  make("to/a", "old");
  EXPECT_EQ(copy("a", "to/a")->code, EEXIST);
  EXPECT_EQ(contentsOf(at("to/a")), "old");
}

TEST_F(WatchedCopyTest, WhatCannotBeRemovedIsNamedAndTheCopyStands) {
  make("to/a/locked/inside", "old");
  make("a", "new");
  giveToNobody(home_.path());
  // Not for the folder's owner to empty.
  ASSERT_EQ(chmod(at("to/a/locked").c_str(), 0555), 0);
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    const auto error = copy("a", "to/a", true);
    parent.say(error ? error->message : "none");
    return 0;
  });
  const auto message = child.hear();
  ASSERT_TRUE(message);
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_THAT(*message, HasSubstr("what it replaces is now called .tervano-"));
  EXPECT_THAT(*message, HasSubstr("Permission denied"));
  EXPECT_EQ(contentsOf(at("to/a")), "new");
  EXPECT_EQ(namesIn("to").size(), 2U);
}

TEST_F(WatchedCopyTest, WhereNothingCanBeExchangedTheOldOneStaysUntilTheNewOneIsThere) {
  make("to/a/inside", "old");
  make("a", "new");
  auto child = forkChild([&](ParentLink& parent) {
    refuseCalls({{SYS_renameat2, EINVAL, RefusedCall::Having::theValue, 4, RENAME_EXCHANGE}});
    const auto error = copy("a", "to/a", true);
    parent.say(error ? error->message : "none");
    return 0;
  });
  EXPECT_EQ(child.hear(), "none");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(contentsOf(at("to/a")), "new");
  EXPECT_THAT(namesIn("to"), ElementsAre("a"));
}

TEST_F(WatchedCopyTest, WhereNothingCanBeExchangedWhatCannotBeRemovedIsNamedAndTheCopyStands) {
  make("to/a/locked/inside", "old");
  make("a", "new");
  giveToNobody(home_.path());
  ASSERT_EQ(chmod(at("to/a/locked").c_str(), 0555), 0);
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    refuseCalls({{SYS_renameat2, EINVAL, RefusedCall::Having::theValue, 4, RENAME_EXCHANGE}});
    const auto error = copy("a", "to/a", true);
    parent.say(error ? error->message : "none");
    return 0;
  });
  const auto message = child.hear();
  ASSERT_TRUE(message);
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_THAT(*message, HasSubstr("what it replaces is now called .tervano-"));
  EXPECT_EQ(contentsOf(at("to/a")), "new");
  EXPECT_EQ(namesIn("to").size(), 2U);
}

// As an ordinary user, in a home of theirs; the same for a user who runs the tests.
class OrdinaryCopyTest : public WatchedCopyTest {
 protected:
  // Stops the copy of "tree" once the copy of "tree/closed" is whole.
  class StoppingObserver : public WatchingObserver {
   public:
    bool isCancelled() const override {
      struct stat status {};
      return !temporaries.empty() &&
             stat((temporaries.front() + "/closed").c_str(), &status) == 0 &&
             (status.st_mode & 0777) == mode;
    }
    mode_t mode = 0;
  };

  // What the copy said, and what lies in "to" and among the notes after it.
  std::string afterStoppedCopy(mode_t mode) {
    auto child = forkChild([&](ParentLink& parent) {
      if (!becomeNobody()) return 98;
      StoppingObserver observer;
      observer.mode = mode;
      const auto error = files_.performCopy({at("tree"), at("to/tree"), false, &observer});
      parent.say(std::to_string(error ? error->code : 0) + " " +
                 std::to_string(namesIn("to").size()));
      return 0;
    });
    const auto said = child.hear();
    EXPECT_EQ(child.waitForExit(), 0);
    return said.value_or("");
  }
};

TEST_F(OrdinaryCopyTest, AStopBehindAReadOnlyFolderLeavesNothing) {
  make("tree/closed/inner/file");
  giveToNobody(home_.path());
  for (const char* const folder : {"tree/closed/inner", "tree/closed"}) {
    ASSERT_EQ(chmod(at(folder).c_str(), 0555), 0);
  }
  EXPECT_EQ(afterStoppedCopy(0555), std::to_string(ECANCELED) + " 0");
}

TEST_F(OrdinaryCopyTest, AStopBehindAFolderThatIsClosedToItsOwnerLeavesNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give folders to another user";
  make("tree/closed/file");
  giveToNobody(home_.path());
  // Of another user, who lets all others in, but not themselves.
  ASSERT_EQ(lchown(at("tree/closed").c_str(), 1234, 1234), 0);
  ASSERT_EQ(chmod(at("tree/closed").c_str(), 0005), 0);
  EXPECT_EQ(afterStoppedCopy(0005), std::to_string(ECANCELED) + " 0");
}

TEST_F(OrdinaryCopyTest, ATreeIsCopiedIntoAFolderThatMayBeWrittenButNotRead) {
  make("tree/sub/file");
  giveToNobody(home_.path());
  ASSERT_EQ(chmod(at("to").c_str(), 0300), 0);
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    const auto error = copy("tree", "to/tree");
    parent.say(error ? error->message : "none");
    return 0;
  });
  EXPECT_EQ(child.hear(), "none");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(contentsOf(at("to/tree/sub/file")), "text");
}

// Where the flushes of many copies cost nothing.
class MemoryCopyTest : private MemoryTemporaryFolder, public WatchedCopyTest {};

TEST_F(MemoryCopyTest, WhatIsToBeReplacedMayGoAndComeMeanwhile) {
  make("a", "new");
  std::atomic<bool> ends{false};
  std::thread other([&] {
    while (!ends) {
      const Descriptor file(open(at("to/a").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      unlink(at("to/a").c_str());
    }
  });
  std::vector<std::string> failures;
  for (int turn = 0; turn < 20000; ++turn) {
    if (const auto error = copy("a", "to/a", true)) failures.push_back(error->message);
  }
  ends = true;
  other.join();
  EXPECT_THAT(failures, testing::IsEmpty());
}

TEST_F(WatchedCopyTest, AnErrorSaysEachThingOnce) {
  EXPECT_EQ(copy("gone", "to/a")->message,
            "Could not copy " + at("gone") + " to " + at("to/a") + ": No such file or directory");
  make("secret");
  make("tree/sub/secret");
  giveToNobody(home_.path());
  for (const char* const path : {"secret", "tree/sub/secret"}) {
    ASSERT_EQ(chmod(at(path).c_str(), 0), 0);
  }
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    for (const char* const name : {"secret", "tree"}) {
      const auto error = copy(name, std::string("to/") + name);
      parent.say(error ? error->message : "none");
    }
    return 0;
  });
  EXPECT_EQ(child.hear(),
            "Could not copy " + at("secret") + " to " + at("to/secret") + ": Permission denied");
  EXPECT_EQ(child.hear(), "Could not copy " + at("tree") + " to " + at("to/tree") + ": " +
                              at("tree/sub/secret") + ": Permission denied");
  EXPECT_EQ(child.waitForExit(), 0);
}

// What a killed process leaves.
class UnfinishedItemTest : public WatchedCopyTest {
 protected:
  std::string notes() const { return home_.path() + "/.local/state/tervano/unfinished"; }
  std::size_t noteCount() const { return files_.contentsOfDirectoryAtPath(notes()).size(); }
  // A child that notes `path`, calls `make` and waits to be killed.
  ChildProcess working(const std::string& path, const std::function<void()>& make) {
    auto child = forkChild([=](ParentLink& parent) {
      const UnfinishedItem item(path);
      make();
      parent.say("working");
      parent.hear();
      return 0;
    });
    EXPECT_EQ(child.hear(), "working");
    return child;
  }
  void killAtWork(const std::string& path, const std::function<void()>& make) {
    auto child = working(path, make);
    child.kill(SIGKILL);
    EXPECT_EQ(child.waitForExit(), -SIGKILL);
  }
};

TEST_F(UnfinishedItemTest, FinishedWorkLeavesNoNote) {
  {
    UnfinishedItem item(at("to/.tervano-x"));
    EXPECT_EQ(noteCount(), 1U);
    UnfinishedItem other = std::move(item);
    EXPECT_EQ(noteCount(), 1U);
    other = UnfinishedItem(at("to/.tervano-y"));
    EXPECT_EQ(noteCount(), 1U);
  }
  EXPECT_EQ(noteCount(), 0U);
}

TEST_F(UnfinishedItemTest, AnItemThatIsStillThereKeepsItsNote) {
  const std::string path = at("to/.tervano-x");
  {
    const UnfinishedItem item(path);
    make("to/.tervano-x/a");
  }
  EXPECT_EQ(noteCount(), 1U);
  EXPECT_THAT(UnfinishedItem::removeLeftOvers(), ElementsAre(path));
  EXPECT_EQ(noteCount(), 0U);
}

TEST_F(UnfinishedItemTest, WhatAKilledProcessLeftIsRemovedThoughItsModesForbidIt) {
  giveToNobody(home_.path());
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    killAtWork(at("to/.tervano-x"), [&] {
      make("to/.tervano-x/closed/a");
      chmod(at("to/.tervano-x/closed").c_str(), 0);
      chmod(at("to/.tervano-x").c_str(), 0555);
    });
    parent.say(std::to_string(UnfinishedItem::removeLeftOvers().size()));
    return 0;
  });
  EXPECT_EQ(child.hear(), "1");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_TRUE(namesIn("to").empty());
  EXPECT_EQ(noteCount(), 0U);
}

TEST_F(UnfinishedItemTest, TheUsersItemThatCouldNotBeReplacedIsNoUnfinishedWork) {
  make("to/a/locked/inside", "old");
  make("a", "new");
  giveToNobody(home_.path());
  ASSERT_EQ(chmod(at("to/a/locked").c_str(), 0555), 0);
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    // As a follower of the work does.
    class NotingObserver : public WatchingObserver {
     public:
      void willMakeTemporary(const std::string& path) override { item = UnfinishedItem(path); }
      UnfinishedItem item;
    };
    auto observer = std::make_optional<NotingObserver>();
    files_.performCopy({at("a"), at("to/a"), true, &*observer});
    observer.reset();
    parent.say(std::to_string(noteCount()) + " " +
               std::to_string(UnfinishedItem::removeLeftOvers().size()));
    return 0;
  });
  EXPECT_EQ(child.hear(), "0 0");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(namesIn("to").size(), 2U);
}

TEST_F(UnfinishedItemTest, WhatAKilledProcessLeftIsRemovedThoughAnotherDeviceNumberCameByMounting) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  make("disk/keep");
  auto child = forkChild([&](ParentLink& parent) {
    // The layers of a disk whose number is given anew by each mount.
    const std::string layers = at("layers");
    fs::create_directory(layers);
    const auto isMounted = [&](const char* type, const std::string& on, const std::string& how) {
      return mount("none", on.c_str(), type, 0, how.c_str()) == 0;
    };
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        !isMounted("tmpfs", layers, "size=1m")) {
      return 98;
    }
    for (const char* const name : {"lower", "upper", "work"}) {
      fs::create_directory(layers + "/" + name);
    }
    const std::string overlay =
        "lowerdir=" + layers + "/lower,upperdir=" + layers + "/upper,workdir=" + layers + "/work";
    const auto deviceOf = [&](const std::string& name) {
      struct stat status {};
      return stat(at(name).c_str(), &status) == 0 ? status.st_dev : 0;
    };
    if (!isMounted("overlay", at("disk"), overlay)) return 97;
    make("disk/folder/other");
    const dev_t before = deviceOf("disk/folder");
    killAtWork(at("disk/folder/.tervano-x"), [&] { make("disk/folder/.tervano-x"); });
    if (umount(at("disk").c_str()) != 0) return 96;
    parent.say(std::to_string(UnfinishedItem::removeLeftOvers().size()) + " while it is away");
    fs::create_directory(at("between"));
    if (!isMounted("tmpfs", at("between"), "size=1m")) return 95;
    if (!isMounted("overlay", at("disk"), overlay)) return 94;
    parent.say(before == deviceOf("disk/folder") ? "the same number" : "another number");
    parent.say(std::to_string(UnfinishedItem::removeLeftOvers().size()) + " when it is back");
    parent.say(std::to_string(namesIn("disk/folder").size()) + " stays");
    return 0;
  });
  EXPECT_EQ(child.hear(), "0 while it is away");
  EXPECT_EQ(child.hear(), "another number");
  EXPECT_EQ(child.hear(), "1 when it is back");
  EXPECT_EQ(child.hear(), "1 stays");
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(UnfinishedItemTest, WhatAKilledProcessLeftIsRemoved) {
  const std::string path = at("to/.tervano-\nx");
  killAtWork(path, [&] { make("to/.tervano-\nx/sub/a"); });
  make("to/.tervano-other");
  EXPECT_THAT(UnfinishedItem::removeLeftOvers(), ElementsAre(path));
  EXPECT_THAT(namesIn("to"), ElementsAre(".tervano-other"));
  EXPECT_EQ(noteCount(), 0U);
  EXPECT_TRUE(UnfinishedItem::removeLeftOvers().empty());
}

TEST_F(UnfinishedItemTest, WorkThatGoesOnIsLeftAlone) {
  auto child = working(at("to/.tervano-x"), [&] { make("to/.tervano-x"); });
  EXPECT_TRUE(UnfinishedItem::removeLeftOvers().empty());
  EXPECT_THAT(namesIn("to"), ElementsAre(".tervano-x"));
  fs::remove(at("to/.tervano-x"));
  child.say("end");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(noteCount(), 0U);
}

TEST_F(UnfinishedItemTest, AProcessKilledBeforeItMadeAnythingLeavesNothing) {
  killAtWork(at("to/.tervano-x"), [] {});
  EXPECT_EQ(noteCount(), 1U);
  EXPECT_TRUE(UnfinishedItem::removeLeftOvers().empty());
  EXPECT_EQ(noteCount(), 0U);
}

TEST_F(UnfinishedItemTest, AnotherFolderOfThatNameIsNotTouched) {
  killAtWork(at("to/.tervano-x"), [&] { make("to/.tervano-x"); });
  fs::rename(at("to"), at("moved"));
  EXPECT_TRUE(UnfinishedItem::removeLeftOvers().empty()) << "the folder is not there";
  EXPECT_EQ(noteCount(), 1U);
  make("to/.tervano-x");
  EXPECT_TRUE(UnfinishedItem::removeLeftOvers().empty()) << "it is another folder";
  EXPECT_TRUE(fs::exists(at("to/.tervano-x")));
  fs::remove_all(at("to"));
  fs::rename(at("moved"), at("to"));
  EXPECT_THAT(UnfinishedItem::removeLeftOvers(), ElementsAre(at("to/.tervano-x")));
}

TEST_F(UnfinishedItemTest, ALinkInTheItemsPlaceIsRemovedAndNotFollowed) {
  make("kept/a");
  killAtWork(at("to/.tervano-x"), [&] { fs::create_symlink(at("kept"), at("to/.tervano-x")); });
  EXPECT_THAT(UnfinishedItem::removeLeftOvers(), ElementsAre(at("to/.tervano-x")));
  EXPECT_TRUE(fs::exists(at("kept/a")));
}

TEST_F(UnfinishedItemTest, ANoteThatNamesAnythingElseRemovesNothing) {
  // What a true note of that folder begins with.
  std::string folder;
  {
    const UnfinishedItem item(at("to/.tervano-x"));
    const std::string note =
        contentsOf(notes() + "/" + files_.contentsOfDirectoryAtPath(notes()).at(0));
    folder = note.substr(0, note.find('\n') + 1);
  }
  ASSERT_GT(folder.size(), 1U);
  make("to/plain");
  for (const std::string& note :
       {folder + at("to/plain"), folder + "to/plain", folder, std::string("x"), std::string(),
        folder + at("to/.tervano-/../plain"), std::string(100'000, '1')}) {
    make(".local/state/tervano/unfinished/note", note);
    EXPECT_TRUE(UnfinishedItem::removeLeftOvers().empty()) << note.substr(0, 100);
  }
  EXPECT_TRUE(fs::exists(at("to/plain")));
}

TEST_F(UnfinishedItemTest, ANoteThatCannotBeWrittenHoldsNothingUp) {
  make(".local/state/tervano", "no folder");
  { const UnfinishedItem item(at("to/.tervano-x")); }
  EXPECT_TRUE(UnfinishedItem::removeLeftOvers().empty());
  EXPECT_EQ(contentsOf(at(".local/state/tervano")), "no folder");
}

TEST_F(UnfinishedItemTest, ACopyThatIsKilledLeavesOnlyItsHiddenName) {
  make("big", std::string(64'000'000, 'x'));
  auto child = forkChild([&](ParentLink& parent) {
    UnfinishedItem item;
    observer_.onBytes = [&] {
      item = UnfinishedItem(observer_.temporaries.front());
      parent.say("copying");
      parent.hear();
    };
    copy("big", "to/big");
    return 0;
  });
  ASSERT_EQ(child.hear(), "copying");
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(), -SIGKILL);
  ASSERT_EQ(namesIn("to").size(), 1U);
  EXPECT_THAT(namesIn("to").front(), testing::StartsWith(UnfinishedItem::kPrefix));
  EXPECT_EQ(UnfinishedItem::removeLeftOvers().size(), 1U);
  EXPECT_TRUE(namesIn("to").empty());
}

}  // namespace tervano::test
