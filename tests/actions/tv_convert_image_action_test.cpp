#include "actions/tv_convert_image_action.h"

#include "archive/platform_exception.h"
#include "tests/actions/tool_action_test.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kPicturesTool[] = "/usr/bin/sips";

// Notes how many notifications there were at each reveal.
class CountingWorkspace : public RecordingWorkspace {
 public:
  CountingWorkspace(Workspace& real, const RecordingUserNotifications& notifications)
      : RecordingWorkspace(real), notifications_(notifications) {}
  void activateFileViewerSelectingURLs(const std::vector<Url>& urls) override {
    RecordingWorkspace::activateFileViewerSelectingURLs(urls);
    notificationsAtReveal.push_back(notifications_.delivered().size());
  }

  std::vector<std::size_t> notificationsAtReveal;

 private:
  const RecordingUserNotifications& notifications_;
};

class TVConvertImageActionTest : public ToolActionTest {
 protected:
  TVConvertImageActionTest() {
    setTool(kPicturesTool, "exit 0\n");
    action_->setOutputFormat("png");
    action_->setOutputExtension("png");
  }

  RecordedBlock run(const TVAction::FilePaths& paths) { return runToEnd(*action_, paths); }
  // From now on each conversion waits at the gate of its input's name.
  void setGatedTool() {
    setTool(kPicturesTool, "read line < '" + home() + "/gate-'\"${4##*/}\"\n");
  }
  // The output path for an input that need not exist.
  std::string outputFor(const std::string& input) {
    run({input});
    return commandOf(processes_.made().size() - 1).back();
  }
  // A run that throws, and what is left after it.
  void expectInvalidArgument() {
    const RecordedBlock end;
    try {
      action_->runWithFilePaths({"/p/photo.tiff"}, end.block());
      ADD_FAILURE() << "nothing was thrown";
    } catch (const PlatformException& exception) {
      EXPECT_EQ(exception.name(), kInvalidArgumentException);
    }
    EXPECT_THAT(processes_.made(), IsEmpty());
    ASSERT_NE(action_->pendingTasks(), std::nullopt);
    EXPECT_THAT(*action_->pendingTasks(), IsEmpty());
    EXPECT_TRUE(action_->completionBlock());
    runPendingMainItems();
    EXPECT_THAT(workspace_.revealed(), IsEmpty());
    action_->setOutputFormat("png");
    action_->setOutputExtension("png");
    run({"/p/other.tiff"});
    EXPECT_EQ(end.calls(), 0);
  }

  std::shared_ptr<TVConvertImageAction> action_ = action<TVConvertImageAction>();
};

TEST_F(TVConvertImageActionTest, ANewActionHasTheValuesOfItsClass) {
  const auto fresh = action<TVConvertImageAction>();
  EXPECT_EQ(fresh->icon()->name(), "icon-image");
  EXPECT_EQ(fresh->fileTypes(), std::vector<std::string>{"public.image"});
  EXPECT_EQ(fresh->outputFormat(), std::nullopt);
  EXPECT_EQ(fresh->outputExtension(), std::nullopt);
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->defaultTitle(), std::nullopt);
  EXPECT_EQ(fresh->editorClassName(), std::nullopt);
  EXPECT_EQ(fresh->actionDescription(), std::nullopt);
  EXPECT_FALSE(fresh->isDefault());
  EXPECT_TRUE(fresh->enabled());
  EXPECT_TRUE(fresh->isNew());
}

TEST_F(TVConvertImageActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVConvertImageActionTest, TheToolGetsFormatInputAndOutputInThatOrder) {
  run({"/p/photo.tiff"});
  ASSERT_THAT(processes_.made(), SizeIs(1));
  EXPECT_THAT(commandOf(0), ElementsAre(kPicturesTool, "-s", "format", "png", "/p/photo.tiff",
                                        "--out", "/p/photo.png"));
}

TEST_F(TVConvertImageActionTest, FormatAndExtensionMayDiffer) {
  action_->setOutputFormat("jpeg");
  action_->setOutputExtension("jpg");
  run({"/p/photo.tiff"});
  EXPECT_THAT(commandOf(0), ElementsAre(kPicturesTool, "-s", "format", "jpeg", "/p/photo.tiff",
                                        "--out", "/p/photo.jpg"));
}

TEST_F(TVConvertImageActionTest, ATakenOutputNameGivesTheNextFreeOneAndStaysUntouched) {
  setTool(kPicturesTool, "printf converted > \"$6\"\n");
  const auto source = makeFile("photo.tiff", "source");
  const auto taken = makeFile("photo.png", "taken");
  run({source});
  EXPECT_EQ(commandOf(0).back(), home() + "/photo 2.png");
  EXPECT_EQ(contentsOf(taken), "taken");
  EXPECT_EQ(contentsOf(source), "source");
  EXPECT_EQ(contentsOf(home() + "/photo 2.png"), "converted");
}

TEST_F(TVConvertImageActionTest, APictureThatHasTheFormatAlreadyIsNotOverwritten) {
  setTool(kPicturesTool, "printf converted > \"$6\"\n");
  const auto source = makeFile("photo.png", "source");
  run({source});
  EXPECT_THAT(commandOf(0), ElementsAre(kPicturesTool, "-s", "format", "png", source, "--out",
                                        home() + "/photo 2.png"));
  EXPECT_EQ(contentsOf(source), "source");
}

TEST_F(TVConvertImageActionTest, ADanglingLinkTakesItsName) {
  std::filesystem::create_symlink("nowhere", home() + "/photo.png");
  EXPECT_EQ(outputFor(home() + "/photo.tiff"), home() + "/photo 2.png");
}

TEST_F(TVConvertImageActionTest, OnlyTheLastExtensionIsReplaced) {
  action_->setOutputExtension("jpg");
  EXPECT_EQ(outputFor("/p/archive.tar.gz"), "/p/archive.tar.jpg");
}

TEST_F(TVConvertImageActionTest, ANameWithoutExtensionGetsOne) {
  EXPECT_EQ(outputFor("/p/photo"), "/p/photo.png");
  EXPECT_EQ(outputFor("/p.d/photo"), "/p.d/photo.png");
}

TEST_F(TVConvertImageActionTest, ADotFileKeepsItsName) {
  EXPECT_EQ(outputFor("/p/.tiff"), "/p/.tiff.png");
  EXPECT_EQ(outputFor("/p/.photo.tiff"), "/p/.photo.png");
}

TEST_F(TVConvertImageActionTest, ADotAtTheEndIsNoExtension) {
  EXPECT_EQ(outputFor("/p/photo."), "/p/photo..png");
}

TEST_F(TVConvertImageActionTest, AnEmptyExtensionGivesANameWithoutDot) {
  action_->setOutputExtension("");
  EXPECT_EQ(outputFor("/p/photo.tiff"), "/p/photo");
  EXPECT_EQ(outputFor(makeFile("photo")), home() + "/photo 2");
}

TEST_F(TVConvertImageActionTest, AnExtensionOfAnyBytesIsTakenAsItIs) {
  for (const char* const extension : {"\xFF\xFE", "p n\ng", "$(x)", "tar.gz", "~"}) {
    action_->setOutputExtension(extension);
    EXPECT_EQ(outputFor("/p/photo.tiff"), std::string("/p/photo.") + extension);
  }
}

TEST_F(TVConvertImageActionTest, AnExtensionThatNoNameCanHaveThrowsAfterTheStartHasBeenTold) {
  makeFolder("photo.d");
  const std::vector<std::string> extensions = {"d/png", "d/../../png", "/", "png/",
                                               std::string("p\0g", 3)};
  for (const std::string& extension : extensions) {
    action_->setOutputExtension(extension);
    const RecordedBlock end;
    try {
      action_->runWithFilePaths({home() + "/photo.tiff"}, end.block());
      ADD_FAILURE() << "nothing was thrown for " << extension;
    } catch (const PlatformException& exception) {
      EXPECT_EQ(exception.name(), kInvalidArgumentException);
      EXPECT_EQ(exception.reason(), "\"" + extension + "\" is no file name extension");
    }
    EXPECT_THAT(*action_->pendingTasks(), IsEmpty());
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 0);
  }
  EXPECT_THAT(processes_.made(), IsEmpty());
  EXPECT_THAT(informativeTexts(),
              testing::AllOf(SizeIs(extensions.size()),
                             testing::Each(std::string("Started converting 'photo.tiff'"))));
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
}

TEST_F(TVConvertImageActionTest, TheInputIsStandardised) {
  run({"//p/./q/..//photo.tiff"});
  EXPECT_THAT(commandOf(0), ElementsAre(kPicturesTool, "-s", "format", "png", "/p/photo.tiff",
                                        "--out", "/p/photo.png"));
}

TEST_F(TVConvertImageActionTest, TheStartIsToldWithTheNameAsItWasGiven) {
  run({"/p/photo.tiff/."});
  EXPECT_EQ(commandOf(0)[4], "/p/photo.tiff");
  EXPECT_THAT(informativeTexts(),
              ElementsAre("Started converting '.'", "Finished converting 'photo.png'"));
}

TEST_F(TVConvertImageActionTest, TheStartOfOneIsToldWithItsNameAndWithoutSound) {
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/photo.tiff"}, end.block());
  ASSERT_THAT(notifications_.delivered(), SizeIs(1));
  const UserNotification notification = notifications_.delivered()[0];
  EXPECT_EQ(notification.title, "Tervano");
  EXPECT_EQ(notification.informativeText, "Started converting 'photo.tiff'");
  EXPECT_EQ(notification.soundName, std::nullopt);
  EXPECT_FALSE(notification.hasActionButton);
  EXPECT_EQ(notification.actionButtonTitle, std::nullopt);
  EXPECT_TRUE(notification.userInfo.empty());
  waitForCall(end);
}

TEST_F(TVConvertImageActionTest, TheStartOfSeveralIsToldWithTheirNumber) {
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/a.tiff", "/p/b.tiff", "/p/c.tiff"}, end.block());
  EXPECT_THAT(informativeTexts(), ElementsAre("Started converting 3 images"));
  EXPECT_EQ(notifications_.delivered()[0].soundName, std::nullopt);
  waitForCall(end);
}

TEST_F(TVConvertImageActionTest, TheEndIsToldWithTheOutputsNameAndASound) {
  const RecordedBlock end = run({"/p/photo.tiff"});
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  ASSERT_THAT(notifications_.delivered(), SizeIs(2));
  const UserNotification notification = notifications_.delivered()[1];
  EXPECT_EQ(notification.title, "Tervano");
  EXPECT_EQ(notification.informativeText, "Finished converting 'photo.png'");
  EXPECT_EQ(notification.soundName, kUserNotificationDefaultSoundName);
  EXPECT_FALSE(notification.hasActionButton);
  EXPECT_TRUE(notification.userInfo.empty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVConvertImageActionTest, TheEndQuotesTheFreeVariantOfTheName) {
  makeFile("photo.png");
  run({home() + "/photo.tiff"});
  EXPECT_EQ(informativeTexts().back(), "Finished converting 'photo 2.png'");
}

TEST_F(TVConvertImageActionTest, OfThreeTheOneThatEndsLastIsToldAndRevealedOnce) {
  const Descriptor gates[] = {makeGate("gate-a.tiff"), makeGate("gate-b.tiff"),
                              makeGate("gate-c.tiff")};
  setGatedTool();
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/a.tiff", "/p/b.tiff", "/p/c.tiff"}, end.block());
  ASSERT_THAT(*action_->pendingTasks(), SizeIs(3));
  EXPECT_EQ((*action_->pendingTasks())[0]->userInfo(), "/p/a.png");
  EXPECT_EQ((*action_->pendingTasks())[2]->userInfo(), "/p/c.png");
  for (const std::size_t next : {2u, 0u, 1u}) {
    EXPECT_THAT(notifications_.delivered(), SizeIs(1));
    const auto pending = action_->pendingTasks()->size();
    openGate(gates[next]);
    EXPECT_TRUE(waitUntil([&] { return action_->pendingTasks()->size() < pending; }));
  }
  waitForCall(end);
  EXPECT_THAT(informativeTexts(),
              ElementsAre("Started converting 3 images", "Finished converting 'b.png'"));
  EXPECT_THAT(workspace_.revealed(), ElementsAre(ElementsAre(Url::fileURLWithPath("/p/b.png"))));
}

TEST_F(TVConvertImageActionTest, TheResultIsRevealedAfterTheNotificationAndBeforeTheBlock) {
  CountingWorkspace workspace(workspace_, notifications_);
  platform_.services().workspace = &workspace;
  std::size_t revealedAtEnd = 0;
  bool called = false;
  action_->runWithFilePaths({"/p/photo.tiff"}, [&](bool, const std::optional<Error>&) {
    revealedAtEnd = workspace.revealed().size();
    called = true;
  });
  EXPECT_TRUE(waitUntil([&] { return called; }));
  EXPECT_EQ(revealedAtEnd, 1u);
  EXPECT_THAT(workspace.notificationsAtReveal, ElementsAre(2u));
  EXPECT_THAT(workspace.revealed(), ElementsAre(ElementsAre(Url::fileURLWithPath("/p/photo.png"))));
}

TEST_F(TVConvertImageActionTest, AFailedConversionIsLoggedAndOtherwiseEndsAsAnyOther) {
  setTool(kPicturesTool, "echo 'Error: Unsupported file' >&2; exit 13\n");
  const RecordedBlock end = run({"/p/photo.tiff"});
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  EXPECT_TRUE(action_->hasError());
  EXPECT_THAT(log_.lines(),
              ElementsAre("[DEBUG] Reset pref task got error: Error: Unsupported file\n"));
  EXPECT_THAT(informativeTexts(),
              ElementsAre("Started converting 'photo.tiff'", "Finished converting 'photo.png'"));
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath("/p/photo.png"))));
}

TEST_F(TVConvertImageActionTest, AfterAFailureALaterRunIsToldAsAnyOther) {
  setTool(kPicturesTool, "echo broken >&2\n");
  run({"/p/a.tiff"});
  setTool(kPicturesTool, "exit 0\n");
  run({"/p/b.tiff"});
  EXPECT_TRUE(action_->hasError());
  EXPECT_EQ(informativeTexts().back(), "Finished converting 'b.png'");
  EXPECT_THAT(workspace_.revealed(), SizeIs(2));
}

TEST_F(TVConvertImageActionTest, WithoutNotificationsTheResultIsStillRevealed) {
  switchNotificationsOff();
  EXPECT_TRUE(run({"/p/photo.tiff"}).success());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(),
              ElementsAre(ElementsAre(Url::fileURLWithPath("/p/photo.png"))));
}

TEST_F(TVConvertImageActionTest, NotificationsThatAreSwitchedOnDuringARunAreShownAtItsEnd) {
  const Descriptor gate = makeGate("gate-photo.tiff");
  setGatedTool();
  switchNotificationsOff();
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/photo.tiff"}, end.block());
  TVUserDefaults::create()->setDisableActionNotifications(false);
  openGate(gate);
  waitForCall(end);
  EXPECT_THAT(informativeTexts(), ElementsAre("Finished converting 'photo.png'"));
}

TEST_F(TVConvertImageActionTest, ANilFormatThrowsAfterTheStartHasBeenTold) {
  action_->setOutputFormat(std::nullopt);
  expectInvalidArgument();
  EXPECT_EQ(informativeTexts().front(), "Started converting 'photo.tiff'");
}

TEST_F(TVConvertImageActionTest, ANilExtensionThrowsAfterTheStartHasBeenTold) {
  action_->setOutputExtension(std::nullopt);
  expectInvalidArgument();
  EXPECT_EQ(informativeTexts().front(), "Started converting 'photo.tiff'");
}

TEST_F(TVConvertImageActionTest, ANilFormatThrowsBeforeANilExtensionIsNoticed) {
  const auto reason = [this] {
    try {
      action_->runWithFilePaths({"/p/photo.tiff"}, nullptr);
    } catch (const PlatformException& exception) {
      return exception.reason();
    }
    return std::string();
  };
  action_->setOutputFormat(std::nullopt);
  const std::string ofFormat = reason();
  EXPECT_FALSE(ofFormat.empty());
  action_->setOutputExtension(std::nullopt);
  EXPECT_EQ(reason(), ofFormat);
  action_->setOutputFormat("png");
  EXPECT_NE(reason(), ofFormat);
}

TEST_F(TVConvertImageActionTest, ANilFormatStillTerminatesTheEarlierRun) {
  const Descriptor gate = makeGate("gate-photo.tiff");
  setGatedTool();
  const RecordedBlock dropped;
  action_->runWithFilePaths({"/p/photo.tiff"}, dropped.block());
  action_->setOutputFormat(std::nullopt);
  EXPECT_THROW(action_->runWithFilePaths({"/p/other.tiff"}, nullptr), PlatformException);
  expectTerminated(0);
  waitForAllTools();
  EXPECT_EQ(dropped.calls(), 0);
}

TEST_F(TVConvertImageActionTest, AnEmptySelectionDoesNotNoticeANilFormat) {
  action_->setOutputFormat(std::nullopt);
  EXPECT_NO_THROW(action_->runWithFilePaths({}, nullptr));
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(TVConvertImageActionTest, ANewRunTerminatesEveryConversionOfTheEarlierOne) {
  const Descriptor a = makeGate("gate-a.tiff");
  const Descriptor b = makeGate("gate-b.tiff");
  setGatedTool();
  const RecordedBlock dropped;
  action_->runWithFilePaths({"/p/a.tiff", "/p/b.tiff"}, dropped.block());
  setTool(kPicturesTool, "exit 0\n");
  run({"/p/c.tiff"});
  expectTerminated(0);
  expectTerminated(1);
  waitForAllTools();
  EXPECT_EQ(dropped.calls(), 0);
  EXPECT_THAT(informativeTexts(),
              ElementsAre("Started converting 2 images", "Started converting 'c.tiff'",
                          "Finished converting 'c.png'"));
  EXPECT_THAT(workspace_.revealed(), ElementsAre(ElementsAre(Url::fileURLWithPath("/p/c.png"))));
}

TEST_F(TVConvertImageActionTest, WhenTheFirstToolCannotBeStartedNoOtherIsTried) {
  removeTool(kPicturesTool);
  const RecordedBlock end;
  EXPECT_THROW(action_->runWithFilePaths({"/p/a.tiff", "/p/b.tiff"}, end.block()),
               PlatformException);
  runPendingMainItems();
  EXPECT_THAT(processes_.made(), SizeIs(1));
  ASSERT_THAT(*action_->pendingTasks(), SizeIs(1));
  EXPECT_EQ(action_->pendingTasks()->front()->userInfo(), "/p/a.png");
  EXPECT_THAT(informativeTexts(), ElementsAre("Started converting 2 images"));
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
  EXPECT_EQ(end.calls(), 0);
  action_->pendingTasks()->front()->cleanup();
}

// Takes the tool away before the second process is made.
class VanishingTool : public ForwardingProcesses {
 public:
  VanishingTool(Processes& real, std::function<void()> vanish)
      : ForwardingProcesses(real), vanish_(std::move(vanish)) {}
  std::shared_ptr<Process> createProcess() override {
    if (++made_ == 2) vanish_();
    return ForwardingProcesses::createProcess();
  }

 private:
  std::function<void()> vanish_;
  int made_ = 0;
};

TEST_F(TVConvertImageActionTest, ConversionsStartedBeforeALaunchFailureGoOnAndTheRunNeverEnds) {
  VanishingTool processes(processes_, [this] { removeTool(kPicturesTool); });
  platform_.services().processes = &processes;
  setTool(kPicturesTool, "printf converted > '" + home() + "/done'\n");
  const RecordedBlock end;
  EXPECT_THROW(action_->runWithFilePaths({"/p/a.tiff", "/p/b.tiff", "/p/c.tiff"}, end.block()),
               PlatformException);
  EXPECT_THAT(processes_.made(), SizeIs(2));
  waitForAllTools();
  EXPECT_EQ(processes_.made()[0]->terminationReason(), TerminationReason::exit);
  EXPECT_EQ(contentsOf(home() + "/done"), "converted");
  ASSERT_THAT(*action_->pendingTasks(), SizeIs(1));
  EXPECT_EQ(action_->pendingTasks()->front()->userInfo(), "/p/b.png");
  EXPECT_EQ(end.calls(), 0);
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
  action_->pendingTasks()->front()->cleanup();
}

TEST_F(TVConvertImageActionTest, TwoSourcesOfOneStemAskForOneOutputWhileItIsFree) {
  run({"/p/photo.tiff", "/p/photo.jpg"});
  EXPECT_EQ(commandOf(0).back(), "/p/photo.png");
  EXPECT_EQ(commandOf(1).back(), "/p/photo.png");
}

TEST_F(TVConvertImageActionTest, HostileNamesReachTheToolTheUserAndTheFileViewerAsTheyAre) {
  setTool(kPicturesTool, "printf '%s\\0' \"$@\" > '" + home() + "/seen'\n");
  for (const auto& name : hostileNames()) {
    const std::string stem = name.substr(0, 250);
    const std::string input = "/p/" + stem + ".tiff";
    const std::string output = "/p/" + stem + ".png";
    run({input});
    std::string expected;
    for (const auto& argument : {std::string("-s"), std::string("format"), std::string("png"),
                                 input, std::string("--out"), output}) {
      expected += argument + '\0';
    }
    EXPECT_EQ(contentsOf(home() + "/seen"), expected);
    EXPECT_EQ(informativeTexts()[informativeTexts().size() - 2],
              "Started converting '" + stem + ".tiff'");
    EXPECT_EQ(informativeTexts().back(), "Finished converting '" + stem + ".png'");
    ASSERT_THAT(workspace_.revealed().back(), SizeIs(1));
    EXPECT_EQ(workspace_.revealed().back()[0].path(), output);
  }
  EXPECT_FALSE(exists("pwned"));
}

TEST_F(TVConvertImageActionTest, ANameOf255BytesThatIsTakenGivesAFreeOneOf255Bytes) {
  const std::string stem(251, 'n');
  makeFile(stem + ".png");
  const std::string output = outputFor(home() + "/" + stem + ".bmp");
  EXPECT_EQ(output, home() + "/" + std::string(249, 'n') + " 2.png");
}

TEST_F(TVConvertImageActionTest, AHostileFormatIsOneArgument) {
  action_->setOutputFormat("png\n--out /etc/passwd $(x)");
  run({"/p/photo.tiff"});
  ASSERT_THAT(commandOf(0), SizeIs(7));
  EXPECT_EQ(commandOf(0)[3], "png\n--out /etc/passwd $(x)");
}

TEST_F(TVConvertImageActionTest, TwoHundredFilesAreConvertedAtOnceAndEndOnce) {
  constexpr std::size_t kPaths = 200;
  const Descriptor gate = makeGate("gate");
  setTool(kPicturesTool, "read line < '" + home() + "/gate'\n");
  TVAction::FilePaths paths;
  for (std::size_t i = 0; i < kPaths; ++i) paths.push_back("/p/" + std::to_string(i) + ".tiff");
  const RecordedBlock end;
  action_->runWithFilePaths(paths, end.block());
  EXPECT_THAT(*action_->pendingTasks(), SizeIs(kPaths));
  EXPECT_EQ(platform_.processes().runningProcesses(), static_cast<int>(kPaths));
  ASSERT_THAT(processes_.made(), SizeIs(kPaths));
  for (std::size_t i = 0; i < kPaths; ++i) EXPECT_EQ(commandOf(i)[4], paths[i]);
  openGate(gate, kPaths);
  waitForCall(end);
  EXPECT_THAT(notifications_.delivered(), SizeIs(2));
  EXPECT_EQ(informativeTexts().front(), "Started converting 200 images");
  EXPECT_THAT(workspace_.revealed(), SizeIs(1));
}

TEST_F(TVConvertImageActionTest, TheBundleIdentifierIsThatOfTheBundleAtThePath) {
  applications_.identifiers["/p/Example.app"] = "com.example.app";
  EXPECT_EQ(action_->bundleIDForPath("/p/Example.app"), "com.example.app");
  EXPECT_EQ(action_->bundleIDForPath("/p/none"), std::nullopt);
}

TEST_F(TVConvertImageActionTest, NoRunAsksForABundleIdentifier) {
  run({"/p/photo.tiff"});
  EXPECT_THAT(applications_.asked, IsEmpty());
}

TEST_F(TVConvertImageActionTest, FormatAndExtensionSurviveCopyAndArchive) {
  action_->setOutputFormat("jpeg");
  action_->setOutputExtension("jpg");
  const auto copy = std::dynamic_pointer_cast<TVConvertImageAction>(action_->copy());
  const auto decoded = unarchived<TVConvertImageAction>(archived(action_));
  for (const auto& other : {copy, decoded}) {
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->uid(), action_->uid());
    EXPECT_EQ(other->outputFormat(), "jpeg");
    EXPECT_EQ(other->outputExtension(), "jpg");
  }
}

TEST_F(TVConvertImageActionTest, FormatAndExtensionAreEncodedAfterTheKeysOfTheBase) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "outputFormat", "outputExtension", "$class"));
  EXPECT_THAT(*registry_.chain("TVConvertImageAction"),
              ElementsAre("TVConvertImageAction", "TVAction", "NSObject"));
}

TEST_F(TVConvertImageActionTest, DecodingWithoutFormatAndExtensionGivesNil) {
  const auto decoded = unarchived<TVConvertImageAction>(
      withEditedObject(archived(action_), "enabled", [](auto& object) {
        object.erase("outputFormat");
        object.erase("outputExtension");
      }));
  EXPECT_EQ(decoded->outputFormat(), std::nullopt);
  EXPECT_EQ(decoded->outputExtension(), std::nullopt);
}

TEST_F(TVConvertImageActionTest, NilFormatAndExtensionAreEncodedAsNil) {
  action_->setOutputFormat(std::nullopt);
  action_->setOutputExtension(std::nullopt);
  const auto object = encodedObject(archived(action_), "enabled");
  EXPECT_EQ(object.at("outputFormat"), Value(Uid{0}));
  EXPECT_EQ(object.at("outputExtension"), Value(Uid{0}));
  EXPECT_EQ(unarchived<TVConvertImageAction>(archived(action_))->outputFormat(), std::nullopt);
}

TEST_F(TVConvertImageActionTest, AnEmptyFormatIsNotNil) {
  action_->setOutputFormat("");
  EXPECT_EQ(unarchived<TVConvertImageAction>(archived(action_))->outputFormat(), "");
  run({"/p/photo.tiff"});
  EXPECT_EQ(commandOf(0)[3], "");
}

}  // namespace
}  // namespace tervano::test
