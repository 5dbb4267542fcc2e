#include "actions/tv_secure_remove_action.h"

#include "archive/platform_exception.h"
#include "tests/actions/tool_action_test.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kRemoveTool[] = "/bin/rm";

class TVSecureRemoveActionTest : public ToolActionTest {
 protected:
  TVSecureRemoveActionTest() { setTool(kRemoveTool, "exit 0\n"); }

  RecordedBlock run(const TVAction::FilePaths& paths) { return runToEnd(*action_, paths); }
  // From now on each removal waits at the gate of its file's name.
  void setGatedTool() { setTool(kRemoveTool, "read line < '" + home() + "/gate-'\"${5##*/}\"\n"); }

  std::shared_ptr<TVSecureRemoveAction> action_ = action<TVSecureRemoveAction>();
};

TEST_F(TVSecureRemoveActionTest, ANewActionHasTheValuesOfItsClass) {
  EXPECT_EQ(action_->title(), "Secure Delete");
  EXPECT_EQ(action_->icon()->name(), "icon-secure-delete");
  EXPECT_TRUE(action_->isDefault());
  EXPECT_EQ(action_->actionDescription(), "Securely and permanently removes the selected files");
  EXPECT_EQ(action_->fileTypes(), std::nullopt);
  EXPECT_EQ(action_->defaultTitle(), std::nullopt);
  EXPECT_TRUE(action_->enabled());
  EXPECT_TRUE(action_->isNew());
  EXPECT_EQ(action_->alert(), nullptr);
}

TEST_F(TVSecureRemoveActionTest, ItsEditorIsThatOfActionsWithoutSettings) {
  EXPECT_EQ(action_->editorClassName(), "TVResetAppModule");
}

TEST_F(TVSecureRemoveActionTest, TheAlertIsKeptAndARunLeavesItAlone) {
  const auto alert = std::make_shared<int>();
  action_->setAlert(alert);
  run({"/p/a.txt"});
  EXPECT_EQ(action_->alert(), alert);
  EXPECT_EQ(std::dynamic_pointer_cast<TVSecureRemoveAction>(action_->copy())->alert(), nullptr);
}

TEST_F(TVSecureRemoveActionTest, BeforeRunAsksNothingAndNeverCallsItsBlock) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/p/a.txt"}, [&](const Value&) { ++calls; });
  runPendingMainItems();
  EXPECT_THAT(processes_.made(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
  run({"/p/a.txt"});
  EXPECT_EQ(calls, 0);
}

TEST_F(TVSecureRemoveActionTest, EachPathGetsAToolOfItsOwn) {
  run({"/p/a.txt", "/p/folder", "/p/c.txt"});
  ASSERT_THAT(processes_.made(), SizeIs(3));
  EXPECT_THAT(commandOf(0), ElementsAre(kRemoveTool, "-v", "-f", "-r", "-P", "/p/a.txt"));
  EXPECT_THAT(commandOf(1), ElementsAre(kRemoveTool, "-v", "-f", "-r", "-P", "/p/folder"));
  EXPECT_THAT(commandOf(2), ElementsAre(kRemoveTool, "-v", "-f", "-r", "-P", "/p/c.txt"));
}

TEST_F(TVSecureRemoveActionTest, AllToolsRunAtOnceAndEachHelperCarriesItsPath) {
  const Descriptor a = makeGate("gate-a.txt");
  const Descriptor b = makeGate("gate-b.txt");
  setGatedTool();
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/a.txt", "/p/b.txt"}, end.block());
  ASSERT_THAT(*action_->pendingTasks(), SizeIs(2));
  EXPECT_EQ((*action_->pendingTasks())[0]->userInfo(), "/p/a.txt");
  EXPECT_EQ((*action_->pendingTasks())[1]->userInfo(), "/p/b.txt");
  EXPECT_TRUE(processes_.made()[0]->isRunning());
  EXPECT_TRUE(processes_.made()[1]->isRunning());
  openGate(b);
  EXPECT_TRUE(waitUntil([&] { return action_->pendingTasks()->size() == 1; }));
  EXPECT_EQ(action_->pendingTasks()->front()->userInfo(), "/p/a.txt");
  runPendingMainItems();
  EXPECT_EQ(end.calls(), 0);
  openGate(a);
  waitForCall(end);
}

TEST_F(TVSecureRemoveActionTest, TheNotificationNamesOnlyThePathWhoseToolEndedLast) {
  const Descriptor gates[] = {makeGate("gate-a.txt"), makeGate("gate-b.txt"),
                              makeGate("gate-c.txt")};
  setGatedTool();
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/a.txt", "/p/b.txt", "/p/c.txt"}, end.block());
  for (const std::size_t next : {2u, 0u, 1u}) {
    EXPECT_THAT(notifications_.delivered(), IsEmpty());
    const auto pending = action_->pendingTasks()->size();
    openGate(gates[next]);
    EXPECT_TRUE(waitUntil([&] { return action_->pendingTasks()->size() < pending; }));
  }
  waitForCall(end);
  EXPECT_THAT(informativeTexts(), ElementsAre("Successfully removed 'b.txt' "));
}

TEST_F(TVSecureRemoveActionTest, ASuccessIsToldWithABlankAtTheEnd) {
  const RecordedBlock end = run({"/p/a.txt"});
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  ASSERT_THAT(notifications_.delivered(), SizeIs(1));
  const UserNotification notification = notifications_.delivered()[0];
  EXPECT_EQ(notification.title, "Tervano");
  EXPECT_EQ(notification.informativeText, "Successfully removed 'a.txt' ");
  EXPECT_EQ(notification.soundName, kUserNotificationDefaultSoundName);
  EXPECT_FALSE(notification.hasActionButton);
  EXPECT_EQ(notification.actionButtonTitle, std::nullopt);
  EXPECT_TRUE(notification.userInfo.empty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVSecureRemoveActionTest, ErrorOutputIsToldAsAFailureAndTheBlockStillGetsTrue) {
  setTool(kRemoveTool, "echo 'a.txt: Operation not permitted' >&2; exit 1\n");
  const RecordedBlock end = run({"/p/a.txt"});
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_THAT(informativeTexts(), ElementsAre("Could not remove 'a.txt' "));
  EXPECT_THAT(log_.lines(), ElementsAre("[DEBUG] Delete task got error: a.txt: Operation not "
                                        "permitted\n"));
}

TEST_F(TVSecureRemoveActionTest, AFailureOfOnePathIsToldWithTheNameOfTheLast) {
  const Descriptor gate = makeGate("gate");
  setTool(kRemoveTool,
          "case $5 in */bad) echo broken >&2;; *) read line < '" + home() + "/gate';; esac\n");
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/bad", "/p/good"}, end.block());
  EXPECT_TRUE(waitUntil([&] { return action_->pendingTasks()->size() == 1; }));
  openGate(gate);
  waitForCall(end);
  EXPECT_THAT(informativeTexts(), ElementsAre("Could not remove 'good' "));
}

TEST_F(TVSecureRemoveActionTest, AfterOneFailureALaterSuccessIsStillToldAsAFailure) {
  setTool(kRemoveTool, "echo broken >&2\n");
  run({"/p/a.txt"});
  setTool(kRemoveTool, "exit 0\n");
  run({"/p/b.txt"});
  EXPECT_THAT(informativeTexts(),
              ElementsAre("Could not remove 'a.txt' ", "Could not remove 'b.txt' "));
}

TEST_F(TVSecureRemoveActionTest, TheListOfRemovedNamesIsDiscarded) {
  setTool(kRemoveTool, "echo \"$5\"\n");
  run({"/p/a.txt"});
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(informativeTexts(), ElementsAre("Successfully removed 'a.txt' "));
}

TEST_F(TVSecureRemoveActionTest, ANewRunTerminatesEveryToolOfTheEarlierOne) {
  const Descriptor a = makeGate("gate-a.txt");
  const Descriptor b = makeGate("gate-b.txt");
  setGatedTool();
  const RecordedBlock dropped;
  action_->runWithFilePaths({"/p/a.txt", "/p/b.txt"}, dropped.block());
  setTool(kRemoveTool, "exit 0\n");
  run({"/p/c.txt"});
  expectTerminated(0);
  expectTerminated(1);
  waitForAllTools();
  EXPECT_EQ(dropped.calls(), 0);
  EXPECT_THAT(informativeTexts(), ElementsAre("Successfully removed 'c.txt' "));
}

TEST_F(TVSecureRemoveActionTest, ToolsThatHaveEndedAreNoHindranceToANewRun) {
  const Descriptor a = makeGate("gate-a.txt");
  const Descriptor b = makeGate("gate-b.txt");
  setGatedTool();
  const RecordedBlock dropped;
  action_->runWithFilePaths({"/p/a.txt", "/p/b.txt"}, dropped.block());
  openGate(a);
  EXPECT_TRUE(waitUntil([&] { return action_->pendingTasks()->size() == 1; }));
  setTool(kRemoveTool, "exit 0\n");
  run({"/p/c.txt"});
  EXPECT_EQ(processes_.made()[0]->terminationReason(), TerminationReason::exit);
  expectTerminated(1);
  EXPECT_EQ(dropped.calls(), 0);
}

TEST_F(TVSecureRemoveActionTest, WhenTheFirstToolCannotBeStartedNoOtherIsTried) {
  removeTool(kRemoveTool);
  const RecordedBlock end;
  EXPECT_THROW(action_->runWithFilePaths({"/p/a.txt", "/p/b.txt"}, end.block()), PlatformException);
  runPendingMainItems();
  EXPECT_THAT(processes_.made(), SizeIs(1));
  ASSERT_THAT(*action_->pendingTasks(), SizeIs(1));
  EXPECT_EQ(action_->pendingTasks()->front()->userInfo(), "/p/a.txt");
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_EQ(end.calls(), 0);
  action_->pendingTasks()->front()->cleanup();
}

TEST_F(TVSecureRemoveActionTest, WithoutNotificationsTheBlockStillGetsTrue) {
  switchNotificationsOff();
  const RecordedBlock end = run({"/p/a.txt"});
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(TVSecureRemoveActionTest, NothingIsRevealed) {
  run({"/p/a.txt"});
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
}

TEST_F(TVSecureRemoveActionTest, HostileNamesReachTheToolAndTheUserAsTheyAre) {
  setTool(kRemoveTool, "printf '%s\\0' \"$@\" > '" + home() + "/seen'\n");
  for (const auto& name : hostileNames()) {
    const std::string path = "/p/" + name;
    run({path});
    std::string expected;
    for (const auto* option : {"-v", "-f", "-r", "-P"}) expected += std::string(option) + '\0';
    EXPECT_EQ(contentsOf(home() + "/seen"), expected + path + '\0');
    EXPECT_EQ(informativeTexts().back(), "Successfully removed '" + name + "' ");
  }
  EXPECT_FALSE(exists("pwned"));
}

TEST_F(TVSecureRemoveActionTest, ATrailingSlashOfThePathIsNoName) {
  run({"/p/folder/"});
  EXPECT_THAT(commandOf(0), ElementsAre(kRemoveTool, "-v", "-f", "-r", "-P", "/p/folder/"));
  EXPECT_THAT(informativeTexts(), ElementsAre("Successfully removed 'folder' "));
}

TEST_F(TVSecureRemoveActionTest, TheSamePathTwiceGetsTwoTools) {
  run({"/p/a.txt", "/p/a.txt"});
  EXPECT_THAT(processes_.made(), SizeIs(2));
  EXPECT_THAT(informativeTexts(), SizeIs(1));
}

TEST_F(TVSecureRemoveActionTest, TwoHundredPathsRunAtOnceAndEndOnce) {
  constexpr std::size_t kPaths = 200;
  const Descriptor gate = makeGate("gate");
  setTool(kRemoveTool, "read line < '" + home() + "/gate'\n");
  TVAction::FilePaths paths;
  for (std::size_t i = 0; i < kPaths; ++i) paths.push_back("/p/" + std::to_string(i));
  const RecordedBlock end;
  action_->runWithFilePaths(paths, end.block());
  EXPECT_THAT(*action_->pendingTasks(), SizeIs(kPaths));
  EXPECT_EQ(platform_.processes().runningProcesses(), static_cast<int>(kPaths));
  std::vector<std::string> started;
  for (const auto& process : processes_.made()) started.push_back(process->arguments().back());
  EXPECT_THAT(started, ElementsAreArray(paths));
  openGate(gate, kPaths);
  waitForCall(end);
  EXPECT_THAT(notifications_.delivered(), SizeIs(1));
}

TEST_F(TVSecureRemoveActionTest, ItHasTheArchiveKeysOfTheBaseOnly) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "$class"));
  EXPECT_THAT(*registry_.chain("TVSecureRemoveAction"),
              ElementsAre("TVSecureRemoveAction", "TVAction", "NSObject"));
}

TEST_F(TVSecureRemoveActionTest, CopyAndArchiveKeepTheFieldsOfTheBase) {
  const auto copy = std::dynamic_pointer_cast<TVSecureRemoveAction>(action_->copy());
  const auto decoded = unarchived<TVSecureRemoveAction>(archived(action_));
  for (const auto& other : {copy, decoded}) {
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->uid(), action_->uid());
    EXPECT_EQ(other->title(), "Secure Delete");
    EXPECT_TRUE(other->isDefault());
    EXPECT_EQ(other->actionDescription(), action_->actionDescription());
    EXPECT_FALSE(other->isNew());
  }
}

}  // namespace
}  // namespace tervano::test
