#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "archive/url.h"
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
  struct stat status {};
  ASSERT_EQ(stat(at("to").c_str(), &status), 0);
  const std::string folder =
      std::to_string(status.st_dev) + " " + std::to_string(status.st_ino) + "\n";
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
