#include <unistd.h>

#include <csignal>
#include <fstream>

#include "tests/resources/default_script_test.h"
#include "tests/support/program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

std::string asTestName(const std::string& title) {
  std::string name = title;
  std::erase(name, ' ');
  return name;
}

// What all of them do alike.
class EveryScriptTest : public DefaultScriptTest {
 protected:
  EveryScriptTest() {
    home().setVariable("DISPLAY", ":nowhere");
    install("xclip", "cat >/dev/null");
    install("xdg-terminal-exec", "true");
  }
  void forgetNotifications() const { std::filesystem::remove(homePath() + "/notified"); }
  // Those that only copy text work whatever it names.
  static std::vector<std::string> titlesThatNeedFiles() {
    auto titles = scriptTitles();
    std::erase_if(titles, [](const auto& title) { return title.starts_with("Copy "); });
    return titles;
  }
};

TEST_F(EveryScriptTest, ThereAreAsManyAsWereMade) {
  EXPECT_THAT(scriptTitles(), SizeIs(15));
  EXPECT_THAT(titlesThatNeedFiles(), SizeIs(13));
}

TEST_F(EveryScriptTest, SaysThatNothingWasSelected) {
  for (const auto& title : scriptTitles()) {
    expectProblem(run(title, {}), title, "No file was selected.");
    forgetNotifications();
  }
}

TEST_F(EveryScriptTest, SaysWhichFileIsMissingAndMakesNothing) {
  for (const auto& title : titlesThatNeedFiles()) {
    expectProblem(run(title, {at("gone $(touch pwned)\n.txt")}), title,
                  "\"gone $(touch pwned)\xef\xbf\xbd.txt\" cannot be found.");
    forgetNotifications();
    EXPECT_THAT(tree(), IsEmpty()) << title;
  }
}

TEST_F(EveryScriptTest, TakesAnEmptyPathForMissing) {
  for (const auto& title : titlesThatNeedFiles()) {
    expectProblem(run(title, {""}), title, "\"\" cannot be found.");
    forgetNotifications();
  }
}

TEST_F(EveryScriptTest, CountsWhatElseIsMissingInOneNotification) {
  for (const auto& title : titlesThatNeedFiles()) {
    const auto outcome = run(title, {at("a"), at("b"), at("c")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, title + ": \"a\" cannot be found.\n" + title +
                                  ": \"b\" cannot be found.\n" + title +
                                  ": \"c\" cannot be found.\n");
    EXPECT_THAT(notifications(),
                ElementsAre(title + ": \"a\" cannot be found. (And 2 more problems.)"));
    forgetNotifications();
  }
}

TEST_F(EveryScriptTest, WorksWithoutAProgramThatShowsNotifications) {
  leaveOnly({"xclip", "bsdtar", "exiftool", "qpdf"});
  std::filesystem::remove(homePath() + "/programs/notify-send");
  for (const auto& title : scriptTitles()) {
    const auto outcome = run(title, {});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, title + ": No file was selected.\n");
  }
}

TEST_F(EveryScriptTest, IsFoundFromItsOwnFolderWithoutAPath) {
  for (const auto& title : scriptTitles()) {
    ProgramStart start;
    start.path = "/bin/bash";
    start.arguments = {title + ".sh"};
    start.folder = TERVANO_RESOURCES "/Default Scripts";
    expectProblem(runProgram(start), title, "No file was selected.");
    forgetNotifications();
  }
}

TEST_F(EveryScriptTest, IsMarkedExecutable) {
  for (const auto& title : scriptTitles()) {
    EXPECT_EQ(access(scriptPath(title).c_str(), X_OK), 0) << title;
  }
}

TEST_F(EveryScriptTest, RunsNothingThatANameSaysAndLeavesNothingHidden) {
  for (const auto& title : scriptTitles()) {
    std::filesystem::remove_all(files());
    makeFolder("");
    const auto outcome = run(title, makeHostile());
    EXPECT_THAT(outcome.errors, Not(HasSubstr(": line "))) << "an error of the shell";
    EXPECT_FALSE(exists(at("pwned"))) << title;
    EXPECT_FALSE(exists(homePath() + "/pwned")) << title;
    EXPECT_THAT(tree(), Not(Contains(HasSubstr(".tervano-")))) << title;
    // Neither beside the files nor among what belongs to the session.
    EXPECT_TRUE(std::filesystem::is_empty(homePath() + "/run")) << title;
  }
}

// A script that leans on a program which is not there.
struct Missing {
  std::string title;
  std::string program;
  std::string package;
};

void PrintTo(const Missing& missing, std::ostream* stream) {
  *stream << missing.title;
}

class MissingProgramTest : public DefaultScriptTest, public testing::WithParamInterface<Missing> {};

TEST_P(MissingProgramTest, IsNamedWithItsPackage) {
  leaveOnly({});
  const auto file = make("a.pdf", "%PDF-");
  const auto [title, program, package] = GetParam();
  if (package == "wl-clipboard") home().setVariable("WAYLAND_DISPLAY", "nowhere");
  if (package == "xclip") home().setVariable("DISPLAY", ":nowhere");
  expectProblem(run(title, {file, file}), title,
                "The program \"" + program + "\" is missing; install the Debian package \"" +
                    package + "\".");
  EXPECT_THAT(tree(), ElementsAre("a.pdf"));
}

INSTANTIATE_TEST_SUITE_P(DefaultScripts, MissingProgramTest,
                         testing::Values(Missing{"Copy Path", "wl-copy", "wl-clipboard"},
                                         Missing{"Copy Name", "xclip", "xclip"},
                                         Missing{"Extract Here", "bsdtar", "libarchive-tools"},
                                         Missing{"Merge PDFs", "qpdf", "qpdf"},
                                         Missing{"Remove Metadata from Pictures", "exiftool",
                                                 "libimage-exiftool-perl"}),
                         [](const auto& test) { return asTestName(test.param.title); });

// A script that is ended while a program works for it.
struct Interruption {
  std::string title;
  std::vector<std::string> names;
  std::string program;
  // What the program does before it hangs.
  std::string beginning;
};

void PrintTo(const Interruption& interruption, std::ostream* stream) {
  *stream << interruption.title;
}

class InterruptedScriptTest : public DefaultScriptTest,
                              public testing::WithParamInterface<Interruption> {
 protected:
  static bool isRunning(const std::string& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("State:")) return line.find('Z') == std::string::npos;
    }
    return false;
  }
  ScopedPlatform platform_;
};

TEST_P(InterruptedScriptTest, LeavesNoPartOfAResultAndNoProgram) {
  const auto& [title, names, program, beginning] = GetParam();
  const std::string started = homePath() + "/started";
  home().setVariable("STARTED", started);
  // The second time it is the real program: a script that puts things back needs it.
  install(program, "[ ! -e \"$STARTED\" ] || exec /usr/bin/" + program + " \"$@\"\n" + beginning +
                       "\nprintf %s $$ >\"$STARTED.tmp\"\n/usr/bin/mv \"$STARTED.tmp\" "
                       "\"$STARTED\"\nexec sleep 600");
  std::vector<std::string> words{scriptPath(title)};
  for (const auto& name : names) words.push_back(make(name, "%PDF-" + name + '\0'));
  const auto before = tree();
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    std::filesystem::remove(started);
    auto script = startProgram("/bin/bash", words);
    ASSERT_TRUE(waitUntil([&] { return exists(started); }));
    EXPECT_NE(tree(), before) << "nothing to clean up";
    script.kill(signal);
    EXPECT_EQ(script.waitForExit(), 128 + signal);
    EXPECT_EQ(tree(), before);
    for (const auto& name : names) EXPECT_EQ(contentsOf(at(name)), "%PDF-" + name + '\0');
    EXPECT_TRUE(waitUntil([&] { return !isRunning(contentsOf(started)); }));
  }
}

INSTANTIATE_TEST_SUITE_P(
    DefaultScripts, InterruptedScriptTest,
    testing::Values(
        Interruption{"Compress to Tar Archive", {"a", "b"}, "tar", "echo part >\"${4#--file=}\""},
        Interruption{"Create Checksums File", {"a", "b/c"}, "sha256sum", "echo part"},
        Interruption{"Duplicate", {"a"}, "cp", "echo part >\"${@: -1}\""},
        Interruption{"Extract Here",
                     {"a.zip"},
                     "bsdtar",
                     "mkdir -m 0 \"$7/closed\"; echo part >\"$7/part\""},
        Interruption{"Merge PDFs", {"a.pdf", "b.pdf"}, "qpdf", "echo part >\"${@: -1}\""},
        Interruption{
            "New Folder with Selection", {"a", "b", "c"}, "mv", "/usr/bin/mv \"$2\" -- \"$4\""},
        Interruption{"Remove Metadata from Pictures", {"a.jpg"}, "exiftool", "echo part >out/1"}),
    [](const auto& test) { return asTestName(test.param.title); });

}  // namespace
}  // namespace tervano::test
