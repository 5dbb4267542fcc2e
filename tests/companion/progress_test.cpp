#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "companion/desktop_progress.h"
#include "companion/job_progress.h"
#include "companion/terminal_progress.h"
#include "platform/bundle.h"
#include "prefs/tv_user_defaults.h"
#include "tests/support/recording_services.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Keeps what is shown; nil is an end.
class RecordingDisplay : public ProgressDisplay {
 public:
  void show(std::uint64_t number, const ShownProgress& progress) override {
    shown.emplace_back(number, progress);
    times.push_back(std::chrono::steady_clock::now());
  }
  void hide(std::uint64_t number) override { shown.emplace_back(number, std::nullopt); }
  void setCancelHandler(CancelHandler handler) override { cancel = std::move(handler); }

  std::vector<std::pair<std::uint64_t, std::optional<ShownProgress>>> shown;
  std::vector<std::chrono::steady_clock::time_point> times;
  CancelHandler cancel;
};

std::shared_ptr<Job> jobOf(const std::string& className, std::size_t paths = 4) {
  return std::make_shared<Job>(
      JobSubject{"", "Back\nup", className, std::vector<std::string>(paths, "/a")});
}

RemainingTime::Clock::time_point at(double secondsFromStart) {
  return RemainingTime::Clock::time_point(milliseconds(static_cast<int>(secondsFromStart * 1000)));
}

class JobProgressTest : public testing::Test {
 protected:
  std::shared_ptr<Job> begin(const std::string& className) {
    auto job = jobOf(className);
    listener_->jobWillRun(job);
    began_ = std::chrono::steady_clock::now();
    return job;
  }
  bool isShown() {
    return waitUntil([&] { return !display_->shown.empty(); });
  }
  // Lets so much time pass on the main loop, for what must not happen meanwhile.
  void pass(milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    ASSERT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() >= end; }));
  }

  ScopedPlatform platform_;
  std::shared_ptr<RecordingDisplay> display_ = std::make_shared<RecordingDisplay>();
  std::shared_ptr<JobProgressListener> listener_ = JobProgressListener::showingOn(display_);
  std::chrono::steady_clock::time_point began_;
};

}  // namespace

TEST(SizeTextTest, SizesAreInThousandsWithOneDigit) {
  EXPECT_EQ(sizeText(0), "0 bytes");
  EXPECT_EQ(sizeText(1), "1 byte");
  EXPECT_EQ(sizeText(999), "999 bytes");
  EXPECT_EQ(sizeText(1000), "1.0 kB");
  EXPECT_EQ(sizeText(999'949), "999.9 kB");
  EXPECT_EQ(sizeText(999'950), "1.0 MB");
  EXPECT_EQ(sizeText(1'234'567'890), "1.2 GB");
  EXPECT_EQ(sizeText(UINT64_MAX), "18.4 EB");
}

TEST(RemainingTimeTest, SteadyWorkTellsItAfterAWhile) {
  RemainingTime time;
  time.add(0, at(0));
  time.add(0.1, at(1));
  EXPECT_EQ(time.remaining(), std::nullopt);
  time.add(0.2, at(2));
  time.add(0.4, at(4));
  EXPECT_EQ(time.remaining(), seconds(6));
}

TEST(RemainingTimeTest, WorkThatHasSlowedDownOrHardlyBegunTellsNothing) {
  RemainingTime slow;
  for (int second = 0; second <= 5; ++second) slow.add(second * 0.1, at(second));
  for (int second = 6; second <= 30; ++second) slow.add(0.5 + second * 0.0001, at(second));
  EXPECT_EQ(slow.remaining(), std::nullopt);
  RemainingTime begun;
  for (int second = 0; second <= 20; ++second) begun.add(second * 0.0005, at(second));
  EXPECT_EQ(begun.remaining(), std::nullopt);
}

TEST(RemainingTimeTest, WorkThatStandsStillTellsNothing) {
  RemainingTime time;
  for (int second = 0; second <= 30; ++second) time.add(0.5, at(second));
  EXPECT_EQ(time.remaining(), std::nullopt);
}

TEST(RemainingTimeTest, ItIsRoundedForAPerson) {
  EXPECT_EQ(remainingText(seconds(1)), "about 5 seconds left");
  EXPECT_EQ(remainingText(seconds(56)), "about 60 seconds left");
  EXPECT_EQ(remainingText(seconds(60)), "about 1 minute left");
  EXPECT_EQ(remainingText(seconds(61)), "about 2 minutes left");
  EXPECT_EQ(remainingText(seconds(7201)), "about 3 hours left");
}

TEST(ProgressTextTest, ItemsAndBytesOfAllStandSideBySide) {
  const ScopedPlatform platform;
  const auto job = jobOf("TVCopyToAction", 10);
  for (int item = 0; item < 3; ++item) job->addDoneItem();
  job->setBytesOfAllItems({1'200'000'000, 4'000'000'000});
  EXPECT_EQ(progressText(*job, std::nullopt), "3 of 10 items, 1.2 GB of 4.0 GB");
  EXPECT_EQ(progressText(*job, seconds(20)),
            "3 of 10 items, 1.2 GB of 4.0 GB, about 20 seconds left");
}

TEST(ProgressTextTest, BytesOfOneItemAreSaidToBeOfThat) {
  const ScopedPlatform platform;
  const auto job = jobOf("TVMoveToAction", 2);
  job->setBytesOfOneItem({1000, 5000});
  EXPECT_EQ(progressText(*job, std::nullopt), "0 of 2 items, 1.0 kB of 5.0 kB of the next");
}

TEST(ProgressTextTest, AnArchiveAndASingleItemCountNoItems) {
  const ScopedPlatform platform;
  const auto archive = jobOf("TVCompressPasswordAction", 3);
  archive->setBytesOfAllItems({1000, 5000});
  EXPECT_EQ(progressText(*archive, std::nullopt), "1.0 kB of 5.0 kB");
  EXPECT_EQ(progressText(*jobOf("TVConvertImageAction", 1), seconds(5)), "");
}

TEST(ProgressLineOnTerminalTest, ItNeverFillsTheTerminal) {
  const ShownProgress progress{"Copy", "3 of 10 items", 0.25};
  EXPECT_EQ(progressLine(progress, 80), "[#####...............] 25%  Copy: 3 of 10 items");
  EXPECT_EQ(progressLine(progress, 30), "25%  Copy: 3 of 10 items");
  EXPECT_EQ(progressLine(progress, 10), "25%  Copy");
  EXPECT_EQ(progressLine(progress, 1), "");
  EXPECT_EQ(progressLine(progress, 0), "");
  EXPECT_EQ(progressLine({"Copy", "", std::nullopt}, 80), "Copy");
}

TEST_F(JobProgressTest, LongWorkIsShownAfterASecondAndGoneAtTheEnd) {
  const auto job = begin("TVCopyToAction");
  job->setState(JobState::running);
  job->setBytesOfAllItems({1000, 5000});
  ASSERT_TRUE(isShown());
  EXPECT_GE(display_->times.front() - began_, milliseconds(990));
  EXPECT_EQ(display_->shown.front().second,
            (ShownProgress{"Back\\nup", "0 of 4 items, 1.0 kB of 5.0 kB", 0.2}));
  const auto number = display_->shown.front().first;
  listener_->jobDidEnd(job, {});
  EXPECT_EQ(display_->shown.back().first, number);
  EXPECT_EQ(display_->shown.back().second, std::nullopt);
}

TEST_F(JobProgressTest, ItIsChangedAtMostFourTimesASecond) {
  const auto job = begin("TVCopyToAction");
  job->setState(JobState::running);
  ASSERT_TRUE(waitUntil([&] {
    job->setBytesOfAllItems({1000, 5000});
    return display_->shown.size() >= 5;
  }));
  EXPECT_GE(display_->times[4] - display_->times[0], milliseconds(900));
  listener_->jobDidEnd(job, {});
}

TEST_F(JobProgressTest, ShortWorkIsNeverShown) {
  const auto job = begin("TVCopyToAction");
  job->setState(JobState::running);
  pass(milliseconds(600));
  listener_->jobDidEnd(job, {});
  pass(milliseconds(800));
  EXPECT_TRUE(display_->shown.empty());
}

TEST_F(JobProgressTest, WhileSomebodyIsAskedNothingIsShown) {
  const auto job = begin("TVSecureRemoveAction");
  pass(milliseconds(1500));
  EXPECT_TRUE(display_->shown.empty());
  job->setState(JobState::running);
  const auto began = std::chrono::steady_clock::now();
  ASSERT_TRUE(isShown());
  EXPECT_GE(display_->times.front() - began, milliseconds(900));
  listener_->jobDidEnd(job, {});
}

TEST_F(JobProgressTest, WhatIsAllButDoneDoesNotFlashUp) {
  const auto job = begin("TVCopyToAction");
  job->setState(JobState::running);
  job->setBytesOfAllItems({4900, 5000});
  pass(milliseconds(1600));
  EXPECT_TRUE(display_->shown.empty());
  ASSERT_TRUE(isShown()) << "what lasts all the same is shown";
  listener_->jobDidEnd(job, {});
}

TEST_F(JobProgressTest, AScriptOfWhichNothingIsKnownIsNotShown) {
  const auto job = begin("TVShellScriptAction");
  job->setState(JobState::running);
  pass(milliseconds(1600));
  EXPECT_TRUE(display_->shown.empty());
  listener_->jobDidEnd(job, {});
}

TEST_F(JobProgressTest, BeforeTheFirstItemIsDoneTheFractionIsNotKnown) {
  const auto job = begin("TVConvertImageAction");
  job->setState(JobState::running);
  ASSERT_TRUE(isShown());
  EXPECT_EQ(display_->shown.back().second->fraction, std::nullopt);
  job->addDoneItem();
  ASSERT_TRUE(waitUntil([&] { return display_->shown.back().second->fraction == 0.25; }));
  listener_->jobDidEnd(job, {});
}

TEST_F(JobProgressTest, CancellingStopsTheJobOfThatNumberOnce) {
  const auto job = begin("TVCopyToAction");
  const auto other = begin("TVCopyToAction");
  job->setState(JobState::running);
  int stops = 0;
  job->setCancelHandler([&] { ++stops; });
  ASSERT_TRUE(isShown());
  display_->cancel(display_->shown.front().first);
  display_->cancel(display_->shown.front().first);
  display_->cancel(77);
  EXPECT_EQ(stops, 1);
  EXPECT_FALSE(other->cancelToken().isCancelled());
  ASSERT_TRUE(waitUntil([&] { return display_->shown.back().second->text == "Stopping…"; }));
  listener_->jobDidEnd(job, {});
  listener_->jobDidEnd(other, {});
}

namespace {

// The program of the window is one of the test, which writes down its input.
class DesktopProgressTest : public testing::Test {
 protected:
  class OtherProgram : public ForwardingBundle {
   public:
    using ForwardingBundle::ForwardingBundle;
    std::string pathForAuxiliaryExecutable(const std::string& name) const override {
      EXPECT_EQ(name, "tervano-progress");
      return path;
    }
    std::string path;
  };

  DesktopProgressTest()
      : bundle_(*platform_.services().bundle),
        notifications_(*platform_.services().userNotifications) {
    platform_.services().bundle = &bundle_;
    platform_.services().userNotifications = &notifications_;
    // As the companion does.
    std::signal(SIGPIPE, SIG_IGN);
    setProgram("echo \"$#\" > \"$0.arguments\"\nexec cat > \"$0.input\"\n");
  }
  ~DesktopProgressTest() override {
    EXPECT_TRUE(waitUntil([this] { return platform_.processes().runningProcesses() == 0; }));
    runPendingMainItems();
  }
  void setProgram(const std::string& script) {
    bundle_.path = platform_.home().path() + "/window";
    std::ofstream(bundle_.path) << "#!/bin/sh\n" << script;
    std::filesystem::permissions(bundle_.path, std::filesystem::perms::owner_all);
  }
  std::string input() const { return contentsOf(bundle_.path + ".input"); }

  ScopedPlatform platform_;
  OtherProgram bundle_;
  RecordingUserNotifications notifications_;
  std::vector<std::uint64_t> cancelled_;
};

const ShownProgress kHalf{"Copy", "1 of 2 items", 0.5};

}  // namespace

TEST_F(DesktopProgressTest, ItIsOneNotificationThatIsToldWhatIsNew) {
  DesktopProgress progress;
  progress.show(1, kHalf);
  progress.show(1, kHalf);
  progress.show(1, {"Copy", "2 of 2 items", 1.0});
  progress.hide(1);
  const auto told = notifications_.progress();
  ASSERT_EQ(told.size(), 3U);
  EXPECT_EQ(told[0].second, (ProgressNotification{"Copy", "1 of 2 items", 0.5, "Cancel"}));
  EXPECT_EQ(told[1].second->text, "2 of 2 items");
  EXPECT_EQ(told[2].second, std::nullopt);
}

TEST_F(DesktopProgressTest, TheNotificationsButtonCancels) {
  DesktopProgress progress;
  progress.setCancelHandler([this](std::uint64_t number) { cancelled_.push_back(number); });
  progress.show(3, kHalf);
  notifications_.tellProgress(4, ProgressEvent::cancelled);
  notifications_.tellProgress(3, ProgressEvent::cancelled);
  EXPECT_THAT(cancelled_, testing::ElementsAre(3U));
  progress.hide(3);
}

TEST_F(DesktopProgressTest, WhoeverWantsNoNotificationsGetsNoneAndNoWindow) {
  TVUserDefaults::create()->setDisableActionNotifications(true);
  DesktopProgress progress;
  progress.show(1, kHalf);
  notifications_.tellProgress(1, ProgressEvent::notShown);
  progress.show(1, kHalf);
  progress.hide(1);
  EXPECT_THAT(notifications_.progress(), IsEmpty());
  EXPECT_FALSE(exists(bundle_.path + ".input"));
}

TEST_F(DesktopProgressTest, WithoutABarOnTheDesktopItIsAWindowForAllJobs) {
  DesktopProgress progress;
  for (const std::uint64_t number : {1U, 2U}) {
    progress.show(number, kHalf);
    notifications_.tellProgress(number, ProgressEvent::notShown);
  }
  progress.show(1, {"Copy", "2 of 2 items", std::nullopt});
  progress.hide(1);
  progress.hide(2);
  ASSERT_TRUE(waitUntil([this] { return platform_.processes().runningProcesses() == 0; }));
  EXPECT_EQ(input(),
            "show\t1\t500\tCopy\t1 of 2 items\nshow\t2\t500\tCopy\t1 of 2 items\n"
            "show\t1\t-\tCopy\t2 of 2 items\nhide\t1\nhide\t2\n");
  EXPECT_EQ(contentsOf(bundle_.path + ".arguments"), "0\n");
}

TEST_F(DesktopProgressTest, TheWindowsButtonCancelsAndOtherWordsDoNot) {
  setProgram("read line; echo cancel; echo cancel x; echo nonsense; echo 'cancel 9'; cat >&2\n");
  DesktopProgress progress;
  progress.setCancelHandler([this](std::uint64_t number) { cancelled_.push_back(number); });
  progress.show(9, kHalf);
  notifications_.tellProgress(9, ProgressEvent::notShown);
  ASSERT_TRUE(waitUntil([this] { return !cancelled_.empty(); }));
  EXPECT_THAT(cancelled_, testing::ElementsAre(9U));
  progress.hide(9);
}

TEST_F(DesktopProgressTest, AWindowThatEndsIsNotOpenedAgainForTheSameJobs) {
  setProgram("echo x >> \"$0.starts\"\nexit 3\n");
  DesktopProgress progress;
  progress.show(1, kHalf);
  notifications_.tellProgress(1, ProgressEvent::notShown);
  ASSERT_TRUE(waitUntil([this] { return exists(bundle_.path + ".starts"); }));
  ASSERT_TRUE(waitUntil([this] { return platform_.processes().runningProcesses() == 0; }));
  for (int part = 0; part < 20; ++part) {
    progress.show(1, {"Copy", std::to_string(part), 0.5});
    runPendingMainItems();
  }
  progress.hide(1);
  EXPECT_EQ(contentsOf(bundle_.path + ".starts"), "x\n");
  progress.show(2, kHalf);
  notifications_.tellProgress(2, ProgressEvent::notShown);
  EXPECT_TRUE(waitUntil([this] { return contentsOf(bundle_.path + ".starts") == "x\nx\n"; }));
  progress.hide(2);
}

TEST_F(DesktopProgressTest, AWindowThatReadsNothingHoldsNobodyUp) {
  setProgram("exec sleep 1000\n");
  {
    DesktopProgress progress;
    progress.show(1, kHalf);
    notifications_.tellProgress(1, ProgressEvent::notShown);
    const std::string text(1000, 'x');
    for (int part = 0; part < 500; ++part) {
      progress.show(1, {"Copy", text + std::to_string(part), 0.5});
    }
    progress.hide(1);
  }
  // Nobody ends a window that does not look at its input; here the test does.
  const auto found = runProgram({"/usr/bin/pgrep", {"-P", std::to_string(getpid())}});
  ASSERT_EQ(found.status, 0);
  EXPECT_EQ(kill(std::stoi(found.output), SIGKILL), 0);
}

TEST_F(DesktopProgressTest, AMissingProgramIsHarmless) {
  bundle_.path = "/no/such/program";
  DesktopProgress progress;
  progress.show(1, kHalf);
  notifications_.tellProgress(1, ProgressEvent::notShown);
  progress.show(1, {"Copy", "2 of 2 items", 1.0});
  progress.hide(1);
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
}

}  // namespace tervano::test
