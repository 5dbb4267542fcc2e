#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "tests/resources/default_script_test.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

bool isExecutable(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && (status.st_mode & 0111) == 0111;
}

// --- Make Executable

class MakeExecutableTest : public DefaultScriptTest {
 protected:
  const std::string title_ = "Make Executable";
};

TEST_F(MakeExecutableTest, MarksFilesOfEveryName) {
  const auto paths = makeHostile();
  expectSilent(run(title_, paths));
  for (const auto& path : paths) EXPECT_TRUE(isExecutable(path)) << path;
}

TEST_F(MakeExecutableTest, TakesThousandsOfFiles) {
  std::vector<std::string> paths;
  for (int number = 0; number < 5000; ++number) {
    paths.push_back(make("a rather long name of a file, number " + std::to_string(number), ""));
  }
  expectSilent(run(title_, paths));
  for (const auto& path : paths) ASSERT_TRUE(isExecutable(path));
}

TEST_F(MakeExecutableTest, RefusesAFolderAndDoesTheRest) {
  const auto folder = makeFolder("folder");
  const auto file = make("file");
  expectProblem(run(title_, {folder, file}), title_, "\"folder\" is not a file.");
  EXPECT_TRUE(isExecutable(file));
}

TEST_F(MakeExecutableTest, SaysThatALinkLeadsNowhere) {
  fs::create_symlink("nowhere", at("link"));
  expectProblem(run(title_, {at("link")}), title_, "\"link\" is a link that leads nowhere.");
}

TEST_F(MakeExecutableTest, SaysWhyAFileOfAnotherUserStays) {
  const auto mine = make("mine");
  const auto other = make("other");
  if (geteuid() != 0) GTEST_SKIP() << "needs root for a file of another user";
  giveToNobody(homePath());
  ASSERT_EQ(chown(other.c_str(), 0, 0), 0);
  expectProblem(runAsNobody(title_, {other, mine}, false), title_,
                "\"other\" was not made executable: Operation not permitted.");
  EXPECT_TRUE(isExecutable(mine));
  EXPECT_FALSE(isExecutable(other));
}

// --- Make Symbolic Link Here

class MakeSymbolicLinkTest : public DefaultScriptTest {
 protected:
  const std::string title_ = "Make Symbolic Link Here";
};

TEST_F(MakeSymbolicLinkTest, LinksBesideByNameForEveryName) {
  auto names = hostileNames();
  const auto paths = makeHostile();
  expectSilent(run(title_, paths));
  const std::string longest = names.back();
  names.pop_back();
  for (const auto& name : names) {
    EXPECT_EQ(fs::read_symlink(at("Link to " + name)).string(), name);
    EXPECT_EQ(contentsOf(at("Link to " + name)), name);
  }
  EXPECT_EQ(contentsOf(at("Link to " + longest.substr(8))), longest) << "shortened to fit";
}

TEST_F(MakeSymbolicLinkTest, TakesTheNextNumberBesideALinkThatIsThere) {
  const auto file = make("a.txt");
  fs::create_symlink("nowhere", at("Link to a.txt"));
  expectSilent(run(title_, {file}));
  EXPECT_EQ(fs::read_symlink(at("Link to a.txt")).string(), "nowhere");
  EXPECT_EQ(fs::read_symlink(at("Link to a 2.txt")).string(), "a.txt");
}

TEST_F(MakeSymbolicLinkTest, RefusesTheRootFolder) {
  expectProblem(run(title_, {"/"}), title_, "This cannot be done with the folder \"/\".");
}

TEST_F(MakeSymbolicLinkTest, SaysWhyAFolderTakesNoLink) {
  const auto file = make("closed/a");
  fs::permissions(at("closed"), fs::perms::owner_read | fs::perms::owner_exec);
  expectProblem(runAsNobody(title_, {file}), title_,
                "No link to \"a\" can be made: Permission denied.");
}

TEST_F(MakeSymbolicLinkTest, DropsSlashesAtTheEndAndDotsOfAPath) {
  makeFolder("folder");
  expectSilent(run(title_, {at("folder") + "///"}));
  EXPECT_EQ(fs::read_symlink(at("Link to folder")).string(), "folder");
  fs::remove(at("Link to folder"));
  expectSilent(run(title_, {at("folder") + "/."}));
  EXPECT_EQ(fs::read_symlink(at("Link to folder")).string(), "folder");
}

// --- Duplicate

class DuplicateTest : public DefaultScriptTest {
 protected:
  const std::string title_ = "Duplicate";
};

TEST_F(DuplicateTest, CopiesFilesOfEveryNameToTheNextFreeName) {
  auto names = hostileNames();
  expectSilent(run(title_, makeHostile()));
  const auto duplicateOf = [](const std::string& name) -> std::string {
    if (name == "a.b.c") return "a.b 2.c";
    if (name == "\x80\xc3.bad") return "\x80\xc3 2.bad";
    if (name.size() == 255) return name.substr(2) + " 2";
    return name + " 2";
  };
  for (const auto& name : names) EXPECT_EQ(contentsOf(at(duplicateOf(name))), name);
  EXPECT_THAT(tree(), SizeIs(2 * names.size()));
}

TEST_F(DuplicateTest, CopiesAFolderWithAllThatIsInIt) {
  const auto folder = makeFolder("version 1.5");
  make("version 1.5/deep/.hidden", "x");
  fs::create_symlink("nowhere", at("version 1.5/link"));
  fs::permissions(make("version 1.5/program"), fs::perms::owner_all);
  expectSilent(run(title_, {folder}));
  EXPECT_EQ(contentsOf(at("version 1 2.5/deep/.hidden")), "x");
  EXPECT_EQ(fs::read_symlink(at("version 1 2.5/link")).string(), "nowhere");
  EXPECT_EQ(fs::status(at("version 1 2.5/program")).permissions(), fs::perms::owner_all);
}

TEST_F(DuplicateTest, CopiesALinkAsALink) {
  fs::create_symlink("nowhere", at("link"));
  expectSilent(run(title_, {at("link")}));
  EXPECT_EQ(fs::read_symlink(at("link 2")).string(), "nowhere");
}

TEST_F(DuplicateTest, PassesOverNumbersThatAreTaken) {
  const auto file = make("a.txt", "original");
  make("a 2.txt", "taken");
  fs::create_symlink("nowhere", at("a 3.txt"));
  expectSilent(run(title_, {file}));
  EXPECT_EQ(contentsOf(at("a 2.txt")), "taken");
  EXPECT_EQ(contentsOf(at("a 4.txt")), "original");
}

TEST_F(DuplicateTest, CopiesAFolderThatMayNotBeWrittenTo) {
  const auto folder = makeFolder("closed");
  make("closed/a", "x");
  fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
  expectSilent(runAsNobody(title_, {folder}));
  EXPECT_EQ(contentsOf(at("closed 2/a")), "x");
  EXPECT_EQ(fs::status(at("closed 2")).permissions(),
            fs::perms::owner_read | fs::perms::owner_exec);
}

TEST_F(DuplicateTest, LeavesNothingOfWhatCannotBeReadWholeAndDoesTheRest) {
  make("folder/open");
  fs::permissions(make("folder/secret"), fs::perms::none);
  const auto file = make("file", "x");
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  giveToNobody(homePath());
  ASSERT_EQ(chown(at("folder/secret").c_str(), 0, 0), 0);
  const auto outcome = runAsNobody(title_, {at("folder"), file}, false);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, StartsWith("Duplicate: \"folder\" was not duplicated: cannot open "));
  EXPECT_THAT(outcome.errors, EndsWith("/folder/secret' for reading: Permission denied.\n"));
  EXPECT_THAT(tree(), ElementsAre("file", "file 2", "folder/", "folder/open", "folder/secret"));
}

TEST_F(DuplicateTest, LeavesNothingOnAFullDisk) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  ProgramOutcome outcome;
  const auto left =
      runOnSmallDisk(title_, 100, {make("big", std::string(60000, 'x'))}, {"big"}, &outcome);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("\"big\" was not duplicated: "));
  EXPECT_THAT(outcome.errors, HasSubstr("No space left on device.\n"));
  EXPECT_THAT(left, ElementsAre("big"));
}

// --- New Folder with Selection

class NewFolderTest : public DefaultScriptTest {
 protected:
  const std::string title_ = "New Folder with Selection";
};

TEST_F(NewFolderTest, TakesFilesOfEveryName) {
  const auto names = hostileNames();
  expectSilent(run(title_, makeHostile()));
  EXPECT_THAT(tree(), SizeIs(names.size() + 1));
  for (const auto& name : names) EXPECT_EQ(contentsOf(at("New Folder/" + name)), name);
}

TEST_F(NewFolderTest, TakesThousandsOfFiles) {
  std::vector<std::string> paths;
  for (int number = 0; number < 3000; ++number) paths.push_back(make(std::to_string(number), ""));
  expectSilent(run(title_, paths));
  EXPECT_THAT(tree(), SizeIs(3001));
  EXPECT_TRUE(exists(at("New Folder/2999")));
}

TEST_F(NewFolderTest, TakesTheNextFreeName) {
  makeFolder("New Folder");
  make("New Folder 2");
  expectSilent(run(title_, {make("a")}));
  EXPECT_THAT(tree(),
              ElementsAre("New Folder 2", "New Folder 3/", "New Folder 3/a", "New Folder/"));
}

TEST_F(NewFolderTest, GivesTheSecondOfTwoEqualNamesANumber) {
  const auto first = make("one/a.txt", "first");
  const auto second = make("two/a.txt", "second");
  const auto third = make("two/b.txt", "third");
  expectSilent(run(title_, {first, second, third}));
  EXPECT_EQ(contentsOf(at("one/New Folder/a.txt")), "first");
  EXPECT_EQ(contentsOf(at("one/New Folder/a 2.txt")), "second");
  EXPECT_EQ(contentsOf(at("one/New Folder/b.txt")), "third");
}

TEST_F(NewFolderTest, GoesAgainWhenNothingCanBeMoved) {
  // The folder itself cannot go into what lies in it.
  make("a/b");
  const auto outcome = run(title_, {at("a/b"), at("a")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("\"a\" was not moved: "));
  EXPECT_THAT(tree(), ElementsAre("a/", "a/New Folder/", "a/New Folder/b"));
}

TEST_F(NewFolderTest, SaysThatTheFolderCannotBeMade) {
  const auto file = make("closed/a");
  fs::permissions(at("closed"), fs::perms::owner_read | fs::perms::owner_exec);
  expectProblem(runAsNobody(title_, {file}), title_,
                "No folder can be made in \"closed\": Permission denied.");
  EXPECT_THAT(tree(), ElementsAre("closed/", "closed/a"));
}

TEST_F(NewFolderTest, LeavesWhatIsOnAnotherDisk) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  ProgramOutcome outcome;
  make("near");
  const auto left = runOnSmallDisk(title_, 100, {make("far")}, {"../near", "far"}, &outcome);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, title_ + ": \"far\" is on another disk and stays there.\n");
  EXPECT_THAT(left, ElementsAre("far"));
  EXPECT_THAT(tree(), ElementsAre("New Folder/", "New Folder/near", "disk/", "far"));
}

// --- Rename to Lower Case

class RenameToLowerCaseTest : public DefaultScriptTest {
 protected:
  const std::string title_ = "Rename to Lower Case";
};

TEST_F(RenameToLowerCaseTest, KnowsTheLettersOfEveryLanguage) {
  expectSilent(run(title_, {make("ÄÖÜ ÉÑ ΣΩ ЖЯ ẞ.TXT"), make("lower.txt"), make("漢字")}));
  EXPECT_THAT(tree(), UnorderedElementsAreArray({"äöü éñ σω жя ß.txt", "lower.txt", "漢字"}));
}

TEST_F(RenameToLowerCaseTest, DoesSoInALocaleWithoutThem) {
  for (const char* locale : {"C", "POSIX", "xx_YY.nonsense"}) {
    home().setVariable("LC_ALL", locale);
    const auto outcome = run(title_, {make("ÄÖ")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(tree(), ElementsAre("äö"));
    fs::remove(at("äö"));
  }
}

TEST_F(RenameToLowerCaseTest, KeepsBytesThatAreNoCharacters) {
  const std::string bytes =
      "A\xff\xfe"
      "B\xe2\x82";
  const std::string halved =
      "\x80"
      "C\xc3.TXT";
  expectSilent(run(title_, {make(bytes), make(halved)}));
  EXPECT_THAT(tree(), UnorderedElementsAreArray({"a\xff\xfe"
                                                 "b\xe2\x82",
                                                 "\x80"
                                                 "c\xc3.txt"}));
}

TEST_F(RenameToLowerCaseTest, LeavesEveryHostileNameWhatItIs) {
  const auto outcome = run(title_, makeHostile());
  expectSilent(outcome);
  auto names = hostileNames();
  for (auto& name : names) {
    if (name == "$HOME & <b> ; | %s %n") name = "$home & <b> ; | %s %n";
  }
  EXPECT_THAT(tree(), UnorderedElementsAreArray(names));
}

TEST_F(RenameToLowerCaseTest, GivesATakenNameTheNextNumber) {
  const auto readme = make("README.TXT", "upper");
  make("readme.txt", "lower");
  expectSilent(run(title_, {readme, make("A", "1"), make("a", "2")}));
  EXPECT_EQ(contentsOf(at("readme.txt")), "lower");
  EXPECT_EQ(contentsOf(at("readme 2.txt")), "upper");
  EXPECT_EQ(contentsOf(at("a")), "2");
  EXPECT_EQ(contentsOf(at("a 2")), "1");
}

TEST_F(RenameToLowerCaseTest, TellsAHardLinkFromTheSameEntry) {
  const auto upper = make("A", "x");
  fs::create_hard_link(upper, at("a"));
  expectSilent(run(title_, {upper}));
  EXPECT_THAT(tree(), ElementsAre("a", "a 2"));
}

TEST_F(RenameToLowerCaseTest, ChangesTheSpellingOnADiskThatKnowsOneCase) {
  const auto file = make("README.TXT", "x");
  const auto folder = makeFolder("Folder");
  home().setVariable("LD_PRELOAD", TERVANO_ONE_CASE_DISK);
  ASSERT_EQ(
      output("/bin/bash", {"-c", "[ \"$0\" -ef \"$1\" ] && echo same", file, at("readme.txt")}),
      "same\n");
  expectSilent(run(title_, {file, folder}));
  EXPECT_THAT(tree(), ElementsAre("folder/", "readme.txt"));
  EXPECT_EQ(contentsOf(at("readme.txt")), "x");
}

TEST_F(RenameToLowerCaseTest, GivesTheOldSpellingBackWhenTheNewOneFails) {
  const auto file = make("README.TXT", "x");
  install("mv",
          "[ -e \"$HOME/first\" ] && [ ! -e \"$HOME/second\" ] && touch \"$HOME/second\" &&\n"
          "  { echo 'mv: No more of this' >&2; exit 1; }\n"
          "touch \"$HOME/first\"; exec /usr/bin/mv \"$@\"");
  home().setVariable("LD_PRELOAD", TERVANO_ONE_CASE_DISK);
  expectProblem(run(title_, {file}), title_, "\"README.TXT\" was not renamed: No more of this.");
  EXPECT_THAT(tree(), ElementsAre("README.TXT"));
}

TEST_F(RenameToLowerCaseTest, RenamesFoldersAfterWhatLiesInThem) {
  const auto inner = make("Outer/Inner/File");
  expectSilent(run(title_, {at("Outer"), at("Outer/Inner"), inner}));
  EXPECT_THAT(tree(), ElementsAre("outer/", "outer/inner/", "outer/inner/file"));
}

TEST_F(RenameToLowerCaseTest, RenamesALinkAndNotWhatItLeadsTo) {
  make("Target");
  fs::create_symlink("Target", at("Link"));
  expectSilent(run(title_, {at("Link")}));
  EXPECT_EQ(fs::read_symlink(at("link")).string(), "Target");
  EXPECT_TRUE(exists(at("Target")));
}

TEST_F(RenameToLowerCaseTest, SaysWhyAnItemKeepsItsName) {
  const auto file = make("closed/A");
  const auto other = make("B");
  fs::permissions(at("closed"), fs::perms::owner_read | fs::perms::owner_exec);
  expectProblem(runAsNobody(title_, {file, other}), title_,
                "\"A\" was not renamed: Permission denied.");
  EXPECT_THAT(tree(), ElementsAre("b", "closed/", "closed/A"));
}

}  // namespace
}  // namespace tervano::test
