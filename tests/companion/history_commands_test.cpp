#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// The real program, without a bus, a display and applications.
class HistoryCommandsTest : public testing::Test {
 protected:
  HistoryCommandsTest() { home_.home().setVariable("XDG_DATA_DIRS", home_.folder("none")); }

  std::string at(const std::string& name) const { return home_.path() + "/" + name; }
  std::string addMove() { return home_.succeed({"add", "move", "--to", home_.folder("to")}); }
  std::string addCopy() { return home_.succeed({"add", "copy", "--to", home_.folder("to")}); }
  std::string addScript(const std::string& text) {
    return home_.succeed({"add", "script", "--file", home_.file("script.sh", text)});
  }
  void run(const std::string& uid, const std::vector<std::string>& paths, int status = 0) {
    std::vector<std::string> words{"run", "--yes", uid};
    words.insert(words.end(), paths.begin(), paths.end());
    const auto outcome = home_.tervano(words);
    EXPECT_EQ(outcome.status, status) << outcome.errors;
  }
  ChildProcess startRun(const std::string& uid, const std::vector<std::string>& paths) {
    std::vector<std::string> words{"run", "--yes", uid};
    words.insert(words.end(), paths.begin(), paths.end());
    return startProgram(TERVANO_PROGRAM, words);
  }
  nlohmann::ordered_json job(int number) {
    return home_.json({"history", "--json", std::to_string(number)});
  }
  std::vector<std::string> namesIn(const std::string& folder) const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(at(folder))) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  static bool waitFor(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done() && std::chrono::steady_clock::now() < deadline) poll(nullptr, 0, 1);
    return done();
  }
  // What an undo that must not be done says.
  std::string refusalOfUndo(std::vector<std::string> words = {}) {
    words.insert(words.begin(), "undo");
    const auto outcome = home_.tervano(words);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    return outcome.errors;
  }
  void undo() {
    const auto outcome = home_.tervano({"undo"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, HasSubstr(", is undone.\n"));
  }
  // The program as the desktop starts it; ends by itself once all is told.
  ProgramOutcome startService() { return home_.tervano({"service", "--idle-seconds", "0"}); }
  std::string hiddenIn(const std::string& folder) const {
    for (const auto& name : namesIn(folder)) {
      if (name.starts_with(".tervano-")) return name;
    }
    return "";
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(HistoryCommandsTest, BeforeAnythingHasRunThereIsNothing) {
  EXPECT_EQ(home_.succeed({"history"}), "");
  EXPECT_EQ(home_.succeed({"jobs"}), "");
  EXPECT_THAT(home_.json({"history", "--json"}), IsEmpty());
  EXPECT_THAT(refusalOfUndo(), HasSubstr("There is nothing that could be undone."));
  EXPECT_FALSE(exists(at(".local/state/tervano/history.sqlite")));
}

TEST_F(HistoryCommandsTest, WhatRanIsShownWithWhatItDid) {
  const auto uid = addMove();
  run(uid, {home_.file("a.txt"), home_.file("b.txt")});
  EXPECT_THAT(home_.succeed({"history"}), HasSubstr("  succeeded     to, 2 items"));
  const auto shown = home_.succeed({"history", "1"});
  EXPECT_THAT(shown, HasSubstr("Action: " + uid + " [TVMoveToAction]\n"));
  EXPECT_THAT(shown, HasSubstr("  moved " + at("a.txt") + " to " + at("to/a.txt") + "\n"));
  const auto json = job(1);
  EXPECT_EQ(json["state"], "succeeded");
  EXPECT_EQ(json["itemsDone"], 2);
  EXPECT_THAT(json["paths"], ElementsAre(at("a.txt"), at("b.txt")));
  EXPECT_EQ(json["changes"][1]["to"], at("to/b.txt"));
}

TEST_F(HistoryCommandsTest, WhatAScriptWroteIsKept) {
  run(addScript("echo printed; echo wrong >&2; exit 3\n"), {home_.file("a")}, 1);
  const auto json = job(1);
  EXPECT_EQ(json["output"], "printed\n");
  ASSERT_EQ(json["complaints"].size(), 1U);
  EXPECT_THAT(json["complaints"][0].get<std::string>(), HasSubstr("ended with status 3: wrong"));
  EXPECT_THAT(home_.succeed({"history", "1"}), HasSubstr("Output:\n  printed"));
}

TEST_F(HistoryCommandsTest, NamesThatAreNoTextAreShownAndUndone) {
  const std::string name = "caf\xE9 \xFF\n$(x)";
  run(addMove(), {home_.file(name)});
  EXPECT_THAT(home_.succeed({"history", "1"}), Not(HasSubstr("\xE9")));
  EXPECT_EQ(job(1)["changes"].size(), 1U);
  undo();
  EXPECT_TRUE(exists(at(name)));
}

TEST_F(HistoryCommandsTest, ThePasswordIsNowhereInTheHistory) {
  const auto uid = home_.succeed({"add", "compress"});
  home_.home().setVariable("PASSWORD_FILE", home_.file("password", "Vorsicht7Geheim\n"));
  auto child =
      startProgram("/bin/sh", {"-c", "exec \"$0\" \"$@\" 5< \"$PASSWORD_FILE\"", TERVANO_PROGRAM,
                               "run", "--password-fd", "5", uid, home_.file("a.txt")});
  EXPECT_EQ(child.waitForExit(30), 0);
  EXPECT_EQ(job(1)["state"], "succeeded");
  for (const auto& entry : fs::directory_iterator(at(".local/state/tervano"))) {
    if (entry.is_regular_file()) {
      EXPECT_THAT(contentsOf(entry.path()), Not(HasSubstr("Vorsicht7Geheim")));
    }
  }
  undo();
  EXPECT_FALSE(exists(at("a.txt.zip")));
  EXPECT_TRUE(exists(at(".local/share/Trash/files/a.txt.zip")));
}

TEST_F(HistoryCommandsTest, ADamagedHistoryFailsNoRun) {
  home_.file(".local/state/tervano/history.sqlite", std::string(8192, 'x'));
  run(addMove(), {home_.file("a.txt")});
  EXPECT_TRUE(exists(at("to/a.txt")));
  expectFailure(home_.tervano({"history"}));
}

TEST_F(HistoryCommandsTest, WordsThatCannotBeUnderstoodAreUsageErrors) {
  expectUsageError(home_.tervano({"history", "x"}));
  expectUsageError(home_.tervano({"history", "0"}));
  expectUsageError(home_.tervano({"history", "--last", "1", "1"}));
  expectUsageError(home_.tervano({"jobs", "stop"}));
  expectUsageError(home_.tervano({"jobs", "cancel"}));
  expectUsageError(home_.tervano({"undo", "-1"}));
  expectUsageError(home_.tervano({"queue", "x", "one"}));
  expectUsageError(home_.tervano({"queue", addMove(), "0"}));
  expectFailure(home_.tervano({"history", "7"}));
  expectFailure(home_.tervano({"undo", "7"}));
}

TEST_F(HistoryCommandsTest, AMoveGoesBack) {
  const auto folder = home_.folder("from/folder");
  run(addMove(), {home_.file("from/a.txt"), folder});
  home_.file("to/folder/added later");
  EXPECT_EQ(home_.succeed({"undo", "--dry-run"}), "move " + at("to/folder") + " to " +
                                                      at("from/folder") + "\nmove " +
                                                      at("to/a.txt") + " to " + at("from/a.txt"));
  EXPECT_TRUE(exists(at("to/a.txt")));
  undo();
  EXPECT_THAT(namesIn("to"), IsEmpty());
  EXPECT_TRUE(exists(at("from/folder/added later")));
  EXPECT_TRUE(exists(at("from/a.txt")));
  EXPECT_THAT(home_.succeed({"history"}), HasSubstr("(undone)"));
  EXPECT_EQ(job(2)["undoes"], 1);
  EXPECT_EQ(job(2)["itemsDone"], 2);
  EXPECT_THAT(refusalOfUndo(), HasSubstr("There is nothing that could be undone."));
  EXPECT_THAT(refusalOfUndo({"1"}), HasSubstr("is undone already"));
  EXPECT_THAT(refusalOfUndo({"2"}), HasSubstr("is an undo itself"));
}

TEST_F(HistoryCommandsTest, AMoveThatWouldReplaceSomethingStaysAsItIs) {
  run(addMove(), {home_.file("a.txt"), home_.file("b.txt")});
  home_.file("a.txt", "new");
  EXPECT_THAT(refusalOfUndo(), HasSubstr(at("a.txt") + " is taken."));
  EXPECT_EQ(contentsOf(at("a.txt")), "new");
  EXPECT_TRUE(exists(at("to/b.txt")));
  EXPECT_FALSE(exists(at("b.txt")));
}

TEST_F(HistoryCommandsTest, AChangedItemStaysWhereItIs) {
  run(addMove(), {home_.file("a.txt"), home_.file("b.txt")});
  home_.file("to/a.txt", "changed since");
  EXPECT_THAT(refusalOfUndo(), HasSubstr(at("to/a.txt") + " is not as the job left it."));
  EXPECT_THAT(namesIn("to"), ElementsAre("a.txt", "b.txt"));
}

TEST_F(HistoryCommandsTest, AnItemThatIsGoneIsNamed) {
  run(addMove(), {home_.file("a.txt")});
  fs::remove(at("to/a.txt"));
  EXPECT_THAT(refusalOfUndo(), HasSubstr(at("to/a.txt") + " is not there any more."));
}

TEST_F(HistoryCommandsTest, AFolderThatIsGoneIsNotMadeAgain) {
  run(addMove(), {home_.file("from/a.txt")});
  fs::remove(at("from"));
  EXPECT_THAT(refusalOfUndo(), HasSubstr(at("from") + " is not there any more."));
  EXPECT_TRUE(exists(at("to/a.txt")));
}

TEST_F(HistoryCommandsTest, WhatReplacedSomethingCannotBeUndone) {
  home_.succeed({"prefs", "set", "overwriteDestinationFile", "yes"});
  home_.file("to/a.txt", "old");
  run(addMove(), {home_.file("a.txt", "new")});
  EXPECT_THAT(refusalOfUndo(), HasSubstr("it replaced " + at("to/a.txt")));
  EXPECT_EQ(contentsOf(at("to/a.txt")), "new");
}

TEST_F(HistoryCommandsTest, ACopyGoesToTheTrash) {
  home_.file("folder/file");
  run(addCopy(), {home_.file("a.txt"), at("folder")});
  undo();
  EXPECT_THAT(namesIn("to"), IsEmpty());
  EXPECT_THAT(namesIn(".local/share/Trash/files"), ElementsAre("a.txt", "folder"));
  EXPECT_TRUE(exists(at("a.txt")));
}

TEST_F(HistoryCommandsTest, ACopiedFolderInWhichSomethingChangedStays) {
  home_.file("folder/file");
  run(addCopy(), {at("folder")});
  home_.file("to/folder/file", "changed since");
  EXPECT_THAT(refusalOfUndo(), HasSubstr(at("to/folder") + " is not as the job left it."));
  EXPECT_TRUE(exists(at("to/folder/file")));
}

TEST_F(HistoryCommandsTest, ANewFileGoesToTheTrashUnlessItWasWrittenTo) {
  const auto uid = home_.succeed(
      {"add", "new-file", "--template", home_.file("template.txt"), "--name", "made"});
  run(uid, {home_.folder("here")});
  ASSERT_EQ(namesIn("here").size(), 1U);
  undo();
  EXPECT_THAT(namesIn("here"), IsEmpty());
  run(uid, {at("here")});
  home_.file("here/" + namesIn("here").front(), "written");
  EXPECT_THAT(refusalOfUndo(), HasSubstr("is not as the job left it."));
  EXPECT_EQ(namesIn("here").size(), 1U);
}

TEST_F(HistoryCommandsTest, AConversionGoesToTheTrash) {
  const auto uid = home_.succeed({"add", "convert", "--format", "jpeg"});
  ASSERT_EQ(runProgram({"/usr/bin/convert", {"-size", "8x8", "xc:red", at("red.png")}}).status, 0);
  run(uid, {at("red.png")});
  ASSERT_TRUE(exists(at("red.jpg")));
  undo();
  EXPECT_FALSE(exists(at("red.jpg")));
  EXPECT_TRUE(exists(at("red.png")));
}

TEST_F(HistoryCommandsTest, WhatCannotBeUndoneSaysWhy) {
  run(home_.succeed({"add", "secure-delete"}), {home_.file("a")});
  run(addScript("exit 0\n"), {home_.file("b")});
  EXPECT_THAT(refusalOfUndo({"1"}), HasSubstr("removed for good: that cannot be undone."));
  EXPECT_THAT(refusalOfUndo({"2"}), HasSubstr("only the script knows what would undo it."));
  EXPECT_THAT(refusalOfUndo(), HasSubstr("There is nothing that could be undone."));
}

TEST_F(HistoryCommandsTest, AnUndoThatFailsInTheMiddleIsFinishedByAnother) {
  run(addMove(), {home_.file("a.txt"), home_.file("b.txt")});
  // What was undone in another way counts as undone.
  fs::rename(at("to/b.txt"), at("b.txt"));
  undo();
  EXPECT_THAT(namesIn("to"), IsEmpty());
  EXPECT_TRUE(exists(at("a.txt")));
}

TEST_F(HistoryCommandsTest, AKilledUndoIsFinishedByAnother) {
  constexpr int kFiles = 10'000;
  const auto uid = addMove();
  std::vector<std::string> paths;
  for (int i = 0; i < kFiles; ++i) paths.push_back(home_.file("from/" + std::to_string(i), "x"));
  run(uid, paths);
  ASSERT_THAT(namesIn("from"), IsEmpty());
  auto child = startProgram(TERVANO_PROGRAM, {"undo"});
  ASSERT_TRUE(waitFor([&] { return exists(at("from/" + std::to_string(kFiles - 1))); }));
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(30), -SIGKILL);
  ASSERT_FALSE(exists(at("from/0"))) << "it was too quick to be killed";
  EXPECT_EQ(namesIn("from").size() + namesIn("to").size(), std::size_t{kFiles});
  EXPECT_THAT(home_.succeed({"history"}), HasSubstr("  interrupted   Undo of to"));
  undo();
  EXPECT_EQ(namesIn("from").size(), std::size_t{kFiles});
  EXPECT_THAT(namesIn("to"), IsEmpty());
}

TEST_F(HistoryCommandsTest, AKilledCopyIsToldAtTheNextStartAndLeavesNothingHalfDone) {
  const auto uid = addCopy();
  const auto first = home_.file("first.txt");
  for (int i = 0; i < 10'000; ++i) home_.file("folder/" + std::to_string(i), "x");
  auto child = startRun(uid, {first, at("folder")});
  ASSERT_TRUE(waitFor([&] { return exists(at("to/first.txt")) && !hiddenIn("to").empty(); }));
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(30), -SIGKILL);
  ASSERT_FALSE(exists(at("to/folder"))) << "it was too quick to be killed";
  const auto service = startService();
  EXPECT_EQ(service.status, 0);
  EXPECT_THAT(service.errors, HasSubstr("Job 1, \"to\", was interrupted: 1 of 2 items are done."));
  EXPECT_THAT(namesIn("to"), ElementsAre("first.txt"));
  EXPECT_EQ(namesIn("folder").size(), 10'000U);
  const auto shown = home_.succeed({"history", "1"});
  EXPECT_THAT(shown, HasSubstr("State: interrupted\n"));
  EXPECT_THAT(shown, HasSubstr("  copied " + first + " to " + at("to/first.txt")));
  EXPECT_THAT(shown, testing::EndsWith("before the end:\n  " + at("folder")));
  EXPECT_THAT(startService().errors, Not(HasSubstr("was interrupted")));
  undo();
  EXPECT_THAT(namesIn("to"), IsEmpty());
}

TEST_F(HistoryCommandsTest, AKilledArchiveIsToldAtTheNextStart) {
  const auto uid = home_.succeed({"add", "compress"});
  const auto big = home_.file("docs/big", "");
  fs::resize_file(big, std::uintmax_t{1} << 40);
  home_.home().setVariable("PASSWORD_FILE", home_.file("password", "word"));
  auto child = startProgram("/bin/sh", {"-c", "exec \"$0\" \"$@\" 5< \"$PASSWORD_FILE\"",
                                        TERVANO_PROGRAM, "run", "--password-fd", "5", uid, big});
  ASSERT_TRUE(waitFor([&] { return !hiddenIn("docs").empty(); }));
  ASSERT_TRUE(waitFor([&] { return !home_.json({"jobs", "--json"}).empty(); }));
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(30), -SIGKILL);
  EXPECT_THAT(startService().errors, HasSubstr("was interrupted: 0 of 1 item is done."));
  EXPECT_THAT(namesIn("docs"), ElementsAre("big"));
}

TEST_F(HistoryCommandsTest, AKilledConversionIsToldAtTheNextStart) {
  const auto uid = home_.succeed({"add", "convert", "--format", "png"});
  std::vector<std::string> pictures;
  for (int i = 0; i < 6; ++i) {
    pictures.push_back(at("pictures/" + std::to_string(i) + ".tiff"));
    home_.folder("pictures");
    ASSERT_EQ(
        runProgram({"/usr/bin/convert", {"-size", "1500x1500", "plasma:", pictures.back()}}).status,
        0);
  }
  auto child = startRun(uid, pictures);
  const auto converted = [&] {
    std::size_t count = 0;
    for (const auto& name : namesIn("pictures")) {
      if (name.ends_with(".png") && !name.starts_with(".")) ++count;
    }
    return count;
  };
  ASSERT_TRUE(waitFor([&] { return converted() != 0; }));
  child.kill(SIGKILL);
  EXPECT_EQ(child.waitForExit(30), -SIGKILL);
  ASSERT_LT(converted(), pictures.size()) << "it was too quick to be killed";
  EXPECT_THAT(startService().errors, HasSubstr("was interrupted"));
  for (const auto& picture : pictures) EXPECT_TRUE(exists(picture));
  EXPECT_EQ(job(1)["state"], "interrupted");
  // The tools end by themselves, and each whole.
  EXPECT_TRUE(waitFor([&] {
    const auto names = namesIn("pictures");
    return std::none_of(names.begin(), names.end(),
                        [](const auto& name) { return name.starts_with("."); });
  }));
}

TEST_F(HistoryCommandsTest, AJobIsListedAndCancelledFromAnotherProcess) {
  auto child = startRun(addScript("echo $$ > \"$HOME/pid\"; exec sleep 600\n"), {home_.file("a")});
  ASSERT_TRUE(waitFor([&] {
    return exists(at("pid")) && home_.succeed({"jobs"}).find("  running ") != std::string::npos;
  }));
  const auto jobs = home_.json({"jobs", "--json"});
  ASSERT_EQ(jobs.size(), 1U);
  EXPECT_EQ(jobs[0]["pid"], child.pid());
  EXPECT_EQ(jobs[0]["state"], "running");
  EXPECT_THAT(home_.succeed({"jobs", "cancel", "1"}), HasSubstr("is cancelled: 0 of 1 item done."));
  EXPECT_EQ(child.waitForExit(30), 1);
  EXPECT_EQ(home_.succeed({"jobs"}), "");
  EXPECT_EQ(job(1)["state"], "cancelled");
  EXPECT_THAT(home_.tervano({"jobs", "cancel", "1"}).errors,
              HasSubstr("has ended already: cancelled."));
  expectFailure(home_.tervano({"jobs", "cancel", "9"}));
}

TEST_F(HistoryCommandsTest, AnInterruptIsACancelledJob) {
  auto child = startRun(addScript("touch \"$HOME/begun\"; exec sleep 600\n"), {home_.file("a")});
  ASSERT_TRUE(waitFor([&] { return exists(at("begun")); }));
  child.kill(SIGINT);
  EXPECT_EQ(child.waitForExit(30), 1);
  EXPECT_EQ(job(1)["state"], "cancelled");
}

TEST_F(HistoryCommandsTest, ATerminatedServiceCancelsWhatRunsAndWhatWaits) {
  const auto uid = addScript("touch \"$HOME/begun\"; exec sleep 600\n");
  home_.succeed({"queue", uid, "one"});
  EXPECT_EQ(home_.succeed({"queue"}), uid + "  1  Run Script");
  home_.folder(".local/share/Q4T7N2XR8K.com.vessok.tervano");
  std::vector<std::string> urls{"service"};
  for (const char end : {'1', '2'}) {
    const std::string name = std::string("01234567-89AB-CDEF-0123-456789ABCDE") + end;
    home_.file(".local/share/Q4T7N2XR8K.com.vessok.tervano/" + name,
               "{\"paths\": [\"" + home_.file("a") + "\"]}");
    urls.push_back("tervano://runaction?action=" + uid + "&file=" + name);
  }
  auto service = startProgram(TERVANO_PROGRAM, urls);
  ASSERT_TRUE(waitFor([&] {
    const auto listed = home_.succeed({"jobs"});
    return exists(at("begun")) && listed.find("  running ") != std::string::npos &&
           listed.find("  waiting ") != std::string::npos;
  }));
  const auto jobs = home_.json({"jobs", "--json"});
  EXPECT_EQ(jobs[0]["state"], "running");
  EXPECT_EQ(jobs[1]["state"], "waiting");
  EXPECT_THAT(home_.succeed({"jobs", "cancel", "2"}), HasSubstr("is cancelled"));
  service.kill(SIGTERM);
  EXPECT_EQ(service.waitForExit(30), 0);
  EXPECT_EQ(job(1)["state"], "cancelled");
  EXPECT_EQ(job(2)["state"], "cancelled");
}

}  // namespace tervano::test
