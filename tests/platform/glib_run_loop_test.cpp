#include "platform/linux/glib_run_loop.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <stdexcept>
#include <thread>
#include <vector>

#include "archive/platform_exception.h"
#include "platform/log.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano {
namespace {

using test::runPendingMainItems;
using test::ScopedPlatform;
using test::waitUntil;

class RunLoopLog : public Log {
 public:
  void write(std::string_view line) override { lines.emplace_back(line); }
  std::vector<std::string> lines;
};

std::string currentThreadName() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

TEST(GlibRunLoopTest, AnItemNeverRunsInLineAlsoOnTheMainThread) {
  ScopedPlatform platform;
  bool ran = false;
  platform.runLoop().dispatchAsyncOnMainQueue([&] { ran = true; });
  EXPECT_FALSE(ran);
  EXPECT_TRUE(waitUntil([&] { return ran; }));
}

TEST(GlibRunLoopTest, ItemsRunInTheOrderInWhichTheyWerePosted) {
  ScopedPlatform platform;
  std::vector<int> order;
  for (int number = 0; number < 1000; ++number) {
    platform.runLoop().dispatchAsyncOnMainQueue([&order, number] { order.push_back(number); });
  }
  runPendingMainItems();
  ASSERT_EQ(order.size(), 1000u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(GlibRunLoopTest, AnItemPostedByAnItemRunsAfterThoseAlreadyPosted) {
  ScopedPlatform platform;
  std::string order;
  platform.runLoop().dispatchAsyncOnMainQueue([&] {
    order += "a";
    platform.runLoop().dispatchAsyncOnMainQueue([&] { order += "c"; });
  });
  platform.runLoop().dispatchAsyncOnMainQueue([&] { order += "b"; });
  EXPECT_TRUE(waitUntil([&] { return order.size() == 3; }));
  EXPECT_EQ(order, "abc");
}

TEST(GlibRunLoopTest, AnItemThatKeepsPostingItselfDoesNotStarveATimer) {
  ScopedPlatform platform;
  bool fired = false;
  std::function<void()> again = [&] {
    if (!fired) platform.runLoop().dispatchAsyncOnMainQueue(again);
  };
  again();
  platform.runLoop().scheduleTimer(0.001, false, [&] { fired = true; });
  EXPECT_TRUE(waitUntil([&] { return fired; }));
  runPendingMainItems();
}

TEST(GlibRunLoopTest, ItemsOfManyThreadsAllRunOnTheMainThreadEachThreadsInOrder) {
  ScopedPlatform platform;
  constexpr int kThreads = 4;
  constexpr int kItems = 500;
  std::vector<std::vector<int>> seen(kThreads);
  const auto mainThread = std::this_thread::get_id();
  bool onMainThread = true;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int item = 0; item < kItems; ++item) {
        platform.runLoop().dispatchAsyncOnMainQueue([&, thread, item] {
          onMainThread = onMainThread && std::this_thread::get_id() == mainThread;
          seen[static_cast<std::size_t>(thread)].push_back(item);
        });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  runPendingMainItems();
  EXPECT_TRUE(onMainThread);
  for (const auto& items : seen) {
    EXPECT_EQ(items.size(), static_cast<std::size_t>(kItems));
    EXPECT_TRUE(std::is_sorted(items.begin(), items.end()));
  }
}

TEST(GlibRunLoopTest, AnExceptionOfAnItemIsLoggedAndTheNextItemRuns) {
  ScopedPlatform platform;
  RunLoopLog log;
  platform.services().log = &log;
  platform.runLoop().dispatchAsyncOnMainQueue(
      [] { throw PlatformException(kInvalidArgumentException, "no such tool"); });
  runPendingMainItems();
  EXPECT_THAT(log.lines, testing::ElementsAre(testing::HasSubstr("no such tool")));
}

TEST(GlibRunLoopTest, AnItemIsLetGoBeforeTheNextOneRuns) {
  ScopedPlatform platform;
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  platform.runLoop().dispatchAsyncOnMainQueue([held = std::move(held)] {});
  bool gone = false;
  platform.runLoop().dispatchAsyncOnMainQueue([&] { gone = watched.expired(); });
  runPendingMainItems();
  EXPECT_TRUE(gone);
}

TEST(GlibRunLoopTest, LaterItemsRunInsideANestedLoop) {
  ScopedPlatform platform;
  std::string order;
  platform.runLoop().dispatchAsyncOnMainQueue([&] {
    order += "(";
    platform.runLoop().runMainLoopUntil([&] { return order.size() == 2; }, 10);
    order += ")";
  });
  platform.runLoop().dispatchAsyncOnMainQueue([&] { order += "x"; });
  EXPECT_TRUE(waitUntil([&] { return order.size() == 3; }));
  EXPECT_EQ(order, "(x)");
}

TEST(GlibRunLoopTest, AOneShotTimerFiresOnceAndLetsItsHandlerGo) {
  ScopedPlatform platform;
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  int fired = 0;
  const auto timer =
      platform.runLoop().scheduleTimer(0.001, false, [&fired, held = std::move(held)] { ++fired; });
  EXPECT_EQ(platform.runLoop().activeTimers(), 1);
  EXPECT_TRUE(waitUntil([&] { return fired == 1; }));
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(platform.runLoop().activeTimers(), 0);
}

TEST(GlibRunLoopTest, ATimerFiresAlsoWhenNobodyHoldsIt) {
  ScopedPlatform platform;
  bool fired = false;
  platform.runLoop().scheduleTimer(0.001, false, [&] { fired = true; });
  EXPECT_TRUE(waitUntil([&] { return fired; }));
}

TEST(GlibRunLoopTest, AnInvalidatedTimerNeverFiresAndLetsItsHandlerGo) {
  ScopedPlatform platform;
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  bool fired = false;
  const auto timer = platform.runLoop().scheduleTimer(
      0, false, [&fired, held = std::move(held)] { fired = true; });
  timer->invalidate();
  timer->invalidate();
  EXPECT_TRUE(watched.expired());
  bool later = false;
  platform.runLoop().scheduleTimer(0.005, false, [&] { later = true; });
  EXPECT_TRUE(waitUntil([&] { return later; }));
  EXPECT_FALSE(fired);
}

TEST(GlibRunLoopTest, ARepeatingTimerFiresUntilItInvalidatesItselfFromItsHandler) {
  ScopedPlatform platform;
  int fired = 0;
  std::shared_ptr<RunLoopTimer> timer;
  timer = platform.runLoop().scheduleTimer(0.001, true, [&] {
    if (++fired == 3) timer->invalidate();
  });
  bool later = false;
  EXPECT_TRUE(waitUntil([&] { return fired == 3; }));
  platform.runLoop().scheduleTimer(0.01, false, [&] { later = true; });
  EXPECT_TRUE(waitUntil([&] { return later; }));
  EXPECT_EQ(fired, 3);
}

TEST(GlibRunLoopTest, ATimersExceptionIsLoggedAndARepeatingTimerGoesOn) {
  ScopedPlatform platform;
  RunLoopLog log;
  platform.services().log = &log;
  int fired = 0;
  const auto timer = platform.runLoop().scheduleTimer(0.001, true, [&] {
    ++fired;
    throw std::runtime_error("broken");
  });
  EXPECT_TRUE(waitUntil([&] { return fired == 2; }));
  timer->invalidate();
  EXPECT_THAT(log.lines, testing::Each(testing::HasSubstr("broken")));
}

TEST(GlibRunLoopTest, TimersFireInTheOrderOfTheirTimes) {
  ScopedPlatform platform;
  std::string order;
  platform.runLoop().scheduleTimer(0.02, false, [&] { order += "b"; });
  platform.runLoop().scheduleTimer(0.01, false, [&] { order += "a"; });
  EXPECT_TRUE(waitUntil([&] { return order.size() == 2; }));
  EXPECT_EQ(order, "ab");
}

TEST(GlibRunLoopTest, AnEndlessIntervalIsArmedAndCanBeInvalidated) {
  ScopedPlatform platform;
  const auto timer = platform.runLoop().scheduleTimer(std::numeric_limits<double>::infinity(), true,
                                                      [] { FAIL(); });
  runPendingMainItems();
  EXPECT_EQ(platform.runLoop().activeTimers(), 1);
  timer->invalidate();
}

TEST(GlibRunLoopTest, AnIntervalThatIsNoNumberCountsAsTheShortest) {
  ScopedPlatform platform;
  bool fired = false;
  platform.runLoop().scheduleTimer(std::numeric_limits<double>::quiet_NaN(), false,
                                   [&] { fired = true; });
  EXPECT_TRUE(waitUntil([&] { return fired; }));
}

TEST(GlibRunLoopTest, ATimerFiresOnTheLoopOfTheThreadThatScheduledIt) {
  ScopedPlatform platform;
  std::thread([&] {
    GMainContext* const context = g_main_context_new();
    g_main_context_push_thread_default(context);
    std::thread::id firedOn;
    platform.runLoop().scheduleTimer(0.001, false, [&] { firedOn = std::this_thread::get_id(); });
    while (firedOn == std::thread::id()) g_main_context_iteration(context, TRUE);
    EXPECT_EQ(firedOn, std::this_thread::get_id());
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
  }).join();
}

TEST(GlibRunLoopTest, ALoopThatGoesAwayLetsItsTimersGo) {
  ScopedPlatform platform;
  std::shared_ptr<RunLoopTimer> timer;
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  std::thread([&] {
    GMainContext* const context = g_main_context_new();
    g_main_context_push_thread_default(context);
    timer = platform.runLoop().scheduleTimer(3600, true, [held = std::move(held)] {});
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
  }).join();
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(platform.runLoop().activeTimers(), 0);
  timer->invalidate();
}

TEST(GlibRunLoopTest, ASerialQueueRunsItsItemsInOrderOnOneOtherThread) {
  ScopedPlatform platform;
  std::vector<int> order;
  std::vector<std::thread::id> threads;
  std::atomic<bool> done{false};
  const auto queue = platform.runLoop().createSerialQueue("queue");
  for (int number = 0; number < 100; ++number) {
    queue->dispatchAsync([&, number] {
      order.push_back(number);
      threads.push_back(std::this_thread::get_id());
    });
  }
  queue->dispatchAsync([&] { done = true; });
  EXPECT_TRUE(waitUntil([&] { return done.load(); }));
  EXPECT_EQ(order.size(), 100u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_THAT(threads, testing::Each(threads.front()));
  EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST(GlibRunLoopTest, ASerialQueueHasNoThreadBeforeItsFirstItem) {
  ScopedPlatform platform;
  const auto queue = platform.runLoop().createSerialQueue("queue");
  EXPECT_EQ(platform.runLoop().activeQueueThreads(), 0);
}

TEST(GlibRunLoopTest, ItemsAlreadyPostedRunWhenTheLastHandleIsGoneThenTheThreadEnds) {
  ScopedPlatform platform;
  std::atomic<int> ran{0};
  std::atomic<bool> mayGo{false};
  auto queue = platform.runLoop().createSerialQueue("queue");
  queue->dispatchAsync([&] {
    while (!mayGo) std::this_thread::yield();
    ++ran;
  });
  queue->dispatchAsync([&] { ++ran; });
  queue.reset();
  EXPECT_EQ(ran, 0);
  mayGo = true;
  EXPECT_TRUE(waitUntil([&] { return ran == 2; }));
  EXPECT_TRUE(waitUntil([&] { return platform.runLoop().activeQueueThreads() == 0; }));
}

TEST(GlibRunLoopTest, AnItemMayHoldTheLastHandleOfItsOwnQueue) {
  ScopedPlatform platform;
  std::atomic<bool> ran{false};
  auto queue = platform.runLoop().createSerialQueue("queue");
  SerialQueue& borrowed = *queue;
  borrowed.dispatchAsync([&ran, queue = std::move(queue)]() mutable {
    queue.reset();
    ran = true;
  });
  EXPECT_TRUE(waitUntil([&] { return ran.load(); }));
}

TEST(GlibRunLoopTest, AnExceptionOnASerialQueueIsLoggedAndTheNextItemRuns) {
  ScopedPlatform platform;
  RunLoopLog log;
  platform.services().log = &log;
  std::atomic<bool> ran{false};
  const auto queue = platform.runLoop().createSerialQueue("queue");
  queue->dispatchAsync([] { throw std::runtime_error("broken"); });
  queue->dispatchAsync([&] { ran = true; });
  EXPECT_TRUE(waitUntil([&] { return ran.load(); }));
  EXPECT_THAT(log.lines, testing::ElementsAre(testing::HasSubstr("broken")));
}

TEST(GlibRunLoopTest, AQueuesThreadBearsTheFirstFifteenBytesOfTheLabel) {
  ScopedPlatform platform;
  std::string name;
  std::atomic<bool> done{false};
  const auto queue = platform.runLoop().createSerialQueue("com.vessok.movequeue");
  queue->dispatchAsync([&] {
    name = currentThreadName();
    done = true;
  });
  EXPECT_TRUE(waitUntil([&] { return done.load(); }));
  EXPECT_EQ(name, "com.vessok.move");
}

TEST(GlibRunLoopTest, TwoQueuesRunInParallel) {
  ScopedPlatform platform;
  std::atomic<bool> firstRuns{false};
  std::atomic<bool> secondRan{false};
  std::atomic<bool> done{false};
  const auto first = platform.runLoop().createSerialQueue("first");
  const auto second = platform.runLoop().createSerialQueue("second");
  first->dispatchAsync([&] {
    firstRuns = true;
    while (!secondRan) std::this_thread::yield();
    done = true;
  });
  second->dispatchAsync([&] {
    while (!firstRuns) std::this_thread::yield();
    secondRan = true;
  });
  EXPECT_TRUE(waitUntil([&] { return done.load(); }));
}

TEST(GlibRunLoopTest, RunningTheLoopEndsAtTheTimeoutAndSaysSo) {
  ScopedPlatform platform;
  EXPECT_FALSE(platform.runLoop().runMainLoopUntil([] { return false; }, 0.01));
}

TEST(GlibRunLoopTest, RunningTheLoopDoesNothingWhenItIsDoneAlready) {
  ScopedPlatform platform;
  bool ran = false;
  platform.runLoop().dispatchAsyncOnMainQueue([&] { ran = true; });
  EXPECT_TRUE(platform.runLoop().runMainLoopUntil([] { return true; }, -1));
  EXPECT_FALSE(ran);
  runPendingMainItems();
}

}  // namespace
}  // namespace tervano
