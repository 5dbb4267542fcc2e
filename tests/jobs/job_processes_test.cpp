#include "jobs/job_processes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "archive/platform_exception.h"
#include "jobs/job.h"
#include "jobs/job_services.h"
#include "platform/notification_center.h"
#include "platform/user_scripts.h"
#include "tasks/vx_task_helper.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Ends : public VXTaskHelperDelegate {
 public:
  void taskHelperDidReceiveOutput(const std::shared_ptr<VXTaskHelper>&, const Data& data) override {
    output.append(data.begin(), data.end());
  }
  void taskHelperDidReceiveError(const std::shared_ptr<VXTaskHelper>&, const Data& data) override {
    errors.append(data.begin(), data.end());
  }
  void taskHelperDidFinish(const std::shared_ptr<VXTaskHelper>&,
                           std::int64_t terminationReason) override {
    reason = terminationReason;
  }

  std::string output;
  std::string errors;
  std::optional<std::int64_t> reason;
};

class JobProcessesTest : public testing::Test {
 protected:
  JobProcessesTest() { platform_.services() = services_.services(); }
  ~JobProcessesTest() override { platform_.services() = real_; }

  std::shared_ptr<Process> prepared(const std::string& path,
                                    const std::vector<std::string>& arguments) {
    const auto process = platform().processes->createProcess();
    process->setLaunchPath(path);
    process->setArguments(arguments);
    return process;
  }

  // Runs a program by a task helper, as actions do, to its end.
  std::shared_ptr<Ends> run(const std::string& path, const std::vector<std::string>& arguments) {
    const auto ends = std::make_shared<Ends>();
    const auto helper = VXTaskHelper::taskHelperWithTask(prepared(path, arguments));
    helper->setDelegate(ends);
    helper->launch();
    EXPECT_TRUE(waitUntil([&] { return ends->reason.has_value(); }));
    return ends;
  }

  ScopedPlatform platform_;
  const Platform real_ = platform();
  JobServices services_{real_};
  std::shared_ptr<Job> job_ = std::make_shared<Job>(JobSubject{"uid", "Title", "TVAction", {}});
  JobScope scope_{job_};
};

}  // namespace

TEST_F(JobProcessesTest, QuietSuccessIsNoComplaint) {
  const auto ends = run("/bin/echo", {"fine"});
  EXPECT_EQ(ends->reason, 1);
  EXPECT_THAT(job_->complaints(), IsEmpty());
}

TEST_F(JobProcessesTest, OutputAndErrorsStillReachTheAction) {
  const auto ends = run("/bin/bash", {"-c", "echo out; echo err >&2"});
  EXPECT_TRUE(waitUntil([&] { return !ends->errors.empty() && !ends->output.empty(); }));
  EXPECT_EQ(ends->output, "out\n");
  EXPECT_EQ(ends->errors, "err\n");
}

TEST_F(JobProcessesTest, TextOnStandardErrorIsAComplaintThoughTheStatusIsZero) {
  run("/bin/bash", {"-c", "echo ' trouble ' >&2"});
  EXPECT_THAT(job_->complaints(), ElementsAre("/bin/bash wrote an error: trouble"));
}

TEST_F(JobProcessesTest, BlanksOnStandardErrorAreNoComplaint) {
  run("/bin/bash", {"-c", "echo ' ' >&2"});
  EXPECT_THAT(job_->complaints(), IsEmpty());
}

TEST_F(JobProcessesTest, StatusOtherThanZeroIsAComplaintWithoutAnyText) {
  run("/bin/bash", {"-c", "exit 3"});
  EXPECT_THAT(job_->complaints(), ElementsAre("/bin/bash ended with status 3."));
}

TEST_F(JobProcessesTest, StatusIsToldWithWhatWasWritten) {
  run("/bin/bash", {"-c", "echo why >&2; exit 3"});
  EXPECT_THAT(job_->complaints(), ElementsAre("/bin/bash ended with status 3: why"));
}

TEST_F(JobProcessesTest, SignalIsAComplaintWithItsNumber) {
  const auto ends = run("/bin/bash", {"-c", "kill -KILL $$"});
  EXPECT_EQ(ends->reason, 2);
  EXPECT_THAT(job_->complaints(), ElementsAre("/bin/bash was ended by signal 9."));
}

TEST_F(JobProcessesTest, ProgramThatCannotBeStartedIsAComplaintAndStillThrows) {
  const auto process = prepared("/no/such/program", {});
  EXPECT_THROW(process->launch(), PlatformException);
  ASSERT_EQ(job_->complaints().size(), 1U);
  EXPECT_THAT(job_->complaints().front(), testing::HasSubstr("/no/such/program"));
}

TEST_F(JobProcessesTest, EveryProcessHasItsOwnComplaint) {
  run("/bin/bash", {"-c", "exit 1"});
  run("/bin/true", {});
  run("/bin/bash", {"-c", "exit 2"});
  EXPECT_THAT(job_->complaints(),
              ElementsAre("/bin/bash ended with status 1.", "/bin/bash ended with status 2."));
}

TEST_F(JobProcessesTest, OnlyTheBeginningOfALongErrorIsKept) {
  run("/bin/bash", {"-c", "head -c 100000 /dev/zero | tr '\\0' x >&2"});
  ASSERT_EQ(job_->complaints().size(), 1U);
  EXPECT_LT(job_->complaints().front().size(), 5000U);
}

TEST_F(JobProcessesTest, EndIsAnnouncedOnceWithTheProcessThatTheActionKnows) {
  const auto process = prepared("/bin/true", {});
  int ends = 0;
  const auto observation = platform().notificationCenter->addObserver(
      kTaskDidTerminateNotification, process.get(), [&](const Notification&) { ++ends; });
  process->launch();
  EXPECT_TRUE(waitUntil([&] { return ends > 0; }));
  runPendingMainItems();
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(process->terminationStatus(), 0);
}

TEST_F(JobProcessesTest, SuspendResumeAndTerminateReachTheRealProcess) {
  const auto process = prepared("/bin/sleep", {"60"});
  process->launch();
  EXPECT_TRUE(process->isRunning());
  EXPECT_TRUE(process->suspend());
  EXPECT_TRUE(process->resume());
  process->terminate();
  EXPECT_TRUE(waitUntil([&] { return !process->isRunning(); }));
  EXPECT_EQ(process->terminationReason(), TerminationReason::uncaughtSignal);
  EXPECT_THAT(job_->complaints(), ElementsAre("/bin/sleep was ended by signal 15."));
}

TEST_F(JobProcessesTest, GivenDescriptorsReachTheRealProcess) {
  int input[2];
  int extra[2];
  ASSERT_EQ(pipe2(input, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(extra, O_CLOEXEC), 0);
  const auto process = prepared("/bin/bash", {"-c", "exec /bin/cat >&3"});
  process->setStandardInput(input[0]);
  process->setExtraDescriptor(extra[1]);
  ASSERT_EQ(write(input[1], "carried", 7), 7);
  close(input[1]);
  process->launch();
  close(extra[1]);
  char text[16];
  EXPECT_EQ(read(extra[0], text, sizeof text), 7);
  EXPECT_EQ(std::string(text, 7), "carried");
  EXPECT_TRUE(waitUntil([&] { return !process->isRunning(); }));
  close(input[0]);
  close(extra[0]);
}

TEST_F(JobProcessesTest, WhatAUserScriptPrintsIsNoComplaint) {
  const std::string path = platform_.home().path() + "/script.sh";
  std::ofstream(path) << "runWithPaths() { echo debugging >&2; }\n";
  const auto task = platform().userScripts->taskWithURL(Url::fileURLWithPath(path), nullptr);
  ASSERT_NE(task, nullptr);
  AppleEvent event;
  event.setParamDescriptor(AppleEventDescriptor::descriptorWithString("runWithPaths"),
                           kASSubroutineName);
  bool hasEnded = false;
  task->executeWithAppleEvent(event, [&](const auto&, const std::optional<Error>& error) {
    EXPECT_FALSE(error);
    hasEnded = true;
  });
  EXPECT_TRUE(waitUntil([&] { return hasEnded; }, 60));
  EXPECT_THAT(job_->complaints(), IsEmpty());
}

TEST_F(JobProcessesTest, PlainPipeOfTheRealServiceMayBeGivenToo) {
  const auto process = prepared("/bin/bash", {"-c", "echo why >&2"});
  process->setStandardError(platform_.processes().createPipe());
  process->launch();
  EXPECT_TRUE(waitUntil([&] { return !process->isRunning(); }));
  EXPECT_THAT(job_->complaints(), IsEmpty());
}

}  // namespace tervano::test
