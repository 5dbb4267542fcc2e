#include "platform/linux/stderr_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "tests/support/child_process.h"

namespace tervano {
namespace {

// What the log writes to standard error for one line.
std::string written(std::string_view line) {
  testing::internal::CaptureStderr();
  StderrLog().write(line);
  return testing::internal::GetCapturedStderr();
}

TEST(StderrLogTest, ALineNamesTheProgramAndTheProcess) {
  EXPECT_EQ(written("Skipping: /a"), std::string(program_invocation_short_name) + "[" +
                                         std::to_string(getpid()) + "] tervano: Skipping: /a\n");
}

TEST(StderrLogTest, LineFeedsAndEscapesInsideATextAreShownEscaped) {
  EXPECT_EQ(StderrLog::escaped("a\nb\tc\rd\x1b[31m\x7f" + std::string(1, '\0')),
            "a\\nb\\tc\\rd\\x1B[31m\\x7F\\x00");
}

TEST(StderrLogTest, ControlCharactersOfTheSecondSetAreShownEscaped) {
  EXPECT_EQ(StderrLog::escaped("\xC2\x9B"
                               "31m"),
            "\\xC2\\x9B"
            "31m");
}

TEST(StderrLogTest, WellFormedTextStaysAsItIs) {
  EXPECT_EQ(StderrLog::escaped("K\xC3\xA4se \xE2\x82\xAC \xF0\x9F\x98\x80 \\n"),
            "K\xC3\xA4se \xE2\x82\xAC \xF0\x9F\x98\x80 \\n");
}

TEST(StderrLogTest, BytesThatAreNotUtf8AreShownEscaped) {
  EXPECT_EQ(StderrLog::escaped("\xFF\xC3(\xE2\x82"), "\\xFF\\xC3(\\xE2\\x82");
}

TEST(StderrLogTest, OverlongFormsAndSurrogatesAreNotUtf8) {
  EXPECT_EQ(StderrLog::escaped("\xC0\x80\xE0\x80\x80\xED\xA0\x80\xF4\x90\x80\x80"),
            "\\xC0\\x80\\xE0\\x80\\x80\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80");
}

TEST(StderrLogTest, AClosedPipeDoesNotKillTheProcess) {
  auto child = test::forkChild([](test::ParentLink&) {
    signal(SIGPIPE, SIG_DFL);
    int ends[2];
    if (pipe(ends) != 0) return 1;
    close(ends[0]);
    dup2(ends[1], STDERR_FILENO);
    StderrLog().write("nobody reads this");
    return 7;
  });
  EXPECT_EQ(child.waitForExit(), 7);
}

TEST(StderrLogTest, AFullPipeThatDoesNotBlockLosesTheLineOnly) {
  auto child = test::forkChild([](test::ParentLink&) {
    int ends[2];
    if (pipe2(ends, O_NONBLOCK) != 0) return 1;
    dup2(ends[1], STDERR_FILENO);
    while (write(ends[1], "x", 1) == 1) {
    }
    StderrLog().write("no room");
    return 7;
  });
  EXPECT_EQ(child.waitForExit(), 7);
}

TEST(StderrLogTest, ErrnoSurvivesALine) {
  testing::internal::CaptureStderr();
  errno = ENOSPC;
  StderrLog().write("x");
  EXPECT_EQ(errno, ENOSPC);
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace tervano
