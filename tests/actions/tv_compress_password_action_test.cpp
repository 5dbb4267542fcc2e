#include "actions/tv_compress_password_action.h"

#include <gmock/gmock.h>

#include "tests/actions/action_test.h"
#include "tests/actions/recorded_block.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TVCompressPasswordActionTest : public ActionTest {
 protected:
  void expectNothingHappened(const std::string& source) {
    runPendingMainItems();
    EXPECT_EQ(contentsOf(source), "contents");
    EXPECT_THAT(namesIn(home() + "/selection"), ElementsAre("a.txt"));
    EXPECT_EQ(platform_.processes().runningProcesses(), 0);
    EXPECT_EQ(platform_.runLoop().activeQueueThreads(), 0);
    EXPECT_THAT(notifications_.delivered(), IsEmpty());
    EXPECT_THAT(workspace_.revealed(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
  }
  static std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  std::shared_ptr<TVCompressPasswordAction> action_ = action<TVCompressPasswordAction>();
};

TEST_F(TVCompressPasswordActionTest, ANewActionHasTheValuesOfItsClass) {
  EXPECT_EQ(action_->title(), "Compress with password");
  EXPECT_EQ(action_->icon()->name(), "icon-compress");
  EXPECT_TRUE(action_->isDefault());
  EXPECT_EQ(action_->actionDescription(), "Create a protected zip file with the selected paths");
  EXPECT_EQ(action_->fileTypes(), std::nullopt);
  EXPECT_EQ(action_->defaultTitle(), std::nullopt);
  EXPECT_TRUE(action_->enabled());
  EXPECT_TRUE(action_->isNew());
}

TEST_F(TVCompressPasswordActionTest, EachNewActionHasAFreshUid) {
  EXPECT_EQ(action_->uid()->size(), 32u);
  EXPECT_NE(action_->uid(), action<TVCompressPasswordAction>()->uid());
}

TEST_F(TVCompressPasswordActionTest, ItsEditorIsThatOfActionsWithoutSettings) {
  EXPECT_EQ(action_->editorClassName(), "TVResetAppModule");
}

TEST_F(TVCompressPasswordActionTest, BeforeRunDoesNothingAndNeverCallsItsBlock) {
  const auto source = makeFile("selection/a.txt");
  int calls = 0;
  action_->beforeRunWithFilePaths({source}, [&](const Value&) { ++calls; });
  expectNothingHappened(source);
  EXPECT_EQ(calls, 0);
}

TEST_F(TVCompressPasswordActionTest, ARunDoesNothingAndNeverCallsItsBlock) {
  const auto source = makeFile("selection/a.txt");
  const RecordedBlock end;
  action_->runWithFilePaths({source}, end.block());
  expectNothingHappened(source);
  EXPECT_EQ(end.calls(), 0);
}

TEST_F(TVCompressPasswordActionTest, WithoutPathsAndBlocksNothingHappensEither) {
  const auto source = makeFile("selection/a.txt");
  action_->beforeRunWithFilePaths({}, nullptr);
  action_->runWithFilePaths({}, nullptr);
  expectNothingHappened(source);
}

TEST_F(TVCompressPasswordActionTest, ItHasTheArchiveKeysOfTheBaseOnly) {
  EXPECT_THAT(encodedKeys(archived(action_), "enabled"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "$class"));
  EXPECT_THAT(*registry_.chain("TVCompressPasswordAction"),
              ElementsAre("TVCompressPasswordAction", "TVAction", "NSObject"));
}

TEST_F(TVCompressPasswordActionTest, CopyAndArchiveKeepTheFieldsOfTheBase) {
  const auto copy = std::dynamic_pointer_cast<TVCompressPasswordAction>(action_->copy());
  const auto decoded = unarchived<TVCompressPasswordAction>(archived(action_));
  for (const auto& other : {copy, decoded}) {
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->uid(), action_->uid());
    EXPECT_EQ(other->title(), "Compress with password");
    EXPECT_TRUE(other->isDefault());
    EXPECT_EQ(other->actionDescription(), action_->actionDescription());
    EXPECT_FALSE(other->isNew());
  }
}

}  // namespace
}  // namespace tervano::test
