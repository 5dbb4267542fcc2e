#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "companion/job_runner.h"
#include "platform/run_loop.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Jobs that end when the test says so.
class JobQueueTest : public testing::Test {
 protected:
  JobQueueTest() {
    runner_->setQueuePolicy([this](const std::string& uid) { return limits_[uid]; });
  }

  std::shared_ptr<Job> request(const std::string& uid, const std::string& title) {
    return runner_->run(
        {uid, title, "TVAction", {}},
        [this, title](const std::shared_ptr<Job>& job, JobRunner::Finished finished) {
          begun_.push_back(title);
          job->setState(JobState::running);
          job->setCancelHandler([this, title] { end(title, JobState::cancelled); });
          running_[title] = {job, std::move(finished)};
        },
        [this, title](const RunOutcome&) { ended_.push_back(title); });
  }
  void end(const std::string& title, JobState state = JobState::succeeded) {
    const auto [job, finished] = running_.extract(title).mapped();
    job->setCancelHandler(nullptr);
    job->setState(state);
    finished({state == JobState::succeeded, "", false, state == JobState::cancelled});
  }

  ScopedPlatform platform_;
  std::map<std::string, std::size_t> limits_;
  std::shared_ptr<JobRunner> runner_ = std::make_shared<JobRunner>();
  std::map<std::string, std::pair<std::shared_ptr<Job>, JobRunner::Finished>> running_;
  std::vector<std::string> begun_;
  std::vector<std::string> ended_;
};

}  // namespace

TEST_F(JobQueueTest, WithoutAPolicyEverythingRunsAtOnce) {
  for (const std::string title : {"a", "b", "c"}) request("X", title);
  EXPECT_THAT(begun_, ElementsAre("a", "b", "c"));
  for (const std::string title : {"a", "b", "c"}) end(title);
}

TEST_F(JobQueueTest, OneAtATimeRunsInTheOrderOfTheRequests) {
  limits_["X"] = 1;
  const auto first = request("X", "a");
  const auto second = request("X", "b");
  request("X", "c");
  EXPECT_THAT(begun_, ElementsAre("a"));
  EXPECT_EQ(first->state(), JobState::running);
  EXPECT_EQ(second->state(), JobState::waiting);
  EXPECT_EQ(runner_->jobs().size(), 3U);
  end("a");
  EXPECT_THAT(begun_, ElementsAre("a", "b"));
  end("b");
  end("c");
  EXPECT_THAT(ended_, ElementsAre("a", "b", "c"));
  EXPECT_THAT(runner_->jobs(), IsEmpty());
}

TEST_F(JobQueueTest, SeveralAtOnceAreSoMany) {
  limits_["X"] = 2;
  for (const std::string title : {"a", "b", "c", "d"}) request("X", title);
  EXPECT_THAT(begun_, ElementsAre("a", "b"));
  end("b");
  EXPECT_THAT(begun_, ElementsAre("a", "b", "c"));
  end("a");
  end("c");
  end("d");
}

TEST_F(JobQueueTest, AnotherActionIsNotHeldBack) {
  limits_["X"] = 1;
  limits_["Y"] = 1;
  request("X", "a");
  request("X", "b");
  request("Y", "c");
  request("Z", "d");
  EXPECT_THAT(begun_, ElementsAre("a", "c", "d"));
  end("c");
  end("d");
  EXPECT_THAT(begun_, ElementsAre("a", "c", "d"));
  end("a");
  end("b");
}

TEST_F(JobQueueTest, AWaitingRequestIsCancelledAndTheOthersKeepTheirOrder) {
  limits_["X"] = 1;
  request("X", "a");
  const auto waiting = request("X", "b");
  request("X", "c");
  waiting->cancel();
  EXPECT_EQ(waiting->state(), JobState::cancelled);
  EXPECT_THAT(ended_, IsEmpty()) << "the end comes later";
  EXPECT_TRUE(waitUntil([this] { return !ended_.empty(); }));
  EXPECT_THAT(ended_, ElementsAre("b"));
  end("a");
  EXPECT_THAT(begun_, ElementsAre("a", "c"));
  end("c");
}

TEST_F(JobQueueTest, CancellingAllBeginsNothing) {
  limits_["X"] = 1;
  request("X", "a");
  request("X", "b");
  request("X", "c");
  runner_->cancelAll();
  EXPECT_TRUE(waitUntil([this] { return ended_.size() == 3; }));
  EXPECT_THAT(begun_, ElementsAre("a"));
}

TEST_F(JobQueueTest, AChangedPolicyHoldsFromTheNextEndOn) {
  limits_["X"] = 1;
  for (const std::string title : {"a", "b", "c"}) request("X", title);
  limits_["X"] = 0;
  end("a");
  EXPECT_THAT(begun_, ElementsAre("a", "b", "c"));
  end("b");
  end("c");
}

TEST_F(JobQueueTest, ANewRequestDoesNotOvertakeOneThatWaits) {
  limits_["X"] = 1;
  request("X", "a");
  request("X", "b");
  limits_["X"] = 2;
  request("X", "c");
  EXPECT_THAT(begun_, ElementsAre("a"));
  end("a");
  EXPECT_THAT(begun_, ElementsAre("a", "b", "c"));
  end("b");
  end("c");
}

}  // namespace tervano::test
