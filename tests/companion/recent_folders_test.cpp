#include "companion/recent_folders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "actions/register_action_classes.h"
#include "actions/tv_move_to_action.h"
#include "platform/file_manager.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/child_process.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The real program, a list with a move group that has the user's own member "Mine", and folders.
class RecentFoldersTest : public testing::Test {
 protected:
  RecentFoldersTest() { home_.succeed({"prefs", "set", "disableActionNotifications", "yes"}); }

  std::string folder(const std::string& name) const { return home_.folder(name); }
  // Moves a new file to the folder of that name.
  void moveTo(const std::string& name) {
    const auto file = home_.file("file" + std::to_string(++files_));
    const auto outcome = home_.tervano({"move", "--to", folder(name), file});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_FALSE(exists(file));
  }
  void copyTo(const std::string& name) {
    const auto outcome = home_.tervano({"copy", "--to", folder(name), home_.file("copied")});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
  }
  // The folders that are ours, by name, the last used first.
  std::vector<std::string> recent() const {
    std::vector<std::string> names;
    const auto json = home_.json({"recent", "--json"});
    for (const auto& entry : json["folders"]) {
      names.push_back(lastPathComponent(entry["path"].get<std::string>()));
    }
    return names;
  }
  std::string uidOf(const std::string& title) const {
    const auto list = home_.json({"list", "--json"});
    for (const auto& group : list) {
      if (group["title"] == title) return group["uid"];
      if (!group["actions"].is_array()) continue;
      for (const auto& member : group["actions"]) {
        if (member["title"] == title) return member["uid"];
      }
    }
    return "";
  }
  std::string stateFile() const {
    return home_.path() + "/.local/state/tervano/recent-folders.plist";
  }

  ProgramHome home_;
  const std::string moves_ = home_.succeed({"add", "group-move", "--title", "Moves"});
  const std::string mine_ = home_.succeed(
      {"add", "move", "--title", "Mine", "--to", home_.folder("mine"), "--into", moves_});
  int files_ = 0;
};

}  // namespace

TEST_F(RecentFoldersTest, NothingIsKeptUntilItIsSwitchedOn) {
  moveTo("a");
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
  EXPECT_TRUE(home_.json({"recent", "--json"})["count"].is_null());
  EXPECT_FALSE(exists(stateFile()));
}

TEST_F(RecentFoldersTest, AFolderBecomesTheLastMemberOfItsGroup) {
  home_.succeed({"recent", "on"});
  const auto copies = home_.succeed({"add", "group-copy", "--title", "Copies"});
  moveTo("a");
  moveTo("b");
  copyTo("c");
  EXPECT_EQ(home_.titles(), "Moves[Mine a b] Copies[c]");
  EXPECT_THAT(recent(), ElementsAre("c", "b", "a"));
  const auto member = home_.json({"show", "--json", uidOf("a")});
  EXPECT_EQ(member["class"], "TVMoveToAction");
  EXPECT_EQ(home_.json({"show", "--json", uidOf("c")})["class"], "TVCopyToAction");
  EXPECT_EQ(home_.json({"recent", "--json"})["count"], 5);
}

TEST_F(RecentFoldersTest, ARequestOfAMenuCountsToo) {
  home_.succeed({"recent", "on"});
  const auto uid = home_.succeed({"add", "move", "--title", "Top", "--to", folder("top")});
  const auto file = home_.file("x");
  const std::string name = "01234567-89AB-CDEF-0123-456789ABCDEF";
  std::ofstream(home_.container() + "/" + name) << nlohmann::json({{"paths", {file}}}).dump();
  const auto outcome =
      home_.tervano({"open", "tervano://runaction?action=" + uid + "&file=" + name});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(home_.titles(), "Moves[Mine top] Top");
}

TEST_F(RecentFoldersTest, AFolderThatTheUserHasInTheGroupIsNotAdded) {
  home_.succeed({"recent", "on"});
  moveTo("mine");
  symlink(folder("mine").c_str(), (home_.path() + "/link").c_str());
  const auto outcome =
      home_.tervano({"move", "--to", home_.path() + "/link", home_.file("through a link")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
  EXPECT_THAT(recent(), IsEmpty());
}

TEST_F(RecentFoldersTest, WhatFailedIsNotKept) {
  home_.succeed({"recent", "on"});
  const auto outcome = home_.tervano({"move", "--to", folder("a"), home_.path() + "/nothing"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
}

TEST_F(RecentFoldersTest, TheOneThatWasNotUsedForTheLongestTimeLeaves) {
  home_.succeed({"recent", "on", "--count", "2"});
  moveTo("a");
  moveTo("b");
  moveTo("a");
  moveTo("c");
  EXPECT_EQ(home_.titles(), "Moves[Mine a c]");
  EXPECT_THAT(recent(), ElementsAre("c", "a"));
  // Choosing the member itself is a use.
  const auto outcome = home_.tervano({"run", uidOf("a"), home_.file("again")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  moveTo("d");
  EXPECT_EQ(home_.titles(), "Moves[Mine a d]");
}

TEST_F(RecentFoldersTest, ALowerCountTakesTheOldestOut) {
  home_.succeed({"recent", "on"});
  for (const char* name : {"a", "b", "c"}) moveTo(name);
  home_.succeed({"recent", "on", "--count", "1"});
  EXPECT_EQ(home_.titles(), "Moves[Mine c]");
}

TEST_F(RecentFoldersTest, WhatTheUserChangesIsTheUsers) {
  home_.succeed({"recent", "on", "--count", "5"});
  for (const char* name : {"renamed", "disabled", "typed", "redirected", "kept"}) moveTo(name);
  home_.succeed({"set", uidOf("renamed"), "--title", "Renamed"});
  home_.succeed({"disable", uidOf("disabled")});
  home_.succeed({"set", uidOf("typed"), "--types", "public.image"});
  home_.succeed({"set", uidOf("redirected"), "--to", folder("elsewhere")});
  EXPECT_THAT(recent(), ElementsAre("kept"));
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[Mine Renamed disabled typed redirected]");
  // What the user has switched off does not come back.
  moveTo("disabled");
  EXPECT_EQ(home_.titles(), "Moves[Mine Renamed disabled typed redirected]");
}

TEST_F(RecentFoldersTest, WhatTheUserPutsElsewhereIsTheUsers) {
  home_.succeed({"recent", "on"});
  for (const char* name : {"a", "b", "c", "d"}) moveTo(name);
  home_.succeed({"reorder", uidOf("a"), "--last"});
  home_.succeed({"reorder", uidOf("c"), "--before", mine_});
  EXPECT_EQ(home_.titles(), "Moves[c Mine b d] a");
  EXPECT_THAT(recent(), ElementsAre("d", "b"));
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[c Mine] a");
}

TEST_F(RecentFoldersTest, TheUserMayMoveMembersOfTheUsersOwnPastOurs) {
  home_.succeed({"recent", "on"});
  for (const char* name : {"a", "b"}) moveTo(name);
  home_.succeed({"add", "move", "--title", "Later", "--to", folder("later"), "--into", moves_});
  home_.succeed({"reorder", mine_, "--after", uidOf("Later")});
  EXPECT_EQ(home_.titles(), "Moves[a b Later Mine]");
  moveTo("c");
  home_.succeed({"recent", "on", "--count", "1"});
  EXPECT_EQ(home_.titles(), "Moves[Later Mine c]");
}

TEST_F(RecentFoldersTest, SwitchingOffLeavesThemAndClearingTakesThemOut) {
  home_.succeed({"recent", "on"});
  moveTo("a");
  home_.succeed({"recent", "off"});
  moveTo("b");
  EXPECT_EQ(home_.titles(), "Moves[Mine a]");
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
  home_.succeed({"recent", "clear"});
}

TEST_F(RecentFoldersTest, WithoutAGroupNothingIsKept) {
  home_.succeed({"recent", "on"});
  const auto list = contentsOf(home_.listFile());
  copyTo("a");
  EXPECT_EQ(contentsOf(home_.listFile()), list);
  EXPECT_THAT(recent(), IsEmpty());
}

TEST_F(RecentFoldersTest, TwoFoldersOfOneNameAreToldApart) {
  home_.succeed({"recent", "on"});
  moveTo("one/Invoices");
  moveTo("two/Invoices");
  EXPECT_EQ(home_.titles(), "Moves[Mine Invoices Invoices (two)]");
  EXPECT_THAT(recent(), ElementsAre("Invoices", "Invoices"));
}

TEST_F(RecentFoldersTest, FoldersOfAnyBytesAreKept) {
  home_.succeed({"recent", "on"});
  const std::string odd = "a \"b\"\n\xff %41 ';&";
  moveTo(odd);
  moveTo(odd);
  const auto outcome = home_.tervano({"run", uidOf("Folder"), home_.file("x")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_TRUE(exists(folder(odd) + "/x"));
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
}

TEST_F(RecentFoldersTest, WhatComesAndGoesMakesNoVersions) {
  home_.succeed({"recent", "on"});
  const auto versions = home_.succeed({"versions"});
  moveTo("a");
  EXPECT_EQ(home_.succeed({"versions"}), versions);
}

TEST_F(RecentFoldersTest, AFileThatCannotBeReadMakesEveryMemberTheUsers) {
  home_.succeed({"recent", "on"});
  moveTo("a");
  std::ofstream(stateFile()) << "broken";
  EXPECT_EQ(home_.tervano({"recent", "clear"}).status, 0);
  EXPECT_EQ(home_.titles(), "Moves[Mine a]");
  moveTo("b");
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[Mine a]");
}

TEST_F(RecentFoldersTest, AFileThatCannotBeWrittenLeavesTheListAlone) {
  home_.succeed({"recent", "on"});
  std::filesystem::create_directories(stateFile() + "/in the way");
  const auto outcome = home_.tervano({"move", "--to", folder("a"), home_.file("x")});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("Could not keep the recent folder: "));
  EXPECT_TRUE(exists(folder("a") + "/x"));
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
}

TEST_F(RecentFoldersTest, ProcessesAtOnceLoseNothing) {
  home_.succeed({"recent", "on", "--count", "30"});
  constexpr int kEach = 5;
  const auto work = [&](const std::string& prefix) {
    for (int i = 0; i < kEach; ++i) {
      const auto name = prefix + std::to_string(i);
      home_.tervano({"move", "--to", folder(name), home_.file("file of " + name)});
    }
  };
  std::thread other([&] { work("x"); });
  work("y");
  other.join();
  EXPECT_EQ(recent().size(), 2U * kEach);
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
}

TEST_F(RecentFoldersTest, WordsThatCannotBeUnderstoodAreRefused) {
  expectUsageError(home_.tervano({"recent", "maybe"}));
  expectUsageError(home_.tervano({"recent", "on", "--count", "0"}));
  expectUsageError(home_.tervano({"recent", "on", "--count", "31"}));
  expectUsageError(home_.tervano({"recent", "on", "--count", "x"}));
  expectUsageError(home_.tervano({"recent", "off", "--count", "2"}));
  expectUsageError(home_.tervano({"recent", "clear", "--json"}));
  expectUsageError(home_.tervano({"recent", "on", "off"}));
}

// Killed at a write.
namespace {

class DeadlyFileManager : public ForwardingFileManager {
 public:
  DeadlyFileManager(FileManager& real, std::string name, bool writesFirst)
      : ForwardingFileManager(real), name_(std::move(name)), writesFirst_(writesFirst) {}
  std::optional<Error> writeDataToFile(const Data& data, const std::string& path,
                                       bool atomically) override {
    const bool isTheOne = lastPathComponent(path) == name_;
    if (isTheOne && !writesFirst_) kill(getpid(), SIGKILL);
    auto error = ForwardingFileManager::writeDataToFile(data, path, atomically);
    if (isTheOne) kill(getpid(), SIGKILL);
    return error;
  }

 private:
  std::string name_;
  bool writesFirst_;
};

class KilledRecentFoldersTest : public RecentFoldersTest {
 protected:
  // Uses the folder in a process that is killed at its write of the file of that name.
  void useAndDie(const std::string& name, const std::string& file, bool writesFirst) {
    const std::string path = folder(name);
    auto child = forkChild([&](ParentLink&) {
      ClassRegistry registry;
      registerActionClasses(registry);
      ScopedPlatform platform(&registry);
      // The test's home, not one of its own.
      platform.home().setVariable("XDG_DATA_HOME", home_.path() + "/.local/share");
      platform.home().setVariable("XDG_STATE_HOME", home_.path() + "/.local/state");
      platform.home().setVariable("XDG_CONFIG_HOME", home_.path() + "/.config");
      platform.home().setVariable("XDG_RUNTIME_DIR", home_.path() + "/run");
      DeadlyFileManager files(platform.fileManager(), file, writesFirst);
      platform.services().fileManager = &files;
      const auto move = action<TVMoveToAction>();
      move->setDestinationURL(Url::fileURLWithPath(path));
      noteRecentFolder(*move);
      return 0;
    });
    EXPECT_EQ(child.waitForExit(), -SIGKILL);
  }
};

}  // namespace

TEST_F(KilledRecentFoldersTest, BeforeTheListIsWrittenNothingHasHappened) {
  home_.succeed({"recent", "on", "--count", "1"});
  moveTo("a");
  const auto list = contentsOf(home_.listFile());
  for (const bool writesFirst : {false, true}) {
    useAndDie("b", "recent-folders.plist", writesFirst);
    EXPECT_EQ(contentsOf(home_.listFile()), list);
  }
  useAndDie("b", "Actions.plist", false);
  EXPECT_EQ(contentsOf(home_.listFile()), list);
  EXPECT_THAT(recent(), ElementsAre("a"));
  moveTo("c");
  EXPECT_EQ(home_.titles(), "Moves[Mine c]");
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
}

TEST_F(KilledRecentFoldersTest, AfterTheListIsWrittenEverythingHasHappened) {
  home_.succeed({"recent", "on", "--count", "1"});
  moveTo("a");
  useAndDie("b", "Actions.plist", true);
  EXPECT_EQ(home_.titles(), "Moves[Mine b]");
  EXPECT_THAT(recent(), ElementsAre("b"));
  moveTo("c");
  EXPECT_EQ(home_.titles(), "Moves[Mine c]");
  home_.succeed({"recent", "clear"});
  EXPECT_EQ(home_.titles(), "Moves[Mine]");
}

// Moving and copying to a folder that is not in the list.

TEST(TransferCommandTest, FilesAreMovedAndCopiedByTheRulesOfTheActions) {
  const ProgramHome home;
  const auto file = home.file("x", "one");
  home.file("to/x", "other");
  EXPECT_EQ(home.tervano({"copy", "--to", home.path() + "/to", file}).status, 0);
  EXPECT_EQ(contentsOf(home.path() + "/to/x 2"), "one");
  EXPECT_TRUE(exists(file));
  EXPECT_EQ(home.tervano({"move", "--to=" + home.path() + "/to", file}).status, 0);
  EXPECT_EQ(contentsOf(home.path() + "/to/x 3"), "one");
  EXPECT_FALSE(exists(file));
  EXPECT_EQ(contentsOf(home.path() + "/to/x"), "other");
}

TEST(TransferCommandTest, ARehearsalDoesNothing) {
  const ProgramHome home;
  const auto file = home.file("x");
  const auto steps = home.json({"move", "--dry-run", "--json", "--to", home.folder("to"), file});
  EXPECT_EQ(steps[0]["does"], "move");
  EXPECT_TRUE(exists(file));
}

TEST(TransferCommandTest, WithoutAFolderNothingIsDone) {
  const ProgramHome home;
  const auto file = home.file("x");
  expectUsageError(home.tervano({"move", file}));
  expectUsageError(home.tervano({"copy", "--to", home.path()}));
  expectFailure(home.tervano({"move", "--to", home.path() + "/nothing", file}));
  expectFailure(home.tervano({"copy", "--to", file, file}));
  EXPECT_TRUE(exists(file));
}

}  // namespace tervano::test
