#include "store/vx_timer.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstdio>

#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

class VXTimerTest : public testing::Test {
 protected:
  static double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
  }
  // Another timer, to wait for time to pass.
  static void letPass(double seconds) {
    bool passed = false;
    const auto timer =
        VXTimer::timerWithInterval(seconds, false, [&passed](VXTimer&) { passed = true; });
    ASSERT_TRUE(waitUntil([&] { return passed; }));
  }

  ScopedPlatform platform_;
  int calls_ = 0;
};

TEST_F(VXTimerTest, AOneShotTimerCallsItsBlockOnceWithItself) {
  const VXTimer* given = nullptr;
  const auto timer = VXTimer::timerWithInterval(0.01, false, [&](VXTimer& timer) {
    given = &timer;
    ++calls_;
  });
  EXPECT_TRUE(waitUntil([&] { return calls_ > 0; }));
  letPass(0.03);
  EXPECT_EQ(calls_, 1);
  EXPECT_EQ(given, timer.get());
}

TEST_F(VXTimerTest, TheBlockRunsNotBeforeTheInterval) {
  const auto start = Clock::now();
  const auto timer = VXTimer::timerWithInterval(0.05, false, [&](VXTimer&) { ++calls_; });
  EXPECT_TRUE(waitUntil([&] { return calls_ > 0; }));
  EXPECT_GE(secondsSince(start), 0.05);
}

TEST_F(VXTimerTest, RunningAnArmedTimerAgainStartsItsIntervalAnewAndItRunsOnce) {
  const auto timer = VXTimer::timerWithInterval(0.2, false, [&](VXTimer&) { ++calls_; });
  letPass(0.1);
  ASSERT_EQ(calls_, 0);
  const auto again = Clock::now();
  timer->run();
  EXPECT_TRUE(waitUntil([&] { return calls_ > 0; }));
  EXPECT_GE(secondsSince(again), 0.2);
  letPass(0.25);
  EXPECT_EQ(calls_, 1);
}

TEST_F(VXTimerTest, AfterInvalidateTheBlockNeverRunsEvenWhenRunAgain) {
  const auto timer = VXTimer::timerWithInterval(0.01, false, [&](VXTimer&) { ++calls_; });
  timer->invalidate();
  EXPECT_EQ(timer->timer(), nullptr);
  EXPECT_FALSE(timer->didFinishBlock());
  letPass(0.03);
  timer->run();
  letPass(0.03);
  EXPECT_EQ(calls_, 0);
}

TEST_F(VXTimerTest, AfterInvalidateTimerOnlyRunArmsItAgainWithTheSameBlock) {
  const auto timer = VXTimer::timerWithInterval(0.01, false, [&](VXTimer&) { ++calls_; });
  timer->invalidateTimerOnly();
  EXPECT_EQ(timer->timer(), nullptr);
  letPass(0.03);
  ASSERT_EQ(calls_, 0);
  timer->run();
  EXPECT_TRUE(waitUntil([&] { return calls_ == 1; }));
}

TEST_F(VXTimerTest, ARepeatingTimerCallsItsBlockUntilInvalidated) {
  const auto timer = VXTimer::timerWithInterval(0.005, true, [&](VXTimer&) { ++calls_; });
  EXPECT_TRUE(waitUntil([&] { return calls_ >= 3; }));
  timer->invalidate();
  const int before = calls_;
  letPass(0.03);
  EXPECT_EQ(calls_, before);
}

TEST_F(VXTimerTest, ARepeatingTimerCanInvalidateItselfInItsBlock) {
  const auto timer = VXTimer::timerWithInterval(0.005, true, [&](VXTimer& timer) {
    if (++calls_ == 2) timer.invalidate();
  });
  EXPECT_TRUE(waitUntil([&] { return calls_ == 2; }));
  letPass(0.03);
  EXPECT_EQ(calls_, 2);
}

TEST_F(VXTimerTest, ATimerCanBeRunAgainInItsOwnBlock) {
  const auto timer = VXTimer::timerWithInterval(0.005, false, [&](VXTimer& timer) {
    if (++calls_ < 3) timer.run();
  });
  EXPECT_TRUE(waitUntil([&] { return calls_ == 3; }));
}

TEST_F(VXTimerTest, ASpentOneShotTimerStillRefersToItsPlatformTimer) {
  const auto timer = VXTimer::timerWithInterval(0.005, false, [&](VXTimer&) { ++calls_; });
  const auto armed = timer->timer();
  EXPECT_NE(armed, nullptr);
  EXPECT_TRUE(waitUntil([&] { return calls_ == 1; }));
  EXPECT_EQ(timer->timer(), armed);
}

TEST_F(VXTimerTest, AnArmedTimerIsKeptAliveUntilItHasFired) {
  std::weak_ptr<VXTimer> weak =
      VXTimer::timerWithInterval(0.01, false, [&](VXTimer&) { ++calls_; });
  EXPECT_FALSE(weak.expired());
  EXPECT_TRUE(waitUntil([&] { return calls_ == 1 && weak.expired(); }));
}

TEST_F(VXTimerTest, AnArmedTimerIsKeptAliveUntilItIsInvalidated) {
  std::weak_ptr<VXTimer> weak = VXTimer::timerWithInterval(600, true, [](VXTimer&) {});
  ASSERT_FALSE(weak.expired());
  weak.lock()->invalidate();
  EXPECT_TRUE(weak.expired());
}

TEST_F(VXTimerTest, ABlockMayDropTheLastReferenceToItsTimer) {
  std::shared_ptr<VXTimer> timer;
  timer = VXTimer::timerWithInterval(0.005, true, [&](VXTimer& self) {
    ++calls_;
    self.invalidate();
    timer = nullptr;
  });
  EXPECT_TRUE(waitUntil([&] { return timer == nullptr; }));
  EXPECT_EQ(calls_, 1);
}

TEST_F(VXTimerTest, ATimerWithoutBlockFiresIntoNothing) {
  const auto timer = VXTimer::timerWithInterval(0.005, false, nullptr);
  letPass(0.02);
  EXPECT_NE(timer->timer(), nullptr);
}

TEST_F(VXTimerTest, TheUserInfoIsKept) {
  const auto timer = VXTimer::timerWithInterval(600, false, Value("mine"), [](VXTimer&) {});
  EXPECT_EQ(timer->userInfo(), Value("mine"));
  timer->invalidate();
}

TEST_F(VXTimerTest, RunningIsNeverSetByTheTimer) {
  const auto timer = VXTimer::timerWithInterval(600, false, [](VXTimer&) {});
  EXPECT_FALSE(timer->running());
  timer->invalidate();
  EXPECT_FALSE(timer->running());
}

TEST_F(VXTimerTest, ATimerOfASubclassIsMadeByTheReceivingClass) {
  class Special : public VXTimer {};
  const std::shared_ptr<Special> timer =
      VXTimer::timerWithInterval<Special>(600, false, [](VXTimer&) {});
  EXPECT_NE(timer->timer(), nullptr);
  timer->invalidate();
}

TEST_F(VXTimerTest, DescriptionOfAOneShotTimerOfThreeSecondsWithoutUserInfo) {
  const auto timer = VXTimer::timerWithInterval(3, false, [](VXTimer&) {});
  std::array<char, 32> address{};
  std::snprintf(address.data(), address.size(), "%p", static_cast<void*>(timer.get()));
  EXPECT_EQ(timer->description(), std::string("<VXTimer ") + address.data() +
                                      ", interval=3.000000, repeats=NO, userInfo=(null)>");
  timer->invalidate();
}

TEST_F(VXTimerTest, DescriptionOfARepeatingTimerWithUserInfo) {
  const auto timer = VXTimer::timerWithInterval(0.25, true, Value("mine"), [](VXTimer&) {});
  EXPECT_THAT(timer->description(), HasSubstr(", interval=0.250000, repeats=YES, userInfo=mine>"));
  timer->invalidate();
}

TEST_F(VXTimerTest, DescriptionOfAHugeIntervalIsWrittenOut) {
  VXTimer timer;
  timer.setInterval(1e22);
  EXPECT_THAT(timer.description(),
              HasSubstr("interval=10000000000000000000000.000000, repeats=NO"));
}

}  // namespace
}  // namespace tervano::test
