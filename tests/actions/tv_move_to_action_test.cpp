#include "actions/tv_move_to_action.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/file_manager.h"
#include "prefs/tv_user_defaults.h"
#include "tests/actions/action_test.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

struct Outcome {
  bool success = false;
  std::optional<Error> error;
  std::thread::id thread;
  int calls = 0;
};

// The real file manager; a test sees each move and removal before it is done, and may refuse it.
class WatchedMoves : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  using Watch = std::function<std::optional<Error>(const std::string& path)>;

  Watch beforeMove;
  Watch beforeRemove;
  std::vector<std::string> removed;
  std::atomic<std::thread::id> thread;

  std::optional<Error> moveItemAtPath(const std::string& from, const std::string& to) override {
    thread = std::this_thread::get_id();
    if (beforeMove) {
      if (auto error = beforeMove(from)) return error;
    }
    return ForwardingFileManager::moveItemAtPath(from, to);
  }
  std::optional<Error> removeItemAtPath(const std::string& path) override {
    removed.push_back(path);
    if (beforeRemove) {
      if (auto error = beforeRemove(path)) return error;
    }
    return ForwardingFileManager::removeItemAtPath(path);
  }
};

class TVMoveToActionTest : public ActionTest {
 protected:
  TVMoveToActionTest() : files_(*platform_.services().fileManager) {
    platform_.services().fileManager = &files_;
    destination_ = makeFolder("destination");
    action_ = action<TVMoveToAction>();
    action_->setDestinationURL(Url::fileURLWithPath(destination_, true));
  }

  Outcome run(const std::vector<std::string>& paths) {
    auto outcome = std::make_shared<Outcome>();
    action_->runWithFilePaths(paths, [outcome](bool success, const std::optional<Error>& error) {
      outcome->success = success;
      outcome->error = error;
      outcome->thread = std::this_thread::get_id();
      ++outcome->calls;
    });
    EXPECT_EQ(outcome->calls, 0) << "the block was called before the run returned";
    EXPECT_TRUE(waitUntil([&] { return outcome->calls > 0; }));
    runPendingMainItems();
    EXPECT_EQ(outcome->calls, 1);
    EXPECT_EQ(outcome->thread, std::this_thread::get_id());
    return *outcome;
  }
  static void setOverwrite(bool value) {
    TVUserDefaults::create()->setOverwriteDestinationFile(value);
  }
  std::vector<UserNotification> delivered() const { return notifications_.delivered(); }
  std::vector<std::string> logged() const { return log_.lines(); }
  void expectErrorNotification() const {
    ASSERT_THAT(delivered(), SizeIs(1));
    EXPECT_EQ(delivered()[0].title, "Tervano");
    EXPECT_EQ(delivered()[0].informativeText, "An error occurred while moving these files.");
    EXPECT_FALSE(delivered()[0].hasActionButton);
    EXPECT_EQ(delivered()[0].actionButtonTitle, std::nullopt);
    EXPECT_EQ(delivered()[0].soundName, kUserNotificationDefaultSoundName);
    EXPECT_TRUE(delivered()[0].userInfo.empty());
  }
  static Error diskError() { return {"POSIX", EIO, "the disk is on fire"}; }

  WatchedMoves files_;
  std::string destination_;
  std::shared_ptr<TVMoveToAction> action_;
};

TEST_F(TVMoveToActionTest, AFileIsMovedIntoTheDestination) {
  const auto source = makeFile("a.txt", "of a");
  const Outcome outcome = run({source});
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(outcome.error, std::nullopt);
  EXPECT_FALSE(exists(source));
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "of a");
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TVMoveToActionTest, OneMovedItemIsNamedInTheNotification) {
  run({makeFile("a.txt")});
  ASSERT_THAT(delivered(), SizeIs(1));
  const UserNotification notification = delivered()[0];
  EXPECT_EQ(notification.title, "Tervano");
  EXPECT_EQ(notification.informativeText, "Finished moving 'a.txt'");
  EXPECT_TRUE(notification.hasActionButton);
  EXPECT_EQ(notification.actionButtonTitle, "Show");
  EXPECT_EQ(notification.soundName, kUserNotificationDefaultSoundName);
  EXPECT_EQ(notification.userInfo, (Value::Dictionary{{"path", destination_ + "/a.txt"}}));
}

TEST_F(TVMoveToActionTest, SeveralMovedItemsAreCountedInTheNotification) {
  run({makeFile("a.txt"), makeFile("b.txt"), makeFolder("c")});
  ASSERT_THAT(delivered(), SizeIs(1));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 3 files");
  EXPECT_EQ(
      delivered()[0].userInfo,
      (Value::Dictionary{{"paths", Value::Array{destination_ + "/a.txt", destination_ + "/b.txt",
                                                destination_ + "/c"}}}));
}

TEST_F(TVMoveToActionTest, MovedItemsAreRevealedInOrder) {
  run({makeFile("b.txt"), makeFile("a.txt")});
  ASSERT_THAT(workspace_.revealed(), SizeIs(1));
  EXPECT_THAT(workspace_.revealed()[0], ElementsAre(Url::fileURLWithPath(destination_ + "/b.txt"),
                                                    Url::fileURLWithPath(destination_ + "/a.txt")));
}

TEST_F(TVMoveToActionTest, AnEmptyListMovesNothingAndSucceeds) {
  const Outcome outcome = run({});
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(outcome.error, std::nullopt);
  ASSERT_THAT(delivered(), SizeIs(1));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 0 files");
  EXPECT_EQ(delivered()[0].userInfo, (Value::Dictionary{{"paths", Value::Array()}}));
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty()));
}

TEST_F(TVMoveToActionTest, AMissingDestinationOnlyGivesTheBlockNo) {
  std::filesystem::remove(destination_);
  const auto source = makeFile("a.txt");
  const Outcome outcome = run({source});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error, std::nullopt);
  EXPECT_TRUE(exists(source));
  EXPECT_THAT(delivered(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
}

TEST_F(TVMoveToActionTest, ANilDestinationOnlyGivesTheBlockNo) {
  action_->setDestinationURL(std::nullopt);
  const Outcome outcome = run({makeFile("a.txt")});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error, std::nullopt);
  EXPECT_THAT(delivered(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TVMoveToActionTest, ADestinationThatIsNoFileURLOnlyGivesTheBlockNo) {
  action_->setDestinationURL(Url("sftp://host/folder"));
  const auto source = makeFile("a.txt");
  EXPECT_FALSE(run({source}).success);
  EXPECT_TRUE(exists(source));
}

TEST_F(TVMoveToActionTest, ADanglingLinkAsDestinationOnlyGivesTheBlockNo) {
  std::filesystem::create_symlink("nowhere", home() + "/link");
  action_->setDestinationURL(Url::fileURLWithPath(home() + "/link"));
  EXPECT_FALSE(run({makeFile("a.txt")}).success);
  EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(TVMoveToActionTest, ADestinationThatIsNotWritableOnlyGivesTheBlockNo) {
  const auto source = makeFile("a.txt");
  ASSERT_EQ(chmod(destination_.c_str(), 0555), 0);
  ASSERT_EQ(chmod(home().c_str(), 0755), 0);
  // Root may write everywhere; the whole process becomes somebody else for the run.
  constexpr uid_t kNobodysId = 65534;
  const uid_t user = geteuid();
  ASSERT_EQ(seteuid(user == 0 ? kNobodysId : user), 0);
  const Outcome outcome = run({source});
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error, std::nullopt);
  EXPECT_TRUE(exists(source));
  EXPECT_THAT(delivered(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
}

TEST_F(TVMoveToActionTest, ATakenNameGivesTheNextFreeOneWhichTheNotificationQuotes) {
  makeFile("destination/a.txt", "old");
  run({makeFile("a.txt", "new")});
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "old");
  EXPECT_EQ(contentsOf(destination_ + "/a 2.txt"), "new");
  ASSERT_THAT(delivered(), SizeIs(1));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 'a 2.txt'");
  EXPECT_EQ(delivered()[0].userInfo.at("path"), Value(destination_ + "/a 2.txt"));
}

TEST_F(TVMoveToActionTest, OverwritingReplacesAFile) {
  setOverwrite(true);
  makeFile("destination/a.txt", "old");
  EXPECT_TRUE(run({makeFile("a.txt", "new")}).success);
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "new");
  EXPECT_FALSE(exists(destination_ + "/a 2.txt"));
  ASSERT_THAT(delivered(), SizeIs(1));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 'a.txt'");
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TVMoveToActionTest, OverwritingReplacesAFolderWithItsContents) {
  setOverwrite(true);
  makeFile("destination/a/deep/old.txt");
  makeFile("a/new.txt", "new");
  EXPECT_TRUE(run({home() + "/a"}).success);
  EXPECT_EQ(contentsOf(destination_ + "/a/new.txt"), "new");
  EXPECT_FALSE(exists(destination_ + "/a/deep"));
}

TEST_F(TVMoveToActionTest, OverwritingReplacesALinkAndLeavesItsTarget) {
  setOverwrite(true);
  const auto target = makeFile("target.txt", "kept");
  std::filesystem::create_symlink(target, destination_ + "/a.txt");
  EXPECT_TRUE(run({makeFile("a.txt", "new")}).success);
  EXPECT_FALSE(std::filesystem::is_symlink(destination_ + "/a.txt"));
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "new");
  EXPECT_EQ(contentsOf(target), "kept");
}

TEST_F(TVMoveToActionTest, OverwritingReplacesADanglingLink) {
  setOverwrite(true);
  std::filesystem::create_symlink("nowhere", destination_ + "/a.txt");
  EXPECT_TRUE(run({makeFile("a.txt", "new")}).success);
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "new");
}

TEST_F(TVMoveToActionTest, ADanglingLinkTakesItsNameWithoutOverwriting) {
  std::filesystem::create_symlink("nowhere", destination_ + "/a.txt");
  EXPECT_TRUE(run({makeFile("a.txt", "new")}).success);
  EXPECT_TRUE(std::filesystem::is_symlink(destination_ + "/a.txt"));
  EXPECT_EQ(contentsOf(destination_ + "/a 2.txt"), "new");
}

TEST_F(TVMoveToActionTest, ALinkIsMovedAsALink) {
  const auto target = makeFile("target.txt", "kept");
  std::filesystem::create_symlink(target, home() + "/link");
  EXPECT_TRUE(run({home() + "/link"}).success);
  EXPECT_TRUE(std::filesystem::is_symlink(destination_ + "/link"));
  EXPECT_EQ(contentsOf(target), "kept");
}

TEST_F(TVMoveToActionTest, AnItemThatAlreadyLiesThereIsSkippedWhenOverwritingAndStillCounts) {
  setOverwrite(true);
  const auto inside = makeFile("destination/a.txt", "kept");
  EXPECT_TRUE(run({inside}).success);
  EXPECT_EQ(contentsOf(inside), "kept");
  EXPECT_THAT(logged(), ElementsAre("Skipping: " + inside));
  ASSERT_THAT(delivered(), SizeIs(1));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 'a.txt'");
  EXPECT_EQ(delivered()[0].userInfo, (Value::Dictionary{{"path", inside}}));
  EXPECT_THAT(workspace_.revealed(), ElementsAre(ElementsAre(Url::fileURLWithPath(inside))));
}

TEST_F(TVMoveToActionTest, ASkippedItemThatCountsKeepsItsPlaceAmongTheMovedOnes) {
  setOverwrite(true);
  const auto inside = makeFile("destination/b.txt");
  EXPECT_TRUE(run({makeFile("c.txt"), inside, makeFile("a.txt")}).success);
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 3 files");
  EXPECT_EQ(
      delivered()[0].userInfo,
      (Value::Dictionary{{"paths", Value::Array{destination_ + "/c.txt", destination_ + "/b.txt",
                                                destination_ + "/a.txt"}}}));
}

TEST_F(TVMoveToActionTest, TwoItemsOfOneNameBothArriveWithoutOverwriting) {
  EXPECT_TRUE(run({makeFile("x/a.txt", "of x"), makeFile("y/a.txt", "of y")}).success);
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "of x");
  EXPECT_EQ(contentsOf(destination_ + "/a 2.txt"), "of y");
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 2 files");
}

TEST_F(TVMoveToActionTest, OfTwoItemsOfOneNameTheLaterReplacesTheEarlierWhenOverwriting) {
  setOverwrite(true);
  EXPECT_TRUE(run({makeFile("x/a.txt", "of x"), makeFile("y/a.txt", "of y")}).success);
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "of y");
  EXPECT_FALSE(exists(destination_ + "/a 2.txt"));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 2 files");
}

TEST_F(TVMoveToActionTest, AnItemThatAlreadyLiesThereGetsANewNameWithoutOverwriting) {
  const auto inside = makeFile("destination/a.txt", "kept");
  EXPECT_TRUE(run({inside}).success);
  EXPECT_FALSE(exists(inside));
  EXPECT_EQ(contentsOf(destination_ + "/a 2.txt"), "kept");
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 'a 2.txt'");
}

TEST_F(TVMoveToActionTest, TheDestinationItselfIsSkippedAndNotCounted) {
  EXPECT_TRUE(run({destination_}).success);
  EXPECT_THAT(logged(), ElementsAre("Skipping: " + destination_));
  EXPECT_TRUE(exists(destination_));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 0 files");
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty()));
}

TEST_F(TVMoveToActionTest, TheDestinationIsSkippedWhereverItStands) {
  EXPECT_TRUE(run({makeFile("a.txt"), destination_, makeFile("b.txt"), destination_}).success);
  EXPECT_THAT(logged(), ElementsAre("Skipping: " + destination_, "Skipping: " + destination_));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 2 files");
}

TEST_F(TVMoveToActionTest, ItemsAfterASkippedOneAreMoved) {
  EXPECT_TRUE(run({destination_, makeFile("a.txt")}).success);
  EXPECT_TRUE(exists(destination_ + "/a.txt"));
  EXPECT_EQ(delivered()[0].informativeText, "Finished moving 'a.txt'");
}

TEST_F(TVMoveToActionTest, TheSecondOfThreeThatFailsEndsTheRunAndTheFirstStaysMoved) {
  const auto first = makeFile("first.txt");
  const auto second = makeFile("second.txt");
  const auto third = makeFile("third.txt");
  files_.beforeMove = [&](const std::string& path) {
    return path == second ? std::optional(diskError()) : std::nullopt;
  };
  const Outcome outcome = run({first, second, third});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error, diskError());
  EXPECT_TRUE(exists(destination_ + "/first.txt"));
  EXPECT_TRUE(exists(second));
  EXPECT_TRUE(exists(third));
  EXPECT_THAT(logged(), ElementsAre("Could not move because of error: the disk is on fire"));
  expectErrorNotification();
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath(destination_ + "/first.txt"))));
}

TEST_F(TVMoveToActionTest, AfterAFailureOfTheFirstItemAnEmptyListIsRevealed) {
  const Outcome outcome = run({home() + "/missing.txt"});
  EXPECT_FALSE(outcome.success);
  ASSERT_TRUE(outcome.error.has_value());
  EXPECT_EQ(outcome.error->code, ENOENT);
  EXPECT_THAT(logged(), ElementsAre("Could not move because of error: " + outcome.error->message));
  expectErrorNotification();
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty()));
}

TEST_F(TVMoveToActionTest, ARemovalThatFailsIsLoggedAndTheMoveIsStillTried) {
  setOverwrite(true);
  makeFile("destination/a.txt", "old");
  const auto source = makeFile("a.txt", "new");
  files_.beforeRemove = [](const std::string&) { return diskError(); };
  const Outcome outcome = run({source});
  EXPECT_FALSE(outcome.success);
  ASSERT_TRUE(outcome.error.has_value());
  EXPECT_EQ(outcome.error->code, EEXIST);
  EXPECT_THAT(
      logged(),
      ElementsAre("Could not remove the existing file because of error: the disk is on fire",
                  "Could not move because of error: " + outcome.error->message));
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "old");
  EXPECT_EQ(contentsOf(source), "new");
  expectErrorNotification();
}

class NothingIsLostTest : public TVMoveToActionTest {
 protected:
  NothingIsLostTest() { setOverwrite(true); }

  void expectRefusedRemoval(const std::string& source) {
    const Outcome outcome = run({source});
    EXPECT_FALSE(outcome.success);
    EXPECT_TRUE(outcome.error.has_value());
    EXPECT_THAT(logged(),
                ElementsAre(StartsWith("Could not remove the existing file because of error: "),
                            StartsWith("Could not move because of error: ")));
    EXPECT_THAT(files_.removed, IsEmpty());
    expectErrorNotification();
  }
};

TEST_F(NothingIsLostTest, WhenTheThingInTheWayHoldsTheSource) {
  const auto source = makeFile("destination/a/a", "kept");
  expectRefusedRemoval(source);
  EXPECT_EQ(contentsOf(source), "kept");
}

TEST_F(NothingIsLostTest, WhenTheThingInTheWayHoldsTheSourceBehindALink) {
  makeFile("destination/a/deep/a", "kept");
  std::filesystem::create_directory_symlink(destination_ + "/a/deep", home() + "/link");
  expectRefusedRemoval(home() + "/link/a");
  EXPECT_EQ(contentsOf(destination_ + "/a/deep/a"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheThingInTheWayIsTheLinkThatLeadsToTheSource) {
  makeFile("elsewhere/a", "kept");
  std::filesystem::create_directory_symlink(home() + "/elsewhere", destination_ + "/a");
  expectRefusedRemoval(destination_ + "/a/a");
  EXPECT_EQ(contentsOf(destination_ + "/a/a"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheSourceIsTheSameFileSpelledThroughALink) {
  makeFile("destination/a.txt", "kept");
  std::filesystem::create_directory_symlink(destination_, home() + "/link");
  expectRefusedRemoval(home() + "/link/a.txt");
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheSourceIsTheSameFileSpelledWithDots) {
  makeFile("destination/a.txt", "kept");
  expectRefusedRemoval(home() + "/destination/../destination/a.txt");
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheSourceHoldsTheDestination) {
  const std::string outer = makeFolder("outer");
  makeFile("outer/inner/outer/kept.txt", "kept");
  action_->setDestinationURL(Url::fileURLWithPath(outer + "/inner", true));
  expectRefusedRemoval(outer);
  EXPECT_EQ(contentsOf(outer + "/inner/outer/kept.txt"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheSourceIsTheDestinationUnderAnotherSpelling) {
  makeFile("destination/destination/kept.txt", "kept");
  expectRefusedRemoval(home() + "/./destination");
  EXPECT_EQ(contentsOf(destination_ + "/destination/kept.txt"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheSourceEndsInTwoDots) {
  makeFile("destination/kept.txt", "kept");
  makeFolder("other/inner");
  expectRefusedRemoval(home() + "/other/inner/..");
  EXPECT_EQ(contentsOf(destination_ + "/kept.txt"), "kept");
  EXPECT_TRUE(exists(home() + "/other/inner"));
}

TEST_F(NothingIsLostTest, WhenTheSourceEndsInADot) {
  makeFile("destination/kept.txt", "kept");
  makeFolder("other");
  expectRefusedRemoval(home() + "/other/.");
  EXPECT_EQ(contentsOf(destination_ + "/kept.txt"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheSourceIsTheRoot) {
  makeFile("destination/kept.txt", "kept");
  expectRefusedRemoval("/");
  EXPECT_EQ(contentsOf(destination_ + "/kept.txt"), "kept");
}

TEST_F(NothingIsLostTest, WhenTheSourceDoesNotExist) {
  makeFile("destination/a.txt", "kept");
  const Outcome outcome = run({home() + "/a.txt"});
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(logged(), ElementsAre(StartsWith("Could not move because of error: ")));
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "kept");
}

TEST_F(NothingIsLostTest, WhenAFolderIsMovedIntoItselfWithoutOverwriting) {
  setOverwrite(false);
  const auto kept = makeFile("outer/inner/kept.txt", "kept");
  action_->setDestinationURL(Url::fileURLWithPath(home() + "/outer/inner", true));
  EXPECT_FALSE(run({home() + "/outer"}).success);
  EXPECT_EQ(contentsOf(kept), "kept");
}

TEST_F(NothingIsLostTest, WhenTheDestinationIsAFileAndNoFolder) {
  action_->setDestinationURL(Url::fileURLWithPath(makeFile("file", "kept")));
  const auto source = makeFile("a.txt", "too");
  EXPECT_FALSE(run({source}).success);
  EXPECT_EQ(contentsOf(home() + "/file"), "kept");
  EXPECT_EQ(contentsOf(source), "too");
}

TEST_F(TVMoveToActionTest, ASecondHardLinkIsReplacedByTheFirst) {
  setOverwrite(true);
  const auto source = makeFile("a.txt", "shared");
  std::filesystem::create_hard_link(source, destination_ + "/a.txt");
  EXPECT_TRUE(run({source}).success);
  EXPECT_FALSE(exists(source));
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "shared");
}

TEST_F(TVMoveToActionTest, WithoutNotificationsTheItemsAreStillRevealed) {
  TVUserDefaults::create()->setDisableActionNotifications(true);
  EXPECT_TRUE(run({makeFile("a.txt")}).success);
  EXPECT_THAT(delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), ElementsAre(SizeIs(1)));
}

TEST_F(TVMoveToActionTest, WithoutNotificationsAFailureIsStillRevealedAsAnEmptyList) {
  TVUserDefaults::create()->setDisableActionNotifications(true);
  EXPECT_FALSE(run({home() + "/missing"}).success);
  EXPECT_THAT(delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), ElementsAre(IsEmpty()));
}

TEST_F(TVMoveToActionTest, WithoutRevealingTheNotificationIsStillShown) {
  TVUserDefaults::create()->setShowFileOnMoveCopyComplete(false);
  EXPECT_TRUE(run({makeFile("a.txt")}).success);
  EXPECT_THAT(delivered(), SizeIs(1));
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
}

TEST_F(TVMoveToActionTest, TheSoundDoesNotDependOnThePreferenceForAlerts) {
  TVUserDefaults::create()->setPlayAlertOnCompletion(false);
  run({makeFile("a.txt")});
  EXPECT_EQ(delivered()[0].soundName, kUserNotificationDefaultSoundName);
}

TEST_F(TVMoveToActionTest, AChangeOfOverwritingDuringARunCountsForTheItemsThatFollow) {
  makeFile("destination/a.txt", "old a");
  makeFile("destination/b.txt", "old b");
  bool isFirst = true;
  files_.beforeMove = [&](const std::string&) -> std::optional<Error> {
    if (isFirst) setOverwrite(true);
    isFirst = false;
    return std::nullopt;
  };
  EXPECT_TRUE(run({makeFile("a.txt", "new a"), makeFile("b.txt", "new b")}).success);
  EXPECT_EQ(contentsOf(destination_ + "/a.txt"), "old a");
  EXPECT_EQ(contentsOf(destination_ + "/a 2.txt"), "new a");
  EXPECT_EQ(contentsOf(destination_ + "/b.txt"), "new b");
}

TEST_F(TVMoveToActionTest, AChangeOfNotificationsAndRevealingDuringARunCountsForItsReport) {
  files_.beforeMove = [](const std::string&) -> std::optional<Error> {
    TVUserDefaults::create()->setDisableActionNotifications(true);
    TVUserDefaults::create()->setShowFileOnMoveCopyComplete(false);
    return std::nullopt;
  };
  EXPECT_TRUE(run({makeFile("a.txt")}).success);
  EXPECT_THAT(delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
}

TEST_F(TVMoveToActionTest, TheWorkIsDoneAwayFromTheMainThread) {
  run({makeFile("a.txt")});
  EXPECT_NE(files_.thread.load(), std::thread::id());
  EXPECT_NE(files_.thread.load(), std::this_thread::get_id());
}

TEST_F(TVMoveToActionTest, TheRunsQueueNotifiesThenRevealsThenPostsTheBlock) {
  std::vector<std::string> steps;
  std::vector<std::thread::id> threads;
  std::mutex mutex;
  const auto note = [&](const char* step) {
    const std::lock_guard lock(mutex);
    steps.emplace_back(step);
    threads.push_back(std::this_thread::get_id());
  };
  class NotingNotifications : public ForwardingUserNotifications {
   public:
    using ForwardingUserNotifications::ForwardingUserNotifications;
    std::function<void(const char*)> note;
    void deliverNotification(const UserNotification& /*notification*/) override {
      note("notification");
    }
  } notifications(notifications_);
  class NotingWorkspace : public ForwardingWorkspace {
   public:
    using ForwardingWorkspace::ForwardingWorkspace;
    std::function<void(const char*)> note;
    void activateFileViewerSelectingURLs(const std::vector<Url>& /*urls*/) override {
      note("reveal");
    }
  } workspace(workspace_);
  notifications.note = note;
  workspace.note = note;
  platform_.services().userNotifications = &notifications;
  platform_.services().workspace = &workspace;
  for (const bool succeeds : {true, false}) {
    steps.clear();
    threads.clear();
    action_->runWithFilePaths({succeeds ? makeFile("a.txt") : home() + "/missing"},
                              [&](bool, const std::optional<Error>&) { note("block"); });
    EXPECT_TRUE(waitUntil([&] {
      const std::lock_guard lock(mutex);
      return steps.size() == 3;
    }));
    EXPECT_THAT(steps, ElementsAre("notification", "reveal", "block"));
    EXPECT_EQ(threads[0], files_.thread.load());
    EXPECT_EQ(threads[1], files_.thread.load());
    EXPECT_EQ(threads[2], std::this_thread::get_id());
  }
  platform_.services().userNotifications = &notifications_;
  platform_.services().workspace = &workspace_;
}

TEST_F(TVMoveToActionTest, EachRunMakesASerialQueueOfItsOwnSoThatTwoProceedTogether) {
  class NamingRunLoop : public ForwardingRunLoop {
   public:
    using ForwardingRunLoop::ForwardingRunLoop;
    std::vector<std::string> labels;
    std::shared_ptr<SerialQueue> createSerialQueue(const std::string& label) override {
      labels.push_back(label);
      return ForwardingRunLoop::createSerialQueue(label);
    }
  } runLoop(*platform_.services().runLoop);
  platform_.services().runLoop = &runLoop;
  // The first run waits inside its move until the second one is inside its own.
  std::mutex mutex;
  std::condition_variable both;
  int inside = 0;
  bool met = true;
  files_.beforeMove = [&](const std::string&) -> std::optional<Error> {
    std::unique_lock lock(mutex);
    ++inside;
    both.notify_all();
    met = both.wait_for(lock, std::chrono::seconds(10), [&] { return inside == 2; }) && met;
    return std::nullopt;
  };
  int ended = 0;
  for (const char* name : {"a.txt", "b.txt"}) {
    action_->runWithFilePaths({makeFile(name)},
                              [&](bool, const std::optional<Error>&) { ++ended; });
  }
  EXPECT_TRUE(waitUntil([&] { return ended == 2; }));
  platform_.services().runLoop = &platform_.runLoop();
  EXPECT_TRUE(met);
  EXPECT_THAT(runLoop.labels, ElementsAre("com.vessok.movequeue", "com.vessok.movequeue"));
}

TEST_F(TVMoveToActionTest, ARunHoldsTheActionUntilItsWorkIsDone) {
  const std::weak_ptr<TVMoveToAction> weak = action_;
  bool wasAlive = false;
  files_.beforeMove = [&](const std::string&) -> std::optional<Error> {
    wasAlive = !weak.expired();
    return std::nullopt;
  };
  int ended = 0;
  action_->runWithFilePaths({makeFile("a.txt")},
                            [&](bool, const std::optional<Error>&) { ++ended; });
  action_ = nullptr;
  EXPECT_TRUE(waitUntil([&] { return ended == 1; }));
  EXPECT_TRUE(wasAlive);
  EXPECT_TRUE(waitUntil([&] { return weak.expired(); }));
}

TEST_F(TVMoveToActionTest, ARunWithoutBlockMovesAllTheSame) {
  const auto source = makeFile("a.txt");
  action_->runWithFilePaths({source}, nullptr);
  EXPECT_TRUE(waitUntil([&] { return exists(destination_ + "/a.txt"); }));
  EXPECT_TRUE(waitUntil([&] { return !workspace_.revealed().empty(); }));
}

TEST_F(TVMoveToActionTest, WhatTheBlockHoldsIsReleasedOnTheMainThread) {
  std::thread::id releasedOn;
  auto holder = std::shared_ptr<int>(new int(0), [&](const int* held) {
    delete held;
    releasedOn = std::this_thread::get_id();
  });
  bool ended = false;
  action_->runWithFilePaths({makeFile("a.txt")},
                            [holder, &ended](bool, const std::optional<Error>&) { ended = true; });
  holder = nullptr;
  EXPECT_TRUE(waitUntil([&] { return ended && releasedOn != std::thread::id(); }));
  EXPECT_EQ(releasedOn, std::this_thread::get_id());
}

TEST_F(TVMoveToActionTest, NamesOfEveryByteAreMoved) {
  std::vector<std::string> sources;
  std::vector<std::string> names;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte == '/' || byte == '.') continue;
    names.push_back(std::string("n") + static_cast<char>(byte) + "x");
    sources.push_back(makeFile("sources/" + names.back(), names.back()));
  }
  EXPECT_TRUE(run(sources).success);
  for (const std::string& name : names) {
    EXPECT_EQ(contentsOf(destination_ + "/" + name), name);
  }
  EXPECT_EQ(delivered()[0].informativeText,
            "Finished moving " + std::to_string(names.size()) + " files");
}

TEST_F(TVMoveToActionTest, NamesThatLookLikeEscapesAndOptionsAreTakenAsTheyAre) {
  const std::vector<std::string> names = {"%41",      "-rf",  "a b ", " lead", "...",
                                          "$(touch)", "a\nb", "?#",   "*",     "~"};
  std::vector<std::string> sources;
  for (const auto& name : names) sources.push_back(makeFile("sources/" + name, name));
  EXPECT_TRUE(run(sources).success);
  for (const auto& name : names) EXPECT_EQ(contentsOf(destination_ + "/" + name), name);
}

TEST_F(TVMoveToActionTest, ATrailingSlashOfASourceIsNoName) {
  makeFile("folder/a.txt");
  EXPECT_TRUE(run({home() + "/folder/"}).success);
  EXPECT_TRUE(exists(destination_ + "/folder/a.txt"));
}

TEST_F(TVMoveToActionTest, ADestinationWithAnyBytesInItsNameReceives) {
  const auto odd = makeFolder("d \xFF%20\n");
  action_->setDestinationURL(Url::fileURLWithPath(odd, true));
  EXPECT_TRUE(run({makeFile("a.txt")}).success);
  EXPECT_TRUE(exists(odd + "/a.txt"));
}

TEST_F(TVMoveToActionTest, ANewActionHasNoDestinationAndNoFieldsOfItsOwn) {
  const auto fresh = action<TVMoveToAction>();
  EXPECT_EQ(fresh->destinationURL(), std::nullopt);
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->defaultTitle(), std::nullopt);
  EXPECT_EQ(fresh->icon(), nullptr);
  EXPECT_EQ(fresh->fileTypes(), std::nullopt);
  EXPECT_EQ(fresh->actionDescription(), std::nullopt);
  EXPECT_FALSE(fresh->isDefault());
  EXPECT_EQ(fresh->editorClassName(), "TVMoveToActionModule");
  EXPECT_EQ(fresh->className(), "TVMoveToAction");
}

TEST_F(TVMoveToActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVMoveToActionTest, TheDestinationSurvivesCopyAndArchive) {
  const auto copy = std::dynamic_pointer_cast<TVMoveToAction>(action_->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->destinationURL(), action_->destinationURL());
  EXPECT_EQ(copy->uid(), action_->uid());
  EXPECT_EQ(unarchived<TVMoveToAction>(archived(action_))->destinationURL(),
            action_->destinationURL());
}

TEST_F(TVMoveToActionTest, TheDestinationIsEncodedAfterTheKeysOfTheBase) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "destinationURL", "$class"));
}

TEST_F(TVMoveToActionTest, DecodingWithoutDestinationGivesNil) {
  const auto decoded = unarchived<TVMoveToAction>(withEditedObject(
      archived(action_), "enabled", [](auto& object) { object.erase("destinationURL"); }));
  EXPECT_EQ(decoded->destinationURL(), std::nullopt);
}

TEST_F(TVMoveToActionTest, ANilDestinationIsEncodedAsNil) {
  action_->setDestinationURL(std::nullopt);
  EXPECT_EQ(encodedObject(archived(action_), "enabled").at("destinationURL"), Value(Uid{0}));
}

}  // namespace
}  // namespace tervano::test
