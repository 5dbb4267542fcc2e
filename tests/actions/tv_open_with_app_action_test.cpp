#include "actions/tv_open_with_app_action.h"

#include <gmock/gmock.h>

#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TVOpenWithAppActionTest : public ActionTest {
 protected:
  TVOpenWithAppActionTest() { action_->setApplicationURL(kApplication); }

  // Answers the end, which is there when the run returns.
  RecordedBlock run(const TVAction::FilePaths& paths) {
    RecordedBlock end;
    action_->runWithFilePaths(paths, end.block());
    EXPECT_EQ(end.calls(), 1);
    EXPECT_EQ(end.thread(), std::this_thread::get_id());
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 1);
    return end;
  }

  const Url kApplication =
      Url::fileURLWithPath("/usr/share/applications/org.example.editor.desktop");
  std::shared_ptr<TVOpenWithAppAction> action_ = action<TVOpenWithAppAction>();
};

TEST_F(TVOpenWithAppActionTest, ANewActionHasTheValuesOfTheBaseAndNoApplication) {
  const auto fresh = action<TVOpenWithAppAction>();
  EXPECT_EQ(fresh->applicationURL(), std::nullopt);
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->icon(), nullptr);
  EXPECT_EQ(fresh->actionDescription(), std::nullopt);
  EXPECT_EQ(fresh->fileTypes(), std::nullopt);
  EXPECT_FALSE(fresh->isDefault());
  EXPECT_TRUE(fresh->enabled());
  EXPECT_TRUE(fresh->isNew());
}

TEST_F(TVOpenWithAppActionTest, ItsEditorIsItsOwn) {
  EXPECT_EQ(action_->editorClassName(), "TVOpenWithAppModule");
}

TEST_F(TVOpenWithAppActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(workspace_.handlerQuestions(), IsEmpty());
}

TEST_F(TVOpenWithAppActionTest, TwoPathsAreOpenedInOneRequest) {
  const RecordedBlock end = run({"/p/b.txt", "/p/a b.txt"});
  EXPECT_TRUE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
  ASSERT_THAT(workspace_.openings(), SizeIs(1));
  const auto opening = workspace_.openings()[0];
  EXPECT_THAT(opening.urls, ElementsAre(Url("file:///p/b.txt"), Url("file:///p/a%20b.txt")));
  EXPECT_EQ(opening.applicationURL, kApplication);
  EXPECT_EQ(opening.options, 0x10000u);
  EXPECT_TRUE(opening.configuration.empty());
}

TEST_F(TVOpenWithAppActionTest, TheWorkspacesErrorReachesTheBlockAndNotTheLog) {
  const Error reason{"Workspace", 7, "The application cannot open these files."};
  workspace_.refuseOpenings(reason);
  const RecordedBlock end = run({"/p/a.txt"});
  EXPECT_FALSE(end.success());
  EXPECT_EQ(end.error(), reason);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
}

TEST_F(TVOpenWithAppActionTest, ARefusalWithoutErrorGivesNoAndNil) {
  workspace_.refuseOpenings(std::nullopt);
  const RecordedBlock end = run({"/p/a.txt"});
  EXPECT_FALSE(end.success());
  EXPECT_EQ(end.error(), std::nullopt);
}

TEST_F(TVOpenWithAppActionTest, ANilApplicationIsLeftToTheWorkspace) {
  action_->setApplicationURL(std::nullopt);
  run({"/p/a.txt"});
  ASSERT_THAT(workspace_.openings(), SizeIs(1));
  EXPECT_EQ(workspace_.openings()[0].applicationURL, std::nullopt);
}

TEST_F(TVOpenWithAppActionTest, OfANilApplicationTheRealWorkspaceReportsAnError) {
  platform_.services().workspace = &realWorkspace_;
  action_->setApplicationURL(std::nullopt);
  const RecordedBlock end = run({makeFile("a.txt")});
  EXPECT_FALSE(end.success());
  ASSERT_NE(end.error(), std::nullopt);
  EXPECT_FALSE(end.error()->message.empty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVOpenWithAppActionTest, NothingIsToldWhenItWorks) {
  run({"/p/a.txt"});
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
  EXPECT_THAT(workspace_.handlerQuestions(), IsEmpty());
}

TEST_F(TVOpenWithAppActionTest, AnEmptySelectionIsARequestWithoutFiles) {
  EXPECT_TRUE(run({}).success());
  ASSERT_THAT(workspace_.openings(), SizeIs(1));
  EXPECT_THAT(workspace_.openings()[0].urls, IsEmpty());
}

TEST_F(TVOpenWithAppActionTest, ARunWithoutABlockOpensAllTheSame) {
  action_->runWithFilePaths({"/p/a.txt"}, nullptr);
  workspace_.refuseOpenings(std::nullopt);
  action_->runWithFilePaths({"/p/b.txt"}, nullptr);
  EXPECT_THAT(workspace_.openings(), SizeIs(2));
}

TEST_F(TVOpenWithAppActionTest, HostileNamesSurviveAsFileURLs) {
  const TVAction::FilePaths paths = {"/p/two\nlines",   "/p/it's \"quoted\" $(x)",
                                     "/p/-rf",          "/p/caf\xE9 \xFF",
                                     "/p/50% ?#[]",     "/p/folder/",
                                     "/p/http://a/b?c", "/p/" + std::string(255, 'n')};
  run(paths);
  const auto urls = workspace_.openings()[0].urls;
  ASSERT_EQ(urls.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EXPECT_TRUE(urls[i].isFileURL());
    EXPECT_EQ(urls[i], Url::fileURLWithPath(paths[i]));
  }
  EXPECT_EQ(urls[0].absoluteString(), "file:///p/two%0Alines");
  EXPECT_EQ(urls[3].path(), paths[3]);
  EXPECT_EQ(urls[4].path(), paths[4]);
}

TEST_F(TVOpenWithAppActionTest, TwoHundredPathsAreOneRequestInTheirOrder) {
  TVAction::FilePaths paths;
  for (int i = 0; i < 200; ++i) paths.push_back("/p/" + std::to_string(i));
  run(paths);
  ASSERT_THAT(workspace_.openings(), SizeIs(1));
  const auto urls = workspace_.openings()[0].urls;
  ASSERT_EQ(urls.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) EXPECT_EQ(urls[i].path(), paths[i]);
}

TEST_F(TVOpenWithAppActionTest, TheApplicationSurvivesCopyAndArchive) {
  const auto copy = std::dynamic_pointer_cast<TVOpenWithAppAction>(action_->copy());
  const auto decoded = unarchived<TVOpenWithAppAction>(archived(action_));
  for (const auto& other : {copy, decoded}) {
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->uid(), action_->uid());
    EXPECT_EQ(other->applicationURL(), kApplication);
  }
}

TEST_F(TVOpenWithAppActionTest, TheApplicationIsEncodedAfterTheKeysOfTheBase) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "applicationURL", "$class"));
  EXPECT_THAT(*registry_.chain("TVOpenWithAppAction"),
              ElementsAre("TVOpenWithAppAction", "TVAction", "NSObject"));
}

TEST_F(TVOpenWithAppActionTest, DecodingWithoutApplicationGivesNil) {
  const auto decoded = unarchived<TVOpenWithAppAction>(withEditedObject(
      archived(action_), "enabled", [](auto& object) { object.erase("applicationURL"); }));
  EXPECT_EQ(decoded->applicationURL(), std::nullopt);
}

TEST_F(TVOpenWithAppActionTest, ANilApplicationIsEncodedAsNil) {
  action_->setApplicationURL(std::nullopt);
  EXPECT_EQ(encodedObject(archived(action_), "enabled").at("applicationURL"), Value(Uid{0}));
  EXPECT_EQ(unarchived<TVOpenWithAppAction>(archived(action_))->applicationURL(), std::nullopt);
}

}  // namespace
}  // namespace tervano::test
