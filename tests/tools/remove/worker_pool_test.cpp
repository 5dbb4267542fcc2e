#include "tools/remove/worker_pool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <barrier>

#include "tests/support/child_process.h"
#include "tests/support/temporary_home.h"
#include "tests/tools/remove/remove_test.h"
#include "tools/remove/steady_output.h"

namespace tervano::test {
namespace {

class WorkerPoolTest : public testing::Test {
 protected:
  TemporaryHome home_;
  std::atomic<int> done_ = 0;
};

TEST_F(WorkerPoolTest, AllWorkIsDoneBeforeWaitReturns) {
  WorkerPool pool(8);
  for (int round = 0; round < 3; ++round) {
    for (int piece = 0; piece < 1000; ++piece) pool.run([&](RandomBytes&) { ++done_; });
    pool.wait();
    EXPECT_EQ(done_, (round + 1) * 1000);
  }
}

TEST_F(WorkerPoolTest, AllWorkIsDoneBeforeThePoolEnds) {
  {
    WorkerPool pool(8);
    for (int piece = 0; piece < 100; ++piece) pool.run([&](RandomBytes&) { ++done_; });
  }
  EXPECT_EQ(done_, 100);
}

TEST_F(WorkerPoolTest, WaitingForNothingReturns) {
  WorkerPool pool(8);
  pool.wait();
  EXPECT_EQ(pool.threads(), 0u);
}

TEST_F(WorkerPoolTest, ASinglePieceNeedsNoThread) {
  WorkerPool pool(8);
  std::thread::id worker;
  pool.run([&](RandomBytes&) { worker = std::this_thread::get_id(); });
  pool.wait();
  EXPECT_EQ(worker, std::this_thread::get_id());
  EXPECT_EQ(pool.threads(), 0u);
}

TEST_F(WorkerPoolTest, PiecesRunAtOnce) {
  constexpr int kAtOnce = 5;
  WorkerPool pool(kAtOnce);
  std::barrier together(kAtOnce);
  for (int piece = 0; piece < kAtOnce; ++piece) {
    pool.run([&](RandomBytes&) {
      together.arrive_and_wait();
      ++done_;
    });
  }
  pool.wait();
  EXPECT_EQ(done_, kAtOnce);
}

TEST_F(WorkerPoolTest, ThereAreNeverMoreThreadsThanAllowed) {
  WorkerPool pool(3);
  for (int piece = 0; piece < 200; ++piece) {
    pool.run([&](RandomBytes&) { usleep(100); });
    ASSERT_LE(pool.threads(), 3u);
  }
  EXPECT_EQ(pool.threads(), 3u);
}

TEST_F(WorkerPoolTest, WithoutThreadsTheCallerDoesTheWork) {
  WorkerPool pool(0);
  for (int piece = 0; piece < 100; ++piece) pool.run([&](RandomBytes&) { ++done_; });
  pool.wait();
  EXPECT_EQ(done_, 100);
}

TEST_F(WorkerPoolTest, WhereNoThreadCanBeStartedTheCallerDoesTheWork) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  inChild([&] {
    const rlimit limit{0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &limit), 0);
    ASSERT_TRUE(becomeNobody());
    WorkerPool pool(8);
    for (int piece = 0; piece < 100; ++piece) pool.run([&](RandomBytes&) { ++done_; });
    pool.wait();
    EXPECT_EQ(done_, 100);
    EXPECT_EQ(pool.threads(), 0u);
  });
}

class FlushSlotsTest : public testing::Test {
 protected:
  static int takeAll(FlushSlots& slots) {
    int taken = 0;
    while (slots.take()) ++taken;
    return taken;
  }

  TemporaryHome home_;
};

TEST_F(FlushSlotsTest, ThereAreNoMoreThanThat) {
  FlushSlots slots;
  EXPECT_EQ(takeAll(slots), FlushSlots::kSlots);
}

TEST_F(FlushSlotsTest, WhatOneProcessHasTheOthersHaveNot) {
  FlushSlots ours;
  for (int slot = 0; slot < 100; ++slot) ASSERT_TRUE(ours.take());
  inChild([&] {
    FlushSlots theirs;
    EXPECT_EQ(takeAll(theirs), FlushSlots::kSlots - 100);
  });
}

TEST_F(FlushSlotsTest, TheSlotsOfAProcessThatWasKilledAreFree) {
  auto child = forkChild([&](ParentLink& parent) {
    FlushSlots theirs;
    parent.say(std::to_string(takeAll(theirs)));
    parent.hear();
    return 0;
  });
  ASSERT_EQ(child.hear(), std::to_string(FlushSlots::kSlots));
  EXPECT_FALSE(FlushSlots().take());
  child.kill(SIGKILL);
  ASSERT_EQ(child.waitForExit(), -SIGKILL);
  FlushSlots ours;
  EXPECT_EQ(takeAll(ours), FlushSlots::kSlots);
}

TEST_F(FlushSlotsTest, WithoutARuntimeFolderAProcessHasSlotsOfItsOwn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to hide the runtime folders";
  inChild([&] {
    ASSERT_EQ(chroot(home_.runtimeFolder().c_str()), 0);
    FlushSlots ours;
    FlushSlots theirs;
    EXPECT_EQ(takeAll(ours), FlushSlots::kSlots);
    EXPECT_EQ(takeAll(theirs), FlushSlots::kSlots);
  });
}

class SteadyOutputTest : public testing::Test {
 protected:
  void SetUp() override {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    read_.reset(ends[0]);
    write_.reset(ends[1]);
    ASSERT_GT(fcntl(write_.get(), F_SETPIPE_SZ, 4096), 0);
  }
  std::string takeFromPipe(std::size_t most) const {
    std::string text(most, '\0');
    const ssize_t count = read(read_.get(), text.data(), most);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
  }

  Descriptor read_;
  Descriptor write_;
};

TEST_F(SteadyOutputTest, TextIsWrittenAtOnce) {
  SteadyOutput output(write_.get());
  output.add("one\n");
  EXPECT_EQ(takeFromPipe(100), "one\n");
}

TEST_F(SteadyOutputTest, WhatTheReaderDoesNotTakeWaitsInOrder) {
  std::string whole;
  std::string received;
  {
    SteadyOutput output(write_.get());
    for (int number = 0; number < 5000; ++number) {
      const std::string line = std::to_string(number) + "\n";
      whole += line;
      output.add(line);
    }
    std::thread reader([&] {
      while (received.size() < whole.size()) received += takeFromPipe(3000);
    });
    output.finish(60);
    reader.join();
  }
  EXPECT_EQ(received, whole);
}

TEST_F(SteadyOutputTest, AReaderWhoTakesNothingIsGivenUp) {
  SteadyOutput output(write_.get());
  output.add(std::string(100000, 'x'));
  output.finish(0.01);
  EXPECT_EQ(takeFromPipe(100000).size(), 4096u);
}

TEST_F(SteadyOutputTest, WhatWaitsIsBounded) {
  SteadyOutput output(write_.get());
  const std::string text(1 << 20, 'x');
  for (int round = 0; round < 100; ++round) output.add(text);
  std::size_t received = 0;
  std::thread reader([&] {
    for (std::size_t count = 1; count > 0; received += count) count = takeFromPipe(1 << 20).size();
  });
  output.finish(60);
  write_.reset();
  reader.join();
  EXPECT_LE(received, std::size_t{9} << 20);
  EXPECT_GE(received, std::size_t{7} << 20);
}

}  // namespace
}  // namespace tervano::test
