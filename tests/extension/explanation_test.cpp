#include "extension/explanation.h"

#include <gmock/gmock.h>

#include <functional>

#include "model/tv_action_groups.h"
#include "tests/extension/extension_test.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kPlainText[] = "public.plain-text";

class ExplanationTest : public FinderSyncTest {
 protected:
  static std::shared_ptr<TVAction> titled(const std::string& title,
                                          std::optional<std::vector<std::string>> types = {}) {
    auto action = tervano::action<TVAction>();
    action->setTitle(title);
    action->setFileTypes(std::move(types));
    return action;
  }
  static std::shared_ptr<TVAction> disabled(std::shared_ptr<TVAction> action) {
    action->setEnabled(false);
    return action;
  }
  static std::shared_ptr<TVActionGroup> group(const ActionList& members) {
    auto group = tervano::action<TVMoveActionGroup>();
    group->updateActions(members);
    return group;
  }
};

}  // namespace

TEST_F(ExplanationTest, AnActionThatFitsIsShownForNoReason) {
  const auto explanations = explainActions({titled("A", {{"public.image"}})}, *files({"/a.png"}));
  ASSERT_THAT(explanations, SizeIs(1));
  EXPECT_TRUE(explanations[0].isShown());
  EXPECT_EQ(explanations[0].leftOut, std::nullopt);
  EXPECT_THAT(explanations[0].unmet, IsEmpty());
}

TEST_F(ExplanationTest, ADisabledActionIsSaidToBeDisabledWhateverItsTypes) {
  const auto explanations =
      explainActions({disabled(titled("A", {{"public.image"}}))}, *files({"/a.txt"}));
  EXPECT_EQ(explanations[0].leftOut, LeftOut::disabled);
  EXPECT_THAT(explanations[0].unmet, IsEmpty());
}

TEST_F(ExplanationTest, EachTypeThatIsNotMetNamesTheTypesOfTheSelectionThatDoNotConform) {
  const auto explanations =
      explainActions({titled("A", {{"public.item", "public.image", "public.folder"}})},
                     *files({"/a.txt", "/b.png"}));
  EXPECT_EQ(explanations[0].leftOut, LeftOut::fileTypes);
  ASSERT_THAT(explanations[0].unmet, SizeIs(2));
  EXPECT_EQ(explanations[0].unmet[0], (UnmetType{"public.image", {kPlainText}}));
  EXPECT_EQ(explanations[0].unmet[1].type, "public.folder");
  EXPECT_THAT(explanations[0].unmet[1].UTIs,
              testing::UnorderedElementsAre(kPlainText, "public.png"));
}

TEST_F(ExplanationTest, AFilterFailsWithoutUnmetTypesWhenNothingIsSelected) {
  const auto explanations = explainActions({titled("A", {{"public.image"}}), titled("B")}, {});
  EXPECT_EQ(explanations[0].leftOut, LeftOut::fileTypes);
  EXPECT_THAT(explanations[0].unmet, IsEmpty());
  EXPECT_TRUE(explanations[1].isShown());
}

TEST_F(ExplanationTest, AMemberIsShownWhateverItsOwnTypes) {
  const auto explanations =
      explainActions({group({titled("A", {{"public.image"}})})}, *files({"/a.txt"}));
  EXPECT_TRUE(explanations[0].isShown());
  ASSERT_THAT(explanations[0].members, SizeIs(1));
  EXPECT_TRUE(explanations[0].members[0].isShown());
}

TEST_F(ExplanationTest, AMemberThatIsDisabledIsLeftOutOfAGroupThatIsShown) {
  const auto explanations =
      explainActions({group({disabled(titled("A")), titled("B")})}, *files({"/a.txt"}));
  EXPECT_TRUE(explanations[0].isShown());
  EXPECT_EQ(explanations[0].members[0].leftOut, LeftOut::disabled);
  EXPECT_FALSE(explanations[0].members[0].groupLeftOut);
  EXPECT_TRUE(explanations[0].members[1].isShown());
}

TEST_F(ExplanationTest, AGroupWithoutAnEnabledMemberIsLeftOutForThat) {
  const auto explanations =
      explainActions({group({disabled(titled("A"))}), group({})}, *files({"/a.txt"}));
  EXPECT_EQ(explanations[0].leftOut, LeftOut::noMember);
  EXPECT_EQ(explanations[0].members[0].leftOut, LeftOut::disabled);
  EXPECT_TRUE(explanations[0].members[0].groupLeftOut);
  EXPECT_EQ(explanations[1].leftOut, LeftOut::noMember);
  EXPECT_THAT(explanations[1].members, IsEmpty());
}

TEST_F(ExplanationTest, TheMembersOfAGroupThatIsLeftOutAreLeftOutWithIt) {
  const auto pictures = group({titled("A"), disabled(titled("B"))});
  pictures->setFileTypes({{"public.image"}});
  const auto off = group({titled("C")});
  off->setEnabled(false);
  const auto explanations = explainActions({pictures, off}, *files({"/a.txt"}));
  EXPECT_EQ(explanations[0].leftOut, LeftOut::fileTypes);
  ASSERT_THAT(explanations[0].members, SizeIs(2));
  EXPECT_TRUE(explanations[0].members[0].groupLeftOut);
  EXPECT_TRUE(explanations[0].members[1].groupLeftOut);
  EXPECT_EQ(explanations[1].leftOut, LeftOut::disabled);
  EXPECT_TRUE(explanations[1].members[0].groupLeftOut);
}

TEST_F(ExplanationTest, AGroupThatDecodedWithoutAListHasNoMember) {
  const auto group = std::make_shared<TVMoveActionGroup>();
  group->setEnabled(true);
  const auto explanations = explainActions({group}, *files({"/a.txt"}));
  EXPECT_EQ(explanations[0].leftOut, LeftOut::noMember);
}

// The two sides of one rule: for many lists and selections, what is explained as shown is exactly
// what the menu holds.
TEST_F(ExplanationTest, WhatIsShownIsWhatTheMenuHolds) {
  finderSync().userDefaults()->setUseSubmenu(false);
  const std::vector<std::vector<std::string>> filters = {
      {}, {"public.image"}, {"public.folder"}, {kPlainText, "public.item"}, {"no.such.type"}};
  ActionList list;
  for (int variant = 0; variant < 40; ++variant) {
    auto action = variant % 4 == 3 ? group({titled("member " + std::to_string(variant)),
                                            disabled(titled("off " + std::to_string(variant)))})
                                   : titled("");
    action->setTitle(std::to_string(variant));
    if (variant % 3 != 0) action->setFileTypes(filters[static_cast<std::size_t>(variant) % 5]);
    action->setEnabled(variant % 7 != 0);
    list.push_back(action);
  }
  finderSync().setActionsArray(list);
  for (const auto& selection :
       {files({}), files({"/a.txt"}), files({"/a.png", "/b.jpg"}), files({"/a.png", "/b.txt"})}) {
    std::vector<std::string> menuTitles;
    for (const auto& item :
         finderSync().menuForMenuKind(MenuKind::contextualMenuForItems, selection).items) {
      menuTitles.push_back(item.title);
      if (item.submenu == nullptr) continue;
      for (const auto& member : item.submenu->items) menuTitles.push_back(member.title);
    }
    std::vector<std::string> explained;
    for (const auto& explanation : explainActions(list, *selection)) {
      if (explanation.isShown()) explained.push_back(explanation.action->title().value());
      for (const auto& member : explanation.members) {
        if (member.isShown()) explained.push_back(member.action->title().value());
      }
    }
    EXPECT_EQ(explained, menuTitles);
    EXPECT_GT(menuTitles.size(), 5U);
  }
}

}  // namespace tervano::test
