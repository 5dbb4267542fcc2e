#include "companion/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "companion/arguments.h"
#include "companion/command.h"
#include "tests/companion/terminal.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"

namespace tervano::test {

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

constexpr char kBashFile[] = TERVANO_BUILD "/share/bash-completion/completions/tervano";
constexpr char kZshFolder[] = TERVANO_BUILD "/share/zsh/vendor-completions";
constexpr char kFishFile[] = TERVANO_BUILD "/share/fish/vendor_completions.d/tervano.fish";

// Each shell loads the file that is installed, and finds the built program in PATH.
class CompletionTest : public testing::Test {
 protected:
  CompletionTest() {
    const std::string folder = std::filesystem::path(TERVANO_PROGRAM).parent_path();
    home_.home().setVariable("PATH", folder + ":/usr/bin:/bin");
  }
  ProgramOutcome shell(const std::string& path, std::vector<std::string> arguments) {
    ProgramStart start;
    start.path = path;
    start.arguments = std::move(arguments);
    return runProgram(start);
  }
  // What bash completes the last of the words to.
  std::vector<std::string> bash(const std::string& words, int last) {
    const auto outcome = shell(
        "/usr/bin/bash", {"-c", std::string("source ") + kBashFile + "; COMP_WORDS=(tervano " +
                                    words + "); COMP_CWORD=" + std::to_string(last) +
                                    "; _tervano; printf '%s\\n' \"${COMPREPLY[@]}\""});
    EXPECT_EQ(outcome.errors, "");
    return lines(outcome.output);
  }
  // The first column of what fish offers for the command line.
  std::vector<std::string> fish(const std::string& line) {
    const auto outcome = shell(
        "/usr/bin/fish",
        {"--no-config", "-c", std::string("source ") + kFishFile + "; complete -C '" + line + "'"});
    EXPECT_EQ(outcome.errors, "");
    auto found = lines(outcome.output);
    for (auto& entry : found) entry = entry.substr(0, entry.find('\t'));
    return found;
  }
  static std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> found;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) found.push_back(line);
    return found;
  }

  ProgramHome home_;
};

}  // namespace

TEST_F(CompletionTest, TheBuiltFilesAreWhatTheProgramPrints) {
  EXPECT_EQ(home_.succeed({"completion", "bash"}) + "\n", contentsOf(kBashFile));
  EXPECT_EQ(home_.succeed({"completion", "zsh"}) + "\n",
            contentsOf(std::string(kZshFolder) + "/_tervano"));
  EXPECT_EQ(home_.succeed({"completion", "fish"}) + "\n", contentsOf(kFishFile));
}

TEST_F(CompletionTest, AnUnknownShellIsAUsageError) {
  expectUsageError(home_.tervano({"completion", "csh"}));
  EXPECT_THROW(completionScript("csh", {}), UsageError);
}

TEST_F(CompletionTest, BashCompletesCommands) {
  EXPECT_EQ(bash("exp", 1), (std::vector<std::string>{"export", "explain"}));
  std::vector<std::string> names;
  for (const auto& command : helpOfAllCommands()) names.push_back(command.name);
  EXPECT_THAT(bash("''", 1), IsSupersetOf(names));
  EXPECT_THAT(bash("help ''", 2), IsSupersetOf(names));
}

TEST_F(CompletionTest, BashCompletesOptionsKindsAndPreferences) {
  EXPECT_EQ(bash("run --d", 2), (std::vector<std::string>{"--dry-run"}));
  EXPECT_EQ(bash("add secure", 2), (std::vector<std::string>{"secure-delete"}));
  EXPECT_EQ(bash("prefs get useS", 3), (std::vector<std::string>{"useSubmenu"}));
  EXPECT_EQ(bash("archive d", 2), (std::vector<std::string>{"dump"}));
}

TEST_F(CompletionTest, BashCompletesTheUidsOfTheListMembersIncluded) {
  const auto group = home_.succeed({"add", "group-move"});
  const auto member = home_.succeed({"add", "move", "--into", group});
  EXPECT_EQ(bash("show ''", 2), (std::vector<std::string>{"--json", group, member}));
  EXPECT_THAT(bash("list ''", 2), Not(Contains(group)));
}

TEST_F(CompletionTest, BashLeavesFilesToItself) {
  EXPECT_EQ(bash("explain /etc/pass", 2), (std::vector<std::string>{""}));
  EXPECT_THAT(contentsOf(kBashFile), HasSubstr("complete -o default "));
}

TEST_F(CompletionTest, FishCompletesCommandsOptionsKindsAndUids) {
  const auto uid = home_.succeed({"add", "move", "--title", "Away"});
  EXPECT_EQ(fish("tervano exp"), (std::vector<std::string>{"explain", "export"}));
  EXPECT_EQ(fish("tervano run --dry"), (std::vector<std::string>{"--dry-run"}));
  EXPECT_THAT(fish("tervano add secure"), Contains("secure-delete"));
  EXPECT_THAT(fish("tervano show " + uid.substr(0, 6)), Contains(uid));
  EXPECT_THAT(fish("tervano help expl"), Contains("explain"));
}

TEST_F(CompletionTest, ZshCompletesCommandsOptionsAndUids) {
  const auto uid = home_.succeed({"add", "move", "--title", "Away"});
  Terminal terminal([] {
    setenv("TERM", "dumb", 1);
    setenv("PS1", "ready> ", 1);
    execl("/usr/bin/zsh", "zsh", "-f", "-i", nullptr);
    return 98;
  });
  terminal.readUntil("ready> ");
  terminal.type(std::string("fpath=(") + kZshFolder +
                " $fpath); autoload -U compinit; compinit -u -D; echo lo''aded\n");
  terminal.readUntil("loaded");
  terminal.readUntil("ready> ");
  terminal.type("tervano expla\t");
  terminal.readUntil("tervano explain ");
  terminal.type("\x15tervano run --dry\t");
  terminal.readUntil("--dry-run");
  terminal.type("\x15tervano show " + uid.substr(0, 6) + "\t");
  terminal.readUntil(uid);
  terminal.type(
      "\x15"
      "exit\n");
  EXPECT_EQ(terminal.waitForExit(), 0);
}

}  // namespace tervano::test
