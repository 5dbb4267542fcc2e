#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "actions/register_action_classes.h"
#include "actions/tv_move_to_action.h"
#include "companion/action_exchange.h"
#include "companion/action_store.h"
#include "companion/command.h"
#include "model/tv_action_groups.h"
#include "platform/file_manager.h"
#include "tests/companion/terminal.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// Actions leave a home, and arrive in it when it has forgotten them.
class ExchangeTest : public testing::Test {
 protected:
  std::string add(std::vector<std::string> words) {
    words.insert(words.begin(), "add");
    return home_.succeed(std::move(words));
  }
  // One action of every kind, two of them in a group.
  void addEveryKind() {
    const auto group = add({"group-move", "--title", "Group", "--types", "public.data"});
    add({"move", "--to", home_.folder("to"), "--title", "\"Quotes\" & 工作\n", "--into", group});
    home_.succeed({"disable", add({"copy", "--to", home_.folder("to"), "--into", group})});
    add({"mail"});
    add({"new-file", "--template", home_.file("t.md"), "--executable", "yes"});
    add({"convert", "--format", "jpeg"});
    add({"script", "--file", home_.file("script.sh", "echo hello\n"), "--description", "Says"});
    add({"user-script", "--file", home_.file("script.py", "def runWithPaths(paths): pass\n")});
    add({"bundled", "Copy Path"});
    add({"secure-delete"});
    add({"reset-app"});
    add({"compress"});
    add({"open-folder", "--to", home_.folder("to")});
    // Written once more, for an action without an icon has an empty one when it is read again.
    home_.succeed({"enable", add({"open-with", "--app", home_.file("bin/program")})});
  }
  void forgetList() { fs::remove(home_.listFile()); }
  // The list as it is archived, all fields of all actions.
  std::string everyField() const {
    return home_.succeed({"archive", "dump", "--json", home_.listFile()});
  }

  ProgramHome home_;
};

class ExchangeFormTest : public ExchangeTest, public testing::WithParamInterface<std::string> {};

}  // namespace

TEST_P(ExchangeFormTest, EveryKindArrivesWithEveryField) {
  addEveryKind();
  const auto file = home_.path() + "/actions." + GetParam();
  home_.succeed({"export", file});
  const auto before = everyField();
  forgetList();
  const auto outcome = home_.tervano({"import", "--yes", file});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(everyField(), before);
}

INSTANTIATE_TEST_SUITE_P(Forms, ExchangeFormTest, testing::Values("plist", "xml", "json"),
                         [](const auto& info) { return info.param; });

TEST_F(ExchangeTest, TheExtensionTellsTheFormUnlessTheOptionDoes) {
  add({"mail"});
  home_.succeed({"export", home_.path() + "/a.json"});
  home_.succeed({"export", home_.path() + "/a.xml"});
  home_.succeed({"export", home_.path() + "/a"});
  home_.succeed({"export", "--form", "json", home_.path() + "/b.plist"});
  EXPECT_THAT(contentsOf(home_.path() + "/a.json"), StartsWith("["));
  EXPECT_THAT(contentsOf(home_.path() + "/a.xml"), StartsWith("<?xml"));
  EXPECT_THAT(contentsOf(home_.path() + "/a"), StartsWith("bplist00"));
  EXPECT_THAT(contentsOf(home_.path() + "/b.plist"), StartsWith("["));
  expectUsageError(home_.tervano({"export", "--form", "yaml", home_.path() + "/c"}));
}

TEST_F(ExchangeTest, OnlyTheNamedActionsAreExported) {
  add({"mail"});
  const auto uid = add({"move", "--title", "This one"});
  const auto json = home_.json({"export", "--form", "json", "-", uid});
  ASSERT_EQ(json.size(), 1U);
  EXPECT_EQ(json[0]["class"], "TVMoveToAction");
  EXPECT_EQ(json[0]["title"], "This one");
  EXPECT_EQ(json[0]["uid"], uid);
}

TEST_F(ExchangeTest, AFileThatIsThereStaysAsItIs) {
  add({"mail"});
  const auto file = home_.file("mine.json", "mine");
  expectFailure(home_.tervano({"export", file}));
  EXPECT_EQ(contentsOf(file), "mine");
}

TEST_F(ExchangeTest, AFileThatIsMadeMeanwhileStaysAsItIs) {
  add({"mail"});
  // Makes it as soon as the actions are written.
  class OtherWriter : public ForwardingFileManager {
   public:
    OtherWriter(FileManager& real, std::string file)
        : ForwardingFileManager(real), file_(std::move(file)) {}
    std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                         bool atomically) override {
      auto error = ForwardingFileManager::writeDataToFile(data, path, atomically);
      std::ofstream(file_) << "mine";
      return error;
    }

   private:
    std::string file_;
  };
  ClassRegistry registry;
  registerActionClasses(registry);
  ScopedPlatform platform(&registry);
  const std::string folder = home_.folder("exports");
  OtherWriter files(*platform.services().fileManager, folder + "/a.json");
  platform.services().fileManager = &files;
  try {
    exchangeCommands().front().run({folder + "/a.json"});
    ADD_FAILURE() << "it was exported";
  } catch (const CommandError& error) {
    EXPECT_EQ(std::string(error.what()), folder + "/a.json is there already and stays as it is.");
  }
  EXPECT_EQ(contentsOf(folder + "/a.json"), "mine");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
}

TEST_F(ExchangeTest, WithoutATerminalAndWithoutYesNothingIsImported) {
  addEveryKind();
  const auto file = home_.path() + "/a.plist";
  home_.succeed({"export", file});
  forgetList();
  const auto outcome = home_.tervano({"import", file});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Nothing was imported"));
  EXPECT_FALSE(exists(home_.listFile()));
}

TEST_F(ExchangeTest, EveryScriptAndCommandIsShownBeforeTheQuestion) {
  addEveryKind();
  const auto file = home_.path() + "/a.plist";
  home_.succeed({"export", file});
  const auto errors = home_.tervano({"import", file}).errors;
  EXPECT_THAT(errors, HasSubstr("runs /bin/bash " + home_.path() +
                                "/script.sh with the files\n"
                                "    | echo hello\n"));
  EXPECT_THAT(errors, HasSubstr("calls runWithPaths of " + home_.path() +
                                "/script.py\n    | def runWithPaths(paths): pass\n"));
  EXPECT_THAT(errors, HasSubstr("overwrites and removes the files for good"));
  EXPECT_THAT(errors, HasSubstr("moves the files to " + home_.path() + "/to"));
  EXPECT_THAT(errors, HasSubstr("starts " + home_.path() + "/bin/program"));
  EXPECT_THAT(errors, HasSubstr("makes files from " + home_.path() + "/t.md"));
}

TEST_F(ExchangeTest, ALongScriptIsShownToItsEnd) {
  std::string script;
  while (script.size() < 200'000) script += "true # as harmless as all the lines before\n";
  add({"script", "--file", home_.file("script.sh", script + "rm -rf /\n")});
  const auto file = home_.path() + "/a.plist";
  home_.succeed({"export", file});
  EXPECT_THAT(home_.tervano({"import", file}).errors, HasSubstr("| rm -rf /\n"));
}

TEST_F(ExchangeTest, AScriptThatIsTooLongIsNotShownInPartAndTheQuestionSaysSo) {
  const auto script = home_.file("script.sh", std::string(1'048'577, '\n'));
  add({"script", "--file", script});
  const auto file = home_.path() + "/a.plist";
  home_.succeed({"export", file});
  Terminal terminal(becomingTervano({"import", file}));
  const auto text = terminal.readUntil("Add these actions to the list? [y/N] ");
  EXPECT_THAT(text, HasSubstr("runs /bin/bash " + script + " with the files"));
  EXPECT_THAT(text, HasSubstr("NOT SHOWN: that file is longer than a megabyte"));
  EXPECT_THAT(text, HasSubstr("NOT ALL OF THIS WAS SHOWN"));
  EXPECT_THAT(text, Not(HasSubstr("| ")));
  terminal.type("\n");
  EXPECT_EQ(terminal.waitForExit(), 1);
}

TEST_F(ExchangeTest, AScriptCannotHideBehindControlCharacters) {
  add({"script", "--file", home_.file("script.sh", "rm -rf /\r\x1b[2Kecho fine\n")});
  const auto file = home_.path() + "/a.plist";
  home_.succeed({"export", file});
  const auto errors = home_.tervano({"import", file}).errors;
  EXPECT_THAT(errors, HasSubstr("| rm -rf /"));
  EXPECT_THAT(errors, Not(HasSubstr("\x1b")));
  EXPECT_THAT(errors, Not(HasSubstr("\r")));
}

TEST_F(ExchangeTest, OnATerminalAYesImportsAndANoDoesNot) {
  const auto uid = add({"move", "--title", "Away"});
  const auto file = home_.path() + "/a.plist";
  home_.succeed({"export", file});
  home_.succeed({"remove", uid});
  {
    Terminal terminal(becomingTervano({"import", file}));
    terminal.readUntil("Add these actions to the list? [y/N] ");
    terminal.type("n\n");
    EXPECT_EQ(terminal.waitForExit(), 1);
    EXPECT_EQ(home_.titles(), "");
  }
  Terminal terminal(becomingTervano({"import", file}));
  terminal.readUntil("[y/N] ");
  terminal.type("y\n");
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_THAT(terminal.rest(), HasSubstr(uid));
  EXPECT_EQ(home_.titles(), "Away");
}

TEST_F(ExchangeTest, AUidThatIsTakenIsReplacedAndThatIsSaid) {
  const auto group = add({"group-move", "--title", "Group"});
  const auto member = add({"move", "--title", "Member", "--into", group});
  const auto file = home_.path() + "/a.json";
  home_.succeed({"export", file});
  const auto outcome = home_.tervano({"import", "--yes", file});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("Note: \"Group\" gets a new uid"));
  EXPECT_THAT(outcome.errors, HasSubstr("Note: \"Member\" gets a new uid"));
  const auto list = home_.json({"list", "--json"});
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0]["uid"], group);
  EXPECT_EQ(list[0]["actions"][0]["uid"], member);
  EXPECT_NE(list[1]["uid"], group);
  EXPECT_NE(list[1]["actions"][0]["uid"], member);
  EXPECT_EQ(outcome.output, list[1]["uid"].get<std::string>() + "\n");
}

TEST_F(ExchangeTest, AUidThatIsTwiceInTheFileIsReplacedOnce) {
  const auto uid = add({"move", "--title", "Away"});
  const auto action = home_.json({"export", "--form", "json", "-"})[0].dump();
  const auto file = home_.file("twice.json", "[" + action + "," + action + "]");
  forgetList();
  EXPECT_EQ(home_.tervano({"import", "--yes", file}).status, 0);
  const auto list = home_.json({"list", "--json"});
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0]["uid"], uid);
  EXPECT_NE(list[1]["uid"], uid);
}

TEST_F(ExchangeTest, OneObjectThatIsTwiceInTheFileBecomesTwoActions) {
  ClassRegistry registry;
  registerActionClasses(registry);
  const ScopedPlatform platform(&registry);
  const auto move = action<TVMoveToAction>();
  const auto group = action<TVMoveActionGroup>();
  group->updateActions(ActionList{move, move});
  const auto imported =
      importedActions(exportedActions({group, move, group}, ExchangeForm::archive));
  freshenUids(imported, {});
  std::set<std::string> uids;
  std::size_t count = 0;
  for (const auto& entry : imported) {
    uids.insert(entry->uid().value());
    ++count;
    const auto* const members = dynamic_cast<const TVActionGroup*>(entry.get());
    if (members == nullptr) continue;
    for (const auto& member : *members->workingActionsArray()) {
      uids.insert(member->uid().value());
      ++count;
    }
  }
  EXPECT_EQ(count, 7U);
  EXPECT_EQ(uids.size(), 7U);
}

TEST_F(ExchangeTest, WhatIsNoFileOfActionsIsRefusedAndNothingIsChanged) {
  add({"mail"});
  const std::string before = contentsOf(home_.listFile());
  const std::string deep(100'000, '[');
  for (const std::string& content : std::vector<std::string>{
           "", "nonsense", "{", "[1, 2]", "[]", R"({"class": "TVNoSuchAction"})",
           R"([{"title": "without a class"}])", R"([{"class": "TVMoveToAction", "title": 7}])",
           R"([{"class": "TVMoveToAction", "icon": {"$data": "x"}}])", R"([{"class": "NSURL"}])",
           "bplist00 nonsense", "<?xml version=\"1.0\"?><plist>", deep,
           R"([{"class": "TVMoveActionGroup", "actions": [{"class": "TVMoveActionGroup"}]}])"}) {
    SCOPED_TRACE(content.substr(0, 60));
    const auto outcome = home_.tervano({"import", "--yes", home_.file("file", content)});
    EXPECT_EQ(outcome.status, 1);
    expectOneSentence(outcome.errors);
    EXPECT_EQ(contentsOf(home_.listFile()), before);
  }
  expectFailure(home_.tervano({"import", "--yes", home_.path() + "/missing"}));
}

TEST(VersionsTest, EachChangeKeepsWhatItReplacedTheLastTenOfThem) {
  ProgramHome home;
  EXPECT_EQ(home.succeed({"versions"}), "");
  for (int i = 0; i < 13; ++i) home.succeed({"add", "move", "--title", std::to_string(i)});
  const auto text = home.succeed({"versions"});
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 9);
  EXPECT_THAT(text, StartsWith("12  "));
  EXPECT_THAT(text, HasSubstr("12 entries\n"));
  EXPECT_THAT(text, HasSubstr("\n3  "));
  EXPECT_THAT(text, Not(HasSubstr("\n2  ")));
}

TEST(VersionsTest, ARestoredVersionIsTheListAgainAndTheReplacedOneAVersion) {
  ProgramHome home;
  home.succeed({"add", "move", "--title", "A"});
  home.succeed({"add", "move", "--title", "B"});
  home.succeed({"restore", "--yes"});
  EXPECT_EQ(home.titles(), "A");
  home.succeed({"restore", "--yes"});
  EXPECT_EQ(home.titles(), "A B");
  home.succeed({"restore", "--yes", "1"});
  EXPECT_EQ(home.titles(), "A");
  expectUsageError(home.tervano({"restore", "--yes", "77"}));
}

TEST(VersionsTest, WithoutAYesNothingIsRestored) {
  ProgramHome home;
  home.succeed({"add", "move", "--title", "A"});
  home.succeed({"add", "move", "--title", "B"});
  expectFailure(home.tervano({"restore"}));
  Terminal terminal(becomingTervano({"restore"}));
  terminal.readUntil("Replace the list by version 1 with 1 entry? [y/N] ");
  terminal.type("\n");
  EXPECT_EQ(terminal.waitForExit(), 1);
  EXPECT_EQ(home.titles(), "A B");
}

TEST(VersionsTest, AChangeThatFailsKeepsNoVersion) {
  ProgramHome home;
  home.succeed({"add", "move"});
  home.tervano({"enable", "0123456789ABCDEF0123456789ABCDEF"});
  EXPECT_EQ(home.succeed({"versions"}), "");
}

class BrokenListTest : public testing::Test {
 protected:
  BrokenListTest() {
    home_.succeed({"add", "move", "--title", "A"});
    home_.succeed({"add", "move", "--title", "B"});
    std::ofstream(home_.listFile(), std::ios::trunc) << "broken";
  }
  std::string aside() const { return home_.container() + "/Unreadable Actions.plist"; }

  ProgramHome home_;
};

TEST_F(BrokenListTest, EveryCommandSaysWhereHelpIs) {
  const auto outcome = home_.tervano({"list"});
  expectFailure(outcome);
  EXPECT_THAT(outcome.errors, HasSubstr("\"tervano restore\" offers"));
}

TEST_F(BrokenListTest, ItStaysAsItIsWithoutAYes) {
  expectFailure(home_.tervano({"restore"}));
  EXPECT_EQ(contentsOf(home_.listFile()), "broken");
  EXPECT_FALSE(exists(aside()));
}

TEST_F(BrokenListTest, AYesSetsItAsideAndPutsTheLastGoodVersionBack) {
  Terminal terminal(becomingTervano({"restore"}));
  const auto text = terminal.readUntil("[y/N] ");
  EXPECT_THAT(text, StartsWith("The action list cannot be read: "));
  EXPECT_THAT(text, testing::EndsWith(".\r\nSet it aside and take version 1 with 1 entry? [y/N] "));
  EXPECT_THAT(text, Not(HasSubstr("tervano restore")));
  terminal.type("y\n");
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_EQ(contentsOf(aside()), "broken");
  EXPECT_EQ(home_.titles(), "A");
}

TEST_F(BrokenListTest, AVersionThatIsBrokenTooIsPassedOver) {
  std::ofstream(home_.container() + "/Versions/2.plist") << "broken";
  EXPECT_THAT(home_.succeed({"versions"}), HasSubstr("cannot be read\n1  "));
  expectFailure(home_.tervano({"restore", "--yes", "2"}));
  EXPECT_EQ(contentsOf(home_.listFile()), "broken");
  home_.succeed({"restore", "--yes"});
  EXPECT_EQ(home_.titles(), "A");
}

TEST_F(BrokenListTest, NothingThatWasSetAsideIsReplaced) {
  home_.succeed({"restore", "--yes"});
  std::ofstream(home_.listFile(), std::ios::trunc) << "broken again";
  home_.succeed({"restore", "--yes"});
  EXPECT_EQ(contentsOf(aside()), "broken");
  EXPECT_EQ(contentsOf(home_.container() + "/Unreadable Actions 2.plist"), "broken again");
}

TEST_F(BrokenListTest, WithoutAVersionAYesGivesAnEmptyList) {
  fs::remove_all(home_.container() + "/Versions");
  EXPECT_THAT(home_.tervano({"restore"}).errors, HasSubstr("Nothing was changed"));
  home_.succeed({"restore", "--yes"});
  EXPECT_EQ(home_.titles(), "");
  EXPECT_EQ(contentsOf(aside()), "broken");
}

}  // namespace tervano::test
