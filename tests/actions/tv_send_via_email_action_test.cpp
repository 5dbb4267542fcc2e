#include "actions/tv_send_via_email_action.h"

#include <gmock/gmock.h>

#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TVSendViaEmailActionTest : public ActionTest {
 protected:
  // How often the block of a before-run was called when it returned, and after the main queue ran.
  int callsOfBeforeRun(const TVAction::FilePaths& paths) {
    int calls = 0;
    action_->beforeRunWithFilePaths(paths, [&](const Value& object) {
      EXPECT_TRUE(object.isNull());
      ++calls;
    });
    const int atReturn = calls;
    runPendingMainItems();
    EXPECT_EQ(calls, atReturn);
    return calls;
  }

  const Url kMailer = Url::fileURLWithPath("/usr/share/applications/org.example.mailer.desktop");
  const Url kOldMailer = Url::fileURLWithPath("/usr/share/applications/old-mailer.desktop");
  std::shared_ptr<TVSendViaEmailAction> action_ = action<TVSendViaEmailAction>();
};

TEST_F(TVSendViaEmailActionTest, ANewActionHasTheValuesOfItsClass) {
  EXPECT_EQ(action_->title(), "Send via Email");
  EXPECT_EQ(action_->icon()->name(), "icon-send-mail");
  EXPECT_TRUE(action_->isDefault());
  EXPECT_EQ(action_->actionDescription(), "Opens the default mail handler with the selected files");
  EXPECT_EQ(action_->applicationURL(), std::nullopt);
  EXPECT_EQ(action_->fileTypes(), std::nullopt);
  EXPECT_EQ(action_->defaultTitle(), std::nullopt);
  EXPECT_TRUE(action_->enabled());
  EXPECT_TRUE(action_->isNew());
}

TEST_F(TVSendViaEmailActionTest, ItsEditorIsThatOfActionsWithoutSettings) {
  EXPECT_EQ(action_->editorClassName(), "TVResetAppModule");
}

TEST_F(TVSendViaEmailActionTest, BeforeRunTakesTheHandlerOfMailAndCallsItsBlockWithNilAtOnce) {
  workspace_.setHandler(kMailer);
  EXPECT_EQ(callsOfBeforeRun({"/p/a.txt"}), 1);
  EXPECT_EQ(action_->applicationURL(), kMailer);
  EXPECT_THAT(workspace_.handlerQuestions(), ElementsAre(Url("mailto:")));
  EXPECT_THAT(workspace_.openings(), IsEmpty());
}

TEST_F(TVSendViaEmailActionTest, TheApplicationIsSetBeforeTheBlockIsCalled) {
  workspace_.setHandler(kMailer);
  std::optional<Url> seen;
  action_->beforeRunWithFilePaths({"/p/a.txt"},
                                  [&](const Value&) { seen = action_->applicationURL(); });
  EXPECT_EQ(seen, kMailer);
}

TEST_F(TVSendViaEmailActionTest, BeforeRunDoesNotLookAtThePaths) {
  workspace_.setHandler(kMailer);
  EXPECT_EQ(callsOfBeforeRun({}), 1);
  EXPECT_EQ(callsOfBeforeRun({"", "no path at all", "/missing"}), 1);
}

TEST_F(TVSendViaEmailActionTest, TheStoredApplicationGivesWayToTheDefaultOne) {
  action_->setApplicationURL(kOldMailer);
  workspace_.setHandler(kMailer);
  const RecordedBlock end;
  action_->beforeRunWithFilePaths({"/p/a.txt"}, [&](const Value&) {
    action_->runWithFilePaths({"/p/a.txt", "/p/b.txt"}, end.block());
  });
  EXPECT_EQ(end.calls(), 1);
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  ASSERT_THAT(workspace_.openings(), SizeIs(1));
  const auto opening = workspace_.openings()[0];
  EXPECT_EQ(opening.applicationURL, kMailer);
  EXPECT_THAT(opening.urls, ElementsAre(Url("file:///p/a.txt"), Url("file:///p/b.txt")));
  EXPECT_EQ(opening.options, 0x10000u);
  EXPECT_TRUE(opening.configuration.empty());
}

TEST_F(TVSendViaEmailActionTest, EveryBeforeRunAsksAnew) {
  workspace_.setHandler(kOldMailer);
  EXPECT_EQ(callsOfBeforeRun({"/p/a.txt"}), 1);
  workspace_.setHandler(kMailer);
  EXPECT_EQ(callsOfBeforeRun({"/p/a.txt"}), 1);
  EXPECT_EQ(action_->applicationURL(), kMailer);
}

TEST_F(TVSendViaEmailActionTest, WithoutAHandlerTheBlockIsNeverCalled) {
  EXPECT_EQ(callsOfBeforeRun({"/p/a.txt"}), 0);
  EXPECT_EQ(action_->applicationURL(), std::nullopt);
  EXPECT_THAT(workspace_.handlerQuestions(), ElementsAre(Url("mailto:")));
  EXPECT_THAT(workspace_.openings(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(TVSendViaEmailActionTest, WithoutAHandlerTheStoredApplicationStays) {
  action_->setApplicationURL(kOldMailer);
  EXPECT_EQ(callsOfBeforeRun({"/p/a.txt"}), 0);
  EXPECT_EQ(action_->applicationURL(), kOldMailer);
}

TEST_F(TVSendViaEmailActionTest, BeforeRunWithoutABlockStillTakesTheHandler) {
  workspace_.setHandler(kMailer);
  action_->beforeRunWithFilePaths({"/p/a.txt"}, nullptr);
  EXPECT_EQ(action_->applicationURL(), kMailer);
}

TEST_F(TVSendViaEmailActionTest, ARunByItselfUsesTheStoredApplication) {
  action_->setApplicationURL(kOldMailer);
  workspace_.setHandler(kMailer);
  const RecordedBlock end;
  action_->runWithFilePaths({"/p/a.txt"}, end.block());
  EXPECT_EQ(end.calls(), 1);
  EXPECT_EQ(workspace_.openings()[0].applicationURL, kOldMailer);
}

TEST_F(TVSendViaEmailActionTest, TheLastMailApplicationSurvivesCopyAndArchive) {
  workspace_.setHandler(kMailer);
  EXPECT_EQ(callsOfBeforeRun({"/p/a.txt"}), 1);
  const auto copy = std::dynamic_pointer_cast<TVSendViaEmailAction>(action_->copy());
  const auto decoded = unarchived<TVSendViaEmailAction>(archived(action_));
  for (const auto& other : {copy, decoded}) {
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->uid(), action_->uid());
    EXPECT_EQ(other->title(), "Send via Email");
    EXPECT_EQ(other->applicationURL(), kMailer);
  }
}

TEST_F(TVSendViaEmailActionTest, ItIsArchivedAsAnOpenWithAction) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "applicationURL", "$class"));
  EXPECT_THAT(*registry_.chain("TVSendViaEmailAction"),
              ElementsAre("TVSendViaEmailAction", "TVOpenWithAppAction", "TVAction", "NSObject"));
}

TEST_F(TVSendViaEmailActionTest, DecodingWithoutApplicationGivesNil) {
  const auto decoded = unarchived<TVSendViaEmailAction>(withEditedObject(
      archived(action_), "enabled", [](auto& object) { object.erase("applicationURL"); }));
  EXPECT_EQ(decoded->applicationURL(), std::nullopt);
}

}  // namespace
}  // namespace tervano::test
