#include "companion/copy_run.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <filesystem>

#include "prefs/tv_user_defaults.h"
#include "tests/companion/file_work_test.h"
#include "tests/support/run_program.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

// Copies into the folder "to".
class CopyRunTest : public FileWorkTest {
 protected:
  CopyRunTest() { fs::create_directory(at("to")); }

  FileWorkOutcome copy(const std::vector<std::string>& paths,
                       const std::optional<std::string>& destination = {}) {
    return outcomeOf([&](FileWorkEnd finished) {
      copyFiles(Url::fileURLWithPath(destination.value_or(at("to")), true), paths, monitor_,
                std::move(finished));
    });
  }
  static void overwrite() { TVUserDefaults::create()->setOverwriteDestinationFile(true); }
};

}  // namespace

TEST_F(CopyRunTest, TheCopyIsThereTheSourceStaysAndBothIsTold) {
  EXPECT_TRUE(copy({make("a.txt", "content")}).success);
  EXPECT_EQ(contentsOf(at("to/a.txt")), "content");
  EXPECT_EQ(contentsOf(at("a.txt")), "content");
  EXPECT_EQ(told(), "Finished copying 'a.txt'");
  const auto notification = notifications_.delivered().front();
  EXPECT_EQ(notification.title, "Tervano");
  EXPECT_TRUE(notification.hasActionButton);
  EXPECT_EQ(notification.actionButtonTitle, "Show");
  EXPECT_EQ(notification.soundName, kUserNotificationDefaultSoundName);
  EXPECT_EQ(notification.userInfo.at("path"), Value(at("to/a.txt")));
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath(at("to/a.txt")))));
}

TEST_F(CopyRunTest, SeveralItemsAreCounted) {
  EXPECT_TRUE(copy({make("a"), make("b")}).success);
  EXPECT_EQ(told(), "Finished copying 2 files");
  EXPECT_EQ(notifications_.delivered().front().userInfo.at("paths"),
            Value(Value::Array{at("to/a"), at("to/b")}));
}

TEST_F(CopyRunTest, NothingChosenIsNothingCopied) {
  EXPECT_TRUE(copy({}).success);
  EXPECT_EQ(told(), "Finished copying 0 files");
}

TEST_F(CopyRunTest, ANameThatIsTakenGetsTheNextNumber) {
  make("to/a.txt", "old");
  make("to/a 2.txt", "older");
  EXPECT_TRUE(copy({make("a.txt", "new")}).success);
  EXPECT_EQ(contentsOf(at("to/a.txt")), "old");
  EXPECT_EQ(contentsOf(at("to/a 3.txt")), "new");
  EXPECT_EQ(told(), "Finished copying 'a 3.txt'");
}

TEST_F(CopyRunTest, AnItemThatLiesThereAlreadyIsDoubled) {
  make("to/a.txt", "one");
  EXPECT_TRUE(copy({at("to/a.txt")}).success);
  EXPECT_EQ(contentsOf(at("to/a 2.txt")), "one");
}

TEST_F(CopyRunTest, OverwritingReplacesAndLeavesNothingElse) {
  overwrite();
  make("to/a.txt", "old");
  EXPECT_TRUE(copy({make("a.txt", "new")}).success);
  EXPECT_EQ(contentsOf(at("to/a.txt")), "new");
  EXPECT_THAT(namesIn("to"), ElementsAre("a.txt"));
}

TEST_F(CopyRunTest, OverwritingSkipsAndCountsWhatLiesThereAlready) {
  overwrite();
  make("to/a.txt", "one");
  EXPECT_TRUE(copy({at("to/a.txt")}).success);
  EXPECT_THAT(namesIn("to"), ElementsAre("a.txt"));
  EXPECT_THAT(log_.lines(), testing::Contains("Skipping: " + at("to/a.txt")));
  EXPECT_EQ(told(), "Finished copying 'a.txt'");
}

TEST_F(CopyRunTest, OverwritingNeverReplacesWhatTheSameRunHasCopied) {
  overwrite();
  make("to/a.txt", "old");
  const auto outcome = copy({make("one/a.txt", "1"), make("two/a.txt", "2")});
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(contentsOf(at("to/a.txt")), "1");
  EXPECT_EQ(contentsOf(at("to/a 2.txt")), "2");
  EXPECT_THAT(outcome.finished, ElementsAre(at("to/a.txt"), at("to/a 2.txt")));
}

TEST_F(CopyRunTest, OverwritingNeverReplacesWhatIsYetToBeCopied) {
  overwrite();
  make("to/a.txt", "there");
  EXPECT_TRUE(copy({make("one/a.txt", "1"), at("to/a.txt")}).success);
  EXPECT_EQ(contentsOf(at("to/a.txt")), "there");
  EXPECT_EQ(contentsOf(at("to/a 2.txt")), "1");
}

TEST_F(CopyRunTest, OverwritingNeverReplacesAFolderWithAnItemThatIsYetToBeCopied) {
  overwrite();
  make("to/a/inner/b", "there");
  fs::create_directory_symlink(at("to/a/inner"), at("way"));
  EXPECT_TRUE(copy({make("one/a", "1"), at("way/b")}).success);
  EXPECT_EQ(contentsOf(at("to/a/inner/b")), "there");
  EXPECT_EQ(contentsOf(at("to/a 2")), "1");
  EXPECT_EQ(contentsOf(at("to/b")), "there");
}

TEST_F(CopyRunTest, OverwritingNeverRemovesWhatHoldsTheSource) {
  overwrite();
  make("to/a/a", "inner");
  const auto outcome = copy({at("to/a/a")});
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(outcome.error->message, HasSubstr("are, or contain, the same item"));
  EXPECT_EQ(contentsOf(at("to/a/a")), "inner");
}

TEST_F(CopyRunTest, OverwritingNeverRemovesTheSourceUnderAnotherSpelling) {
  overwrite();
  make("to/a", "only one");
  fs::create_directory_symlink(at("to"), at("way"));
  EXPECT_FALSE(copy({at("way/a")}).success);
  EXPECT_EQ(contentsOf(at("to/a")), "only one");
}

TEST_F(CopyRunTest, OverwritingWithASourceThatIsGoneKeepsWhatIsThere) {
  overwrite();
  make("to/a", "old");
  const auto outcome = copy({at("a")});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error->code, ENOENT);
  EXPECT_EQ(contentsOf(at("to/a")), "old");
}

TEST_F(CopyRunTest, TheDestinationItselfIsSkipped) {
  EXPECT_TRUE(copy({at("to"), make("a")}).success);
  EXPECT_THAT(namesIn("to"), ElementsAre("a"));
  EXPECT_THAT(log_.lines(), testing::Contains("Skipping: " + at("to")));
  EXPECT_EQ(told(), "Finished copying 'a'");
}

TEST_F(CopyRunTest, AFolderIsNotCopiedIntoItself) {
  fs::create_directories(at("outer/to"));
  make("outer/a");
  const auto outcome = copy({at("outer")}, at("outer/to"));
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(told(), "An error occurred while copying these files. " + outcome.error->message);
  EXPECT_THAT(told(), HasSubstr("a folder cannot be copied into itself"));
  EXPECT_TRUE(namesIn("outer/to").empty());
}

TEST_F(CopyRunTest, AFailureKeepsWhatWasCopiedAndEndsTheRun) {
  const auto outcome = copy({make("a"), at("gone"), make("b")});
  EXPECT_FALSE(outcome.success);
  EXPECT_FALSE(outcome.cancelled);
  EXPECT_THAT(outcome.finished, ElementsAre(at("to/a")));
  EXPECT_EQ(outcome.error->message, "Could not copy " + at("gone") + " to " + at("to/gone") +
                                        ": No such file or directory; 1 of 3 items was copied "
                                        "before");
  EXPECT_THAT(namesIn("to"), ElementsAre("a"));
  EXPECT_THAT(told(), testing::StartsWith("An error occurred while copying these files. "));
  EXPECT_THAT(told(), HasSubstr(at("gone")));
  EXPECT_THAT(told(), HasSubstr("No such file or directory"));
  EXPECT_THAT(log_.lines(),
              testing::Contains("Could not copy because of error: " + outcome.error->message));
}

TEST_F(CopyRunTest, AMissingDestinationIsAFailureThatNobodyWasToldOf) {
  const auto outcome = copy({make("a")}, at("none"));
  EXPECT_FALSE(outcome.success);
  EXPECT_FALSE(outcome.error);
  EXPECT_TRUE(notifications_.delivered().empty());
}

TEST_F(CopyRunTest, PreferencesSwitchNotificationAndShowingOff) {
  TVUserDefaults::create()->setDisableActionNotifications(true);
  TVUserDefaults::create()->setShowFileOnMoveCopyComplete(false);
  EXPECT_TRUE(copy({make("a")}).success);
  EXPECT_TRUE(notifications_.delivered().empty());
  EXPECT_TRUE(workspace_.revealed().empty());
}

TEST_F(CopyRunTest, EverythingThatBelongsToAnItemComesAlong) {
  make("tree/run.sh");
  fs::permissions(at("tree/run.sh"), fs::perms(0751));
  ASSERT_EQ(setxattr(at("tree/run.sh").c_str(), "user.note", "value", 5, 0), 0);
  const timespec times[2] = {{1'000'000'000, 1}, {1'000'000'000, 123}};
  ASSERT_EQ(utimensat(AT_FDCWD, at("tree/run.sh").c_str(), times, 0), 0);
  fs::create_symlink("run.sh", at("tree/link"));
  ASSERT_EQ(mkfifo(at("tree/pipe").c_str(), 0600), 0);
  EXPECT_TRUE(copy({at("tree")}).success);
  struct stat status {};
  ASSERT_EQ(stat(at("to/tree/run.sh").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0751u);
  EXPECT_EQ(status.st_mtim.tv_sec, 1'000'000'000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 123);
  char value[8] = {};
  EXPECT_EQ(getxattr(at("to/tree/run.sh").c_str(), "user.note", value, sizeof value), 5);
  EXPECT_EQ(std::string(value), "value");
  EXPECT_EQ(fs::read_symlink(at("to/tree/link")), "run.sh");
  EXPECT_EQ(fs::status(at("to/tree/pipe")).type(), fs::file_type::fifo);
}

TEST_F(CopyRunTest, HostileNamesAreNamesLikeAnyOther) {
  const std::vector<std::string> names = {"two\nlines", "-rf", "caf\xE9", "*",
                                          "\\",         " ",   "%s",      std::string(255, 'n')};
  std::vector<std::string> paths;
  for (const auto& name : names) paths.push_back(make("from/" + name, name));
  EXPECT_TRUE(copy(paths).success);
  for (const auto& name : names) EXPECT_EQ(contentsOf(at("to/" + name)), name);
}

TEST_F(CopyRunTest, ProgressComesOnTheMainQueueAndEndsWithEverything) {
  std::vector<WorkProgress> steps;
  monitor_.progress = [&](const WorkProgress& progress) { steps.push_back(progress); };
  make("tree/big", std::string(40'000'000, 'x'));
  EXPECT_TRUE(copy({at("tree"), make("small", "12345")}).success);
  ASSERT_GE(steps.size(), 2U);
  EXPECT_EQ(steps.front().bytesDone, 0U);
  std::uint64_t before = 0;
  for (const auto& step : steps) {
    EXPECT_EQ(step.bytesTotal, 40'000'005U);
    EXPECT_GE(step.bytesDone, before);
    before = step.bytesDone;
  }
  EXPECT_EQ(steps.back().bytesDone, 40'000'005U);
}

TEST_F(CopyRunTest, AStopEndsTheRunQuietlyAndKeepsWhatIsWhole) {
  // Stops it when the second item begins.
  class StoppingFiles : public ForwardingFileManager {
   public:
    StoppingFiles(FileManager& real, const CancelToken& token)
        : ForwardingFileManager(real), token_(token) {}
    std::optional<Error> performCopy(const ItemCopy& copy) override {
      if (copy.from.ends_with("second")) token_.cancel();
      return ForwardingFileManager::performCopy(copy);
    }

   private:
    CancelToken token_;
  } files(*platform_.services().fileManager, monitor_.cancel);
  platform_.services().fileManager = &files;
  const auto outcome = copy({make("first"), make("second"), make("third")});
  EXPECT_FALSE(outcome.success);
  EXPECT_TRUE(outcome.cancelled);
  EXPECT_THAT(outcome.finished, ElementsAre(at("to/first")));
  EXPECT_EQ(outcome.error->message, "1 of 3 items was copied before");
  EXPECT_THAT(namesIn("to"), ElementsAre("first"));
  EXPECT_TRUE(notifications_.delivered().empty());
  EXPECT_TRUE(workspace_.revealed().empty());
}

TEST_F(CopyRunTest, TwoCopiesOfOneFileAtOnceBothArrive) {
  int ended = 0;
  const std::string source = make("a.txt", std::string(1'000'000, 'x'));
  for (int i = 0; i < 4; ++i) {
    copyFiles(Url::fileURLWithPath(at("to"), true), {source}, {}, [&](const auto& outcome) {
      EXPECT_TRUE(outcome.success);
      ++ended;
    });
  }
  ASSERT_TRUE(waitUntil([&] { return ended == 4; }, 60));
  EXPECT_THAT(namesIn("to"), ElementsAre("a 2.txt", "a 3.txt", "a 4.txt", "a.txt"));
}

TEST_F(CopyRunTest, NothingUnfinishedIsNotedAfterwards) {
  copy({make("a"), at("gone")});
  EXPECT_TRUE(fs::is_empty(at(".local/state/tervano/unfinished")));
}

TEST_F(CopyRunTest, AnExceptionOfTheWorkIsItsFailure) {
  const auto outcome = outcomeOf([](FileWorkEnd finished) {
    runFileWork(
        "test", []() -> FileWorkOutcome { throw std::runtime_error("no memory"); },
        std::move(finished));
  });
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.error->message, "no memory");
}

}  // namespace tervano::test
