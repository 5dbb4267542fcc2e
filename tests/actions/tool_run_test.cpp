#include "actions/tool_run.h"

#include <chrono>
#include <thread>

#include "actions/tv_convert_image_action.h"
#include "actions/tv_reset_app_preferences_action.h"
#include "actions/tv_secure_remove_action.h"
#include "archive/platform_exception.h"
#include "platform/notification_center.h"
#include "platform/platform.h"
#include "platform/run_loop.h"
#include "tests/actions/tool_action_test.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

template <typename T>
const char* toolOf();
template <>
const char* toolOf<TVResetAppPreferencesAction>() {
  return "/usr/bin/defaults";
}
template <>
const char* toolOf<TVConvertImageAction>() {
  return "/usr/bin/sips";
}
template <>
const char* toolOf<TVSecureRemoveAction>() {
  return "/bin/rm";
}

template <typename T>
const char* errorPrefixOf() {
  return "[DEBUG] Reset pref task got error: ";
}
template <>
const char* errorPrefixOf<TVSecureRemoveAction>() {
  return "[DEBUG] Delete task got error: ";
}

void prepare(TVAction& /*action*/) {}
void prepare(TVConvertImageAction& action) {
  action.setOutputFormat("png");
  action.setOutputExtension("png");
}

// What the three actions that run tools have in common, tried on each, one tool at a time.
template <typename T>
class ToolRunTest : public ToolActionTest {
 protected:
  ToolRunTest() {
    applications_.identifiers[path_] = "com.example.app";
    action_ = makeAction();
    setScript("exit 0\n");
  }

  static std::shared_ptr<T> makeAction() {
    auto made = action<T>();
    prepare(*made);
    return made;
  }
  void setScript(const std::string& script) { setTool(toolOf<T>(), script); }
  // A script that waits at a gate of that name.
  Descriptor setGatedScript(const std::string& gate, const std::string& before = "") {
    Descriptor made = makeGate(gate);
    setScript(before + "read line < '" + home() + "/" + gate + "'\n");
    return made;
  }
  void start(const RecordedBlock& end) { action_->runWithFilePaths({path_}, end.block()); }
  RecordedBlock runToEnd() { return ToolActionTest::runToEnd(*action_, {path_}); }
  // Calls `handler` whenever the end of a tool has been reported, before anything else that is on
  // the main queue.
  [[nodiscard]] static Subscription afterEachTool(std::function<void()> handler) {
    return platform().notificationCenter->addObserver(
        kTaskDidTerminateNotification, nullptr,
        [handler = std::move(handler)](const Notification&) { handler(); });
  }
  // Lines that a tool's error output led to.
  std::vector<std::string> loggedErrors() const {
    std::vector<std::string> lines = log_.lines();
    std::erase_if(lines, [](const auto& line) { return !line.starts_with("[DEBUG]"); });
    return lines;
  }

  const std::string path_ = makeFile("Example.app");
  std::shared_ptr<T> action_;
};

using ActionsWithTools =
    testing::Types<TVResetAppPreferencesAction, TVConvertImageAction, TVSecureRemoveAction>;
class ActionNames {
 public:
  template <typename T>
  static std::string GetName(int /*index*/) {
    return std::string(T().className());
  }
};
TYPED_TEST_SUITE(ToolRunTest, ActionsWithTools, ActionNames);

TYPED_TEST(ToolRunTest, ANewActionHasNoPendingTasksNoBlockAndNoError) {
  EXPECT_EQ(this->action_->pendingTasks(), std::nullopt);
  EXPECT_FALSE(this->action_->completionBlock());
  EXPECT_FALSE(this->action_->hasError());
}

TYPED_TEST(ToolRunTest, ARunReturnsWhileItsToolIsStillRunning) {
  const Descriptor gate = this->setGatedScript("gate");
  const RecordedBlock end;
  this->start(end);
  ASSERT_THAT(this->processes_.made(), SizeIs(1));
  EXPECT_TRUE(this->processes_.made()[0]->isRunning());
  ASSERT_THAT(*this->action_->pendingTasks(), SizeIs(1));
  const auto helper = this->action_->pendingTasks()->front();
  EXPECT_EQ(helper->task(), this->processes_.made()[0]);
  EXPECT_EQ(helper->delegate(), this->action_);
  EXPECT_TRUE(this->action_->completionBlock());
  this->openGate(gate);
  this->waitForCall(end);
}

TYPED_TEST(ToolRunTest, TheBlockGetsTrueAndNilOnTheMainThread) {
  const RecordedBlock end = this->runToEnd();
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_EQ(end.thread(), std::this_thread::get_id());
}

TYPED_TEST(ToolRunTest, AfterTheEndNothingIsPendingAndTheBlockIsGone) {
  this->runToEnd();
  ASSERT_NE(this->action_->pendingTasks(), std::nullopt);
  EXPECT_THAT(*this->action_->pendingTasks(), IsEmpty());
  EXPECT_FALSE(this->action_->completionBlock());
}

TYPED_TEST(ToolRunTest, WhatTheBlockHoldsIsReleasedAtTheEnd) {
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watched = held;
  bool called = false;
  this->action_->runWithFilePaths(
      {this->path_},
      [held = std::move(held), &called](bool, const std::optional<Error>&) { called = true; });
  EXPECT_TRUE(waitUntil([&] { return called; }));
  runPendingMainItems();
  EXPECT_TRUE(watched.expired());
}

TYPED_TEST(ToolRunTest, TheEndIsPostedAndNotDoneWhenTheToolIsReported) {
  const RecordedBlock end;
  this->start(end);
  int tools = 0;
  const auto observation = this->afterEachTool([&] {
    ++tools;
    EXPECT_THAT(*this->action_->pendingTasks(), IsEmpty());
    EXPECT_EQ(end.calls(), 0);
    EXPECT_TRUE(this->action_->completionBlock());
  });
  this->waitForCall(end);
  EXPECT_EQ(tools, 1);
}

TYPED_TEST(ToolRunTest, TheNotificationOfTheEndHasTheProductsNameASoundAndNoButton) {
  this->runToEnd();
  ASSERT_FALSE(this->notifications_.delivered().empty());
  const UserNotification last = this->notifications_.delivered().back();
  EXPECT_EQ(last.title, "Tervano");
  EXPECT_EQ(last.soundName, kUserNotificationDefaultSoundName);
  EXPECT_FALSE(last.hasActionButton);
  EXPECT_EQ(last.actionButtonTitle, std::nullopt);
  EXPECT_TRUE(last.userInfo.empty());
}

TYPED_TEST(ToolRunTest, TheNotificationIsDeliveredBeforeTheBlockIsCalled) {
  std::size_t delivered = 0;
  bool called = false;
  this->action_->runWithFilePaths({this->path_}, [&](bool, const std::optional<Error>&) {
    delivered = this->notifications_.delivered().size();
    called = true;
  });
  EXPECT_TRUE(waitUntil([&] { return called; }));
  EXPECT_GT(delivered, 0u);
  EXPECT_EQ(delivered, this->notifications_.delivered().size());
}

TYPED_TEST(ToolRunTest, AnEmptySelectionDoesNothingAndNeverCallsTheBlock) {
  const RecordedBlock end;
  this->action_->runWithFilePaths({}, end.block());
  EXPECT_EQ(this->action_->pendingTasks(), std::nullopt);
  EXPECT_FALSE(this->action_->completionBlock());
  runPendingMainItems();
  EXPECT_THAT(this->processes_.made(), IsEmpty());
  EXPECT_THAT(this->notifications_.delivered(), IsEmpty());
  EXPECT_THAT(this->log_.lines(), IsEmpty());
  this->runToEnd();
  EXPECT_EQ(end.calls(), 0);
}

TYPED_TEST(ToolRunTest, AnEmptySelectionLeavesTheRunUnderWayAlone) {
  const Descriptor gate = this->setGatedScript("gate");
  const RecordedBlock first;
  const RecordedBlock second;
  this->start(first);
  this->action_->runWithFilePaths({}, second.block());
  EXPECT_THAT(*this->action_->pendingTasks(), SizeIs(1));
  this->openGate(gate);
  this->waitForCall(first);
  EXPECT_EQ(this->processes_.made()[0]->terminationReason(), TerminationReason::exit);
  EXPECT_EQ(second.calls(), 0);
}

TYPED_TEST(ToolRunTest, StandardOutputIsIgnored) {
  this->setScript("echo 'error: not really'\n");
  this->runToEnd();
  EXPECT_FALSE(this->action_->hasError());
  EXPECT_THAT(this->loggedErrors(), IsEmpty());
}

TYPED_TEST(ToolRunTest, TextOnStandardErrorIsAnErrorAndLoggedAsItIs) {
  this->setScript("printf ' caf\\303\\251: no such \"thing\"\\n' >&2\n");
  const RecordedBlock end = this->runToEnd();
  EXPECT_TRUE(this->action_->hasError());
  EXPECT_THAT(this->loggedErrors(), ElementsAre(errorPrefixOf<TypeParam>() +
                                                std::string(" caf\xC3\xA9: no such \"thing\"\n")));
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
}

TYPED_TEST(ToolRunTest, EveryChunkOfErrorsIsALineOfItsOwn) {
  const Descriptor gate = this->setGatedScript("gate", "echo first >&2\n");
  const RecordedBlock end;
  this->start(end);
  EXPECT_TRUE(waitUntil([&] { return this->action_->hasError(); }));
  EXPECT_THAT(this->loggedErrors(),
              ElementsAre(errorPrefixOf<TypeParam>() + std::string("first\n")));
  EXPECT_EQ(end.calls(), 0);
  this->openGate(gate);
  this->waitForCall(end);
}

TYPED_TEST(ToolRunTest, WhiteSpaceOnStandardErrorIsNoError) {
  this->setScript("printf ' \\n\\t \\n' >&2\n");
  this->runToEnd();
  EXPECT_FALSE(this->action_->hasError());
  EXPECT_THAT(this->loggedErrors(), IsEmpty());
}

TYPED_TEST(ToolRunTest, ErrorOutputThatIsNoUtf8IsNoError) {
  this->setScript("printf 'bad \\377\\n' >&2\n");
  this->runToEnd();
  EXPECT_FALSE(this->action_->hasError());
  EXPECT_THAT(this->loggedErrors(), IsEmpty());
}

TYPED_TEST(ToolRunTest, AnExitStatusIsNoError) {
  this->setScript("exit 3\n");
  EXPECT_TRUE(this->runToEnd().success());
  EXPECT_EQ(this->processes_.made()[0]->terminationStatus(), 3);
  EXPECT_FALSE(this->action_->hasError());
}

TYPED_TEST(ToolRunTest, AToolThatIsKilledEndsTheRunAsAnyOther) {
  const Descriptor gate = this->setGatedScript("gate");
  const RecordedBlock end;
  this->start(end);
  kill(static_cast<pid_t>(this->processes_.made()[0]->processIdentifier()), SIGKILL);
  this->waitForCall(end);
  EXPECT_EQ(this->processes_.made()[0]->terminationReason(), TerminationReason::uncaughtSignal);
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_FALSE(this->action_->hasError());
}

TYPED_TEST(ToolRunTest, AnErrorSticksToTheObjectForLaterRuns) {
  this->setScript("echo broken >&2\n");
  this->runToEnd();
  this->setScript("exit 0\n");
  EXPECT_TRUE(this->runToEnd().success());
  EXPECT_TRUE(this->action_->hasError());
  EXPECT_THAT(this->loggedErrors(), SizeIs(1));
}

TYPED_TEST(ToolRunTest, ACopyHasNoErrorNoPendingTasksAndNoBlock) {
  const Descriptor gate = this->setGatedScript("gate", "echo broken >&2\n");
  const RecordedBlock end;
  this->start(end);
  EXPECT_TRUE(waitUntil([&] { return this->action_->hasError(); }));
  const auto copy = std::dynamic_pointer_cast<TypeParam>(this->action_->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->uid(), this->action_->uid());
  EXPECT_FALSE(copy->hasError());
  EXPECT_EQ(copy->pendingTasks(), std::nullopt);
  EXPECT_FALSE(copy->completionBlock());
  this->openGate(gate);
  this->waitForCall(end);
}

TYPED_TEST(ToolRunTest, AnArchiveHasNoErrorNoPendingTasksAndNoBlock) {
  const Descriptor gate = this->setGatedScript("gate", "echo broken >&2\n");
  const RecordedBlock end;
  this->start(end);
  EXPECT_TRUE(waitUntil([&] { return this->action_->hasError(); }));
  const auto decoded = this->template unarchived<TypeParam>(this->archived(this->action_));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->uid(), this->action_->uid());
  EXPECT_FALSE(decoded->hasError());
  EXPECT_EQ(decoded->pendingTasks(), std::nullopt);
  EXPECT_FALSE(decoded->completionBlock());
  this->openGate(gate);
  this->waitForCall(end);
}

TYPED_TEST(ToolRunTest, ANewRunTerminatesTheToolThatIsPendingAndItsBlockIsNeverCalled) {
  const Descriptor gate = this->setGatedScript("gate");
  const RecordedBlock dropped;
  this->start(dropped);
  const auto oldHelper = this->action_->pendingTasks()->front();
  this->setScript("exit 0\n");
  this->runToEnd();
  this->expectTerminated(0);
  EXPECT_EQ(oldHelper->task(), nullptr);
  this->waitForAllTools();
  EXPECT_EQ(dropped.calls(), 0);
  EXPECT_THAT(*this->action_->pendingTasks(), IsEmpty());
}

TYPED_TEST(ToolRunTest, ATerminatedRunTellsTheUserNothingOfItsEnd) {
  const Descriptor gate = this->setGatedScript("gate");
  this->start(RecordedBlock());
  const auto atStart = this->notifications_.delivered().size();
  this->setScript("exit 0\n");
  this->runToEnd();
  this->waitForAllTools();
  EXPECT_THAT(this->notifications_.delivered(), SizeIs(2 * atStart + 1));
}

TYPED_TEST(ToolRunTest, AToolThatHasEndedUnreportedIsDroppedByANewRunToo) {
  const RecordedBlock dropped;
  this->start(dropped);
  // The end waits on the main queue, which does not run meanwhile.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (this->platform_.runLoop().pendingMainItems() == 0) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::yield();
  }
  this->runToEnd();
  this->waitForAllTools();
  EXPECT_EQ(dropped.calls(), 0);
}

TYPED_TEST(ToolRunTest, AnErrorThatWasReadBeforeTheNextRunStillCounts) {
  const Descriptor gate = this->setGatedScript("gate", "echo broken >&2\n");
  this->start(RecordedBlock());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (this->platform_.runLoop().pendingMainItems() == 0) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::yield();
  }
  EXPECT_FALSE(this->action_->hasError());
  this->setScript("exit 0\n");
  this->runToEnd();
  EXPECT_TRUE(this->action_->hasError());
  this->waitForAllTools();
}

TYPED_TEST(ToolRunTest, ThePostedEndCallsTheBlockThatIsThereWhenItRuns) {
  const RecordedBlock first;
  const RecordedBlock second;
  this->start(first);
  const auto observation =
      this->afterEachTool([&] { this->action_->setCompletionBlock(second.block()); });
  this->waitForCall(second);
  EXPECT_EQ(first.calls(), 0);
}

TYPED_TEST(ToolRunTest, ARunThatStartsBeforeThePostedEndLendsItsBlockToIt) {
  const RecordedBlock first;
  const RecordedBlock second;
  const Descriptor gate = this->makeGate("gate");
  this->start(first);
  int tools = 0;
  const auto observation = this->afterEachTool([&] {
    if (++tools > 1) return;
    this->setScript("read line < '" + this->home() + "/gate'\n");
    this->start(second);
  });
  this->waitForCall(second);
  EXPECT_EQ(tools, 1) << "the second tool had ended before its run's block was called";
  EXPECT_FALSE(this->action_->completionBlock());
  EXPECT_THAT(*this->action_->pendingTasks(), SizeIs(1));
  this->openGate(gate);
  EXPECT_TRUE(waitUntil([&] { return tools == 2; }));
  runPendingMainItems();
  EXPECT_EQ(first.calls(), 0);
  EXPECT_EQ(second.calls(), 1);
}

TYPED_TEST(ToolRunTest, ABlockThatStartsTheNextRunTakesThatRunsBlockAway) {
  const RecordedBlock second;
  int calls = 0;
  this->action_->runWithFilePaths({this->path_}, [&](bool, const std::optional<Error>&) {
    ++calls;
    this->start(second);
  });
  EXPECT_TRUE(waitUntil([&] { return calls == 1; }));
  EXPECT_FALSE(this->action_->completionBlock());
  EXPECT_THAT(*this->action_->pendingTasks(), SizeIs(1));
  this->waitForAllTools();
  EXPECT_THAT(*this->action_->pendingTasks(), IsEmpty());
  this->runToEnd();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(second.calls(), 0);
}

TYPED_TEST(ToolRunTest, ARunWithoutABlockIsReportedAllTheSame) {
  this->action_->runWithFilePaths({this->path_}, nullptr);
  const auto atStart = this->notifications_.delivered().size();
  EXPECT_TRUE(waitUntil([&] { return this->notifications_.delivered().size() > atStart; }));
  this->waitForAllTools();
}

TYPED_TEST(ToolRunTest, WithoutNotificationsNothingIsShownAndTheBlockIsStillCalled) {
  this->switchNotificationsOff();
  EXPECT_TRUE(this->runToEnd().success());
  EXPECT_THAT(this->notifications_.delivered(), IsEmpty());
}

TYPED_TEST(ToolRunTest, NotificationsThatAreSwitchedOffDuringARunAreNotShownAtItsEnd) {
  const Descriptor gate = this->setGatedScript("gate");
  const RecordedBlock end;
  this->start(end);
  const auto atStart = this->notifications_.delivered().size();
  this->switchNotificationsOff();
  this->openGate(gate);
  this->waitForCall(end);
  EXPECT_THAT(this->notifications_.delivered(), SizeIs(atStart));
}

TYPED_TEST(ToolRunTest, AToolThatCannotBeStartedThrowsToTheCallerAndTheRunNeverEnds) {
  this->removeTool(toolOf<TypeParam>());
  const RecordedBlock end;
  try {
    this->start(end);
    FAIL() << "nothing was thrown";
  } catch (const PlatformException& exception) {
    EXPECT_EQ(exception.name(), kInvalidArgumentException);
    EXPECT_THAT(exception.reason(), testing::HasSubstr("no such tool"));
  }
  ASSERT_THAT(*this->action_->pendingTasks(), SizeIs(1));
  const auto failed = this->action_->pendingTasks()->front();
  EXPECT_EQ(failed->task(), this->processes_.made()[0]);
  EXPECT_TRUE(this->action_->completionBlock());
  // A later run takes its place and ends by itself.
  this->setScript("exit 0\n");
  this->runToEnd();
  EXPECT_EQ(end.calls(), 0);
  EXPECT_THAT(*this->action_->pendingTasks(), IsEmpty());
  failed->cleanup();
}

TYPED_TEST(ToolRunTest, AToolThatMayNotBeExecutedThrowsToTheCaller) {
  this->setScript("exit 0\n");
  chmod((this->home() + "/tools/2").c_str(), 0600);
  EXPECT_THROW(this->start(RecordedBlock()), PlatformException);
  ASSERT_THAT(*this->action_->pendingTasks(), SizeIs(1));
  this->action_->pendingTasks()->front()->cleanup();
}

TYPED_TEST(ToolRunTest, AnActionThatIsDroppedDuringItsRunMissesTheEnd) {
  const Descriptor gate = this->setGatedScript("gate", "echo broken >&2\n");
  const RecordedBlock end;
  this->start(end);
  const auto atStart = this->notifications_.delivered().size();
  this->action_.reset();
  this->openGate(gate);
  this->waitForAllTools();
  EXPECT_EQ(end.calls(), 0);
  EXPECT_THAT(this->notifications_.delivered(), SizeIs(atStart));
  EXPECT_THAT(this->loggedErrors(), IsEmpty());
}

TYPED_TEST(ToolRunTest, ThePostedEndHoldsTheAction) {
  const RecordedBlock end;
  this->start(end);
  const std::weak_ptr<TypeParam> watched = this->action_;
  const auto observation = this->afterEachTool([&] {
    this->action_.reset();
    EXPECT_FALSE(watched.expired());
  });
  this->waitForCall(end);
  EXPECT_TRUE(watched.expired());
}

TYPED_TEST(ToolRunTest, TheToolRunsInOurFolderAndWithOurEnvironment) {
  this->platform_.home().setVariable("TERVANO_TEST_MARK", "a mark");
  this->setScript("printf '%s\\n%s\\n' \"$(pwd -P)\" \"$TERVANO_TEST_MARK\" > '" + this->home() +
                  "/seen'\n");
  this->runToEnd();
  EXPECT_EQ(this->contentsOf(this->home() + "/seen"),
            std::filesystem::current_path().string() + "\na mark\n");
}

TYPED_TEST(ToolRunTest, TheToolGetsItsArgumentsByteForByte) {
  this->setScript("printf '%s\\0' \"$@\" > '" + this->home() + "/seen'\n");
  this->runToEnd();
  std::string expected;
  for (const auto& argument : this->processes_.made()[0]->arguments()) expected += argument + '\0';
  EXPECT_EQ(this->contentsOf(this->home() + "/seen"), expected);
}

TYPED_TEST(ToolRunTest, AChunkThatIsNoUtf8IsLoggedAsNilWhenItComesAllTheSame) {
  const auto helper = VXTaskHelper::taskHelperWithTask(nullptr);
  this->action_->taskHelperDidReceiveError(helper, Data{0xFF});
  EXPECT_TRUE(this->action_->hasError());
  EXPECT_THAT(this->loggedErrors(),
              ElementsAre(errorPrefixOf<TypeParam>() + std::string("(null)")));
}

TYPED_TEST(ToolRunTest, TheEndOfAnotherHelperEndsNoRun) {
  const Descriptor gate = this->setGatedScript("gate");
  const RecordedBlock end;
  this->start(end);
  this->action_->taskHelperDidFinish(VXTaskHelper::taskHelperWithTask(nullptr), 1);
  runPendingMainItems();
  EXPECT_EQ(end.calls(), 0);
  EXPECT_THAT(*this->action_->pendingTasks(), SizeIs(1));
  this->openGate(gate);
  this->waitForCall(end);
}

}  // namespace
}  // namespace tervano::test
