#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

class EditCommandsTest : public testing::Test {
 protected:
  std::string add(std::vector<std::string> words) {
    words.insert(words.begin(), "add");
    return home_.succeed(std::move(words));
  }
  nlohmann::ordered_json show(const std::string& uid) {
    return home_.json({"show", uid, "--json"});
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(EditCommandsTest, AddPrintsTheUidOfTheNewAction) {
  const auto uid = add({"move", "--title", "A"});
  EXPECT_THAT(uid, MatchesRegex("[0-9A-F]{32}"));
  EXPECT_EQ(home_.json({"list", "--json"})[0]["uid"], uid);
}

TEST_F(EditCommandsTest, AddMakesTheContainerForItsOwnerOnly) {
  add({"move"});
  struct stat status {};
  ASSERT_EQ(stat(home_.container().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_F(EditCommandsTest, AddPutsTheActionAtTheEnd) {
  add({"move", "--title", "A"});
  add({"copy", "--title", "B"});
  add({"group-move", "--title", "C"});
  add({"group-copy", "--title", "D"});
  EXPECT_EQ(home_.titles(), "A B C[] D[]");
}

TEST_F(EditCommandsTest, KindsAreTheClassesOfTheirNames) {
  for (const std::string kind : {"move", "copy", "group-move", "group-copy"}) add({kind});
  std::vector<std::string> classes;
  for (const auto& entry : home_.json({"list", "--json"})) classes.push_back(entry["class"]);
  EXPECT_THAT(classes, ElementsAre("TVMoveToAction", "TVCopyToAction", "TVMoveActionGroup",
                                   "TVCopyActionGroup"));
}

TEST_F(EditCommandsTest, ActionWithoutATitleIsNamedAfterItsFolder) {
  add({"move", "--to", home_.folder("Old mail")});
  EXPECT_EQ(home_.titles(), "Old mail");
}

TEST_F(EditCommandsTest, GivenTitleWinsOverTheFolder) {
  add({"move", "--to", home_.folder("Old mail"), "--title", "Away"});
  EXPECT_EQ(home_.titles(), "Away");
}

TEST_F(EditCommandsTest, EmptyTitleStaysEmpty) {
  const auto uid = add({"move", "--to", home_.folder("x"), "--title", ""});
  EXPECT_EQ(show(uid)["title"], "");
}

TEST_F(EditCommandsTest, GroupWithoutATitleHasThatOfItsClass) {
  add({"group-move"});
  add({"group-copy"});
  EXPECT_EQ(home_.titles(), "Move to a folder[] Copy to a folder[]");
}

TEST_F(EditCommandsTest, RelativeFolderIsMadeAbsolute) {
  home_.folder("deep/inner");
  ProgramStart start;
  start.arguments = {"add", "move", "--to", "inner"};
  start.folder = home_.path() + "/deep";
  const auto outcome = home_.start(start);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(home_.json({"list", "--json"})[0]["destination"],
            std::filesystem::canonical(home_.path()).string() + "/deep/inner");
}

TEST_F(EditCommandsTest, FolderThatDoesNotExistYetIsTakenWithANote) {
  const auto outcome = home_.tervano({"add", "move", "--to", home_.path() + "/later"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "Note: the folder " + home_.path() + "/later does not exist yet.\n");
  EXPECT_EQ(home_.titles(), "later");
}

TEST_F(EditCommandsTest, FolderNameWithQuotesLineBreaksAndPercentsSurvives) {
  const auto folder = home_.folder("a \"b\" 'c'\n%41 #?");
  add({"move", "--to", folder, "--title", "x"});
  EXPECT_EQ(home_.json({"list", "--json"})[0]["destination"], folder);
}

TEST_F(EditCommandsTest, FolderNameThatIsNoTextSurvivesAndGivesNoTitle) {
  const auto folder = home_.folder("a\xff");
  const auto uid = add({"move", "--to", folder});
  EXPECT_EQ(home_.titles(), "Folder");
  EXPECT_THAT(show(uid)["destinationURL"].get<std::string>(), HasSubstr("/a%FF/"));
  const auto file = home_.file("b.txt");
  EXPECT_EQ(home_.tervano({"run", uid, file}).status, 0);
  EXPECT_TRUE(exists(folder + "/b.txt"));
}

TEST_F(EditCommandsTest, TitleWithQuotesLineBreaksAndOtherAlphabetsSurvives) {
  const std::string title = "a \"b\" 'c'\n\t\\ 工作 \U0001F600";
  const auto uid = add({"move", "--title", title, "--description", title});
  EXPECT_EQ(show(uid)["title"], title);
  EXPECT_EQ(show(uid)["actionDescription"], title);
}

TEST_F(EditCommandsTest, TitleMayBeginWithAHyphen) {
  const auto uid = add({"move", "--title", "--json"});
  EXPECT_EQ(show(uid)["title"], "--json");
}

TEST_F(EditCommandsTest, FolderBeginningWithAHyphenIsAValueLikeAnyOther) {
  home_.folder("-x");
  ProgramStart start;
  start.arguments = {"add", "move", "--to", "-x"};
  start.folder = home_.path();
  EXPECT_EQ(home_.start(start).status, 0);
  EXPECT_EQ(home_.titles(), "-x");
}

TEST_F(EditCommandsTest, OneTypeIsSetWithoutANote) {
  const auto uid = add({"move", "--types", "public.image"});
  EXPECT_EQ(show(uid)["fileTypes"].dump(), R"(["public.image"])");
}

TEST_F(EditCommandsTest, SeveralTypesAreSetWithANoteThatAllMustFit) {
  const auto outcome = home_.tervano({"add", "move", "--types", "public.image,public.data"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors,
            "Note: shown only when every selected item conforms to every one of these types.\n");
  EXPECT_EQ(home_.json({"list", "--json"})[0]["fileTypes"].dump(),
            R"(["public.image","public.data"])");
}

TEST_F(EditCommandsTest, TypeThatNoFileHasIsTakenWithANote) {
  const auto outcome = home_.tervano({"add", "move", "--types", "com.example.nothing"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "Note: no file has the type com.example.nothing on this system.\n");
}

TEST_F(EditCommandsTest, AnyTakesTheFilterAway) {
  const auto uid = add({"move", "--types", "public.image"});
  home_.succeed({"set", uid, "--types", "any"});
  EXPECT_TRUE(show(uid)["fileTypes"].is_null());
}

TEST_F(EditCommandsTest, IconIsStoredWithTheAction) {
  const auto picture = home_.file(
      "a.svg",
      "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'><rect width='9' height='9' "
      "fill='red'/></svg>");
  const auto plain = add({"move", "--title", "a"});
  const auto uid = add({"move", "--title", "a", "--icon", picture});
  EXPECT_NE(show(uid)["icon"], show(plain)["icon"]);
}

TEST_F(EditCommandsTest, SetChangesOnlyWhatItIsGiven) {
  const auto uid = add({"move", "--title", "A", "--description", "D", "--types", "public.image",
                        "--to", home_.folder("to")});
  auto expected = show(uid);
  home_.succeed({"set", uid, "--title", "B"});
  expected["title"] = "B";
  EXPECT_EQ(show(uid), expected);
}

TEST_F(EditCommandsTest, SetOfTheFolderKeepsTheTitle) {
  const auto uid = add({"copy", "--to", home_.folder("one")});
  home_.succeed({"set", uid, "--to", home_.folder("two")});
  EXPECT_EQ(home_.titles(), "one");
  EXPECT_THAT(show(uid)["destinationURL"].get<std::string>(), testing::EndsWith("/two/"));
}

TEST_F(EditCommandsTest, SetReachesAMemberOfAGroup) {
  const auto group = add({"group-move", "--title", "G"});
  const auto member = add({"move", "--title", "M", "--into", group});
  home_.succeed({"set", member, "--title", "N"});
  EXPECT_EQ(home_.titles(), "G[N]");
}

TEST_F(EditCommandsTest, FolderForAGroupInSetIsAUsageError) {
  const auto group = add({"group-move"});
  expectUsageError(home_.tervano({"set", group, "--to", home_.folder("x")}));
}

TEST_F(EditCommandsTest, DisableAndEnableSwitchAnActionAndAMember) {
  const auto group = add({"group-move"});
  const auto member = add({"move", "--title", "M", "--into", group});
  for (const auto& uid : {group, member}) {
    home_.succeed({"disable", uid});
    EXPECT_EQ(show(uid)["enabled"], false);
    home_.succeed({"disable", uid});
    home_.succeed({"enable", uid});
    EXPECT_EQ(show(uid)["enabled"], true);
  }
}

TEST_F(EditCommandsTest, RemoveTakesAGroupWithItsMembers) {
  const auto group = add({"group-move"});
  const auto member = add({"move", "--title", "M", "--into", group});
  add({"move", "--title", "A"});
  home_.succeed({"remove", group});
  EXPECT_EQ(home_.titles(), "A");
  expectFailure(home_.tervano({"show", member}));
}

TEST_F(EditCommandsTest, RemoveTakesOneMemberAndLeavesItsGroup) {
  const auto group = add({"group-move", "--title", "G"});
  const auto member = add({"move", "--title", "M", "--into", group});
  add({"move", "--title", "N", "--into", group});
  home_.succeed({"remove", member});
  EXPECT_EQ(home_.titles(), "G[N]");
}

TEST_F(EditCommandsTest, AddIntoAppendsToTheGroup) {
  const auto group = add({"group-move", "--title", "G"});
  add({"move", "--title", "M", "--into", group});
  add({"copy", "--title", "N", "--into", group});
  EXPECT_EQ(home_.titles(), "G[M N]");
}

TEST_F(EditCommandsTest, AddIntoAnActionThatIsNoGroupFails) {
  const auto uid = add({"move", "--title", "A"});
  expectFailure(home_.tervano({"add", "move", "--into", uid}));
  EXPECT_EQ(home_.titles(), "A");
}

TEST_F(EditCommandsTest, AddOfAGroupIntoAGroupFails) {
  const auto group = add({"group-move", "--title", "G"});
  expectFailure(home_.tervano({"add", "group-copy", "--into", group}));
  EXPECT_EQ(home_.titles(), "G[]");
}

class ReorderTest : public EditCommandsTest {
 protected:
  ReorderTest() {
    a_ = add({"move", "--title", "A"});
    b_ = add({"move", "--title", "B"});
    group_ = add({"group-move", "--title", "G"});
    m_ = add({"move", "--title", "M", "--into", group_});
    n_ = add({"move", "--title", "N", "--into", group_});
  }
  std::string after(std::vector<std::string> words) {
    words.insert(words.begin(), "reorder");
    home_.succeed(std::move(words));
    return home_.titles();
  }
  void expectRefusal(std::vector<std::string> words) {
    words.insert(words.begin(), "reorder");
    expectFailure(home_.tervano(std::move(words)));
    EXPECT_EQ(home_.titles(), "A B G[M N]");
  }

  std::string a_;
  std::string b_;
  std::string group_;
  std::string m_;
  std::string n_;
};

TEST_F(ReorderTest, Before) {
  EXPECT_EQ(after({group_, "--before", a_}), "G[M N] A B");
}
TEST_F(ReorderTest, After) {
  EXPECT_EQ(after({a_, "--after", b_}), "B A G[M N]");
}
TEST_F(ReorderTest, BehindTheLast) {
  EXPECT_EQ(after({a_, "--after", group_}), "B G[M N] A");
}
TEST_F(ReorderTest, First) {
  EXPECT_EQ(after({group_, "--first"}), "G[M N] A B");
}
TEST_F(ReorderTest, Last) {
  EXPECT_EQ(after({a_, "--last"}), "B G[M N] A");
}
TEST_F(ReorderTest, FirstOfTheFirstChangesNothing) {
  EXPECT_EQ(after({a_, "--first"}), "A B G[M N]");
}
TEST_F(ReorderTest, IntoAGroup) {
  EXPECT_EQ(after({a_, "--into", group_}), "B G[M N A]");
}
TEST_F(ReorderTest, IntoTheGroupThatItIsInMovesItToTheEnd) {
  EXPECT_EQ(after({m_, "--into", group_}), "A B G[N M]");
}
TEST_F(ReorderTest, BesideAMemberGoesIntoItsGroup) {
  EXPECT_EQ(after({a_, "--before", n_}), "B G[M A N]");
}
TEST_F(ReorderTest, WithinAGroup) {
  EXPECT_EQ(after({n_, "--before", m_}), "A B G[N M]");
}
TEST_F(ReorderTest, MemberBesideAnActionLeavesItsGroup) {
  EXPECT_EQ(after({m_, "--after", a_}), "A M B G[N]");
}
TEST_F(ReorderTest, FirstTakesAMemberOutOfItsGroup) {
  EXPECT_EQ(after({n_, "--first"}), "N A B G[M]");
}
TEST_F(ReorderTest, GroupBesideAMemberIsRefused) {
  const auto other = add({"group-copy", "--title", "H"});
  expectFailure(home_.tervano({"reorder", other, "--before", m_}));
  EXPECT_EQ(home_.titles(), "A B G[M N] H[]");
}
TEST_F(ReorderTest, GroupIntoAGroupIsRefused) {
  const auto other = add({"group-copy", "--title", "H"});
  expectFailure(home_.tervano({"reorder", other, "--into", group_}));
  EXPECT_EQ(home_.titles(), "A B G[M N] H[]");
}
TEST_F(ReorderTest, IntoAnActionThatIsNoGroupIsRefused) {
  expectRefusal({a_, "--into", b_});
}
TEST_F(ReorderTest, BesideItselfIsRefused) {
  expectUsageError(home_.tervano({"reorder", a_, "--before", a_}));
  expectUsageError(home_.tervano({"reorder", a_, "--after", a_}));
  EXPECT_EQ(home_.titles(), "A B G[M N]");
}
TEST_F(ReorderTest, GroupIntoItselfIsRefused) {
  expectUsageError(home_.tervano({"reorder", group_, "--into", group_}));
  EXPECT_EQ(home_.titles(), "A B G[M N]");
}
TEST_F(ReorderTest, GroupBesideItsOwnMemberIsRefused) {
  expectRefusal({group_, "--before", m_});
}

TEST_F(EditCommandsTest, TwentyProcessesAddAtOnceAndNoneIsLost) {
  constexpr int kProcesses = 20;
  std::vector<std::string> uids(kProcesses);
  std::vector<std::thread> threads;
  threads.reserve(kProcesses);
  for (int i = 0; i < kProcesses; ++i) {
    threads.emplace_back([&, i] {
      ProgramStart start;
      start.path = TERVANO_PROGRAM;
      start.arguments = {"add", "move", "--title", std::to_string(i)};
      uids[static_cast<std::size_t>(i)] = runProgram(start).output;
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<std::string> listed;
  for (const auto& entry : home_.json({"list", "--json"})) {
    listed.insert(entry["uid"].get<std::string>() + "\n");
  }
  EXPECT_EQ(listed, std::set<std::string>(uids.begin(), uids.end()));
  EXPECT_EQ(listed.size(), static_cast<std::size_t>(kProcesses));
}

namespace {

// In the forked child: the container becomes a file system of its own that no other process sees,
// with a copy of the list in it.
bool mountOverContainer(const std::string& container, const std::string& list, const char* options,
                        bool fill, bool readOnly) {
  if (unshare(CLONE_NEWNS) != 0) return false;
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (mount("none", container.c_str(), "tmpfs", 0, options) != 0) return false;
  std::ofstream(container + "/Actions.plist", std::ios::binary) << list;
  if (fill) {
    std::ofstream filler(container + "/filler", std::ios::binary);
    const std::string block(4096, 'x');
    while (filler.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
    }
  }
  return !readOnly ||
         mount("none", container.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, options) == 0;
}

}  // namespace

class ContainerWithoutRoomTest : public testing::Test {
 protected:
  struct Look {
    ProgramOutcome command;
    std::string listBefore;
    std::string listAfter;
  };

  Look commandOn(const std::vector<std::string>& words, bool fill, bool readOnly) {
    Look look;
    look.listBefore = contentsOf(home_.listFile());
    const std::string copy = home_.path() + "/copy";
    ProgramStart start;
    start.arguments = words;
    start.prepare = [&] {
      if (!mountOverContainer(home_.container(), look.listBefore, "size=64k", fill, readOnly)) {
        return false;
      }
      const pid_t pid = fork();
      if (pid <= 0) return pid == 0;
      // This process stays behind to look once the program has ended.
      int status = 0;
      waitpid(pid, &status, 0);
      std::filesystem::copy_file(home_.listFile(), copy);
      _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 96);
    };
    look.command = home_.start(start);
    look.listAfter = contentsOf(copy);
    return look;
  }

  ProgramHome home_;
  std::string uid_ = home_.succeed({"add", "move", "--title", "A"});
};

TEST_F(ContainerWithoutRoomTest, AddOnAFullDiskFailsAndTheListIsWhole) {
  const auto look = commandOn({"add", "move", "--title", "B"}, true, false);
  expectFailure(look.command);
  EXPECT_THAT(look.command.errors, HasSubstr("could not be saved"));
  EXPECT_EQ(look.listAfter, look.listBefore);
}

TEST_F(ContainerWithoutRoomTest, SetOnAFullDiskFailsAndTheListIsWhole) {
  const auto look = commandOn({"set", uid_, "--title", "B"}, true, false);
  expectFailure(look.command);
  EXPECT_EQ(look.listAfter, look.listBefore);
}

TEST_F(ContainerWithoutRoomTest, AddOnAReadOnlyContainerFailsAndTheListIsWhole) {
  const auto look = commandOn({"add", "move", "--title", "B"}, false, true);
  expectFailure(look.command);
  EXPECT_EQ(look.listAfter, look.listBefore);
}

TEST_F(ContainerWithoutRoomTest, SetOnAReadOnlyContainerFailsAndTheListIsWhole) {
  const auto look = commandOn({"set", uid_, "--title", "B"}, false, true);
  expectFailure(look.command);
  EXPECT_EQ(look.listAfter, look.listBefore);
}

TEST_F(ContainerWithoutRoomTest, ListOnAReadOnlyContainerWorks) {
  const auto look = commandOn({"list"}, false, true);
  EXPECT_EQ(look.command.status, 0);
  EXPECT_THAT(look.command.output, HasSubstr(uid_));
}

TEST_F(ContainerWithoutRoomTest, AddWithRoomInTheSmallFileSystemWorks) {
  const auto look = commandOn({"add", "move", "--title", "B"}, false, false);
  EXPECT_EQ(look.command.status, 0) << look.command.errors;
  EXPECT_NE(look.listAfter, look.listBefore);
}

TEST_F(EditCommandsTest, AddInAContainerOfAnotherUserFailsInOneSentence) {
  add({"move", "--title", "A"});
  const std::string list = contentsOf(home_.listFile());
  giveToNobody(home_.path());
  ASSERT_EQ(geteuid(), 0U) << "this test takes the container away from the user";
  ASSERT_EQ(chown(home_.container().c_str(), 0, 0), 0);
  ASSERT_EQ(chmod(home_.container().c_str(), 0755), 0);
  ProgramStart start;
  start.arguments = {"add", "move", "--title", "B"};
  start.prepare = becomeNobody;
  expectFailure(home_.start(start));
  EXPECT_EQ(contentsOf(home_.listFile()), list);
}

TEST_F(EditCommandsTest, FileInPlaceOfTheContainerFailsInOneSentence) {
  home_.file(".local/share/Q4T7N2XR8K.com.vessok.tervano", "x");
  expectFailure(home_.tervano({"add", "move"}));
  EXPECT_EQ(contentsOf(home_.container()), "x");
}

}  // namespace tervano::test
