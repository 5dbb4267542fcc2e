#include "platform/linux/lock_file_coordinator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temporary_home.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;
using test::forkChild;
using test::ParentLink;

class LockFileCoordinatorTest : public testing::Test {
 protected:
  // A child that holds the lock of `path` until it hears a line.
  ChildProcess holder(bool writing) {
    ChildProcess child = forkChild([this, writing](ParentLink& parent) {
      const auto hold = [&](const std::string&) {
        parent.say("held");
        parent.hear();
      };
      LockFileCoordinator own;
      return (writing ? own.coordinateWriting(path, hold) : own.coordinateReading(path, hold)) ? 1
                                                                                               : 0;
    });
    EXPECT_EQ(child.hear(), "held");
    return child;
  }
  // A child that takes the lock, says "waiting" first and "done" after.
  ChildProcess taker(bool writing) {
    ChildProcess child = forkChild([this, writing](ParentLink& parent) {
      parent.say("waiting");
      LockFileCoordinator own;
      const auto nothing = [](const std::string&) {};
      if (writing ? own.coordinateWriting(path, nothing) : own.coordinateReading(path, nothing)) {
        return 1;
      }
      parent.say("done");
      return 0;
    });
    EXPECT_EQ(child.hear(), "waiting");
    return child;
  }

  test::TemporaryHome home;
  const std::string path = home.path() + "/message.archive";
  LockFileCoordinator coordinator;
};

TEST_F(LockFileCoordinatorTest, TheAccessorGetsThePathAndRunsOnce) {
  std::vector<std::string> paths;
  EXPECT_EQ(coordinator.coordinateWriting(path, [&](const auto& p) { paths.push_back(p); }),
            std::nullopt);
  EXPECT_EQ(coordinator.coordinateReading(path, [&](const auto& p) { paths.push_back(p); }),
            std::nullopt);
  EXPECT_THAT(paths, testing::ElementsAre(path, path));
}

TEST_F(LockFileCoordinatorTest, NothingIsMadeBesideTheFile) {
  fs::create_directory(home.path() + "/folder");
  EXPECT_EQ(coordinator.coordinateWriting(home.path() + "/folder/x", [](const auto&) {}),
            std::nullopt);
  EXPECT_TRUE(fs::is_empty(home.path() + "/folder"));
  EXPECT_EQ(fs::exists(home.runtimeFolder() + "/tervano/locks"), true);
}

TEST_F(LockFileCoordinatorTest, AWriterWaitsForAReaderInAnotherProcess) {
  ChildProcess reader = holder(false);
  ChildProcess writer = taker(true);
  EXPECT_EQ(writer.hear(0.1), std::nullopt);
  reader.say("go");
  EXPECT_EQ(writer.hear(), "done");
}

TEST_F(LockFileCoordinatorTest, AReaderWaitsForAWriterInAnotherProcess) {
  ChildProcess writer = holder(true);
  ChildProcess reader = taker(false);
  EXPECT_EQ(reader.hear(0.1), std::nullopt);
  writer.say("go");
  EXPECT_EQ(reader.hear(), "done");
}

TEST_F(LockFileCoordinatorTest, ReadersDoNotWaitForEachOther) {
  ChildProcess first = holder(false);
  EXPECT_EQ(taker(false).hear(), "done");
  first.say("go");
}

TEST_F(LockFileCoordinatorTest, OtherFilesAreNotHeldUp) {
  ChildProcess writer = holder(true);
  EXPECT_EQ(coordinator.coordinateWriting(path + "2", [](const auto&) {}), std::nullopt);
  writer.say("go");
}

TEST_F(LockFileCoordinatorTest, TheLockOfAProcessThatDiesIsFree) {
  ChildProcess writer = holder(true);
  ChildProcess waiting = taker(true);
  writer.kill(SIGKILL);
  EXPECT_EQ(waiting.hear(), "done");
}

TEST_F(LockFileCoordinatorTest, TwoSpellingsOfOneFolderLeadToOneLock) {
  fs::create_directory_symlink(home.path(), home.path() + "/spelling");
  ChildProcess writer = holder(true);
  std::atomic<bool> done{false};
  std::thread other([&] {
    coordinator.coordinateWriting(home.path() + "/spelling/./message.archive",
                                  [&](const auto&) { done = true; });
  });
  ChildProcess marker = taker(true);
  EXPECT_EQ(marker.hear(0.1), std::nullopt);
  EXPECT_FALSE(done);
  writer.say("go");
  other.join();
  EXPECT_TRUE(done);
}

TEST_F(LockFileCoordinatorTest, ThreadsOfOneProcessExcludeEachOther) {
  std::atomic<int> inside{0};
  std::atomic<bool> together{false};
  std::atomic<int> count{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        coordinator.coordinateWriting(path, [&](const auto&) {
          if (++inside > 1) together = true;
          ++count;
          --inside;
        });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(together);
  EXPECT_EQ(count, 400);
}

TEST_F(LockFileCoordinatorTest, ACounterInAFileLosesNothingBetweenProcesses) {
  constexpr int kRounds = 500;
  std::ofstream(path) << 0;
  const auto count = [this](ParentLink&) {
    LockFileCoordinator own;
    for (int round = 0; round < kRounds; ++round) {
      own.coordinateWriting(path, [](const std::string& file) {
        int number = 0;
        std::ifstream(file) >> number;
        std::ofstream(file) << number + 1;
      });
    }
    return 0;
  };
  ChildProcess first = forkChild(count);
  ChildProcess second = forkChild(count);
  EXPECT_EQ(first.waitForExit(60), 0);
  EXPECT_EQ(second.waitForExit(60), 0);
  int number = 0;
  std::ifstream(path) >> number;
  EXPECT_EQ(number, 2 * kRounds);
}

TEST_F(LockFileCoordinatorTest, WithoutDescriptorsTheAccessorDoesNotRunAndTheErrorSaysWhy) {
  ChildProcess child = forkChild([this](ParentLink&) {
    const rlimit limit{3, 3};
    setrlimit(RLIMIT_NOFILE, &limit);
    bool ran = false;
    const auto error = coordinator.coordinateWriting(path, [&](const auto&) { ran = true; });
    return error && error->code == EMFILE && !ran ? 0 : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(LockFileCoordinatorTest, AnAccessorThatThrowsFreesTheLock) {
  EXPECT_THROW(
      coordinator.coordinateWriting(path, [](const auto&) { throw std::runtime_error("x"); }),
      std::runtime_error);
  EXPECT_EQ(taker(true).hear(), "done");
}

TEST_F(LockFileCoordinatorTest, ReadersThatComeAgainAndAgainDoNotKeepAWriterOut) {
  std::atomic<bool> written{false};
  std::atomic<int> reads{0};
  constexpr int kEnoughReads = 200'000;
  std::vector<std::thread> readers;
  for (int number = 0; number < 3; ++number) {
    readers.emplace_back([&] {
      LockFileCoordinator own;
      while (!written && ++reads < kEnoughReads) {
        own.coordinateReading(path, [](const std::string&) { std::this_thread::yield(); });
      }
    });
  }
  EXPECT_FALSE(LockFileCoordinator().coordinateWriting(
      path, [&](const std::string&) { written = reads < kEnoughReads; }));
  EXPECT_TRUE(written);
  written = true;
  for (auto& reader : readers) reader.join();
}

}  // namespace
}  // namespace tervano
