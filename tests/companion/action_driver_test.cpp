#include "companion/action_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "actions/register_action_classes.h"
#include "actions/tv_apple_script_action.h"
#include "actions/tv_compress_password_action.h"
#include "actions/tv_convert_image_action.h"
#include "actions/tv_copy_to_action.h"
#include "actions/tv_move_to_action.h"
#include "actions/tv_reset_app_preferences_action.h"
#include "actions/tv_secure_remove_action.h"
#include "actions/tv_send_via_email_action.h"
#include "actions/tv_shell_script_action.h"
#include "archive/platform_exception.h"
#include "model/tv_action_groups.h"
#include "platform/applications.h"
#include "platform/file_manager.h"
#include "platform/linux/tool_table.h"
#include "platform/run_loop.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/recording_services.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/secret_of.h"
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
    runAction(action, paths, askers_,
              [&](const RunOutcome& outcome) { outcomes.push_back(outcome); });
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
  Askers askers_;
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
  EXPECT_FALSE(outcome.toldByAction);
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
  runAction(*scripted(), {}, askers_, [&](const RunOutcome&) { ended = true; });
  runPendingMainItems();
  EXPECT_FALSE(ran);
  EXPECT_FALSE(ended);
  proceed(nullptr);
  EXPECT_TRUE(ran);
  EXPECT_TRUE(waitUntil([&] { return ended; }));
}

TEST_F(ActionDriverTest, BeforeRunThatCallsBackTwiceRunsOnce) {
  script_->beforeRun = [](const auto& block) {
    block(nullptr);
    block(nullptr);
  };
  script_->run = [](const auto&, const auto& block) { block(true, std::nullopt); };
  EXPECT_TRUE(outcomeOf(*scripted()).success);
  EXPECT_EQ(script_->ran.size(), 1U);
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
  runAction(*action, {}, askers_, [&](const RunOutcome&) { ++ended; });
  runAction(*action, {}, askers_, [&](const RunOutcome&) { ++ended; });
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
  runAction(*scripted(), {}, askers_, [&](const RunOutcome&) { ended = true; });
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

TEST_F(ActionDriverTest, TheDriverCopiesWhatTheClassLeavesToIt) {
  const std::string home = platform_.home().path();
  std::filesystem::create_directory(home + "/to");
  std::ofstream(home + "/a.txt") << "a";
  const auto copy = action<TVCopyToAction>();
  copy->setDestinationURL(Url::fileURLWithPath(home + "/to", true));
  EXPECT_TRUE(outcomeOf(*copy, {home + "/a.txt"}).success);
  EXPECT_EQ(contentsOf(home + "/to/a.txt"), "a");
  EXPECT_EQ(contentsOf(home + "/a.txt"), "a");
}

TEST_F(ActionDriverTest, CopyThatFailsIsToldByItsOwnNotificationOnly) {
  const std::string home = platform_.home().path();
  std::filesystem::create_directory(home + "/to");
  const auto copy = action<TVCopyToAction>();
  copy->setDestinationURL(Url::fileURLWithPath(home + "/to", true));
  const auto outcome = outcomeOf(*copy, {home + "/missing"});
  EXPECT_FALSE(outcome.success);
  EXPECT_TRUE(outcome.toldByAction);
  EXPECT_THAT(outcome.message, HasSubstr("No such file or directory"));
  EXPECT_EQ(notifications_.delivered().size(), 1U);
}

TEST_F(ActionDriverTest, CopyWithoutItsFolderIsToldByTheDriver) {
  const auto copy = action<TVCopyToAction>();
  copy->setTitle("Backup");
  EXPECT_EQ(outcomeOf(*copy, {"/etc/hostname"}).message, "\"Backup\" has no destination folder.");
  copy->setDestinationURL(Url::fileURLWithPath("/no/such/folder", true));
  const auto outcome = outcomeOf(*copy, {"/etc/hostname"});
  EXPECT_EQ(outcome.message,
            "The destination folder of \"Backup\" does not exist: /no/such/folder");
  EXPECT_FALSE(outcome.toldByAction);
}

TEST_F(ActionDriverTest, ACopyThatIsStoppedEndsAsCancelled) {
  const std::string home = platform_.home().path();
  std::filesystem::create_directory(home + "/to");
  std::ofstream(home + "/a.txt") << "a";
  const auto copy = action<TVCopyToAction>();
  copy->setTitle("Backup");
  copy->setDestinationURL(Url::fileURLWithPath(home + "/to", true));
  const auto job = std::make_shared<Job>(jobSubjectOf(*copy, {home + "/a.txt"}));
  job->cancel();
  std::optional<RunOutcome> ended;
  runAction(
      *copy, {home + "/a.txt"}, askers_, [&](const RunOutcome& outcome) { ended = outcome; }, job);
  ASSERT_TRUE(waitUntil([&] { return ended.has_value(); }));
  EXPECT_FALSE(ended->success);
  EXPECT_TRUE(ended->toldByAction) << "who stops it need not be told";
  EXPECT_TRUE(ended->cancelled);
  EXPECT_EQ(job->state(), JobState::cancelled);
  EXPECT_EQ(ended->message, "\"Backup\" was cancelled.");
  EXPECT_TRUE(std::filesystem::is_empty(home + "/to"));
}

TEST_F(ActionDriverTest, AStoppedCopyOfSeveralItemsTellsHowFarItCame) {
  const std::string home = platform_.home().path();
  std::filesystem::create_directory(home + "/to");
  for (const char* const name : {"/a", "/b"}) std::ofstream(home + name) << name;
  const auto copy = action<TVCopyToAction>();
  copy->setTitle("Backup");
  copy->setDestinationURL(Url::fileURLWithPath(home + "/to", true));
  const auto job = std::make_shared<Job>(jobSubjectOf(*copy, {home + "/a", home + "/b"}));
  class StoppingFiles : public ForwardingFileManager {
   public:
    StoppingFiles(FileManager& real, const CancelToken& token)
        : ForwardingFileManager(real), token_(token) {}
    std::optional<Error> performCopy(const ItemCopy& copy) override {
      if (copy.from.ends_with("/b")) token_.cancel();
      return ForwardingFileManager::performCopy(copy);
    }

   private:
    CancelToken token_;
  } files(*platform_.services().fileManager, job->cancelToken());
  platform_.services().fileManager = &files;
  std::optional<RunOutcome> ended;
  runAction(
      *copy, job->subject().paths, askers_, [&](const RunOutcome& outcome) { ended = outcome; },
      job);
  ASSERT_TRUE(waitUntil([&] { return ended.has_value(); }));
  EXPECT_TRUE(ended->cancelled);
  EXPECT_EQ(ended->message, "\"Backup\" was cancelled; 1 of 2 items was copied before.");
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

TEST_F(ActionDriverTest, ScriptActionWithoutAScriptEndsWithASentence) {
  const auto outcome = outcomeOf(*action<TVShellScriptAction>());
  EXPECT_EQ(outcome.message, "\"Run Script\" has no script.");
  EXPECT_THAT(log_.lines(), testing::Contains("Run with script: (null)"));
}

TEST_F(ActionDriverTest, ToolActionsWithoutFilesEndWithASentence) {
  for (const std::shared_ptr<TVAction>& tool :
       {std::shared_ptr<TVAction>(action<TVCompressPasswordAction>()),
        std::shared_ptr<TVAction>(action<TVConvertImageAction>()),
        std::shared_ptr<TVAction>(action<TVSecureRemoveAction>()),
        std::shared_ptr<TVAction>(action<TVResetAppPreferencesAction>())}) {
    tool->setTitle("Tool");
    EXPECT_EQ(outcomeOf(*tool).message, "\"Tool\" needs a file to work on.");
  }
}

TEST_F(ActionDriverTest, ResetOfWhatIsNoApplicationEndsWithASentence) {
  const auto outcome = outcomeOf(*action<TVResetAppPreferencesAction>(), {"/etc"});
  EXPECT_EQ(outcome.message, "/etc is no application whose preferences can be found.");
  EXPECT_TRUE(notifications_.delivered().empty());
}

TEST_F(ActionDriverTest, ResetOfAnApplicationThatIsGoneMeanwhileEndsWithASentence) {
  // Known at the first look only.
  class VanishingApplications : public ForwardingApplications {
   public:
    using ForwardingApplications::ForwardingApplications;
    std::optional<std::string> bundleIdentifierAtPath(const std::string& /*path*/) const override {
      return looks++ == 0 ? std::optional<std::string>("org.example.Gone") : std::nullopt;
    }
    mutable int looks = 0;
  } applications(*platform_.services().applications);
  platform_.services().applications = &applications;
  const auto outcome = outcomeOf(*action<TVResetAppPreferencesAction>(), {"/etc"});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.message, "\"Reset App Preferences\" found nothing to do.");
  EXPECT_EQ(applications.looks, 2);
}

TEST_F(ActionDriverTest, MailWithoutAMailProgramEndsWithASentence) {
  setenv("XDG_DATA_DIRS", platform_.home().path().c_str(), 1);
  const auto outcome = outcomeOf(*action<TVSendViaEmailAction>(), {"/etc/hostname"});
  unsetenv("XDG_DATA_DIRS");
  EXPECT_EQ(outcome.message, "There is no mail program: no application handles \"mailto:\" links.");
}

TEST_F(ActionDriverTest, ScriptThatCannotBeLoadedIsToldByItsReason) {
  const auto script = action<TVAppleScriptAction>();
  script->setScriptURL(Url::fileURLWithPath("/no/such/script.py"));
  const auto outcome = outcomeOf(*script);
  EXPECT_FALSE(outcome.success);
  EXPECT_NE(outcome.message, "");
  EXPECT_THAT(outcome.message, testing::Not(HasSubstr("gave no reason")));
  EXPECT_FALSE(outcome.toldByAction);
}

TEST_F(ActionDriverTest, ToolThatCannotBeStartedIsToldAndLeavesNothingBehind) {
  platform_.processes().setToolTable({{"/usr/bin/sips", "/no/such/program"}});
  const auto convert = action<TVConvertImageAction>();
  convert->setTitle("PNG");
  convert->setOutputFormat("png");
  convert->setOutputExtension("png");
  const auto outcome = outcomeOf(*convert, {platform_.home().path() + "/a.tiff"});
  platform_.processes().setToolTable(toolTable(*platform_.services().bundle));
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(outcome.message, HasSubstr("\"PNG\" could not be run: "));
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
}

// Conversions by a tool of the test, which fails where another one has made the same result.
class ConversionTest : public ActionDriverTest {
 protected:
  ConversionTest() {
    std::ofstream(tool_) << "#!/bin/sh\nset -C\necho \"$4\" > \"$6\" || exit 1\n";
    std::filesystem::permissions(tool_, std::filesystem::perms::owner_all);
    platform_.processes().setToolTable({{"/usr/bin/sips", tool_}});
    convert_->setTitle("JPEG");
    convert_->setOutputFormat("jpeg");
    convert_->setOutputExtension("jpg");
  }
  ~ConversionTest() override {
    platform_.processes().setToolTable(toolTable(*platform_.services().bundle));
  }

  std::string picture(const std::string& name) {
    std::ofstream(home_ + "/" + name) << name;
    return home_ + "/" + name;
  }
  // Of which source a result is.
  std::string sourceOf(const std::string& name) {
    const std::string text = contentsOf(home_ + "/" + name);
    return text.empty() ? "" : text.substr(home_.size() + 1, text.size() - home_.size() - 2);
  }

  const std::string home_ = platform_.home().path();
  const std::string tool_ = home_ + "/tool";
  std::shared_ptr<TVConvertImageAction> convert_ = action<TVConvertImageAction>();
};

TEST_F(ConversionTest, PicturesOfOneNameAreConvertedOneAfterTheOther) {
  EXPECT_TRUE(outcomeOf(*convert_,
                        {picture("a.png"), picture("a.tiff"), picture("b.png"), picture("a.gif")})
                  .success);
  EXPECT_EQ(sourceOf("a.jpg"), "a.png");
  EXPECT_EQ(sourceOf("a 2.jpg"), "a.tiff");
  EXPECT_EQ(sourceOf("a 3.jpg"), "a.gif");
  EXPECT_EQ(sourceOf("b.jpg"), "b.png");
  EXPECT_EQ(notifications_.delivered().size(), 6U) << "three batches, the start and end of each";
}

TEST_F(ConversionTest, AnotherSpellingOfTheFolderIsTheSameName) {
  picture("a.png");
  picture("a.tiff");
  EXPECT_TRUE(outcomeOf(*convert_, {home_ + "/a.png", home_ + "//./a.tiff"}).success);
  EXPECT_EQ(sourceOf("a.jpg"), "a.png");
  EXPECT_EQ(sourceOf("a 2.jpg"), "a.tiff");
}

TEST_F(ConversionTest, ANumberedNameIsNotGivenTwice) {
  picture("a.jpg");
  EXPECT_TRUE(outcomeOf(*convert_, {picture("a.png"), picture("a 2.png")}).success);
  EXPECT_EQ(sourceOf("a 2.jpg"), "a.png");
  EXPECT_EQ(sourceOf("a 2 2.jpg"), "a 2.png");
}

TEST_F(ConversionTest, PicturesOfDifferentNamesAreConvertedAtOnce) {
  EXPECT_TRUE(
      outcomeOf(*convert_, {picture("a.png"), picture("a 2.png"), picture("b.png")}).success);
  EXPECT_EQ(notifications_.delivered().size(), 2U);
  EXPECT_EQ(notifications_.delivered().front().informativeText, "Started converting 3 images");
}

TEST_F(ConversionTest, AfterABatchThatCannotBeStartedTheNextOneIsRunAllTheSame) {
  // The tool comes back when the second batch begins.
  class ToolOfTheSecondBatch : public ForwardingUserNotifications {
   public:
    using ForwardingUserNotifications::ForwardingUserNotifications;
    std::function<void()> onSecond;
    void deliverNotification(const UserNotification& /*notification*/) override {
      if (++delivered == 2) onSecond();
    }
    int delivered = 0;
  } notifications(notifications_);
  notifications.onSecond = [this] {
    platform_.processes().setToolTable({{"/usr/bin/sips", tool_}});
  };
  platform_.services().userNotifications = &notifications;
  platform_.processes().setToolTable({{"/usr/bin/sips", "/no/such/program"}});
  const auto outcome = outcomeOf(*convert_, {picture("a.png"), picture("a.tiff")});
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(outcome.message, HasSubstr("\"JPEG\" could not be run: "));
  EXPECT_EQ(sourceOf("a.jpg"), "a.tiff");
  EXPECT_EQ(platform_.notificationCenter().observerCount(), 0U);
}

TEST_F(ConversionTest, WithoutAnExtensionItEndsWithASentence) {
  convert_->setOutputExtension(std::nullopt);
  const auto outcome = outcomeOf(*convert_, {picture("a.png"), picture("a.tiff")});
  EXPECT_FALSE(outcome.success);
  EXPECT_THAT(outcome.message, HasSubstr("without an output extension"));
}

TEST_F(ConversionTest, WithAnExtensionThatLeadsToAnotherFolderItEndsWithASentence) {
  convert_->setOutputExtension("d/jpg");
  const auto outcome = outcomeOf(*convert_, {picture("a.png"), picture("a.tiff")});
  EXPECT_FALSE(outcome.success);
  EXPECT_EQ(outcome.message, "\"JPEG\" could not be run: \"d/jpg\" is no file name extension");
}

TEST_F(ConversionTest, AnEmptyExtensionGivesNamesWithoutOne) {
  convert_->setOutputExtension("");
  EXPECT_TRUE(outcomeOf(*convert_, {picture("a.png"), picture("a.tiff")}).success);
  EXPECT_EQ(sourceOf("a"), "a.png");
  EXPECT_EQ(sourceOf("a 2"), "a.tiff");
}

// What removes files for good.
class ConsentTest : public ActionDriverTest {
 protected:
  ConsentTest() : file_(platform_.home().path() + "/secret.txt") {
    std::ofstream(file_) << "secret";
    askers_.consent = [this](const Question& question, const auto& answer) {
      questions_.push_back(question);
      answer(consents_, reason_);
    };
  }

  std::string file_;
  std::vector<Question> questions_;
  bool consents_ = false;
  std::string reason_;
};

TEST_F(ConsentTest, NothingIsRemovedWithoutConsent) {
  const auto outcome = outcomeOf(*action<TVSecureRemoveAction>(), {file_});
  EXPECT_FALSE(outcome.success);
  EXPECT_TRUE(outcome.toldByAction) << "who refuses need not be told";
  EXPECT_EQ(contentsOf(file_), "secret");
  ASSERT_EQ(questions_.size(), 1U);
  EXPECT_EQ(questions_.front().text, "Overwrite and delete \"secret.txt\" for good?");
  EXPECT_EQ(questions_.front().paths, std::vector<std::string>{file_});
}

TEST_F(ConsentTest, SeveralItemsAreCounted) {
  outcomeOf(*action<TVSecureRemoveAction>(), {file_, "/a", "/b"});
  ASSERT_EQ(questions_.size(), 1U);
  EXPECT_EQ(questions_.front().text, "Overwrite and delete 3 items for good?");
}

TEST_F(ConsentTest, NobodyToAskIsAFailureWithItsReason) {
  reason_ = "Nobody there.";
  const auto outcome = outcomeOf(*action<TVSecureRemoveAction>(), {file_});
  EXPECT_EQ(outcome.message, "Nobody there.");
  EXPECT_FALSE(outcome.toldByAction);
  EXPECT_EQ(contentsOf(file_), "secret");
}

TEST_F(ConsentTest, WithConsentTheFilesAreRemoved) {
  consents_ = true;
  EXPECT_TRUE(outcomeOf(*action<TVSecureRemoveAction>(), {file_}).success);
  EXPECT_FALSE(std::filesystem::exists(file_));
  ASSERT_EQ(notifications_.delivered().size(), 1U);
  EXPECT_EQ(notifications_.delivered().front().informativeText,
            "Successfully removed 'secret.txt' ");
}

TEST_F(ConsentTest, AnAnswerThatComesLaterIsWaitedFor) {
  std::function<void(bool, const std::string&)> later;
  askers_.consent = [&](const Question&, const auto& answer) { later = answer; };
  bool ended = false;
  runAction(*action<TVSecureRemoveAction>(), {file_}, askers_, [&](const auto&) { ended = true; });
  runPendingMainItems();
  EXPECT_FALSE(ended);
  EXPECT_EQ(contentsOf(file_), "secret");
  later(true, "");
  EXPECT_TRUE(waitUntil([&] { return ended; }));
  EXPECT_FALSE(std::filesystem::exists(file_));
}

// What needs a password.
class PasswordTest : public ActionDriverTest {
 protected:
  PasswordTest() : file_(platform_.home().path() + "/plain.txt") {
    std::ofstream(file_) << "plain";
    askers_.password = [this](const Question& question, const auto& answer) {
      questions_.push_back(question);
      answer(password_ ? std::optional(secretOf(*password_)) : std::nullopt, reason_);
    };
  }

  std::string file_;
  std::vector<Question> questions_;
  std::optional<std::string> password_;
  std::string reason_;
};

TEST_F(PasswordTest, WithAPasswordTheArchiveIsMade) {
  password_ = "word";
  EXPECT_TRUE(outcomeOf(*action<TVCompressPasswordAction>(), {file_}).success);
  EXPECT_EQ(runProgram({"/usr/bin/7z", {"t", "-pword", file_ + ".zip"}}).status, 0);
  EXPECT_NE(runProgram({"/usr/bin/7z", {"t", "-pother", file_ + ".zip"}}).status, 0);
  ASSERT_EQ(questions_.size(), 1U);
  EXPECT_EQ(questions_.front().text, "Compress \"plain.txt\" with a password");
  EXPECT_EQ(questions_.front().paths, std::vector<std::string>{file_});
  EXPECT_EQ(questions_.front().consent, "Compress");
}

TEST_F(PasswordTest, WithoutOneNothingIsMadeAndNobodyIsTold) {
  const auto outcome = outcomeOf(*action<TVCompressPasswordAction>(), {file_});
  EXPECT_FALSE(outcome.success);
  EXPECT_TRUE(outcome.toldByAction);
  EXPECT_FALSE(std::filesystem::exists(file_ + ".zip"));
}

TEST_F(PasswordTest, AnEmptyOneIsNone) {
  password_ = "";
  EXPECT_FALSE(outcomeOf(*action<TVCompressPasswordAction>(), {file_}).success);
  EXPECT_FALSE(std::filesystem::exists(file_ + ".zip"));
}

TEST_F(PasswordTest, NobodyToAskIsAFailureWithItsReason) {
  reason_ = "Nobody there.";
  EXPECT_EQ(outcomeOf(*action<TVCompressPasswordAction>(), {file_}).message, "Nobody there.");
  askers_.password = nullptr;
  EXPECT_EQ(outcomeOf(*action<TVCompressPasswordAction>(), {file_}).message,
            "There is nobody to ask for the password.");
}

TEST_F(PasswordTest, NothingIsAskedForWhatCannotBePacked) {
  const auto outcome = outcomeOf(*action<TVCompressPasswordAction>(), {file_, "/no/such"});
  EXPECT_EQ(outcome.message, "Could not pack /no/such: No such file or directory");
  EXPECT_FALSE(outcome.toldByAction);
  EXPECT_TRUE(questions_.empty());
}

TEST_F(PasswordTest, ConsentIsNotAskedForBesides) {
  password_ = "word";
  askers_.consent = [](const Question&, const auto& answer) {
    ADD_FAILURE();
    answer(false, "");
  };
  EXPECT_TRUE(outcomeOf(*action<TVCompressPasswordAction>(), {file_}).success);
}

TEST_F(ConsentTest, OtherActionsAskNothing) {
  const auto move = action<TVMoveToAction>();
  move->setDestinationURL(Url::fileURLWithPath(platform_.home().path(), true));
  outcomeOf(*move, {});
  EXPECT_TRUE(questions_.empty());
}

}  // namespace tervano::test
