#include "actions/tv_open_faves_action.h"

#include <gmock/gmock.h>

#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Viewer = RecordingWorkspace::Viewer;

class TVOpenFavesActionTest : public ActionTest {
 protected:
  TVOpenFavesActionTest() {
    folder_ = makeFolder("favourite");
    action_ = action<TVOpenFavesAction>();
    action_->setDestinationURL(Url::fileURLWithPath(folder_, true));
  }
  // The end of a run, which has come when the run returns.
  RecordedBlock run(const TVAction::FilePaths& paths = {}) {
    RecordedBlock end;
    action_->runWithFilePaths(paths, end.block());
    EXPECT_EQ(end.calls(), 1);
    EXPECT_EQ(end.thread(), std::this_thread::get_id());
    EXPECT_TRUE(end.success());
    EXPECT_EQ(end.error(), std::nullopt);
    runPendingMainItems();
    EXPECT_EQ(end.calls(), 1);
    return end;
  }

  std::string folder_;
  std::shared_ptr<TVOpenFavesAction> action_;
};

TEST_F(TVOpenFavesActionTest, AnySelectionOrNoneOpensTheSameFolderWithNothingSelected) {
  run();
  run({makeFile("a.txt")});
  run({"/missing", folder_});
  EXPECT_THAT(workspace_.viewers(),
              ElementsAre(Viewer{std::nullopt, folder_}, Viewer{std::nullopt, folder_},
                          Viewer{std::nullopt, folder_}));
}

TEST_F(TVOpenFavesActionTest, AFolderThatWasDeletedStillCompletesWithYes) {
  std::filesystem::remove(folder_);
  run();
  EXPECT_THAT(workspace_.viewers(), ElementsAre(Viewer{std::nullopt, folder_}));
}

TEST_F(TVOpenFavesActionTest, WithoutFolderItStillCompletesWithYes) {
  action_->setDestinationURL(std::nullopt);
  run();
  EXPECT_THAT(workspace_.viewers(), ElementsAre(Viewer{std::nullopt, ""}));
}

TEST_F(TVOpenFavesActionTest, ARequestThatNobodyTakesStillCompletesWithYes) {
  workspace_.refuseViewers();
  run();
  EXPECT_THAT(workspace_.viewers(), ElementsAre(Viewer{std::nullopt, folder_}));
}

TEST_F(TVOpenFavesActionTest, OfTheRealDesktopToo) {
  platform_.services().workspace = &realWorkspace_;
  std::filesystem::remove(folder_);
  run();
  action_->setDestinationURL(std::nullopt);
  run();
  action_->setDestinationURL(Url("sftp://host/folder"));
  run();
}

TEST_F(TVOpenFavesActionTest, TheBlockIsCalledOnTheCallersThreadBeforeTheRunReturns) {
  std::thread caller([this] {
    RecordedBlock end;
    action_->runWithFilePaths({}, end.block());
    EXPECT_EQ(end.calls(), 1);
    EXPECT_EQ(end.thread(), std::this_thread::get_id());
  });
  caller.join();
}

TEST_F(TVOpenFavesActionTest, TheFolderIsAskedForBeforeTheBlockIsCalled) {
  bool wasAsked = false;
  action_->runWithFilePaths(
      {}, [&](bool, const std::optional<Error>&) { wasAsked = !workspace_.viewers().empty(); });
  EXPECT_TRUE(wasAsked);
}

TEST_F(TVOpenFavesActionTest, ARunWithoutBlockOpensAllTheSame) {
  action_->runWithFilePaths({}, nullptr);
  EXPECT_THAT(workspace_.viewers(), ElementsAre(Viewer{std::nullopt, folder_}));
}

TEST_F(TVOpenFavesActionTest, AFolderWithAnyBytesInItsNameIsAskedForByThem) {
  for (const char* const name :
       {"a\nb", "'single' \"double\"", "$(touch x)", "-rf", "\xFF\xFE", "%41 ?#"}) {
    action_->setDestinationURL(Url::fileURLWithPath(home() + "/" + name, true));
    run();
    EXPECT_EQ(workspace_.viewers().back(), (Viewer{std::nullopt, home() + "/" + name}));
  }
}

TEST_F(TVOpenFavesActionTest, NothingIsLoggedShownOrRevealed) {
  run({"/a"});
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
  EXPECT_THAT(workspace_.opened(), IsEmpty());
}

TEST_F(TVOpenFavesActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVOpenFavesActionTest, ANewActionHasNoFolderNoTitleNoIconAndNoEditor) {
  const auto fresh = action<TVOpenFavesAction>();
  EXPECT_EQ(fresh->destinationURL(), std::nullopt);
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->defaultTitle(), std::nullopt);
  EXPECT_EQ(fresh->icon(), nullptr);
  EXPECT_EQ(fresh->editorClassName(), std::nullopt);
  EXPECT_FALSE(fresh->isDefault());
}

TEST_F(TVOpenFavesActionTest, ItsChainIsThatOfADirectSubclass) {
  EXPECT_EQ(action_->className(), "TVOpenFavesAction");
  EXPECT_THAT(*registry_.chain("TVOpenFavesAction"),
              ElementsAre("TVOpenFavesAction", "TVAction", "NSObject"));
}

TEST_F(TVOpenFavesActionTest, TheFolderSurvivesCopyAndArchive) {
  const auto copy = std::dynamic_pointer_cast<TVOpenFavesAction>(action_->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->destinationURL(), action_->destinationURL());
  EXPECT_EQ(copy->uid(), action_->uid());
  const auto decoded = unarchived<TVOpenFavesAction>(archived(action_));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->destinationURL(), action_->destinationURL());
}

TEST_F(TVOpenFavesActionTest, TheFolderIsEncodedAfterTheKeysOfTheBase) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "destinationURL", "$class"));
}

TEST_F(TVOpenFavesActionTest, DecodingWithoutFolderGivesNil) {
  const auto decoded = unarchived<TVOpenFavesAction>(withEditedObject(
      archived(action_), "enabled", [](auto& object) { object.erase("destinationURL"); }));
  EXPECT_EQ(decoded->destinationURL(), std::nullopt);
}

TEST_F(TVOpenFavesActionTest, ANilFolderIsEncodedAsNil) {
  action_->setDestinationURL(std::nullopt);
  EXPECT_EQ(encodedObject(archived(action_), "enabled").at("destinationURL"), Value(Uid{0}));
}

}  // namespace
}  // namespace tervano::test
