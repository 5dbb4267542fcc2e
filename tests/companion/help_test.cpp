#include "companion/help.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "companion/command.h"
#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;
using testing::Not;

const CommandHelp kHelp = {
    "try",
    "try things",
    {"A [--deep]", "B"},
    {"A paragraph with a back\\slash that is long enough to be broken into lines of eighty columns "
     "at most, like any other.",
     ".PP at the beginning is text, not a request.", "'quoted at the beginning"},
    {{"--deep N", "How deep."}}};

std::vector<std::string> commandNames() {
  std::vector<std::string> names;
  for (const auto& command : allCommands()) names.push_back(command.help.name);
  return names;
}

// What "man -l" makes of a page, and its warnings.
ProgramOutcome rendered(const std::string& page) {
  ProgramStart start;
  start.path = "/usr/bin/man";
  start.arguments = {"--warnings=w", "--encoding=UTF-8", "-P", "cat", "-l", page};
  return runProgram(start);
}

}  // namespace

TEST(HelpTest, EveryFormStandsInTheUsage) {
  const std::string text = helpText(kHelp);
  EXPECT_THAT(text, HasSubstr("usage: tervano try A [--deep]\n       tervano try B\n"));
  EXPECT_THAT(text, HasSubstr("  --deep N\n      How deep.\n"));
}

TEST(HelpTest, NoLineIsWiderThanATerminal) {
  for (const auto& command : allCommands()) {
    std::istringstream lines(helpText(command.help));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(line.size(), 80U) << line;
    }
  }
}

TEST(HelpTest, HelpTellsTheExitStatus) {
  EXPECT_THAT(helpText(kHelp), HasSubstr("0 for success, 1 for a failure, 2 when"));
}

TEST(HelpTest, ManualPageKeepsBackslashesAndLeadingDots) {
  const ProgramHome home;
  const auto outcome = rendered(home.file("try.1", manualPage(kHelp)));
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(outcome.output, HasSubstr("back\\slash"));
  EXPECT_THAT(outcome.output, HasSubstr(".PP at the beginning"));
  EXPECT_THAT(outcome.output, HasSubstr("'quoted at the beginning"));
}

TEST(HelpTest, EveryBuiltManualPageIsRenderedWithoutAWarning) {
  const ProgramHome home;
  std::vector<std::string> pages{std::string(TERVANO_MANUAL) + "/tervano.1"};
  for (const auto& name : commandNames()) {
    pages.push_back(std::string(TERVANO_MANUAL) + "/tervano-" + name + ".1");
  }
  for (const auto& page : pages) {
    ASSERT_TRUE(exists(page)) << page;
    const auto outcome = rendered(page);
    EXPECT_EQ(outcome.status, 0) << page;
    EXPECT_EQ(outcome.errors, "") << page;
    EXPECT_THAT(outcome.output, HasSubstr("SYNOPSIS")) << page;
  }
}

TEST(HelpTest, ThereIsAManualPageForEveryCommandAndNoOther) {
  std::size_t pages = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TERVANO_MANUAL)) {
    pages += entry.path().extension() == ".1" ? 1 : 0;
  }
  EXPECT_EQ(pages, commandNames().size() + 1);
}

TEST(HelpTest, OverviewNamesEveryCommand) {
  const ProgramHome home;
  const std::string overview = home.succeed({"help"});
  for (const auto& name : commandNames()) EXPECT_THAT(overview, HasSubstr("\n  " + name + " "));
}

TEST(HelpTest, HelpOfACommandIsTheSameByEitherSpelling) {
  const ProgramHome home;
  for (const auto& name : commandNames()) {
    const std::string text = home.succeed({"help", name});
    EXPECT_THAT(text, HasSubstr("usage: tervano " + name));
    EXPECT_EQ(home.succeed({name, "--help"}), text);
  }
}

TEST(HelpTest, NoCommandShowsTheOverviewAsAUsageError) {
  const ProgramHome home;
  const auto outcome = home.tervano({});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.errors, HasSubstr("usage: tervano COMMAND"));
}

TEST(HelpTest, UnknownCommandIsAUsageError) {
  const ProgramHome home;
  expectUsageError(home.tervano({"lsit"}));
  expectUsageError(home.tervano({"help", "lsit"}));
}

TEST(HelpTest, HelpOfTwoCommandsIsAUsageError) {
  const ProgramHome home;
  expectUsageError(home.tervano({"help", "list", "show"}));
}

TEST(HelpTest, VersionIsOneLine) {
  const ProgramHome home;
  EXPECT_THAT(home.succeed({"--version"}), testing::MatchesRegex("tervano [0-9.]+"));
}

TEST(HelpTest, HelpWritesNothingIntoTheHome) {
  const ProgramHome home;
  home.succeed({"help", "add"});
  EXPECT_FALSE(exists(home.container()));
}

}  // namespace tervano::test
