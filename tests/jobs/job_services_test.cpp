#include "jobs/job_services.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "jobs/job.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "platform/user_scripts.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class JobServicesTest : public testing::Test {
 protected:
  JobServicesTest() { platform_.services() = services_.services(); }
  ~JobServicesTest() override { platform_.services() = real_; }

  std::string at(const std::string& name) const { return platform_.home().path() + "/" + name; }
  std::string make(const std::string& name, const std::string& text = "text") const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  FileManager& files() { return *platform().fileManager; }

  ScopedPlatform platform_;
  const Platform real_ = platform();
  JobServices services_{real_};
  std::shared_ptr<Job> job_ =
      std::make_shared<Job>(JobSubject{"uid", "Title", "TVAction", {"/one", "/two"}});
};

}  // namespace

TEST_F(JobServicesTest, TheJobGoesAlongToTheMainQueueToOtherQueuesAndToTimers) {
  std::shared_ptr<Job> onMain;
  std::shared_ptr<Job> onTimer;
  std::shared_ptr<Job> onQueue;
  std::shared_ptr<Job> afterQueue;
  {
    const JobScope scope(job_);
    platform().runLoop->dispatchAsyncOnMainQueue([&] { onMain = currentJob(); });
    platform().runLoop->scheduleTimer(0.001, false, [&] { onTimer = currentJob(); });
    platform().runLoop->createSerialQueue("test")->dispatchAsync([&] {
      onQueue = currentJob();
      platform().runLoop->dispatchAsyncOnMainQueue([&] { afterQueue = currentJob(); });
    });
  }
  EXPECT_EQ(currentJob(), nullptr);
  EXPECT_TRUE(waitUntil([&] { return onMain && onTimer && afterQueue; }));
  EXPECT_EQ(onMain, job_);
  EXPECT_EQ(onTimer, job_);
  EXPECT_EQ(onQueue, job_);
  EXPECT_EQ(afterQueue, job_);
  EXPECT_EQ(currentJob(), nullptr);
}

TEST_F(JobServicesTest, WhatIsPutOnAQueueForNoJobIsOfNoJobThoughOneIsRunningElsewhere) {
  const auto queue = platform().runLoop->createSerialQueue("test");
  std::atomic<bool> isOfNone = false;
  std::atomic<bool> hasRun = false;
  {
    const JobScope scope(job_);
    queue->dispatchAsync([] {});
  }
  queue->dispatchAsync([&] {
    isOfNone = currentJob() == nullptr;
    hasRun = true;
  });
  EXPECT_TRUE(waitUntil([&] { return hasRun.load(); }));
  EXPECT_TRUE(isOfNone);
}

TEST_F(JobServicesTest, AScopeWithinAScopeEndsWithTheOuterJob) {
  const auto other = std::make_shared<Job>(JobSubject());
  const JobScope outer(job_);
  {
    const JobScope inner(other);
    EXPECT_EQ(currentJob(), other);
  }
  EXPECT_EQ(currentJob(), job_);
}

TEST_F(JobServicesTest, WhatIsMovedIsTold) {
  const auto from = make("a");
  const JobScope scope(job_);
  EXPECT_EQ(files().moveItemAtPath(from, at("b")), std::nullopt);
  EXPECT_THAT(job_->changes(), ElementsAre(JobChange{JobChange::Kind::moved, from, at("b")}));
  EXPECT_EQ(job_->progress().itemsDone, 1u);
}

TEST_F(JobServicesTest, WhatIsDoneForNoJobIsToldToNone) {
  make("a");
  EXPECT_EQ(files().moveItemAtPath(at("a"), at("b")), std::nullopt);
  EXPECT_EQ(files().copyItemAtPath(at("b"), at("c")), std::nullopt);
  EXPECT_EQ(files().removeItemAtPath(at("b")), std::nullopt);
  EXPECT_THAT(job_->changes(), IsEmpty());
}

TEST_F(JobServicesTest, WhatCouldNotBeMovedIsNotTold) {
  make("a");
  make("b");
  const JobScope scope(job_);
  EXPECT_EQ(files().moveItemAtPath(at("a"), at("b"))->code, EEXIST);
  EXPECT_THAT(job_->changes(), IsEmpty());
  EXPECT_EQ(job_->progress().itemsDone, 0u);
}

TEST_F(JobServicesTest, ACopyOfATemplateIsMadeAndOneOfTheSelectionIsCopied) {
  const auto from = make("a");
  const JobScope scope(job_);
  EXPECT_EQ(files().copyItemAtPath(from, at("new")), std::nullopt);
  EXPECT_EQ(files().performCopy({from, at("copy"), false, nullptr}), std::nullopt);
  EXPECT_THAT(job_->changes(), ElementsAre(JobChange{JobChange::Kind::made, from, at("new")},
                                           JobChange{JobChange::Kind::copied, from, at("copy")}));
}

TEST_F(JobServicesTest, WhatACopyReplacesIsToldAsRemoved) {
  const auto from = make("a");
  make("there");
  const JobScope scope(job_);
  EXPECT_EQ(files().performCopy({from, at("there"), true, nullptr}), std::nullopt);
  EXPECT_THAT(job_->changes(), ElementsAre(JobChange{JobChange::Kind::removed, at("there"), ""},
                                           JobChange{JobChange::Kind::copied, from, at("there")}));
}

TEST_F(JobServicesTest, WhatGrewUnderAHiddenNameIsMade) {
  const auto hidden = make(".tervano-1a2b3c");
  const JobScope scope(job_);
  EXPECT_EQ(files().moveItemAtPath(hidden, at("archive.zip")), std::nullopt);
  EXPECT_THAT(job_->changes(),
              ElementsAre(JobChange{JobChange::Kind::made, "", at("archive.zip")}));
}

TEST_F(JobServicesTest, ACancelledJobMovesCopiesAndRemovesNothing) {
  make("a");
  const JobScope scope(job_);
  job_->cancel();
  EXPECT_EQ(files().moveItemAtPath(at("a"), at("b"))->code, ECANCELED);
  EXPECT_EQ(files().copyItemAtPath(at("a"), at("b"))->code, ECANCELED);
  EXPECT_EQ(files().removeItemAtPath(at("a"))->code, ECANCELED);
  EXPECT_TRUE(fs::exists(at("a")));
  EXPECT_FALSE(fs::exists(at("b")));
  EXPECT_THAT(job_->changes(), IsEmpty());
}

TEST_F(JobServicesTest, AMoveForWhichRoomHasBeenMadeIsNotStoppedAnyMore) {
  make("a", "new");
  make("there", "old");
  const JobScope scope(job_);
  EXPECT_EQ(files().removeItemAtPath(at("there")), std::nullopt);
  job_->cancel();
  EXPECT_EQ(files().moveItemAtPath(at("a"), at("there")), std::nullopt);
  EXPECT_TRUE(fs::exists(at("there")));
}

TEST_F(JobServicesTest, ProcessesOfAJobAreKnownUntilTheirEndAndTheirOutputIsKept) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  {
    const JobScope scope(job_);
    const auto process = platform().processes->createProcess();
    process->setLaunchPath("/bin/bash");
    process->setArguments({"-c", "echo result; read -r line"});
    const auto pipe = platform().processes->createPipe();
    process->setStandardOutput(pipe);
    pipe->fileHandleForReading()->setReadabilityHandler(
        [](FileHandle& handle) { handle.availableData(); });
    process->setStandardInput(ends[0]);
    process->launch();
  }
  close(ends[0]);
  EXPECT_EQ(job_->runningProcesses().size(), 1u);
  bool hasEnded = false;
  job_->setProcessEndHandler([&] { hasEnded = job_->runningProcesses().empty(); });
  close(ends[1]);
  EXPECT_TRUE(waitUntil([&] { return hasEnded; }, 60));
  EXPECT_EQ(job_->output(), "result\n");
}

TEST_F(JobServicesTest, AConversionThatEndsWellHasMadeItsPicture) {
  const JobScope scope(job_);
  const auto picture = make("p.png", "no picture");
  const auto process = platform().processes->createProcess();
  process->setLaunchPath("/usr/bin/sips");
  process->setArguments({"-s", "format", "jpeg", picture, "--out", at("p.jpg")});
  process->launch();
  EXPECT_TRUE(waitUntil([&] { return !process->isRunning(); }, 60));
  EXPECT_THAT(job_->changes(), IsEmpty()) << "it was no picture";
  EXPECT_EQ(job_->progress().itemsDone, 1u);
}

TEST_F(JobServicesTest, WhatAUserScriptPrintsIsNoComplaintOfTheJob) {
  const auto path = make("script.sh", "runWithPaths() { echo debugging >&2; }\n");
  const JobScope scope(job_);
  const auto task = platform().userScripts->taskWithURL(Url::fileURLWithPath(path), nullptr);
  ASSERT_NE(task, nullptr);
  AppleEvent event;
  event.setParamDescriptor(AppleEventDescriptor::descriptorWithString("runWithPaths"),
                           kASSubroutineName);
  int processEnds = 0;
  job_->setProcessEndHandler([&] { ++processEnds; });
  bool hasEnded = false;
  task->executeWithAppleEvent(event, [&](const auto&, const std::optional<Error>& error) {
    EXPECT_FALSE(error);
    hasEnded = true;
  });
  EXPECT_TRUE(waitUntil([&] { return hasEnded; }, 60));
  EXPECT_EQ(processEnds, 1);
  EXPECT_THAT(job_->complaints(), IsEmpty());
}

TEST_F(JobServicesTest, ProgressIsOfItemsUntilBytesAreKnown) {
  EXPECT_EQ(job_->progress().fraction(), 0.0);
  job_->setBytesOfOneItem({25, 100});
  EXPECT_DOUBLE_EQ(job_->progress().fraction().value(), 0.125);
  job_->addDoneItem();
  EXPECT_DOUBLE_EQ(job_->progress().fraction().value(), 0.5);
}

TEST_F(JobServicesTest, BytesOfAllItemsAreTheWholeProgress) {
  job_->addDoneItem();
  job_->monitor().progress({30, 100});
  EXPECT_DOUBLE_EQ(job_->progress().fraction().value(), 0.3);
}

TEST_F(JobServicesTest, AJobWithoutItemsHasNoFraction) {
  EXPECT_EQ(Job(JobSubject()).progress().fraction(), std::nullopt);
}

TEST_F(JobServicesTest, ProgressIsToldOnTheMainQueue) {
  int told = 0;
  job_->setProgressHandler([&] { ++told; });
  for (int count = 0; count < 1000; ++count) job_->setBytesOfAllItems({1, 1000});
  EXPECT_TRUE(waitUntil([&] { return told > 0; }));
  runPendingMainItems();
  EXPECT_LT(told, 100);
}

TEST_F(JobServicesTest, CancellingCallsTheHandlerOnce) {
  int cancelled = 0;
  job_->setCancelHandler([&] { ++cancelled; });
  job_->cancelToken().cancel();
  EXPECT_EQ(cancelled, 0);
  job_->cancel();
  job_->cancel();
  EXPECT_EQ(cancelled, 1);
}

TEST_F(JobServicesTest, AJobThatHasEndedIsNotCancelled) {
  job_->setState(JobState::succeeded);
  job_->cancel();
  EXPECT_FALSE(job_->cancelToken().isCancelled());
}

}  // namespace tervano::test
