#include "actions/tv_reset_app_preferences_action.h"

#include "archive/platform_exception.h"
#include "platform/linux/desktop_applications.h"
#include "tests/actions/tool_action_test.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kDefaultsTool[] = "/usr/bin/defaults";

class TVResetAppPreferencesActionTest : public ToolActionTest {
 protected:
  TVResetAppPreferencesActionTest() { setTool(kDefaultsTool, "exit 0\n"); }

  // An application of that identifier; answers its path.
  std::string makeApplication(const std::string& name, const std::string& identifier) {
    const std::string path = home() + "/" + name;
    applications_.identifiers[path] = identifier;
    return path;
  }
  RecordedBlock run(const TVAction::FilePaths& paths) { return runToEnd(*action_, paths); }
  // A run that stops before it starts a tool, and a whole one after it.
  void expectNothingFor(const TVAction::FilePaths& paths) {
    const RecordedBlock end;
    action_->runWithFilePaths(paths, end.block());
    runPendingMainItems();
    EXPECT_THAT(processes_.made(), IsEmpty());
    EXPECT_THAT(notifications_.delivered(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
    ASSERT_NE(action_->pendingTasks(), std::nullopt);
    EXPECT_THAT(*action_->pendingTasks(), IsEmpty());
    EXPECT_TRUE(action_->completionBlock());
    run({makeApplication("Later.app", "com.example.later")});
    EXPECT_EQ(end.calls(), 0);
  }

  std::shared_ptr<TVResetAppPreferencesAction> action_ = action<TVResetAppPreferencesAction>();
};

TEST_F(TVResetAppPreferencesActionTest, ANewActionHasTheValuesOfItsClass) {
  EXPECT_EQ(action_->fileTypes(), std::vector<std::string>{"com.apple.application"});
  EXPECT_EQ(action_->title(), "Reset App Preferences");
  EXPECT_EQ(action_->icon()->name(), "icon-reset-app");
  EXPECT_TRUE(action_->isDefault());
  EXPECT_EQ(action_->actionDescription(), std::nullopt);
  EXPECT_EQ(action_->defaultTitle(), std::nullopt);
  EXPECT_TRUE(action_->enabled());
  EXPECT_TRUE(action_->isNew());
  EXPECT_EQ(action_->uid()->size(), 32u);
}

TEST_F(TVResetAppPreferencesActionTest, ItsEditorIsThatOfActionsWithoutSettings) {
  EXPECT_EQ(action_->editorClassName(), "TVResetAppModule");
}

TEST_F(TVResetAppPreferencesActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVResetAppPreferencesActionTest, TheToolDeletesTheDomainOfTheBundleIdentifier) {
  const auto path = makeApplication("Example.app", "com.example.app");
  run({path});
  ASSERT_THAT(processes_.made(), SizeIs(1));
  EXPECT_THAT(commandOf(0), ElementsAre(kDefaultsTool, "delete", "com.example.app"));
}

TEST_F(TVResetAppPreferencesActionTest, TheIdentifierIsLoggedBeforeThePath) {
  const auto path = makeApplication("Example.app", "com.example.app");
  run({path});
  EXPECT_THAT(log_.lines(), ElementsAre("Found bundle 'com.example.app' for path " + path));
}

TEST_F(TVResetAppPreferencesActionTest, TheHelperCarriesThePath) {
  const auto path = makeApplication("Example.app", "com.example.app");
  const RecordedBlock end;
  action_->runWithFilePaths({path}, end.block());
  ASSERT_THAT(*action_->pendingTasks(), SizeIs(1));
  EXPECT_EQ(action_->pendingTasks()->front()->userInfo(), path);
  waitForCall(end);
}

TEST_F(TVResetAppPreferencesActionTest, OfTwoApplicationsOnlyTheFirstIsReset) {
  const auto first = makeApplication("First.app", "com.example.first");
  const auto second = makeApplication("Second.app", "com.example.second");
  run({first, second});
  waitForAllTools();
  ASSERT_THAT(processes_.made(), SizeIs(1));
  EXPECT_THAT(commandOf(0), ElementsAre(kDefaultsTool, "delete", "com.example.first"));
  EXPECT_THAT(applications_.asked, ElementsAre(first));
  EXPECT_THAT(informativeTexts(), ElementsAre("Preferences for First.app have been reset."));
}

TEST_F(TVResetAppPreferencesActionTest, ASuccessIsToldWithTheFileName) {
  run({makeApplication("Example.app", "com.example.app")});
  ASSERT_THAT(notifications_.delivered(), SizeIs(1));
  const UserNotification notification = notifications_.delivered()[0];
  EXPECT_EQ(notification.title, "Tervano");
  EXPECT_EQ(notification.informativeText, "Preferences for Example.app have been reset.");
  EXPECT_EQ(notification.soundName, kUserNotificationDefaultSoundName);
  EXPECT_FALSE(notification.hasActionButton);
  EXPECT_TRUE(notification.userInfo.empty());
}

TEST_F(TVResetAppPreferencesActionTest, ErrorOutputTurnsTheVerdict) {
  setTool(kDefaultsTool, "echo 'Domain (com.example.app) not found.' >&2; exit 1\n");
  const auto path = makeApplication("Example.app", "com.example.app");
  const RecordedBlock end = run({path});
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_THAT(informativeTexts(), ElementsAre("Preferences for Example.app could not be reset."));
  EXPECT_THAT(log_.lines(), ElementsAre("Found bundle 'com.example.app' for path " + path,
                                        "[DEBUG] Reset pref task got error: Domain "
                                        "(com.example.app) not found.\n"));
}

TEST_F(TVResetAppPreferencesActionTest, WhiteSpaceAsErrorOutputDoesNotTurnTheVerdict) {
  setTool(kDefaultsTool, "printf ' \\n\\n' >&2; exit 1\n");
  run({makeApplication("Example.app", "com.example.app")});
  EXPECT_THAT(informativeTexts(), ElementsAre("Preferences for Example.app have been reset."));
}

TEST_F(TVResetAppPreferencesActionTest, AfterOneFailureEveryLaterRunIsReportedAsFailed) {
  setTool(kDefaultsTool, "echo broken >&2\n");
  const auto path = makeApplication("Example.app", "com.example.app");
  run({path});
  setTool(kDefaultsTool, "exit 0\n");
  run({path});
  EXPECT_THAT(informativeTexts(), ElementsAre("Preferences for Example.app could not be reset.",
                                              "Preferences for Example.app could not be reset."));
}

TEST_F(TVResetAppPreferencesActionTest, AnotherObjectOfTheClassIsNotAffectedByAFailure) {
  setTool(kDefaultsTool, "echo broken >&2\n");
  const auto path = makeApplication("Example.app", "com.example.app");
  run({path});
  setTool(kDefaultsTool, "exit 0\n");
  runToEnd(*action_->copy(), {path});
  EXPECT_EQ(informativeTexts().back(), "Preferences for Example.app have been reset.");
}

TEST_F(TVResetAppPreferencesActionTest, AFolderThatIsNoBundleIsNotTouched) {
  expectNothingFor({makeFolder("folder")});
}

TEST_F(TVResetAppPreferencesActionTest, AnEmptyBundleIdentifierIsNone) {
  expectNothingFor({makeApplication("Example.app", "")});
}

TEST_F(TVResetAppPreferencesActionTest, TheSecondPathIsNoSubstituteForTheFirst) {
  expectNothingFor({makeFolder("folder"), makeApplication("Example.app", "com.example.app")});
}

TEST_F(TVResetAppPreferencesActionTest, ASelectionWithoutBundleStillTerminatesTheEarlierRun) {
  const Descriptor gate = makeGate("gate");
  setTool(kDefaultsTool, "read line < '" + home() + "/gate'\n");
  const RecordedBlock first;
  const RecordedBlock second;
  action_->runWithFilePaths({makeApplication("Example.app", "com.example.app")}, first.block());
  action_->runWithFilePaths({makeFolder("folder")}, second.block());
  EXPECT_THAT(*action_->pendingTasks(), IsEmpty());
  expectTerminated(0);
  waitForAllTools();
  EXPECT_EQ(first.calls(), 0);
  EXPECT_EQ(second.calls(), 0);
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(TVResetAppPreferencesActionTest, AToolThatCannotBeStartedIsLeftPending) {
  removeTool(kDefaultsTool);
  const auto path = makeApplication("Example.app", "com.example.app");
  const RecordedBlock end;
  EXPECT_THROW(action_->runWithFilePaths({path}, end.block()), PlatformException);
  runPendingMainItems();
  ASSERT_THAT(*action_->pendingTasks(), SizeIs(1));
  EXPECT_EQ(action_->pendingTasks()->front()->userInfo(), path);
  EXPECT_THAT(log_.lines(), ElementsAre("Found bundle 'com.example.app' for path " + path));
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_EQ(end.calls(), 0);
  action_->pendingTasks()->front()->cleanup();
}

TEST_F(TVResetAppPreferencesActionTest, HostileNamesAreToldAsTheyAre) {
  for (const auto& name : hostileNames()) {
    run({makeApplication(name, "com.example.app")});
    EXPECT_EQ(informativeTexts().back(), "Preferences for " + name + " have been reset.");
    EXPECT_THAT(log_.lines(),
                Contains("Found bundle 'com.example.app' for path " + home() + "/" + name));
  }
}

TEST_F(TVResetAppPreferencesActionTest, HostileIdentifiersReachTheToolAsOneArgument) {
  setTool(kDefaultsTool, "printf '%s\\0' \"$@\" > '" + home() + "/seen'\n");
  for (const auto& identifier : hostileNames()) {
    run({makeApplication("Example.app", identifier)});
    EXPECT_EQ(contentsOf(home() + "/seen"), std::string("delete") + '\0' + identifier + '\0');
  }
  EXPECT_FALSE(exists("pwned"));
}

TEST_F(TVResetAppPreferencesActionTest, ATrailingSlashOfThePathIsNoName) {
  run({makeApplication("Example.app/", "com.example.app")});
  EXPECT_THAT(informativeTexts(), ElementsAre("Preferences for Example.app have been reset."));
}

TEST_F(TVResetAppPreferencesActionTest, TheBundleIdentifierIsThatOfTheBundleAtThePath) {
  const auto path = makeApplication("Example.app", "com.example.app");
  EXPECT_EQ(action_->bundleIDForPath(path), "com.example.app");
  EXPECT_EQ(action_->bundleIDForPath(home() + "/none"), std::nullopt);
  EXPECT_THAT(applications_.asked, ElementsAre(path, home() + "/none"));
}

// With applications as they lie on the disk.
class ResetOfRealApplicationsTest : public TVResetAppPreferencesActionTest {
 protected:
  ResetOfRealApplicationsTest() { platform_.services().applications = &realApplications_; }

  void expectReset(const std::string& path, const std::string& identifier) {
    run({path});
    ASSERT_THAT(processes_.made(), SizeIs(1));
    EXPECT_THAT(commandOf(0), ElementsAre("/usr/bin/defaults", "delete", identifier));
    EXPECT_THAT(log_.lines(), ElementsAre("Found bundle '" + identifier + "' for path " + path));
  }

 private:
  DesktopApplications realApplications_;
};

TEST_F(ResetOfRealApplicationsTest, AFolderBundleIsResetByTheIdentifierInItsList) {
  makeFile("Example.app/Contents/Info.plist",
           "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
           "<string>com.example.app</string></dict></plist>");
  expectReset(home() + "/Example.app", "com.example.app");
  EXPECT_THAT(informativeTexts(), ElementsAre("Preferences for Example.app have been reset."));
}

TEST_F(ResetOfRealApplicationsTest, ADesktopEntryIsResetByItsDesktopFileId) {
  const auto path = makeFile("org.example.Editor.desktop",
                             "[Desktop Entry]\nType=Application\nName=Editor\nExec=true\n");
  expectReset(path, "org.example.Editor");
  EXPECT_THAT(informativeTexts(),
              ElementsAre("Preferences for org.example.Editor.desktop have been reset."));
}

TEST_F(ResetOfRealApplicationsTest, AnOrdinaryFolderAndAFileThatIsMissingAreNotTouched) {
  for (const auto& path : {makeFolder("folder"), makeFolder("Empty.app"), home() + "/none.app"}) {
    const RecordedBlock end;
    action_->runWithFilePaths({path}, end.block());
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 0);
  }
  EXPECT_THAT(processes_.made(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVResetAppPreferencesActionTest, ItHasTheArchiveKeysOfTheBaseOnly) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "$class"));
  EXPECT_THAT(*registry_.chain("TVResetAppPreferencesAction"),
              ElementsAre("TVResetAppPreferencesAction", "TVAction", "NSObject"));
}

TEST_F(TVResetAppPreferencesActionTest, ADecodedActionTakesItsValuesFromTheArchiveOnly) {
  const auto decoded = unarchived<TVResetAppPreferencesAction>(
      withEditedObject(archived(action_), "enabled", [](auto& object) {
        object.erase("title");
        object.erase("isDefault");
        object.erase("fileTypes");
      }));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->title(), std::nullopt);
  EXPECT_EQ(decoded->fileTypes(), std::nullopt);
  EXPECT_FALSE(decoded->isDefault());
  EXPECT_FALSE(decoded->isNew());
}

TEST_F(TVResetAppPreferencesActionTest, ACopyIsOfTheSameClassAndHasTheFieldsOfTheBase) {
  const auto copy = std::dynamic_pointer_cast<TVResetAppPreferencesAction>(action_->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->uid(), action_->uid());
  EXPECT_EQ(copy->title(), action_->title());
  EXPECT_EQ(copy->fileTypes(), action_->fileTypes());
  EXPECT_TRUE(copy->isDefault());
}

}  // namespace
}  // namespace tervano::test
