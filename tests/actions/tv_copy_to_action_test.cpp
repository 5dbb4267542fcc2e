#include "actions/tv_copy_to_action.h"

#include <gmock/gmock.h>

#include "actions/tv_move_to_action.h"
#include "tests/actions/action_test.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TVCopyToActionTest : public ActionTest {
 protected:
  TVCopyToActionTest() {
    action_->setDestinationURL(Url::fileURLWithPath(makeFolder("destination"), true));
  }
  std::shared_ptr<TVCopyToAction> action_ = action<TVCopyToAction>();
};

TEST_F(TVCopyToActionTest, ARunDoesNothingAndDoesNotCallTheBlock) {
  const auto source = makeFile("a.txt");
  bool called = false;
  action_->runWithFilePaths({source}, [&](bool, const std::optional<Error>&) { called = true; });
  runPendingMainItems();
  EXPECT_FALSE(called);
  EXPECT_TRUE(exists(source));
  EXPECT_TRUE(std::filesystem::is_empty(home() + "/destination"));
  EXPECT_THAT(notifications_.delivered(), IsEmpty());
  EXPECT_THAT(workspace_.revealed(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TVCopyToActionTest, BeforeRunIsThatOfTheBase) {
  int calls = 0;
  action_->beforeRunWithFilePaths({"/a"}, [&](const Value& object) {
    EXPECT_TRUE(object.isNull());
    ++calls;
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(TVCopyToActionTest, ItIsNoMoveAction) {
  const std::shared_ptr<TVAction> base = action_;
  EXPECT_EQ(std::dynamic_pointer_cast<TVMoveToAction>(base), nullptr);
  EXPECT_THAT(*registry_.chain("TVCopyToAction"),
              ElementsAre("TVCopyToAction", "TVAction", "NSObject"));
  EXPECT_THAT(*registry_.chain("TVMoveToAction"),
              ElementsAre("TVMoveToAction", "TVAction", "NSObject"));
}

TEST_F(TVCopyToActionTest, ItsEditorIsThatOfTheMoveAction) {
  EXPECT_EQ(action_->editorClassName(), "TVMoveToActionModule");
}

TEST_F(TVCopyToActionTest, ANewActionHasNoDestinationAndNoFieldsOfItsOwn) {
  const auto fresh = action<TVCopyToAction>();
  EXPECT_EQ(fresh->destinationURL(), std::nullopt);
  EXPECT_EQ(fresh->title(), std::nullopt);
  EXPECT_EQ(fresh->defaultTitle(), std::nullopt);
  EXPECT_EQ(fresh->icon(), nullptr);
  EXPECT_EQ(fresh->fileTypes(), std::nullopt);
  EXPECT_EQ(fresh->actionDescription(), std::nullopt);
  EXPECT_FALSE(fresh->isDefault());
}

TEST_F(TVCopyToActionTest, TheDestinationSurvivesCopyAndArchive) {
  const auto copy = std::dynamic_pointer_cast<TVCopyToAction>(action_->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->destinationURL(), action_->destinationURL());
  EXPECT_EQ(unarchived<TVCopyToAction>(archived(action_))->destinationURL(),
            action_->destinationURL());
}

TEST_F(TVCopyToActionTest, TheDestinationIsEncodedAfterTheKeysOfTheBase) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "destinationURL", "$class"));
}

TEST_F(TVCopyToActionTest, DecodingWithoutDestinationGivesNil) {
  const auto decoded = unarchived<TVCopyToAction>(withEditedObject(
      archived(action_), "enabled", [](auto& object) { object.erase("destinationURL"); }));
  EXPECT_EQ(decoded->destinationURL(), std::nullopt);
}

TEST_F(TVCopyToActionTest, ANilDestinationIsEncodedAsNil) {
  action_->setDestinationURL(std::nullopt);
  EXPECT_EQ(encodedObject(archived(action_), "enabled").at("destinationURL"), Value(Uid{0}));
}

}  // namespace
}  // namespace tervano::test
