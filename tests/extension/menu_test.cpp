#include <gmock/gmock.h>

#include "actions/tv_move_to_action.h"
#include "model/tv_action_groups.h"
#include "platform/uniform_types.h"
#include "tests/extension/extension_test.h"
#include "tests/extension/menu_text.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class MenuTest : public FinderSyncTest {
 protected:
  static std::shared_ptr<TVAction> titled(const std::string& title,
                                          std::optional<std::vector<std::string>> types = {}) {
    auto action = tervano::action<TVAction>();
    action->setTitle(title);
    action->setFileTypes(std::move(types));
    return action;
  }
  static std::shared_ptr<TVActionGroup> group(const ActionList& members) {
    auto group = tervano::action<TVMoveActionGroup>();
    group->updateActions(members);
    return group;
  }
  static std::string line(const std::shared_ptr<TVAction>& action) {
    return action->title().value() + " [tv_" + action->uid().value() + "]\n";
  }
  // The menu without the wrapper, for items.
  std::string menu(const ActionList& actions, const SelectedItemsPtr& selection) {
    finderSync().userDefaults()->setUseSubmenu(false);
    finderSync().setActionsArray(actions);
    return menuText(finderSync().menuForMenuKind(MenuKind::contextualMenuForItems, selection));
  }
  std::string toolbarMenu(const ActionList& actions) {
    finderSync().setActionsArray(actions);
    return menuText(finderSync().menuForMenuKind(MenuKind::toolbarItemMenu));
  }
};

TEST_F(MenuTest, EnabledActionsAreShownInTheListsOrder) {
  const auto second = titled("B");
  const auto first = titled("A");
  EXPECT_EQ(menu({second, first}, files({"/a.txt"})), line(second) + line(first));
}

TEST_F(MenuTest, ADisabledActionIsLeftOut) {
  const auto shown = titled("A");
  const auto hidden = titled("B");
  hidden->setEnabled(false);
  EXPECT_EQ(menu({hidden, shown}, files({"/a.txt"})), line(shown));
}

TEST_F(MenuTest, AnItemHasTitleSelectorAndIconAndNothingElse) {
  const auto action = titled("A");
  action->setIcon(Image::imageNamed("icon-move"));
  finderSync().userDefaults()->setUseSubmenu(false);
  finderSync().setActionsArray(ActionList{action});
  const auto selection = files({"/a.txt"});
  const Menu menu = finderSync().menuForMenuKind(MenuKind::contextualMenuForItems, selection);
  EXPECT_EQ(menu.title, "");
  ASSERT_THAT(menu.items, SizeIs(1));
  EXPECT_EQ(menu.items[0].title, "A");
  EXPECT_TRUE(menu.items[0].enabled);
  EXPECT_EQ(menu.items[0].action, "tv_" + *action->uid());
  EXPECT_EQ(menu.items[0].image, action->icon());
  EXPECT_EQ(menu.items[0].submenu, nullptr);
  EXPECT_EQ(menu.items[0].selection, selection);
}

TEST_F(MenuTest, AnActionWithoutTitleHasAnEmptyOne) {
  const auto action = tervano::action<TVAction>();
  EXPECT_EQ(menu({action}, files({"/a"})), " [tv_" + *action->uid() + "]\n");
}

TEST_F(MenuTest, AContextMenuWithSubmenuAndNoPassingActionIsTheWrapperWithAnEmptySubmenu) {
  finderSync().setActionsArray(ActionList());
  const Menu menu =
      finderSync().menuForMenuKind(MenuKind::contextualMenuForItems, files({"/a.txt"}));
  EXPECT_EQ(menuText(menu), "Tervano [icon-contextmenu]:\n");
  ASSERT_THAT(menu.items, SizeIs(1));
  EXPECT_EQ(menu.items[0].action, std::nullopt);
  EXPECT_TRUE(menu.items[0].enabled);
  EXPECT_EQ(menu.items[0].submenu->title, "");
}

TEST_F(MenuTest, EveryContextualKindIsWrapped) {
  const auto action = titled("A");
  finderSync().setActionsArray(ActionList{action});
  for (const MenuKind kind :
       {MenuKind::contextualMenuForItems, MenuKind::contextualMenuForContainer,
        MenuKind::contextualMenuForSidebar}) {
    EXPECT_EQ(menuText(finderSync().menuForMenuKind(kind, files({"/a.txt"}))),
              "Tervano [icon-contextmenu]:\n  " + line(action));
  }
}

TEST_F(MenuTest, WithoutSubmenuTheActionsStandAtTopLevel) {
  const auto action = titled("A");
  EXPECT_EQ(menu({action}, files({"/a.txt"})), line(action));
  EXPECT_EQ(menu({}, files({"/a.txt"})), "");
}

TEST_F(MenuTest, AToolbarMenuWithoutPassingActionHoldsOnlyTheDisabledItem) {
  EXPECT_EQ(toolbarMenu({}), "No Actions Enabled [disabled]\n");
  const auto hidden = titled("A");
  hidden->setEnabled(false);
  EXPECT_EQ(toolbarMenu({hidden, group({})}), "No Actions Enabled [disabled]\n");
}

TEST_F(MenuTest, AToolbarMenuIsNeverWrapped) {
  const auto action = titled("A");
  ASSERT_TRUE(finderSync().userDefaults()->useSubmenu());
  EXPECT_EQ(toolbarMenu({action}), line(action));
}

TEST_F(MenuTest, WithoutActionListNothingIsShown) {
  finderSync().setActionsArray(std::nullopt);
  EXPECT_EQ(menuText(finderSync().menuForMenuKind(MenuKind::toolbarItemMenu)),
            "No Actions Enabled [disabled]\n");
  EXPECT_EQ(menuText(finderSync().menuForMenuKind(MenuKind::contextualMenuForItems)),
            "Tervano [icon-contextmenu]:\n");
}

TEST_F(MenuTest, AnImageActionShowsForTwoImagesAndIsHiddenOnceATextIsAmongThem) {
  const auto action = titled("Images", std::vector<std::string>{"public.image"});
  EXPECT_EQ(menu({action}, files({"/a.jpg", "/b.png"})), line(action));
  EXPECT_EQ(menu({action}, files({"/a.jpg", "/b.png", "/c.txt"})), "");
}

TEST_F(MenuTest, EveryItemMustConformToEveryListedType) {
  const auto both = titled("Both", std::vector<std::string>{"public.image", "public.text"});
  const auto nested = titled("Nested", std::vector<std::string>{"public.jpeg", "public.image"});
  EXPECT_EQ(menu({both}, files({"/a.jpg"})), "");
  EXPECT_EQ(menu({both}, files({"/a.jpg", "/b.txt"})), "");
  EXPECT_EQ(menu({nested}, files({"/a.jpg"})), line(nested));
}

TEST_F(MenuTest, AnEmptyListOfTypesMatchesAnySelectionButNone) {
  const auto action = titled("A", std::vector<std::string>());
  EXPECT_EQ(menu({action}, files({"/a.txt"})), line(action));
  EXPECT_EQ(menu({action}, items({})), "");
}

TEST_F(MenuTest, WithoutSelectionActionsWithFilterAreHiddenAndThoseWithoutShown) {
  const auto filtered = titled("Filtered", std::vector<std::string>{"public.data"});
  const auto any = titled("Any");
  EXPECT_EQ(menu({filtered, any}, items({})), line(any));
  EXPECT_EQ(menu({filtered, any}, nullptr), line(any));
}

TEST_F(MenuTest, AGroupIsAnItemWithItsMembersInItsSubmenu) {
  const auto first = titled("First");
  const auto second = titled("Second");
  const auto parent = group({first, second});
  EXPECT_EQ(menu({parent}, files({"/a.txt"})),
            "Move to a folder [icon-move]:\n  " + line(first) + "  " + line(second));
}

TEST_F(MenuTest, AGroupItemHasNoSelectorAndNoSelection) {
  finderSync().setActionsArray(ActionList{group({titled("A")})});
  const Menu menu = finderSync().menuForMenuKind(MenuKind::toolbarItemMenu);
  ASSERT_THAT(menu.items, SizeIs(1));
  EXPECT_EQ(menu.items[0].action, std::nullopt);
  EXPECT_EQ(menu.items[0].selection, nullptr);
  EXPECT_EQ(menu.items[0].submenu->title, "");
}

TEST_F(MenuTest, ADisabledMemberIsLeftOutOfTheSubmenu) {
  const auto shown = titled("Shown");
  const auto hidden = titled("Hidden");
  hidden->setEnabled(false);
  EXPECT_EQ(menu({group({hidden, shown})}, files({"/a.txt"})),
            "Move to a folder [icon-move]:\n  " + line(shown));
}

TEST_F(MenuTest, AGroupWhoseMembersAreAllDisabledAddsNothing) {
  const auto hidden = titled("Hidden");
  hidden->setEnabled(false);
  EXPECT_EQ(menu({group({hidden})}, files({"/a.txt"})), "");
}

TEST_F(MenuTest, ADisabledGroupAddsNothing) {
  const auto parent = group({titled("A")});
  parent->setEnabled(false);
  EXPECT_EQ(menu({parent}, files({"/a.txt"})), "");
}

TEST_F(MenuTest, AGroupWhoseFilterFailsAddsNothing) {
  const auto parent = group({titled("A")});
  parent->setFileTypes(std::vector<std::string>{"public.image"});
  EXPECT_EQ(menu({parent}, files({"/a.txt"})), "");
}

TEST_F(MenuTest, AMemberWhoseOwnFilterFailsIsShownWhenTheGroupsFilterPasses) {
  const auto member = titled("Member", std::vector<std::string>{"public.image"});
  EXPECT_EQ(menu({group({member})}, files({"/a.txt"})),
            "Move to a folder [icon-move]:\n  " + line(member));
}

TEST_F(MenuTest, AGroupWithoutListAddsNothing) {
  const auto parent = std::make_shared<TVActionGroup>();
  parent->setEnabled(true);
  EXPECT_EQ(menu({parent}, files({"/a.txt"})), "");
}

TEST_F(MenuTest, AGroupInsideAGroupIsASingleAction) {
  const auto inner = group({titled("A")});
  inner->setTitle("Inner");
  EXPECT_EQ(menu({group({inner})}, files({"/a.txt"})),
            "Move to a folder [icon-move]:\n  Inner [icon-move] [tv_" + *inner->uid() + "]\n");
}

TEST_F(MenuTest, TheConvertImageGroupIsShownForImagesOnly) {
  const auto parent = tervano::action<TVConvertImageActionGroup>();
  const auto member = titled("As PNG");
  parent->addAction(member);
  EXPECT_EQ(menu({parent}, files({"/a.jpg", "/b.tiff"})),
            "Convert Image [icon-convert-images]:\n  " + line(member));
  EXPECT_EQ(menu({parent}, files({"/a.jpg", "/b.txt"})), "");
}

TEST_F(MenuTest, TheSameActionTwiceIsShownTwice) {
  const auto action = titled("A");
  EXPECT_EQ(menu({action, action}, files({"/a"})), line(action) + line(action));
}

TEST_F(MenuTest, TheFoldersOwnTypeCountsForItsBackgroundMenu) {
  const auto action = titled("Folders", std::vector<std::string>{"public.folder"});
  controller_->targeted = item("/home/someone", true);
  finderSync().setActionsArray(ActionList{action});
  EXPECT_EQ(menuText(finderSync().menuForMenuKind(MenuKind::contextualMenuForContainer)),
            "Tervano [icon-contextmenu]:\n  " + line(action));
  controller_->selected = files({"/a.txt"});
  EXPECT_EQ(menuText(finderSync().menuForMenuKind(MenuKind::contextualMenuForItems)),
            "Tervano [icon-contextmenu]:\n");
}

TEST_F(MenuTest, ItemsThatAreNoLocalFilesAreLeftOut) {
  const auto images = titled("Images", std::vector<std::string>{"public.image"});
  SelectedItems list = {item("/a.jpg"), {Url("sftp://host/b.txt"), false}};
  EXPECT_EQ(menu({images}, items(list)), line(images));
}

TEST_F(MenuTest, WhenEveryItemWasLeftOutEvenAnActionWithoutFilterIsHidden) {
  const auto any = titled("Any");
  EXPECT_EQ(menu({any}, items({{Url("trash:///b.txt"), false}})), "");
}

TEST_F(MenuTest, AFileOfAnotherMachineIsNoLocalFile) {
  const auto any = titled("Any");
  const SelectedItem remote{Url("file://other/b.txt"), false};
  EXPECT_EQ(menu({any}, items({remote})), "");
  EXPECT_EQ(menu({any}, items({{Url("file://localhost/b.txt"), false}})), line(any));
  const auto images = titled("Images", std::vector<std::string>{"public.image"});
  EXPECT_EQ(menu({images}, items({item("/a.jpg"), remote})), line(images));
}

TEST_F(MenuTest, EachMenuKeepsTheSelectionItWasBuiltFor) {
  const auto action = titled("A");
  finderSync().userDefaults()->setUseSubmenu(false);
  finderSync().setActionsArray(ActionList{action});
  const auto one = files({"/one"});
  const auto two = files({"/two"});
  const Menu first = finderSync().menuForMenuKind(MenuKind::contextualMenuForItems, one);
  const Menu second = finderSync().menuForMenuKind(MenuKind::contextualMenuForItems, two);
  EXPECT_EQ(first.items[0].selection, one);
  EXPECT_EQ(second.items[0].selection, two);
}

TEST_F(MenuTest, AMenuReflectsTheSnapshotAtTheMomentItIsBuilt) {
  const auto action = titled("A");
  finderSync().setActionsArray(ActionList{action});
  const Menu before = finderSync().menuForMenuKind(MenuKind::toolbarItemMenu);
  finderSync().setActionsArray(ActionList());
  EXPECT_EQ(menuText(before), line(action));
  EXPECT_EQ(menuText(finderSync().menuForMenuKind(MenuKind::toolbarItemMenu)),
            "No Actions Enabled [disabled]\n");
}

class TypesTest : public FinderSyncTest {
 protected:
  std::vector<std::string> types(const SelectedItems& list) {
    return finderSync().selectedFileUTIs(list);
  }
};

TEST_F(TypesTest, EachTypeIsGivenOnce) {
  EXPECT_THAT(types({item("/a.jpg"), item("/b.jpg"), item("/c.JPG"), item("/d.png")}),
              UnorderedElementsAre("public.jpeg", "public.png"));
}

TEST_F(TypesTest, AFolderWithoutExtensionIsAFolder) {
  EXPECT_THAT(types({item("/home", true)}), ElementsAre("public.folder"));
}

TEST_F(TypesTest, AFolderWithAnExtensionIsTypedByIt) {
  EXPECT_THAT(types({item("/Photos.jpg", true)}), ElementsAre("public.jpeg"));
}

TEST_F(TypesTest, AFileWithoutExtensionIsTypedByTheEmptyExtension) {
  EXPECT_THAT(types({item("/README", false)}),
              ElementsAre(platform().uniformTypes->preferredIdentifierForExtension("")));
}

TEST_F(TypesTest, AFolderAndAFileWithoutExtensionAreTwoTypes) {
  EXPECT_THAT(types({item("/README", false), item("/home", true), item("/LICENSE", false)}),
              SizeIs(2));
}

TEST_F(TypesTest, ADotFileHasNoExtension) {
  EXPECT_EQ(types({item("/.jpg", false)}), types({item("/README", false)}));
}

TEST_F(TypesTest, TheRootIsAFolder) {
  EXPECT_THAT(types({item("/", true)}), ElementsAre("public.folder"));
}

TEST_F(TypesTest, EscapedNamesAreTypedByTheirExtension) {
  EXPECT_THAT(types({item("/a b#?%.jpg")}), ElementsAre("public.jpeg"));
  EXPECT_THAT(types({{Url("file:///a%2Ejpg"), false}}), ElementsAre("public.jpeg"));
  EXPECT_THAT(types({{Url("file:///a.%6Apg"), false}}), ElementsAre("public.jpeg"));
  EXPECT_EQ(types({{Url("file:///a.jpg%2E"), false}}), types({item("/README", false)}));
}

TEST_F(TypesTest, AQueryOrFragmentIsNoPartOfTheName) {
  EXPECT_THAT(types({{Url("file:///a.jpg?b=c.txt"), false}}), ElementsAre("public.jpeg"));
  EXPECT_THAT(types({{Url("file:///a.jpg#/c.txt"), false}}), ElementsAre("public.jpeg"));
}

TEST_F(TypesTest, NothingHasNoTypes) {
  EXPECT_THAT(types({}), IsEmpty());
}

TEST_F(TypesTest, TheDiskIsNotAskedWhenTheFileManagerKnows) {
  types({item("/README", false), item("/home", true), item("/a.jpg", false)});
  EXPECT_EQ(files_.questions, 0);
}

TEST_F(TypesTest, TheDiskIsNotAskedAboutAnItemWithAnExtension) {
  types({item("/a.jpg", std::nullopt)});
  EXPECT_EQ(files_.questions, 0);
}

TEST_F(TypesTest, TheDiskIsAskedAboutAnUnknownItemWithoutExtension) {
  std::filesystem::create_directories(home() + "/folder");
  writeFile(home() + "/file", "");
  EXPECT_THAT(types({item(home() + "/folder", std::nullopt)}), ElementsAre("public.folder"));
  EXPECT_EQ(types({item(home() + "/file", std::nullopt)}), types({item("/README", false)}));
  EXPECT_EQ(types({item(home() + "/gone", std::nullopt)}), types({item("/README", false)}));
  EXPECT_EQ(files_.questions, 3);
}

TEST_F(TypesTest, TheDiskIsAskedNoMoreOnceAFileAndAFolderWereFound) {
  SelectedItems list = {item("/README", false), item("/home", true)};
  for (int i = 0; i < 100; ++i) list.push_back(item("/unknown", std::nullopt));
  types(list);
  EXPECT_EQ(files_.questions, 0);
}

TEST_F(TypesTest, TheControllersSelectionIsTyped) {
  controller_->selected = files({"/a.png"});
  EXPECT_THAT(finderSync().selectedFileUTIs(), ElementsAre("public.png"));
}

TEST_F(TypesTest, BuildingAMenuAsksTheDiskNothingWhenTheFileManagerKnows) {
  auto action = tervano::action<TVAction>();
  action->setFileTypes(std::vector<std::string>{"public.data"});
  finderSync().setActionsArray(ActionList{action});
  finderSync().menuForMenuKind(MenuKind::contextualMenuForItems, files({"/a", "/b.txt"}));
  EXPECT_EQ(files_.questions, 0);
}

using Types = std::vector<std::string>;

class ConformanceTest : public ExtensionTest {};

TEST_F(ConformanceTest, WithoutTypesOfTheSelectionTheAnswerIsNo) {
  EXPECT_FALSE(FinderSync::allUTIsConformToTypes({}, {"public.image"}));
  EXPECT_FALSE(FinderSync::allUTIsConformToTypes({}, {}));
}

TEST_F(ConformanceTest, WithoutListedTypesTheAnswerIsYes) {
  EXPECT_TRUE(FinderSync::allUTIsConformToTypes({"public.text"}, {}));
}

TEST_F(ConformanceTest, EveryOneMustConformToEveryType) {
  EXPECT_TRUE(FinderSync::allUTIsConformToTypes(Types{"public.jpeg", "public.png"},
                                                Types{"public.image", "public.data"}));
  EXPECT_FALSE(
      FinderSync::allUTIsConformToTypes(Types{"public.jpeg", "public.png"}, Types{"public.jpeg"}));
  EXPECT_FALSE(FinderSync::allUTIsConformToTypes(Types{"public.jpeg"},
                                                 Types{"public.image", "public.text"}));
}

TEST_F(ConformanceTest, ATypeConformsToItself) {
  EXPECT_TRUE(FinderSync::allUTIsConformToTypes(Types{"public.folder"}, Types{"public.folder"}));
}

}  // namespace
}  // namespace tervano::test
