#include "companion/job_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "actions/register_action_classes.h"
#include "actions/tv_apple_script_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_shell_script_action.h"
#include "jobs/job_services.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class NotedJobs : public JobListener {
 public:
  void jobWillRun(const std::shared_ptr<Job>& job) override {
    noted.push_back("begin " + job->subject().title);
  }
  void jobDidEnd(const std::shared_ptr<Job>& job, const RunOutcome& outcome) override {
    noted.push_back("end " + job->subject().title + " " + outcome.message.english());
    EXPECT_EQ(currentJob(), nullptr);
    EXPECT_TRUE(job->runningProcesses().empty());
  }

  std::vector<std::string> noted;
};

class JobRunnerTest : public testing::Test {
 protected:
  JobRunnerTest() : notifications_(*platform_.services().userNotifications) {
    platform_.services().userNotifications = &notifications_;
    real_ = platform();
    services_ = std::make_unique<JobServices>(real_);
    platform_.services() = services_->services();
    runner_->addListener(listener_);
  }
  ~JobRunnerTest() override { platform_.services() = real_; }

  std::string at(const std::string& name) const { return platform_.home().path() + "/" + name; }
  std::string make(const std::string& name, const std::string& text = "text") const {
    std::ofstream(at(name), std::ios::binary) << text;
    return at(name);
  }
  std::shared_ptr<TVShellScriptAction> script(const std::string& text) const {
    const auto action = std::make_shared<TVShellScriptAction>();
    action->init();
    action->setTitle("Script");
    action->setScriptURL(Url::fileURLWithPath(make("script.sh", "#!/bin/bash\n" + text)));
    fs::permissions(at("script.sh"), fs::perms::owner_all);
    return action;
  }
  std::shared_ptr<Job> run(const TVAction& action, const std::vector<std::string>& paths) {
    return runner_->run(action, paths, {}, [this](const RunOutcome& outcome) { ended_ = outcome; });
  }
  bool hasEnded() {
    return waitUntil([this] { return ended_.has_value(); }, 60);
  }

  ClassRegistry registry_ = [] {
    ClassRegistry registry;
    registerActionClasses(registry);
    return registry;
  }();
  ScopedPlatform platform_{&registry_};
  RecordingUserNotifications notifications_;
  Platform real_;
  std::unique_ptr<JobServices> services_;
  std::shared_ptr<JobRunner> runner_ = std::make_shared<JobRunner>();
  std::shared_ptr<NotedJobs> listener_ = std::make_shared<NotedJobs>();
  std::optional<RunOutcome> ended_;
};

}  // namespace

TEST_F(JobRunnerTest, ListenersHearOfTheBeginningAndTheEnd) {
  const auto job = run(*script("echo output\n"), {make("a")});
  EXPECT_THAT(listener_->noted, ElementsAre("begin Script"));
  EXPECT_THAT(runner_->jobs(), ElementsAre(job));
  ASSERT_TRUE(hasEnded());
  EXPECT_THAT(listener_->noted, ElementsAre("begin Script", "end Script "));
  EXPECT_THAT(runner_->jobs(), IsEmpty());
  EXPECT_EQ(job->state(), JobState::succeeded);
  EXPECT_EQ(job->output(), "output\n");
}

TEST_F(JobRunnerTest, AFailureIsTheStateOfItsJob) {
  TVMoveToAction move;
  move.init();
  move.setDestinationURL(Url::fileURLWithPath(at("nowhere"), true));
  const auto failed = run(*move.copy(), {make("a")});
  ASSERT_TRUE(hasEnded());
  EXPECT_EQ(failed->state(), JobState::failed);
}

TEST_F(JobRunnerTest, WhatAMoveDidIsKnownToItsJobOnly) {
  fs::create_directory(at("to"));
  TVMoveToAction move;
  move.init();
  move.setDestinationURL(Url::fileURLWithPath(at("to"), true));
  const auto copy = move.copy();
  const auto first = run(*copy, {make("a")});
  const auto second = run(*copy, {make("b")});
  ASSERT_TRUE(waitUntil([&] { return runner_->jobs().empty(); }, 60));
  EXPECT_THAT(first->changes(),
              ElementsAre(JobChange{JobChange::Kind::moved, at("a"), at("to/a")}));
  EXPECT_THAT(second->changes(),
              ElementsAre(JobChange{JobChange::Kind::moved, at("b"), at("to/b")}));
}

TEST_F(JobRunnerTest, ACancelledScriptIsEndedAndTheRunWithIt) {
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  const auto job = run(*script("read -r line < " + at("pipe") + "\n"), {make("a")});
  ASSERT_TRUE(waitUntil([&] { return !job->runningProcesses().empty(); }));
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(ended_->cancelled);
  EXPECT_FALSE(ended_->success);
  EXPECT_THAT(ended_->message, HasSubstr("was cancelled"));
  EXPECT_EQ(job->state(), JobState::cancelled);
}

TEST_F(JobRunnerTest, AScriptThatDoesNotWantToEndIsKilled) {
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  const auto action = script("trap '' TERM; exec 5<> " + at("pipe") + "; touch " + at("ready") +
                             "; while :; do read -r -u 5; done\n");
  const auto job = run(*action, {make("a")});
  ASSERT_TRUE(waitUntil([&] { return fs::exists(at("ready")); }, 60));
  const auto process = job->runningProcesses().front()->processIdentifier();
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(ended_->cancelled);
  EXPECT_NE(kill(static_cast<pid_t>(process), 0), 0);
}

TEST_F(JobRunnerTest, ACancelledUserScriptIsEndedAndTheRunWithIt) {
  TVAppleScriptAction action;
  action.init();
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  action.setScriptURL(Url::fileURLWithPath(
      make("user.py", "def runWithPaths(paths):\n    open('" + at("ready") +
                          "', 'w').close()\n    open('" + at("pipe") + "').read()\n")));
  const auto copy = action.copy();
  const auto job = run(*copy, {make("a")});
  ASSERT_TRUE(waitUntil([&] { return fs::exists(at("ready")); }, 60));
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(ended_->cancelled);
}

TEST_F(JobRunnerTest, ACancelledSecureDeleteNotifiesNoSuccess) {
  const TVSecureRemoveAction model;
  const auto action = model.copy();
  action->init();
  const std::string megabyte(1 << 20, 'x');
  {
    std::ofstream file(at("film"), std::ios::binary);
    for (int count = 0; count < 256; ++count) file << megabyte;
  }
  const auto job = run(*action, {at("film")});
  ASSERT_TRUE(waitUntil([&] { return !job->runningProcesses().empty(); }));
  job->cancel();
  ASSERT_TRUE(hasEnded());
  EXPECT_TRUE(ended_->cancelled);
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(JobRunnerTest, CancellingAllStopsEveryJob) {
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  const auto action = script("read -r line < " + at("pipe") + "\n");
  const auto first = run(*action, {make("a")});
  const auto second = run(*action, {make("b")});
  ASSERT_TRUE(waitUntil(
      [&] { return !first->runningProcesses().empty() && !second->runningProcesses().empty(); }));
  runner_->cancelAll();
  ASSERT_TRUE(waitUntil([&] { return runner_->jobs().empty(); }, 60));
  EXPECT_EQ(first->state(), JobState::cancelled);
  EXPECT_EQ(second->state(), JobState::cancelled);
}

}  // namespace tervano::test
