#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "actions/register_action_classes.h"
#include "actions/tv_move_to_action.h"
#include "archive/archiver.h"
#include "model/action_list.h"
#include "model/tv_action_groups.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"

namespace tervano::test {

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class CommandsTest : public testing::Test {
 protected:
  // Runs the program with log lines allowed before its own sentence.
  void expectFailureWithLog(const std::vector<std::string>& words, const std::string& sentence) {
    const auto outcome = home_.tervano(words);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, EndsWith("tervano: " + sentence + "\n"));
  }
  std::string addMove(const std::string& folder) {
    return home_.succeed({"add", "move", "--to", folder});
  }

  // Puts an archive in the place of the list.
  void writeList(const std::string& archive) const {
    std::filesystem::create_directories(home_.container());
    std::ofstream(home_.listFile(), std::ios::binary) << archive;
  }
  static std::string archiveOf(const ActionList& actions) {
    ClassRegistry registry;
    registerActionClasses(registry);
    const Data bytes = Archiver::archivedDataWithRootObject(arrayOfActions(actions), registry);
    return {bytes.begin(), bytes.end()};
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(CommandsTest, ListOfNothingIsEmpty) {
  EXPECT_EQ(home_.succeed({"list"}), "");
  EXPECT_EQ(home_.succeed({"list", "--json"}), "[]");
}

TEST_F(CommandsTest, ListShowsEachActionInOneLine) {
  const auto group = home_.succeed({"add", "group-move", "--title", "G\nH"});
  const auto uid =
      home_.succeed({"add", "move", "--title", "A", "--types", "public.image", "--into", group});
  home_.succeed({"disable", uid});
  EXPECT_EQ(home_.succeed({"list"}), group + "  G\\nH  [TVMoveActionGroup]\n    " + uid +
                                         "  A  [TVMoveToAction, disabled, every item is "
                                         "public.image]");
}

TEST_F(CommandsTest, NothingInAListCanControlTheTerminal) {
  const std::string uid = "\x1b[31m-a-uid-of-another-system!!!";
  const auto move = action<TVMoveToAction>();
  move->setTitle("a\x1b[31m");
  move->setFileTypes({{"b\x1b[31m", "c\n"}});
  move->setDestinationURL(Url::fileURLWithPath("/d\x1b", true));
  std::string archive = archiveOf({move});
  ASSERT_EQ(uid.size(), move->uid()->size());
  archive.replace(archive.find(*move->uid()), uid.size(), uid);
  writeList(archive);
  EXPECT_EQ(home_.succeed({"list"}),
            "\\x1b[31m-a-uid-of-another-system!!!  a\\x1b[31m  ->  /d\\x1b  "
            "[TVMoveToAction, every item is b\\x1b[31m and c\\n]");
}

TEST_F(CommandsTest, ListAsJsonHasTheSameMembersForEveryAction) {
  home_.succeed({"add", "move"});
  home_.succeed({"add", "group-move"});
  for (const auto& entry : home_.json({"list", "--json"})) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : entry.items()) keys.push_back(key);
    EXPECT_THAT(keys,
                testing::ElementsAre("uid", "class", "title", "enabled", "isDefault", "fileTypes",
                                     "actionDescription", "destination", "actions"));
  }
}

TEST_F(CommandsTest, ShowAsJsonHasEveryArchivedField) {
  const auto uid = addMove(home_.folder("to"));
  const auto json = home_.json({"show", uid, "--json"});
  std::vector<std::string> keys;
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  EXPECT_THAT(keys, testing::UnorderedElementsAre("class", "uid", "title", "enabled", "isDefault",
                                                  "fileTypes", "actionDescription", "icon",
                                                  "destinationURL"));
  EXPECT_EQ(json["class"], "TVMoveToAction");
}

TEST_F(CommandsTest, ShowOfAGroupHasItsMembers) {
  const auto group = home_.succeed({"add", "group-move"});
  const auto uid = home_.succeed({"add", "move", "--into", group});
  EXPECT_EQ(home_.json({"show", group, "--json"})["actions"][0]["uid"], uid);
}

TEST_F(CommandsTest, GroupsThatHoldOneAnotherAgainAndAgainAreListedOnce) {
  constexpr int kGroups = 40;
  std::shared_ptr<TVActionGroup> inner;
  for (int number = 0; number < kGroups; ++number) {
    const auto outer = std::make_shared<TVMoveActionGroup>();
    outer->generateUID();
    outer->updateActions(inner == nullptr ? ActionList() : ActionList{inner, inner});
    inner = outer;
  }
  writeList(archiveOf({inner}));
  EXPECT_EQ(home_.json({"list", "--json"})[0]["actions"].size(), 2U);
  const std::string lines = home_.succeed({"list"});
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n') + 1, 2 * kGroups - 1);
}

TEST_F(CommandsTest, AnActionWithTheUidOfAnotherSystemCanBeShownAndRemoved) {
  const std::string foreign = "a-uid-in-the-form-of-another-one";
  const auto added = std::make_shared<TVMoveToAction>();
  added->generateUID();
  added->setTitle("A");
  std::string archive = archiveOf({added});
  ASSERT_EQ(foreign.size(), added->uid()->size());
  archive.replace(archive.find(*added->uid()), foreign.size(), foreign);
  writeList(archive);
  EXPECT_EQ(home_.json({"show", foreign, "--json"})["uid"], foreign);
  home_.succeed({"remove", foreign});
  EXPECT_EQ(home_.succeed({"list"}), "");
}

TEST_F(CommandsTest, ShowWithoutJsonIsForPeople) {
  const auto uid = home_.succeed({"add", "move", "--title", "A", "--description", "Does\nit."});
  EXPECT_EQ(home_.succeed({"show", uid}), uid + "  A  [TVMoveToAction]\nDoes\\nit.");
}

TEST_F(CommandsTest, OutputThatCannotBeWrittenIsAFailure) {
  home_.succeed({"add", "move"});
  ProgramStart start;
  start.arguments = {"list"};
  start.prepare = [] {
    const int full = open("/dev/full", O_WRONLY);
    return dup2(full, STDOUT_FILENO) == STDOUT_FILENO;
  };
  expectFailure(home_.start(start));
}

TEST_F(CommandsTest, RunMovesTheFilesAndSucceeds) {
  const auto uid = addMove(home_.folder("to"));
  EXPECT_EQ(home_.tervano({"run", uid, home_.file("a.txt"), home_.file("b.txt")}).status, 0);
  EXPECT_TRUE(exists(home_.path() + "/to/a.txt"));
  EXPECT_TRUE(exists(home_.path() + "/to/b.txt"));
}

TEST_F(CommandsTest, RunTakesRelativePathsAndNamesBeginningWithAHyphen) {
  const auto uid = addMove(home_.folder("to"));
  home_.file("-r");
  ProgramStart start;
  start.arguments = {"run", uid, "--", "-r"};
  start.folder = home_.path();
  EXPECT_EQ(home_.start(start).status, 0);
  EXPECT_TRUE(exists(home_.path() + "/to/-r"));
}

TEST_F(CommandsTest, RunMovesNamesOfAnyBytes) {
  const auto uid = addMove(home_.folder("to"));
  for (const std::string name : {"a \"b\" 'c'", "line\nbreak", "\xff\xfe", "%41"}) {
    EXPECT_EQ(home_.tervano({"run", uid, home_.file(name, name)}).status, 0);
    EXPECT_EQ(contentsOf(home_.path() + "/to/" + name), name);
  }
}

TEST_F(CommandsTest, RunWithoutPathsSucceeds) {
  EXPECT_EQ(home_.tervano({"run", addMove(home_.folder("to"))}).status, 0);
}

TEST_F(CommandsTest, RunOfAMissingFileFailsWithTheReason) {
  const auto uid = addMove(home_.folder("to"));
  const auto outcome = home_.tervano({"run", uid, home_.path() + "/missing"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, EndsWith("No such file or directory.\n"));
}

TEST_F(CommandsTest, RunToAMissingFolderNamesIt) {
  const auto folder = home_.folder("to");
  const auto uid = addMove(folder);
  std::filesystem::remove(folder);
  expectFailureWithLog({"run", uid, home_.file("a.txt")},
                       "The destination folder of \"to\" does not exist: " + folder + ".");
  EXPECT_TRUE(exists(home_.path() + "/a.txt"));
}

TEST_F(CommandsTest, RunOfACopyActionCopies) {
  const auto uid = home_.succeed({"add", "copy", "--to", home_.folder("to")});
  EXPECT_EQ(home_.tervano({"run", uid, home_.file("a.txt", "a")}).status, 0);
  EXPECT_EQ(contentsOf(home_.path() + "/to/a.txt"), "a");
  EXPECT_EQ(contentsOf(home_.path() + "/a.txt"), "a");
}

TEST_F(CommandsTest, RunOfAGroupEndsWithASentence) {
  const auto uid = home_.succeed({"add", "group-move", "--title", "G"});
  expectFailureWithLog({"run", uid},
                       "\"G\" is of a kind that does nothing when it is run (TVMoveActionGroup).");
}

TEST_F(CommandsTest, RunFindsAMemberOfAGroup) {
  const auto group = home_.succeed({"add", "group-move"});
  const auto uid = home_.succeed({"add", "move", "--to", home_.folder("to"), "--into", group});
  EXPECT_EQ(home_.tervano({"run", uid, home_.file("a.txt")}).status, 0);
  EXPECT_TRUE(exists(home_.path() + "/to/a.txt"));
}

TEST_F(CommandsTest, RunOfADisabledActionRunsIt) {
  const auto uid = addMove(home_.folder("to"));
  home_.succeed({"disable", uid});
  EXPECT_EQ(home_.tervano({"run", uid, home_.file("a.txt")}).status, 0);
}

TEST_F(CommandsTest, OpenRunsAHandOff) {
  const auto uid = addMove(home_.folder("to"));
  const std::string name = "01234567-89AB-CDEF-0123-456789ABCDEF";
  std::ofstream(home_.container() + "/" + name)
      << "{\"paths\": [\"" << home_.file("a.txt") << "\"]}";
  const std::string url = "tervano://runaction?action=" + uid + "&file=" + name;
  EXPECT_EQ(home_.tervano({"open", url}).status, 0);
  EXPECT_TRUE(exists(home_.path() + "/to/a.txt"));
  EXPECT_FALSE(exists(home_.container() + "/" + name));
  // The second time its file is gone.
  EXPECT_EQ(home_.tervano({"open", url}).status, 1);
}

TEST_F(CommandsTest, OpenOfAnythingElseIsAUsageError) {
  for (const std::string url : {"tervano://runaction", "file:///etc/hostname", ""}) {
    EXPECT_EQ(home_.tervano({"open", url}).status, 2) << url;
  }
}

TEST_F(CommandsTest, OpenTakesAHandOffFileOfTheWriterItself) {
  // "choose" writes the file also when nothing is registered for the URL.
  home_.home().setVariable("XDG_DATA_DIRS", home_.folder("none"));
  const auto uid = addMove(home_.folder("to"));
  home_.tervano({"choose", uid, home_.file("a \"b\"\n/工作.txt")});
  std::string name;
  for (const auto& entry : std::filesystem::directory_iterator(home_.container())) {
    if (entry.path().filename().string().size() == 36) name = entry.path().filename().string();
  }
  const auto outcome =
      home_.tervano({"open", "tervano://runaction?action=" + uid + "&file=" + name});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_TRUE(exists(home_.path() + "/to/工作.txt"));
}

TEST_F(CommandsTest, ServiceWithoutABusRunsItsUrlsAndLeaves) {
  const auto uid = addMove(home_.folder("to"));
  const std::string name = "01234567-89AB-CDEF-0123-456789ABCDEF";
  std::ofstream(home_.container() + "/" + name)
      << "{\"paths\": [\"" << home_.file("a.txt") << "\"]}";
  const auto outcome = home_.tervano(
      {"service", "--idle-seconds", "0", "tervano://runaction?action=" + uid + "&file=" + name});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_TRUE(exists(home_.path() + "/to/a.txt"));
}

TEST_F(CommandsTest, ServiceRemovesHandOffFilesOfYesterdayAtItsStart) {
  home_.succeed({"add", "move"});
  const std::string old = home_.container() + "/01234567-89AB-CDEF-0123-456789ABCDEF";
  std::ofstream(old) << "{}";
  std::filesystem::last_write_time(
      old, std::filesystem::file_time_type::clock::now() - std::chrono::hours(25));
  home_.tervano({"service", "--idle-seconds", "0"});
  EXPECT_FALSE(exists(old));
  EXPECT_TRUE(exists(home_.listFile()));
}

TEST_F(CommandsTest, PrefsShowsAllPreferencesWithTheirDefaults) {
  EXPECT_EQ(home_.json({"prefs", "--json"}).dump(),
            R"({"suppressActionDeletionAlert":false,"didCreateDefaultTemplates":false,)"
            R"("didCreateDefaultActions":false,"didCreateDefaultActions2":false,)"
            R"("showIconInToolbar":true,"useBlackAndWhiteIcon":false,"useSubmenu":true,)"
            R"("playAlertOnCompletion":false,"showFileOnMoveCopyComplete":true,)"
            R"("disableActionNotifications":false,"overwriteDestinationFile":false})");
  EXPECT_THAT(home_.succeed({"prefs"}), HasSubstr("\nuseSubmenu yes\n"));
}

TEST_F(CommandsTest, PreferenceIsSetAndRead) {
  EXPECT_EQ(home_.succeed({"prefs", "get", "overwriteDestinationFile"}), "no");
  EXPECT_EQ(home_.succeed({"prefs", "set", "overwriteDestinationFile", "yes"}), "");
  EXPECT_EQ(home_.succeed({"prefs", "get", "overwriteDestinationFile"}), "yes");
  EXPECT_EQ(home_.succeed({"prefs", "set", "overwriteDestinationFile", "no"}), "");
  EXPECT_EQ(home_.succeed({"prefs", "get", "overwriteDestinationFile"}), "no");
}

TEST_F(CommandsTest, ShowingPreferencesWritesNothing) {
  home_.succeed({"prefs"});
  EXPECT_TRUE(std::filesystem::is_empty(home_.home().configHome()));
}

TEST_F(CommandsTest, PreferenceThatCannotBeSavedIsAFailure) {
  giveToNobody(home_.path());
  ASSERT_EQ(geteuid(), 0U) << "this test takes a folder away from the user";
  ASSERT_EQ(chown(home_.home().configHome().c_str(), 0, 0), 0);
  ASSERT_EQ(chmod(home_.home().configHome().c_str(), 0755), 0);
  ProgramStart start;
  start.arguments = {"prefs", "set", "useSubmenu", "no"};
  start.prepare = becomeNobody;
  const auto outcome = home_.start(start);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, EndsWith("tervano: The preference could not be saved.\n"));
}

namespace {

// Posts until the watcher says its first line, since it tells nobody when it begins to listen.
std::optional<std::string> firstLine(ChildProcess& watch, const ProgramHome& home,
                                     const std::string& identifier) {
  for (int turn = 0; turn < 100; ++turn) {
    home.succeed({"post", identifier});
    if (auto line = watch.hear(0.1)) return line;
  }
  return std::nullopt;
}

}  // namespace

TEST_F(CommandsTest, WatchShowsWhatOtherProcessesPost) {
  auto watch = startProgram(TERVANO_PROGRAM, {"watch"});
  EXPECT_EQ(firstLine(watch, home_, "some message"), "some message");
  home_.succeed({"add", "move"});
  std::optional<std::string> line;
  do {
    line = watch.hear();
  } while (line == "some message");
  EXPECT_EQ(line, "TVDidChangeNotification");
  home_.succeed({"prefs", "set", "useSubmenu", "no"});
  EXPECT_EQ(watch.hear(), "NSUserDefaultsDidChangeNotification");
  watch.kill(SIGTERM);
  EXPECT_EQ(watch.waitForExit(), -SIGTERM);
}

TEST_F(CommandsTest, WatchOfSomeIdentifiersShowsNoOther) {
  auto watch = startProgram(TERVANO_PROGRAM, {"watch", "wanted"});
  EXPECT_EQ(firstLine(watch, home_, "wanted"), "wanted");
  home_.succeed({"post", "unwanted"});
  home_.succeed({"post", "wanted"});
  EXPECT_EQ(watch.hear(), "wanted");
}

TEST_F(CommandsTest, PostedIdentifierWithALineBreakIsOneLine) {
  auto watch = startProgram(TERVANO_PROGRAM, {"watch"});
  EXPECT_EQ(firstLine(watch, home_, "a\nb/../c"), "a\\nb/../c");
}

TEST_F(CommandsTest, PostWritesNoMessageFile) {
  home_.succeed({"post", "name"});
  EXPECT_FALSE(exists(home_.container() + "/wormhole/name.archive"));
}

TEST_F(CommandsTest, DumpShowsTheActionList) {
  const auto uid = home_.succeed({"add", "move", "--title", "A"});
  EXPECT_THAT(home_.succeed({"archive", "dump", home_.listFile()}),
              HasSubstr("uid: \"" + uid + "\""));
  const auto json = home_.json({"archive", "dump", home_.listFile(), "--json"});
  EXPECT_EQ(json[0]["$class"], "TVMoveToAction");
  EXPECT_EQ(json[0]["title"], "A");
}

TEST_F(CommandsTest, DumpShowsAnArchiveOfClassesThatAreUnknownHere) {
  home_.succeed({"add", "move", "--title", "A"});
  std::string content = contentsOf(home_.listFile());
  for (auto at = content.find("TVMoveToAction"); at != std::string::npos;
       at = content.find("TVMoveToAction", at)) {
    content.replace(at, 2, "XX");
  }
  const auto json = home_.json({"archive", "dump", home_.file("x", content), "--json"});
  EXPECT_EQ(json[0]["$class"], "XXMoveToAction");
}

TEST_F(CommandsTest, DumpShowsAnArchiveOfPlainValues) {
  const Data data = Archiver::archivedDataWithRootObject(
      Value(Value::Array{Value("a\nb"), Value(true), Value()}), ClassRegistry());
  const auto file = home_.file("x", {data.begin(), data.end()});
  EXPECT_THAT(home_.succeed({"archive", "dump", file}), HasSubstr("- \"a\\nb\"\n- true"));
}

TEST_F(CommandsTest, DumpOfAnythingElseFailsInOneSentence) {
  expectFailure(home_.tervano({"archive", "dump", "/etc/hostname"}));
  expectFailure(home_.tervano({"archive", "dump", "/no/such/file"}));
  expectFailure(home_.tervano({"archive", "dump", "/"}));
  expectFailure(home_.tervano({"archive", "dump", "/dev/null"}));
  expectFailure(home_.tervano({"archive", "dump", home_.file("bad\n\xff", "x")}));
}

TEST_F(CommandsTest, DumpOfAPlainPropertyListFailsInOneSentence) {
  expectFailure(home_.tervano(
      {"archive", "dump",
       home_.file("x", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>")}));
}

}  // namespace tervano::test
