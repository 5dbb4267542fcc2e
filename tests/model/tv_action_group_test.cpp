#include "model/tv_action_group.h"

#include <gmock/gmock.h>

#include "archive/platform_exception.h"
#include "model/tv_action_groups.h"
#include "platform/uniform_types.h"
#include "tests/model/model_test.h"
#include "tests/support/archive_editing.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TVActionGroupTest : public ModelTest {
 protected:
  static std::vector<std::string> uids(const ActionList& actions) {
    std::vector<std::string> uids;
    for (const auto& action : actions) uids.push_back(action->uid().value());
    return uids;
  }
  Data archiveWithoutMembers() const {
    return withEditedObject(archived(action<TVCopyActionGroup>()), "actions",
                            [](auto& object) { object.erase("actions"); });
  }
};

TEST_F(TVActionGroupTest, ANewGroupHasAnEmptyListAndIsEnabledAndNew) {
  const auto group = action<TVCopyActionGroup>();
  EXPECT_EQ(group->title(), "Copy to a folder");
  EXPECT_EQ(group->actions(), ActionList());
  EXPECT_TRUE(group->enabled());
  EXPECT_TRUE(group->isNew());
}

TEST_F(TVActionGroupTest, ABlankGroupHasNoList) {
  EXPECT_EQ(TVActionGroup().actions(), std::nullopt);
}

TEST_F(TVActionGroupTest, ActionsAreASnapshot) {
  const auto group = action<TVActionGroup>();
  group->addAction(action<TVAction>());
  const auto snapshot = group->actions();
  group->addAction(action<TVAction>());
  EXPECT_EQ(snapshot->size(), 1U);
  EXPECT_EQ(group->actions()->size(), 2U);
}

TEST_F(TVActionGroupTest, AddingAppends) {
  const auto group = action<TVActionGroup>();
  const auto first = action<TVAction>();
  const auto second = action<TVAction>();
  group->addAction(first);
  group->addAction(second);
  EXPECT_THAT(*group->actions(), ElementsAre(first, second));
}

TEST_F(TVActionGroupTest, AddingOrRemovingNilIsIgnored) {
  const auto group = action<TVActionGroup>();
  group->addAction(action<TVAction>());
  group->addAction(nullptr);
  group->removeAction(nullptr);
  EXPECT_EQ(group->actions()->size(), 1U);
}

TEST_F(TVActionGroupTest, AnActionAddedTwiceIsThereTwiceAndRemovedOnceIsGone) {
  const auto group = action<TVActionGroup>();
  const auto twice = action<TVAction>();
  const auto other = action<TVAction>();
  group->addAction(twice);
  group->addAction(other);
  group->addAction(twice);
  EXPECT_EQ(group->actions()->size(), 3U);
  group->removeAction(twice);
  EXPECT_THAT(*group->actions(), ElementsAre(other));
}

TEST_F(TVActionGroupTest, RemovingAnActionByAnEntryOfTheListItselfWorks) {
  const auto group = action<TVActionGroup>();
  group->addAction(action<TVAction>());
  group->addAction(group->actions()->front());
  group->removeAction(group->workingActionsArray()->front());
  EXPECT_THAT(*group->actions(), IsEmpty());
}

TEST_F(TVActionGroupTest, ACopyWithTheSameUidIsNotTheSameMember) {
  const auto group = action<TVActionGroup>();
  const auto member = action<TVAction>();
  group->addAction(member);
  group->removeAction(member->copy());
  EXPECT_THAT(*group->actions(), ElementsAre(member));
}

TEST_F(TVActionGroupTest, UpdateReplacesTheListAndKeepsItsOrder) {
  const auto group = action<TVActionGroup>();
  group->addAction(action<TVAction>());
  const ActionList list = {action<TVAction>(), action<TVAction>()};
  group->updateActions(list);
  EXPECT_EQ(group->actions(), list);
}

TEST_F(TVActionGroupTest, UpdateLeavesNullEntriesOut) {
  const auto group = action<TVActionGroup>();
  const auto member = action<TVAction>();
  group->updateActions(ActionList{nullptr, member, nullptr});
  EXPECT_THAT(*group->actions(), ElementsAre(member));
}

TEST_F(TVActionGroupTest, ACopySharesTheMembersAndHasAListOfItsOwn) {
  const auto source = action<TVMoveActionGroup>();
  const auto member = action<TVAction>();
  source->addAction(member);
  const auto copy = std::dynamic_pointer_cast<TVMoveActionGroup>(source->copy());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->uid(), source->uid());
  EXPECT_THAT(*copy->actions(), ElementsAre(member));
  copy->addAction(action<TVAction>());
  EXPECT_THAT(*source->actions(), ElementsAre(member));
}

TEST_F(TVActionGroupTest, ACopyOfAGroupWithoutListHasNone) {
  const auto group = unarchived<TVActionGroup>(archiveWithoutMembers());
  const auto copy = std::dynamic_pointer_cast<TVActionGroup>(group->copy());
  EXPECT_EQ(copy->actions(), std::nullopt);
}

TEST_F(TVActionGroupTest, ThreeMembersSurviveTheArchiveInOrderWithTheirUids) {
  const auto group = action<TVCopyActionGroup>();
  for (int i = 0; i < 3; ++i) group->addAction(action<SampleAction>());
  const auto decoded = unarchived<TVCopyActionGroup>(archived(group));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->uid(), group->uid());
  EXPECT_EQ(uids(*decoded->actions()), uids(*group->actions()));
}

TEST_F(TVActionGroupTest, AMemberThatIsThereTwiceIsOneObjectAfterTheArchive) {
  const auto group = action<TVCopyActionGroup>();
  const auto member = action<SampleAction>();
  group->addAction(member);
  group->addAction(member);
  const auto decoded = unarchived<TVCopyActionGroup>(archived(group));
  ASSERT_EQ(decoded->actions()->size(), 2U);
  EXPECT_EQ(decoded->actions()->front(), decoded->actions()->back());
}

TEST_F(TVActionGroupTest, AMemberMayBeAGroup) {
  const auto outer = action<TVActionGroup>();
  const auto inner = action<TVActionGroup>();
  inner->addAction(action<SampleAction>());
  outer->addAction(inner);
  const auto decoded = unarchived<TVActionGroup>(archived(outer));
  const auto member = std::dynamic_pointer_cast<TVActionGroup>(decoded->actions()->front());
  ASSERT_NE(member, nullptr);
  EXPECT_EQ(member->actions()->size(), 1U);
}

TEST_F(TVActionGroupTest, AGroupDecodedWithoutMembersHasNoListAndSwallowsAdditions) {
  const auto group = unarchived<TVActionGroup>(archiveWithoutMembers());
  EXPECT_EQ(group->actions(), std::nullopt);
  group->addAction(action<TVAction>());
  group->removeAction(action<TVAction>());
  EXPECT_EQ(group->actions(), std::nullopt);
}

TEST_F(TVActionGroupTest, UpdatingAGroupWithoutListGivesItOne) {
  const auto group = unarchived<TVActionGroup>(archiveWithoutMembers());
  group->updateActions(ActionList());
  group->addAction(action<TVAction>());
  EXPECT_EQ(group->actions()->size(), 1U);
}

TEST_F(TVActionGroupTest, AGroupWithoutListIsEncodedWithANilList) {
  const auto group = unarchived<TVActionGroup>(archiveWithoutMembers());
  EXPECT_EQ(encodedObject(archived(group), "actions").at("actions"), Value(Uid{0}));
  EXPECT_EQ(unarchived<TVActionGroup>(archived(group))->actions(), std::nullopt);
}

TEST_F(TVActionGroupTest, ActionsAreEncodedAfterAllKeysOfTheBase) {
  EXPECT_THAT(encodedKeys(archived(action<TVCopyActionGroup>()), "actions"),
              ElementsAre("enabled", "title", "icon", "uid", "isDefault", "fileTypes",
                          "actionDescription", "actions", "$class"));
}

TEST_F(TVActionGroupTest, AMemberThatIsNoActionIsRefused) {
  const auto group = action<TVActionGroup>();
  group->addAction(action<SampleAction>());
  // The list of members is the archive's array of one entry; its entry becomes nil.
  const Data archive = withEditedObject(archived(group), "NS.objects", [](auto& object) {
    object["NS.objects"] = Value::Array{Uid{0}};
  });
  EXPECT_THROW(unarchived(archive), PlatformException);
}

TEST_F(TVActionGroupTest, MembersThatAreNoArrayAreRefused) {
  const Data archive = withEditedObject(archived(action<TVCopyActionGroup>()), "actions",
                                        [](auto& object) { object["actions"] = object["title"]; });
  EXPECT_THROW(unarchived(archive), PlatformException);
}

TEST_F(TVActionGroupTest, AGroupThatContainsItselfCannotBeArchived) {
  const auto group = action<TVActionGroup>();
  group->addAction(group);
  EXPECT_THROW(archived(group), PlatformException);
  group->updateActions(ActionList());
}

TEST_F(TVActionGroupTest, AnArchivedGroupThatContainsItselfIsRefused) {
  const auto group = action<TVActionGroup>();
  group->addAction(action<SampleAction>());
  // The root is the first entry behind "$null".
  const Data archive = withEditedObject(archived(group), "NS.objects", [](auto& object) {
    object["NS.objects"] = Value::Array{Uid{1}};
  });
  EXPECT_THROW(unarchived(archive), PlatformException);
}

TEST_F(TVActionGroupTest, RunningAGroupOnlyLogs) {
  bool called = false;
  action<TVMoveActionGroup>()->runWithFilePaths(
      {"/a"}, [&](bool, const std::optional<Error>&) { called = true; });
  EXPECT_THAT(logged(), ElementsAre("Group actions can't be run"));
  EXPECT_FALSE(called);
}

TEST_F(TVActionGroupTest, TheGenericGroupLogsThatItHasNoEditor) {
  EXPECT_EQ(action<TVActionGroup>()->editorClassName(), std::nullopt);
  EXPECT_THAT(logged(),
              ElementsAre("Subclasses need to overwrite editorClassName - TVActionGroup"));
}

struct GroupKind {
  std::string className;
  std::function<std::shared_ptr<TVActionGroup>()> make;
  std::string title;
  std::optional<std::string> defaultTitle;
  std::string icon;
  bool isDefault;
  std::optional<std::string> description;
  std::optional<std::vector<std::string>> fileTypes;
  std::string editor;
};

template <typename T>
std::shared_ptr<TVActionGroup> makeGroup() {
  return action<T>();
}

const std::vector<GroupKind>& groupKinds() {
  static const std::vector<GroupKind> kinds = {
      {"TVOpenWithActionGroup", makeGroup<TVOpenWithActionGroup>, "Open With", "Open With",
       "icon-open-with", false, std::nullopt, std::nullopt, "TVMoveToActionModule"},
      {"TVCopyActionGroup", makeGroup<TVCopyActionGroup>, "Copy to a folder", "Copy to a folder",
       "icon-copy", false, std::nullopt, std::nullopt, "TVMoveToActionModule"},
      {"TVNewFileActionGroup", makeGroup<TVNewFileActionGroup>, "Create new file",
       "Create new file", "icon-new-file", false, std::nullopt, std::nullopt,
       "TVNewFileActionModule"},
      {"TVMoveActionGroup", makeGroup<TVMoveActionGroup>, "Move to a folder", "Move to a folder",
       "icon-move", false, std::nullopt, std::nullopt, "TVMoveToActionModule"},
      {"TVOpenFavesActionGroup", makeGroup<TVOpenFavesActionGroup>, "Open new Finder window",
       std::nullopt, "icon-open-faves", true,
       "Opens a new Finder window/tab to the selected location", std::nullopt,
       "TVMoveToActionModule"},
      {"TVConvertImageActionGroup", makeGroup<TVConvertImageActionGroup>, "Convert Image",
       std::nullopt, "icon-convert-images", true, "Converts an image to the selected format",
       std::vector<std::string>{"public.image"}, "TVResetAppModule"},
  };
  return kinds;
}

class GroupKindTest : public ModelTest, public testing::WithParamInterface<GroupKind> {};

TEST_P(GroupKindTest, ANewGroupHasTheFieldsOfItsKind) {
  const GroupKind& kind = GetParam();
  const auto group = kind.make();
  EXPECT_EQ(group->className(), kind.className);
  EXPECT_EQ(group->title(), kind.title);
  EXPECT_EQ(group->defaultTitle(), kind.defaultTitle);
  ASSERT_NE(group->icon(), nullptr);
  EXPECT_EQ(group->icon()->name(), kind.icon);
  EXPECT_EQ(group->icon()->size(), (Size{16, 16}));
  EXPECT_EQ(group->isDefault(), kind.isDefault);
  EXPECT_EQ(group->actionDescription(), kind.description);
  EXPECT_EQ(group->fileTypes(), kind.fileTypes);
  EXPECT_EQ(group->editorClassName(), kind.editor);
  EXPECT_EQ(group->actions(), ActionList());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(GroupKindTest, ItSurvivesTheArchiveAsItsOwnClass) {
  const auto group = GetParam().make();
  const auto decoded = unarchived<TVActionGroup>(archived(group));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(decoded->className(), GetParam().className);
  EXPECT_EQ(decoded->title(), group->title());
  EXPECT_EQ(decoded->fileTypes(), group->fileTypes());
}

TEST_P(GroupKindTest, ItIsCopiedAsItsOwnClass) {
  EXPECT_EQ(GetParam().make()->copy()->className(), GetParam().className);
}

TEST_P(GroupKindTest, ItsChainRunsOverTheGroupAndTheActionToTheRoot) {
  const auto* chain = registry_.chain(GetParam().className);
  ASSERT_NE(chain, nullptr);
  EXPECT_THAT(*chain, ElementsAre(GetParam().className, "TVActionGroup", "TVAction", "NSObject"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, GroupKindTest, testing::ValuesIn(groupKinds()),
                         [](const auto& info) { return info.param.className; });

TEST(RegisterModelClassesTest, TheBaseActionCanBeDecoded) {
  ClassRegistry registry;
  registerModelClasses(registry);
  EXPECT_THAT(*registry.chain("TVAction"), ElementsAre("TVAction", "NSObject"));
  EXPECT_NE(registry.makeBlank("TVAction"), nullptr);
  EXPECT_NE(registry.makeBlank("TVActionGroup"), nullptr);
}

}  // namespace
}  // namespace tervano::test
