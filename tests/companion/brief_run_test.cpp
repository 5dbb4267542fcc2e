#include "companion/brief_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr double kLongEnough = 20;

BriefRun runInShell(const std::string& line, double seconds = kLongEnough) {
  return runBriefly("/bin/bash", {"-c", line}, seconds);
}

class BriefRunTest : public testing::Test {
 protected:
  ScopedPlatform platform_;
};

}  // namespace

TEST_F(BriefRunTest, StatusAndBothOutputsAreKnown) {
  const auto run = runInShell("echo out; echo err >&2; exit 3");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.output, "out\n");
  EXPECT_EQ(run.errors, "err\n");
  EXPECT_THAT(run.failure.english(), IsEmpty());
}

TEST_F(BriefRunTest, StandardInputIsEmpty) {
  const auto run = runInShell("cat; echo end");
  EXPECT_EQ(run.output, "end\n");
}

TEST_F(BriefRunTest, MoreOutputThanAPipeHoldsIsComplete) {
  const auto run = runInShell("head -c 1000000 /dev/zero");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output.size(), 1'000'000U);
}

TEST_F(BriefRunTest, AProgramThatIsMissingHasNoStatus) {
  const auto run = runBriefly(platform_.home().path() + "/none", {}, kLongEnough);
  EXPECT_EQ(run.status, -1);
  EXPECT_THAT(run.failure.english(), HasSubstr("/none"));
}

TEST_F(BriefRunTest, AProgramThatASignalEndedHasNoStatus) {
  const auto run = runInShell("kill -9 $$");
  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(run.failure, "/bin/bash was ended by signal 9");
}

TEST_F(BriefRunTest, AProgramThatDoesNotEndIsKilled) {
  const auto run =
      runInShell("trap '' TERM; echo begun; while :; do read -r -t 1 <> <(:); done", 1);
  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(run.failure, "/bin/bash did not end in time");
  EXPECT_EQ(platform_.processes().runningProcesses(), 0);
}

TEST_F(BriefRunTest, ADescendantThatHoldsThePipesIsNotWaitedFor) {
  const std::string file = platform_.home().path() + "/pid";
  const auto run = runInShell("sleep 600 & echo $! >" + file + "; echo left");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "left\n");
  EXPECT_EQ(kill(std::stoi(contentsOf(file)), SIGKILL), 0) << "it still ran";
}

}  // namespace tervano::test
