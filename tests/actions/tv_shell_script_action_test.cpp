#include "actions/tv_shell_script_action.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archive/platform_exception.h"
#include "platform/linux/descriptor.h"
#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

// Writes every argument after the first, which is the file to write to, with a NUL after it.
constexpr char kWriteArguments[] = "out=$1; shift; printf '%s\\0' \"$0\" \"$@\" > \"$out\"\n";

class TVShellScriptActionTest : public ActionTest {
 protected:
  TVShellScriptActionTest() : processes_(*platform_.services().processes) {
    platform_.services().processes = &processes_;
    platform_.home().setVariable("LC_ALL", "C");
    action_ = action<TVShellScriptAction>();
  }

  void useScript(const std::string& text, const std::string& name = "script.sh") {
    action_->setScriptURL(Url::fileURLWithPath(makeFile(name, text)));
  }
  // Runs the action to the end that its block tells.
  RecordedBlock run(const TVAction::FilePaths& paths = {}) {
    RecordedBlock end;
    action_->runWithFilePaths(paths, end.block());
    EXPECT_EQ(end.calls(), 0) << "the block was called before the run returned";
    EXPECT_TRUE(waitUntil([&] { return end.calls() > 0; }, 30));
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 1);
    return end;
  }
  static void expectSuccess(const RecordedBlock& end) {
    EXPECT_TRUE(end.success());
    EXPECT_EQ(end.error(), std::nullopt);
  }
  // Without the line that each run begins with.
  std::vector<std::string> loggedByScript() const {
    std::vector<std::string> lines = log_.lines();
    std::erase_if(lines, [](const auto& line) { return line.starts_with("Run with script: "); });
    return lines;
  }
  // All error output, however it was cut into chunks.
  std::string loggedErrors() const {
    const std::string prefix = "Got error: ";
    std::string all;
    for (const auto& line : log_.lines()) {
      if (line.starts_with(prefix)) all += line.substr(prefix.size());
    }
    return all;
  }
  static std::vector<std::string> splitAtNul(const std::string& text) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < text.size();) {
      const auto end = text.find('\0', at);
      parts.push_back(text.substr(at, end - at));
      at = end == std::string::npos ? text.size() : end + 1;
    }
    return parts;
  }

  KeepingProcesses processes_;
  std::shared_ptr<TVShellScriptAction> action_;
};

TEST_F(TVShellScriptActionTest, TheShellGetsTheScriptAndEveryPathAsOneArgumentEach) {
  useScript("exit 0\n");
  const std::string script = home() + "/script.sh";
  run({"/a b/c.txt", "/d.png"});
  ASSERT_THAT(processes_.made(), SizeIs(1));
  EXPECT_EQ(processes_.made()[0]->launchPath(), "/bin/bash");
  EXPECT_THAT(processes_.made()[0]->arguments(), ElementsAre(script, "/a b/c.txt", "/d.png"));
}

TEST_F(TVShellScriptActionTest, WithoutPathsTheScriptIsTheOnlyArgument) {
  useScript("echo \"count $#\"\n");
  expectSuccess(run());
  EXPECT_EQ(processes_.made()[0]->launchPath(), "/bin/bash");
  EXPECT_THAT(processes_.made()[0]->arguments(), ElementsAre(home() + "/script.sh"));
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: count 0\n"));
}

TEST_F(TVShellScriptActionTest, TheFirstPathIsTheScriptsFirstArgument) {
  useScript("printf '%s|%s|%s|%s' \"$1\" \"$2\" \"$3\" $#\n");
  run({"/first", "/second", "/third"});
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: /first|/second|/third|3"));
}

TEST_F(TVShellScriptActionTest, PathsOfAnyBytesReachTheScriptAsTheyAre) {
  useScript(kWriteArguments);
  const std::string out = home() + "/out";
  const TVAction::FilePaths paths = {"/a\nb",
                                     "/'single' \"double\" `back`",
                                     "/$(touch injected)$HOME",
                                     "-rf",
                                     "--",
                                     "/\xFF\xFE\xC3",
                                     "/" + std::string(255, 'n'),
                                     "/*",
                                     "/a;b&c|d>e",
                                     "/\\",
                                     "/ ",
                                     "",
                                     "/\x01\x7F\t"};
  TVAction::FilePaths arguments = {out};
  arguments.insert(arguments.end(), paths.begin(), paths.end());
  expectSuccess(run(arguments));
  TVAction::FilePaths expected = {home() + "/script.sh"};
  expected.insert(expected.end(), paths.begin(), paths.end());
  EXPECT_EQ(splitAtNul(contentsOf(out)), expected);
  EXPECT_FALSE(exists(home() + "/injected"));
  EXPECT_FALSE(exists("injected"));
}

TEST_F(TVShellScriptActionTest, AScriptWithAnyBytesInItsNameIsRun) {
  const std::string out = home() + "/out";
  for (const std::string& name :
       {std::string("a\nb"), std::string("'single' \"double\""), std::string("$(touch injected)"),
        std::string("-c"), std::string("\xFF\xFE"), std::string(255, 'n'), std::string("%41 ?#")}) {
    useScript(kWriteArguments, "scripts/" + name);
    expectSuccess(run({out, "/p"}));
    EXPECT_THAT(splitAtNul(contentsOf(out)), ElementsAre(home() + "/scripts/" + name, "/p"));
    std::filesystem::remove(out);
  }
  EXPECT_FALSE(exists("injected"));
}

TEST_F(TVShellScriptActionTest, AThousandPathsArriveInTheirOrder) {
  useScript(kWriteArguments);
  TVAction::FilePaths arguments = {home() + "/out"};
  for (int number = 0; number < 1000; ++number) {
    arguments.push_back("/folder/" + std::to_string(number));
  }
  run(arguments);
  auto seen = splitAtNul(contentsOf(home() + "/out"));
  ASSERT_THAT(seen, SizeIs(1001));
  EXPECT_TRUE(std::equal(seen.begin() + 1, seen.end(), arguments.begin() + 1));
}

TEST_F(TVShellScriptActionTest, AScriptNeedsNoPermissionToBeExecuted) {
  useScript("echo ran\n");
  ASSERT_EQ(chmod((home() + "/script.sh").c_str(), 0600), 0);
  run();
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: ran\n"));
}

TEST_F(TVShellScriptActionTest, EnvironmentAndWorkingFolderAreThoseOfTheCaller) {
  platform_.home().setVariable("TERVANO_TEST_WORD", "inherited word");
  useScript("printf '%s:%s' \"$TERVANO_TEST_WORD\" \"$(pwd -P)\"\n");
  run();
  const std::string folder = std::filesystem::canonical(std::filesystem::current_path()).string();
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: inherited word:" + folder));
}

TEST_F(TVShellScriptActionTest, TheRunIsLoggedWithTheScriptsURL) {
  useScript("exit 0\n", "a b%.sh");
  run();
  EXPECT_THAT(log_.lines(), ElementsAre("Run with script: file://" + home() + "/a%20b%25.sh"));
}

TEST_F(TVShellScriptActionTest, OutputIsLoggedUntrimmed) {
  // One write, unlike the shell's own.
  useScript("cat \"$1\"\n");
  run({makeFile("text", "\n  two  \n\n")});
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: \n  two  \n\n"));
}

TEST_F(TVShellScriptActionTest, ErrorOutputIsLoggedUntrimmedAndIsNoFailure) {
  useScript("printf ' bad \\n' >&2\n");
  expectSuccess(run());
  EXPECT_THAT(loggedByScript(), ElementsAre("Got error:  bad \n"));
}

TEST_F(TVShellScriptActionTest, OutputOfOnlyBlankLinesIsNotLogged) {
  useScript("printf '\\n \\n\\t\\n'; printf ' \\n' >&2\n");
  expectSuccess(run());
  EXPECT_THAT(loggedByScript(), IsEmpty());
}

TEST_F(TVShellScriptActionTest, OutputThatIsNoUTF8IsNotLogged) {
  useScript("printf 'a\\377b\\n'; printf '\\376' >&2\n");
  expectSuccess(run());
  EXPECT_THAT(loggedByScript(), IsEmpty());
}

TEST_F(TVShellScriptActionTest, AChunkThatIsHandedOverAndIsNoUTF8IsLoggedAsNull) {
  const Data broken = {'a', 0xFF};
  action_->taskHelperDidReceiveOutput(nullptr, broken);
  action_->taskHelperDidReceiveError(nullptr, broken);
  EXPECT_THAT(log_.lines(), ElementsAre("Got output: (null)", "Got error: (null)"));
}

TEST_F(TVShellScriptActionTest, LongOutputArrivesWholeBeforeTheEnd) {
  useScript("for i in {1..20000}; do echo \"line $i\"; done\n");
  run();
  std::string all;
  for (const auto& line : loggedByScript()) {
    ASSERT_THAT(line, StartsWith("Got output: "));
    all += line.substr(std::string("Got output: ").size());
  }
  EXPECT_THAT(all, StartsWith("line 1\nline 2\n"));
  EXPECT_TRUE(all.ends_with("line 19999\nline 20000\n"));
}

TEST_F(TVShellScriptActionTest, AScriptThatExitsWithStatusOneIsASuccess) {
  useScript("exit 1\n");
  expectSuccess(run());
  EXPECT_EQ(processes_.made()[0]->terminationStatus(), 1);
}

TEST_F(TVShellScriptActionTest, AScriptThatASignalKillsIsASuccess) {
  useScript("kill -KILL $$\n");
  expectSuccess(run());
  EXPECT_EQ(processes_.made()[0]->terminationReason(), TerminationReason::uncaughtSignal);
}

TEST_F(TVShellScriptActionTest, AMissingScriptIsTheShellsComplaintAndASuccess) {
  action_->setScriptURL(Url::fileURLWithPath(home() + "/missing.sh"));
  expectSuccess(run({"/a"}));
  EXPECT_THAT(loggedErrors(), HasSubstr(home() + "/missing.sh: No such file or directory"));
  EXPECT_EQ(processes_.made()[0]->terminationStatus(), 127);
}

TEST_F(TVShellScriptActionTest, AnUnreadableScriptIsTheShellsComplaintAndASuccess) {
  action_->setScriptURL(Url::fileURLWithPath(makeFolder("folder.sh")));
  expectSuccess(run());
  EXPECT_THAT(loggedErrors(), HasSubstr("folder.sh: Is a directory"));
}

TEST_F(TVShellScriptActionTest, AScriptURLThatIsNoFileIsTheShellsComplaintAndASuccess) {
  action_->setScriptURL(Url("https://example.org/script.sh"));
  expectSuccess(run());
  EXPECT_EQ(log_.lines().front(), "Run with script: https://example.org/script.sh");
  EXPECT_THAT(processes_.made()[0]->arguments(), ElementsAre(""));
  EXPECT_THAT(loggedErrors(), Not(IsEmpty()));
}

TEST_F(TVShellScriptActionTest, WithoutScriptOnlyTheNilURLIsLoggedAndTheBlockIsNeverCalled) {
  RecordedBlock never;
  action_->runWithFilePaths({"/a"}, never.block());
  EXPECT_THAT(processes_.made(), IsEmpty());
  EXPECT_EQ(action_->taskHelper(), nullptr);
  EXPECT_FALSE(action_->completionBlock());
  EXPECT_THAT(log_.lines(), ElementsAre("Run with script: (null)"));
  // Whatever the first run may have started has ended by the end of a later one.
  const auto unconfigured = action_;
  action_ = action<TVShellScriptAction>();
  useScript("exit 0\n");
  run();
  EXPECT_EQ(never.calls(), 0);
  EXPECT_THAT(processes_.made(), SizeIs(1));
}

TEST_F(TVShellScriptActionTest, ARunWithoutScriptLeavesTheLastRunsBlockAndHelper) {
  useScript("exit 0\n");
  run();
  const auto helper = action_->taskHelper();
  action_->setScriptURL(std::nullopt);
  action_->runWithFilePaths({}, nullptr);
  EXPECT_EQ(action_->taskHelper(), helper);
  EXPECT_TRUE(action_->completionBlock());
}

TEST_F(TVShellScriptActionTest, TheBlockIsCalledOnTheLaunchingThread) {
  useScript("exit 0\n");
  EXPECT_EQ(run().thread(), std::this_thread::get_id());
}

TEST_F(TVShellScriptActionTest, ARunWithoutBlockRunsAllTheSame) {
  useScript("echo ran\n");
  action_->runWithFilePaths({}, nullptr);
  EXPECT_TRUE(waitUntil([&] { return action_->taskHelper()->task() == nullptr; }, 30));
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: ran\n"));
}

TEST_F(TVShellScriptActionTest, DuringARunTheHelperHasTheProcessTheActionAndNoMark) {
  const auto gate = makeGate("gate");
  useScript("read -r _ < \"$1\"\n");
  RecordedBlock end;
  action_->runWithFilePaths({home() + "/gate"}, end.block());
  ASSERT_NE(action_->taskHelper(), nullptr);
  EXPECT_EQ(action_->taskHelper()->task(), processes_.made()[0]);
  EXPECT_TRUE(action_->taskHelper()->task()->isRunning());
  EXPECT_EQ(action_->taskHelper()->delegate(), action_);
  EXPECT_EQ(action_->taskHelper()->userInfo(), std::nullopt);
  openGate(gate);
  EXPECT_TRUE(waitUntil([&] { return end.calls() == 1; }, 30));
}

TEST_F(TVShellScriptActionTest, AfterARunBlockAndHelperStay) {
  useScript("exit 0\n");
  const auto end = run();
  ASSERT_NE(action_->taskHelper(), nullptr);
  EXPECT_EQ(action_->taskHelper()->task(), nullptr);
  ASSERT_TRUE(action_->completionBlock());
  action_->completionBlock()(true, std::nullopt);
  EXPECT_EQ(end.calls(), 2);
}

TEST_F(TVShellScriptActionTest, ANewRunTakesTheHelpersPlace) {
  useScript("exit 0\n");
  run();
  const auto first = action_->taskHelper();
  run();
  EXPECT_NE(action_->taskHelper(), first);
}

TEST_F(TVShellScriptActionTest, OfTwoRunsTheEndOfEachCallsTheBlockOfTheSecond) {
  const auto firstGate = makeGate("first");
  const auto secondGate = makeGate("second");
  useScript("read -r _ < \"$1\"; echo \"$1\"\n");
  RecordedBlock first;
  RecordedBlock second;
  action_->runWithFilePaths({home() + "/first"}, first.block());
  const std::weak_ptr<VXTaskHelper> firstHelper = action_->taskHelper();
  action_->runWithFilePaths({home() + "/second"}, second.block());
  EXPECT_FALSE(firstHelper.expired()) << "the first run was dropped";
  ASSERT_THAT(processes_.made(), SizeIs(2));

  openGate(firstGate);
  EXPECT_TRUE(waitUntil([&] { return second.calls() == 1; }, 30));
  EXPECT_THAT(loggedByScript(), Contains("Got output: " + home() + "/first\n"));
  EXPECT_FALSE(processes_.made()[0]->isRunning());
  EXPECT_EQ(processes_.made()[0]->terminationReason(), TerminationReason::exit);
  EXPECT_TRUE(processes_.made()[1]->isRunning());
  expectSuccess(second);

  openGate(secondGate);
  EXPECT_TRUE(waitUntil([&] { return second.calls() == 2; }, 30));
  EXPECT_THAT(loggedByScript(), Contains("Got output: " + home() + "/second\n"));
  EXPECT_EQ(first.calls(), 0);
}

TEST_F(TVShellScriptActionTest, NothingCancelsTheFirstProcessWhenTheSecondEndsBeforeIt) {
  const auto firstGate = makeGate("first");
  useScript("[ -p \"$1\" ] && read -r _ < \"$1\"; echo ended\n");
  RecordedBlock first;
  RecordedBlock second;
  action_->runWithFilePaths({home() + "/first"}, first.block());
  action_->runWithFilePaths({}, second.block());
  EXPECT_TRUE(waitUntil([&] { return second.calls() == 1; }, 30));
  EXPECT_TRUE(processes_.made()[0]->isRunning());
  openGate(firstGate);
  EXPECT_TRUE(waitUntil([&] { return second.calls() == 2; }, 30));
  EXPECT_EQ(first.calls(), 0);
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: ended\n", "Got output: ended\n"));
}

TEST_F(TVShellScriptActionTest, ABlockMayStartTheNextRun) {
  useScript("exit 0\n");
  RecordedBlock second;
  bool isFirstCalled = false;
  // Lives inside the stored block, which the next run replaces during its call.
  const auto held = std::make_shared<std::string>("still here");
  action_->runWithFilePaths({}, [&, held](bool, const std::optional<Error>&) {
    isFirstCalled = true;
    action_->runWithFilePaths({}, second.block());
    EXPECT_EQ(*held, "still here");
  });
  EXPECT_TRUE(waitUntil([&] { return second.calls() == 1; }, 30));
  EXPECT_TRUE(isFirstCalled);
}

TEST_F(TVShellScriptActionTest, AShellThatCannotBeStartedThrowsAndTheBlockStaysUncalled) {
  // The last step before the launch makes the real service miss the program.
  class WithoutShell : public KeepingProcesses {
   public:
    using KeepingProcesses::KeepingProcesses;
    std::shared_ptr<Pipe> createPipe() override {
      made().back()->setLaunchPath("/nonexistent/bash");
      return KeepingProcesses::createPipe();
    }
  } withoutShell(processes_);
  platform_.services().processes = &withoutShell;
  useScript("exit 0\n");
  RecordedBlock never;
  EXPECT_THROW(action_->runWithFilePaths({"/a"}, never.block()), PlatformException);
  platform_.services().processes = &processes_;
  EXPECT_TRUE(action_->completionBlock());
  ASSERT_NE(action_->taskHelper(), nullptr);
  action_->taskHelper()->cleanup();
  const auto failed = action_;
  action_ = action<TVShellScriptAction>();
  useScript("exit 0\n");
  run();
  EXPECT_EQ(never.calls(), 0);
}

TEST_F(TVShellScriptActionTest, AnActionThatIsGoneMissesTheEndAndTheProcessGoesOn) {
  const auto gate = makeGate("gate");
  useScript("read -r _ < \"$1\"; : > \"$2\"\n");
  RecordedBlock end;
  action_->runWithFilePaths({home() + "/gate", home() + "/done"}, end.block());
  action_ = nullptr;
  openGate(gate);
  EXPECT_TRUE(waitUntil([&] { return !processes_.made()[0]->isRunning(); }, 30));
  EXPECT_TRUE(exists(home() + "/done"));
  EXPECT_EQ(end.calls(), 0);
}

TEST_F(TVShellScriptActionTest, NothingIsShownToTheUser) {
  useScript("echo out; echo bad >&2; exit 3\n");
  run({"/a"});
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
  EXPECT_THAT(workspace_.opened(), IsEmpty());
}

TEST_F(TVShellScriptActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVShellScriptActionTest, ANewActionHasItsTitleItsIconAndMayBeEdited) {
  EXPECT_EQ(action_->title(), "Run Script");
  ASSERT_NE(action_->icon(), nullptr);
  EXPECT_EQ(action_->icon()->name(), "icon-shell");
  EXPECT_TRUE(action_->isEditable());
  EXPECT_FALSE(action_->isDefault());
  EXPECT_TRUE(action_->isNew());
  EXPECT_TRUE(action_->enabled());
  EXPECT_EQ(action_->scriptURL(), std::nullopt);
  EXPECT_EQ(action_->defaultScript(), std::nullopt);
  EXPECT_EQ(action_->taskHelper(), nullptr);
  EXPECT_FALSE(action_->completionBlock());
  EXPECT_EQ(action_->actionDescription(), std::nullopt);
  EXPECT_EQ(action_->fileTypes(), std::nullopt);
}

TEST_F(TVShellScriptActionTest, TitleAndEditorAreFixed) {
  EXPECT_EQ(action_->editorClassName(), "TVShellScriptModule");
  action_->setDefaultTitle("Another");
  EXPECT_EQ(action_->defaultTitle(), "Run Script");
}

TEST_F(TVShellScriptActionTest, ItsChainIsThatOfADirectSubclass) {
  EXPECT_EQ(action_->className(), "TVShellScriptAction");
  EXPECT_THAT(*registry_.chain("TVShellScriptAction"),
              ElementsAre("TVShellScriptAction", "TVAction", "NSObject"));
}

TEST_F(TVShellScriptActionTest, ACopyHasTheScriptAndWhetherItMayBeEditedAndNothingOfTheRun) {
  useScript("exit 0\n");
  action_->setDefaultScript("#!/bin/bash\n");
  run();
  for (const bool isEditable : {true, false}) {
    action_->setIsEditable(isEditable);
    const auto copy = std::dynamic_pointer_cast<TVShellScriptAction>(action_->copy());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->className(), "TVShellScriptAction");
    EXPECT_EQ(copy->uid(), action_->uid());
    EXPECT_EQ(copy->scriptURL(), action_->scriptURL());
    EXPECT_EQ(copy->isEditable(), isEditable);
    EXPECT_EQ(copy->defaultScript(), std::nullopt);
    EXPECT_EQ(copy->taskHelper(), nullptr);
    EXPECT_FALSE(copy->completionBlock());
    EXPECT_FALSE(copy->isNew());
  }
}

TEST_F(TVShellScriptActionTest, ItsKeysAreEncodedAfterThoseOfTheBaseInTheirOrder) {
  useScript("exit 0\n");
  action_->setDefaultScript("not archived");
  run();
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "scriptURL", "isEditable", "$class"));
}

TEST_F(TVShellScriptActionTest, ScriptAndWhetherItMayBeEditedSurviveTheArchive) {
  useScript("exit 0\n", "\xFF script.sh");
  action_->setDefaultScript("not archived");
  for (const bool isEditable : {true, false}) {
    action_->setIsEditable(isEditable);
    const auto decoded = unarchived<TVShellScriptAction>(archived(action_));
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->scriptURL(), action_->scriptURL());
    EXPECT_EQ(decoded->isEditable(), isEditable);
    EXPECT_EQ(decoded->defaultScript(), std::nullopt);
    EXPECT_EQ(decoded->uid(), action_->uid());
  }
}

TEST_F(TVShellScriptActionTest, DecodingWithoutItsKeysGivesNoScriptAndNoEditing) {
  useScript("exit 0\n");
  const auto decoded = unarchived<TVShellScriptAction>(
      withEditedObject(archived(action_), "enabled", [](Value::Dictionary& object) {
        object.erase("scriptURL");
        object.erase("isEditable");
        object.erase("title");
      }));
  EXPECT_EQ(decoded->scriptURL(), std::nullopt);
  EXPECT_FALSE(decoded->isEditable());
  EXPECT_EQ(decoded->title(), std::nullopt);
}

TEST_F(TVShellScriptActionTest, ANilScriptIsEncodedAsNil) {
  EXPECT_EQ(encodedObject(archived(action_), "enabled").at("scriptURL"), Value(Uid{0}));
}

TEST_F(TVShellScriptActionTest, ADecodedActionRuns) {
  useScript("echo \"$1\"\n");
  action_ = unarchived<TVShellScriptAction>(archived(action_));
  expectSuccess(run({"/a"}));
  EXPECT_THAT(loggedByScript(), ElementsAre("Got output: /a\n"));
}

}  // namespace
}  // namespace tervano::test
