#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/companion/tervano_program.h"
#include "tests/integration/desktop.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// "./run" without a terminal, on the built program, with its own folder beside it.
class RunScriptTest : public testing::Test {
 protected:
  RunScriptTest() : build_(home_.folder("built")) {
    adoptOrphans();
    const fs::path real = fs::path(TERVANO_SHARE).parent_path();
    for (const char* part : {"bin", "share"}) {
      fs::create_directory_symlink(real / part, build_ + "/" + part);
    }
    home_.home().setVariable("TERVANO_BUILD", build_);
    // As on a fresh account: only the home is known.
    for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME",
                             "XDG_RUNTIME_DIR"}) {
      home_.home().setVariable(name, std::nullopt);
    }
  }

  // The bus, the companion and the daemons of the script end with it.
  void TearDown() override { expectEveryChildToLeave(); }

  static ProgramOutcome run(const std::vector<std::string>& words = {}) {
    ProgramStart start;
    start.path = std::string(TERVANO_SOURCE) + "/run";
    start.arguments = words;
    start.seconds = 60;
    return runProgram(start);
  }

  ScopedPlatform platform_;
  ProgramHome home_;
  std::string build_;
};

}  // namespace

TEST_F(RunScriptTest, ShowsTheMenuTheMovedFilesAndTheNotificationTwiceInARow) {
  for (int turn = 1; turn <= 2; ++turn) {
    const auto outcome = run();
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, HasSubstr("The menu for 5 files:\n"));
    EXPECT_THAT(outcome.output, HasSubstr("Move to a folder >\n"));
    EXPECT_THAT(outcome.output, HasSubstr("/moved, where now lie:\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n  Shopping list.txt\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\nNotification:\n  Tervano: Finished moving 5 files\n"));
  }
  EXPECT_FALSE(exists(home_.path() + "/.local/share/Q4T7N2XR8K.com.vessok.tervano"))
      << "the home is left alone";
}

TEST_F(RunScriptTest, LeavesAListOfOnesOwnByteForByteUnchanged) {
  home_.succeed({"add", "move", "--title", "Mine", "--to", home_.folder("mine")});
  const std::string list = contentsOf(home_.listFile());
  const auto outcome = run();
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(contentsOf(home_.listFile()), list);
  EXPECT_TRUE(fs::is_empty(home_.path() + "/mine"));
}

TEST_F(RunScriptTest, MovesOnesOwnFilesByTheListOfOnesOwn) {
  home_.succeed({"add", "move", "--title", "Mine", "--to", home_.folder("mine")});
  const std::string list = contentsOf(home_.listFile());
  const auto file = home_.file("-a \"b\".txt");
  const auto outcome = run({file});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(contentsOf(home_.listFile()), list);
  EXPECT_TRUE(exists(home_.path() + "/mine/-a \"b\".txt"));
  EXPECT_THAT(outcome.output, HasSubstr("Finished moving '-a \"b\".txt'"));
}

TEST_F(RunScriptTest, MissingFileIsToldAndNothingIsStarted) {
  const auto outcome = run({home_.path() + "/missing"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "run: there is no \"" + home_.path() + "/missing\"\n");
}

}  // namespace tervano::test
