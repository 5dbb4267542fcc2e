#include "companion/action_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "actions/register_action_classes.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "archive/platform_exception.h"
#include "model/tv_action_groups.h"
#include "platform/run_loop.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;

// An action whose steps are given by the test.
class ScriptedAction : public TVAction {
 public:
  struct Script {
    std::function<void(const BeforeRunBlock&)> beforeRun;
    std::function<void(const FilePaths&, const CompletionBlock&)> run;
    // Every object that ran.
    std::vector<const TVAction*> ran;
    int living = 0;
  };

  ScriptedAction() = default;
  explicit ScriptedAction(std::shared_ptr<Script> script) : script_(std::move(script)) {
    ++script_->living;
  }
  ~ScriptedAction() override {
    if (script_ != nullptr) --script_->living;
  }

  std::string_view className() const override { return "ScriptedAction"; }
  void beforeRunWithFilePaths(const FilePaths& paths, const BeforeRunBlock& block) override {
    if (!script_->beforeRun) return TVAction::beforeRunWithFilePaths(paths, block);
    script_->beforeRun(block);
  }
  void runWithFilePaths(const FilePaths& paths, const CompletionBlock& block) override {
    script_->ran.push_back(this);
    script_->run(paths, block);
  }

 protected:
  std::shared_ptr<TVAction> makeBlank() const override {
    return std::make_shared<ScriptedAction>(script_);
  }

 private:
  std::shared_ptr<Script> script_;
};

class ActionDriverTest : public testing::Test {
 protected:
  ActionDriverTest()
      : log_(*platform_.services().log),
        notifications_(*platform_.services().userNotifications),
        workspace_(*platform_.services().workspace) {
    platform_.services().log = &log_;
    platform_.services().userNotifications = &notifications_;
    platform_.services().workspace = &workspace_;
  }

  RunOutcome outcomeOf(const TVAction& action, const std::vector<std::string>& paths = {}) {
    std::vector<RunOutcome> outcomes;
    runAction(action, paths, [&](const RunOutcome& outcome) { outcomes.push_back(outcome); });
    EXPECT_TRUE(outcomes.empty()) << "the end must come later";
    EXPECT_TRUE(waitUntil([&] { return !outcomes.empty(); }));
    runPendingMainItems();
    EXPECT_EQ(outcomes.size(), 1U);
    return outcomes.empty() ? RunOutcome() : outcomes.front();
  }

  std::shared_ptr<ScriptedAction> scripted() {
    const auto action = std::make_shared<ScriptedAction>(script_);
    action->init();
    action->setTitle("Scripted");
    return action;
  }

  ClassRegistry registry_ = [] {
    ClassRegistry registry;
    registerActionClasses(registry);
    return registry;
  }();
  ScopedPlatform platform_{&registry_};
  RecordingLog log_;
  RecordingUserNotifications notifications_;
  RecordingWorkspace workspace_;
  std::shared_ptr<ScriptedAction::Script> script_ = std::make_shared<ScriptedAction::Script>();
};

}  // namespace

TEST_F(ActionDriverTest, SuccessHasNoMessage) {
  script_->run = [](const auto&, const auto& block) { block(true, std::nullopt); };
  const auto outcome = outcomeOf(*scripted());
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(outcome.message, "");
}

TEST_F(ActionDriverTest, ErrorOfTheActionIsTheMessage) {
  script_->run = [](const auto&, const auto& block) { block(false, Error{"Test", 1, "Why."}); };
  const auto outcome = outcomeOf(*scripted());
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.message, "Why.");
  EXPECT_TRUE(outcome.toldByAction);
}

TEST_F(ActionDriverTest, FailureWithoutAnErrorIsToldByTheDriver) {
  script_->run = [](const auto&, const auto& block) { block(false, std::nullopt); };
  const auto outcome = outcomeOf(*scripted());
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.message, "\"Scripted\" failed and gave no reason.");
  EXPECT_FALSE(outcome.toldByAction);
}

TEST_F(ActionDriverTest, RunComesAfterBeforeRunCalledBack) {
  TVAction::BeforeRunBlock proceed;
  bool ran = false;
  bool ended = false;
  script_->beforeRun = [&](const auto& block) { proceed = block; };
  script_->run = [&](const auto&, const auto& block) {
    ran = true;
    block(true, std::nullopt);
  };
  runAction(*scripted(), {}, [&](const RunOutcome&) { ended = true; });
  runPendingMainItems();
  EXPECT_FALSE(ran);
  EXPECT_FALSE(ended);
  proceed(nullptr);
  EXPECT_TRUE(ran);
  EXPECT_TRUE(waitUntil([&] { return ended; }));
}

TEST_F(ActionDriverTest, PathsArriveInTheirOrder) {
  std::vector<std::string> got;
  script_->run = [&](const auto& paths, const auto& block) {
    got = paths;
    block(true, std::nullopt);
  };
  outcomeOf(*scripted(), {"/b", "/a\xff", "/c"});
  EXPECT_THAT(got, testing::ElementsAre("/b", "/a\xff", "/c"));
}

TEST_F(ActionDriverTest, EachRunHasItsOwnCopyOfTheAction) {
  std::vector<TVAction::CompletionBlock> blocks;
  script_->run = [&](const auto&, const auto& block) { blocks.push_back(block); };
  const auto action = scripted();
  int ended = 0;
  runAction(*action, {}, [&](const RunOutcome&) { ++ended; });
  runAction(*action, {}, [&](const RunOutcome&) { ++ended; });
  ASSERT_EQ(script_->ran.size(), 2U);
  EXPECT_NE(script_->ran[0], script_->ran[1]);
  EXPECT_NE(script_->ran[0], action.get());
  for (const auto& block : blocks) block(true, std::nullopt);
  EXPECT_TRUE(waitUntil([&] { return ended == 2; }));
}

TEST_F(ActionDriverTest, CopyLivesToTheEndOfItsRunAndNoLonger) {
  TVAction::CompletionBlock finish;
  script_->run = [&](const auto&, const auto& block) { finish = block; };
  bool ended = false;
  runAction(*scripted(), {}, [&](const RunOutcome&) { ended = true; });
  EXPECT_EQ(script_->living, 1);
  finish(true, std::nullopt);
  finish = nullptr;
  EXPECT_TRUE(waitUntil([&] { return ended; }));
  runPendingMainItems();
  EXPECT_EQ(script_->living, 0);
}

TEST_F(ActionDriverTest, SecondCallOfTheBlockIsNoSecondEnd) {
  script_->run = [](const auto&, const auto& block) {
    block(true, std::nullopt);
    block(false, std::nullopt);
  };
  EXPECT_TRUE(outcomeOf(*scripted()).success);
}

TEST_F(ActionDriverTest, ExceptionOfTheRunIsItsEnd) {
  script_->run = [](const auto&, const auto&) {
    throw PlatformException("NSInvalidArgumentException", "launch path not accessible");
  };
  const auto outcome = outcomeOf(*scripted());
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.message, "\"Scripted\" could not be run: launch path not accessible");
  EXPECT_FALSE(outcome.toldByAction);
}

TEST_F(ActionDriverTest, ExceptionOfBeforeRunIsItsEndToo) {
  script_->beforeRun = [](const auto&) {
    throw PlatformException("NSInvalidArgumentException", "no");
  };
  EXPECT_FALSE(outcomeOf(*scripted()).success);
  EXPECT_TRUE(script_->ran.empty());
}

TEST_F(ActionDriverTest, CopyActionThatNeverCallsBackEndsWithASentence) {
  const auto copy = action<TVCopyToAction>();
  copy->setTitle("Backup");
  const auto outcome = outcomeOf(*copy, {"/etc/hostname"});
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(outcome.message, HasSubstr("\"Backup\" is of a kind that does nothing"));
  EXPECT_FALSE(outcome.toldByAction);
}

TEST_F(ActionDriverTest, GroupEndsWithASentence) {
  const auto group = action<TVMoveActionGroup>();
  const auto outcome = outcomeOf(*group);
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(outcome.message, HasSubstr("TVMoveActionGroup"));
}

TEST_F(ActionDriverTest, ActionOfTheBaseClassEndsWithASentence) {
  const auto outcome = outcomeOf(*action<TVAction>());
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(outcome.message, HasSubstr("(TVAction)"));
}

TEST_F(ActionDriverTest, MissingDestinationIsNamed) {
  const auto move = action<TVMoveToAction>();
  move->setTitle("Away");
  move->setDestinationURL(Url::fileURLWithPath("/no/such/folder", true));
  const auto outcome = outcomeOf(*move, {"/etc/hostname"});
  EXPECT_EQ(outcome.message, "The destination folder of \"Away\" does not exist: /no/such/folder");
  EXPECT_FALSE(outcome.toldByAction);
}

TEST_F(ActionDriverTest, AbsentDestinationIsToldAsThat) {
  const auto move = action<TVMoveToAction>();
  move->setTitle("Away");
  EXPECT_EQ(outcomeOf(*move, {"/etc/hostname"}).message, "\"Away\" has no destination folder.");
}

TEST_F(ActionDriverTest, MoveReallyMovesAndIsToldByItsOwnNotification) {
  const std::string home = platform_.home().path();
  std::filesystem::create_directory(home + "/to");
  std::ofstream(home + "/a.txt") << "a";
  const auto move = action<TVMoveToAction>();
  move->setDestinationURL(Url::fileURLWithPath(home + "/to", true));
  EXPECT_TRUE(outcomeOf(*move, {home + "/a.txt"}).success);
  EXPECT_EQ(contentsOf(home + "/to/a.txt"), "a");
  ASSERT_EQ(notifications_.delivered().size(), 1U);
  EXPECT_EQ(notifications_.delivered().front().informativeText, "Finished moving 'a.txt'");
}

TEST_F(ActionDriverTest, MoveThatFailsIsToldByItsOwnNotificationOnly) {
  const std::string home = platform_.home().path();
  std::filesystem::create_directory(home + "/to");
  const auto move = action<TVMoveToAction>();
  move->setDestinationURL(Url::fileURLWithPath(home + "/to", true));
  const auto outcome = outcomeOf(*move, {home + "/missing"});
  EXPECT_FALSE(outcome.success);
  EXPECT_TRUE(outcome.toldByAction);
  EXPECT_EQ(notifications_.delivered().size(), 1U);
}

}  // namespace tervano::test
