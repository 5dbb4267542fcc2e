#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ExplainTest : public testing::Test {
 protected:
  ExplainTest() { home_.succeed({"prefs", "set", "useSubmenu", "no"}); }

  std::string add(std::vector<std::string> words) {
    words.insert(words.begin(), "add");
    return home_.succeed(std::move(words));
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(ExplainTest, AnActionThatIsShownHasNoReason) {
  const auto uid = add({"move", "--title", "Away"});
  EXPECT_EQ(home_.succeed({"explain", home_.file("a.txt")}), "shown   Away  [" + uid + "]");
}

TEST_F(ExplainTest, AnEmptyListIsSaidToBeEmpty) {
  EXPECT_EQ(home_.succeed({"explain", home_.file("a.txt")}), "The list has no actions.");
}

TEST_F(ExplainTest, ADisabledActionSaysSo) {
  const auto uid = add({"move", "--title", "Away"});
  home_.succeed({"disable", uid});
  EXPECT_EQ(home_.succeed({"explain", home_.file("a.txt")}),
            "hidden  Away  [" + uid + "]: it is disabled");
}

TEST_F(ExplainTest, TheFileThatDoesNotConformIsNamedWithItsTypeAndTheConditionThatFails) {
  const auto uid = add({"move", "--title", "Pictures", "--types", "public.image"});
  EXPECT_EQ(home_.succeed({"explain", home_.file("a.png"), home_.file("b.txt")}),
            "hidden  Pictures  [" + uid + "]: not public.image: b.txt (public.plain-text)");
}

TEST_F(ExplainTest, OfManyFilesThreeAreNamedAndTheOthersCounted) {
  add({"move", "--title", "Pictures", "--types", "public.image"});
  std::vector<std::string> words = {"explain"};
  for (int i = 0; i < 5; ++i) words.push_back(home_.file(std::to_string(i) + ".txt"));
  EXPECT_THAT(home_.succeed(words), HasSubstr("2.txt (public.plain-text) and 2 more"));
}

TEST_F(ExplainTest, AListOfTypesThatCannotAllBeMetTellsTheRule) {
  const auto uid = add({"move", "--title", "Never"});
  home_.tervano({"set", uid, "--types", "public.image,public.folder"});
  EXPECT_EQ(home_.succeed({"explain", home_.file("a.png")}),
            "hidden  Never  [" + uid +
                "]: not public.folder: a.png (public.png); every item must conform to every type "
                "that is listed");
}

TEST_F(ExplainTest, ATypeThatNobodyKnowsIsSaidToBeUnknown) {
  const auto uid = add({"move", "--title", "Never"});
  home_.tervano({"set", uid, "--types", "com.example.nothing"});
  EXPECT_THAT(home_.succeed({"explain", home_.file("a.png")}),
              HasSubstr("the type com.example.nothing is not known here"));
}

TEST_F(ExplainTest, WithoutASelectionAFilterCannotBeMet) {
  const auto uid = add({"move", "--title", "Pictures", "--types", "public.image"});
  EXPECT_EQ(
      home_.succeed({"explain"}),
      "hidden  Pictures  [" + uid + "]: nothing is selected, and it is for certain types only");
}

TEST_F(ExplainTest, AMemberOfAGroupThatIsNotShownSaysThatItIsItsGroup) {
  const auto group = add({"group-move", "--title", "Group", "--types", "public.image"});
  const auto member = add({"move", "--title", "Member", "--into", group});
  const auto empty = add({"group-copy", "--title", "Empty"});
  EXPECT_EQ(home_.succeed({"explain", home_.file("a.txt")}),
            "hidden  Group  [" + group + "]: not public.image: a.txt (public.plain-text)\n" +
                "    hidden  Member  [" + member + "]: its group is not shown\n" +
                "hidden  Empty  [" + empty + "]: no member of the group is enabled");
}

TEST_F(ExplainTest, TheFolderWhoseBackgroundWasClickedIsWhatIsLookedAt) {
  const auto uid = add({"move", "--title", "Folders", "--types", "public.folder"});
  EXPECT_EQ(home_.succeed({"explain", "--kind", "container", home_.folder("folder")}),
            "shown   Folders  [" + uid + "]");
}

TEST_F(ExplainTest, ThePreferencesThatChangeAMenuAreNamed) {
  add({"move", "--title", "Away"});
  const auto file = home_.file("a.txt");
  home_.succeed({"prefs", "set", "useSubmenu", "yes"});
  EXPECT_THAT(home_.succeed({"explain", file}), HasSubstr("preference useSubmenu is yes"));
  EXPECT_THAT(home_.succeed({"explain", "--kind", "toolbar", file}), Not(HasSubstr("useSubmenu")));
  home_.succeed({"prefs", "set", "showIconInToolbar", "no"});
  EXPECT_THAT(home_.succeed({"explain", "--kind", "toolbar", file}),
              HasSubstr("preference showIconInToolbar is no"));
}

TEST_F(ExplainTest, JsonHasEveryFieldOfEveryAction) {
  const auto group = add({"group-move", "--title", "Group"});
  const auto member = add({"move", "--title", "Member", "--into", group});
  home_.succeed({"disable", member});
  const auto pictures = add({"move", "--title", "Pictures", "--types", "public.image"});
  const auto picture = home_.file("a.png");
  const auto text = home_.file("b.txt");
  const auto json = home_.json({"explain", "--json", picture, text});
  EXPECT_EQ(json["kind"], "items");
  EXPECT_EQ(json["useSubmenu"], false);
  EXPECT_EQ(json["showIconInToolbar"], true);
  using Json = nlohmann::ordered_json;
  EXPECT_EQ(json["items"][0], (Json{{"path", picture}, {"type", "public.png"}}));
  EXPECT_EQ(json["items"][1], (Json{{"path", text}, {"type", "public.plain-text"}}));
  EXPECT_EQ(json["actions"][0]["reason"], "noMember");
  EXPECT_EQ(json["actions"][0]["actions"][0]["uid"], member);
  EXPECT_EQ(json["actions"][0]["actions"][0]["reason"], "group");
  const Json unmet = {{"type", "public.image"}, {"paths", Json::array({text})}};
  const Json expected = {{"uid", pictures},
                         {"title", "Pictures"},
                         {"shown", false},
                         {"reason", "fileTypes"},
                         {"explanation", "not public.image: b.txt (public.plain-text)"},
                         {"unmet", Json::array({unmet})},
                         {"actions", Json::array()}};
  EXPECT_EQ(json["actions"][1].dump(), expected.dump());
}

TEST_F(ExplainTest, AnUnreadableListIsAFailure) {
  home_.file(".local/share/Q4T7N2XR8K.com.vessok.tervano/Actions.plist", "bplist00 nonsense");
  expectFailure(home_.tervano({"explain", home_.file("a.txt")}));
}

TEST_F(ExplainTest, AnUnknownKindOfMenuIsAUsageError) {
  expectUsageError(home_.tervano({"explain", "--kind", "nothing", "/"}));
}

TEST_F(ExplainTest, AnOddNameIsShownWithoutItsControlCharacters) {
  add({"move", "--title", "Pictures", "--types", "public.image"});
  EXPECT_THAT(home_.succeed({"explain", home_.file("a\n\x1b[31m.txt")}), Not(HasSubstr("\x1b")));
}

TEST(TypesTest, ATypeComesWithAllThatItConformsToTheNearestFirst) {
  ProgramHome home;
  const auto json = home.json({"types", "--json", "/nowhere/a.png", home.folder("folder")});
  EXPECT_EQ(json[0]["path"], "/nowhere/a.png");
  EXPECT_EQ(json[0]["type"], "public.png");
  EXPECT_EQ(json[0]["conformsTo"][0], "public.image");
  EXPECT_THAT(json[0]["conformsTo"].get<std::vector<std::string>>(),
              testing::Contains("public.data"));
  EXPECT_EQ(json[1]["type"], "public.folder");
}

TEST(TypesTest, AnUnknownExtensionHasATypeOfItsOwn) {
  ProgramHome home;
  EXPECT_THAT(home.succeed({"types", "/nowhere/a.qqqqq"}),
              StartsWith("/nowhere/a.qqqqq\n    dyn.a"));
}

TEST(TypesTest, AFileIsNeeded) {
  ProgramHome home;
  expectUsageError(home.tervano({"types"}));
}

}  // namespace tervano::test
