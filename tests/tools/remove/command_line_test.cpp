#include "tools/remove/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/remove/remove_test.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string refusalOf(const std::vector<std::string>& words) {
  try {
    parseRemoveCommandLine(words);
  } catch (const RemoveUsageError& error) {
    return error.what();
  }
  return "";
}

void expectEverything(const std::vector<std::string>& words) {
  const auto line = parseRemoveCommandLine(words);
  EXPECT_TRUE(line.isVerbose);
  EXPECT_TRUE(line.isForced);
  EXPECT_TRUE(line.isRecursive);
  EXPECT_TRUE(line.overwrites);
  EXPECT_THAT(line.paths, ElementsAre("/a b"));
}

TEST(RemoveCommandLineTest, TheArgumentsOfTheActionAreUnderstood) {
  expectEverything({"-v", "-f", "-r", "-P", "/a b"});
}

TEST(RemoveCommandLineTest, OptionsStandInAnyOrderAndTogether) {
  expectEverything({"-Prfv", "/a b"});
  expectEverything({"-P", "-vr", "-f", "--", "/a b"});
}

TEST(RemoveCommandLineTest, OptionsMayStandBehindPaths) {
  expectEverything({"/a b", "-v", "-frP"});
}

TEST(RemoveCommandLineTest, NothingIsOnUnlessItIsAskedFor) {
  const auto line = parseRemoveCommandLine({"/a"});
  EXPECT_FALSE(line.isVerbose || line.isForced || line.isRecursive || line.overwrites);
  EXPECT_FALSE(line.wantsHelp || line.wantsExplanation);
}

TEST(RemoveCommandLineTest, TwoHyphensEndTheOptions) {
  const auto line = parseRemoveCommandLine({"-f", "--", "-r", "--", "--help"});
  EXPECT_FALSE(line.isRecursive);
  EXPECT_THAT(line.paths, ElementsAre("-r", "--", "--help"));
}

TEST(RemoveCommandLineTest, AHyphenAloneIsAPath) {
  EXPECT_THAT(parseRemoveCommandLine({"-"}).paths, ElementsAre("-"));
}

TEST(RemoveCommandLineTest, UnknownOptionsAreRefused) {
  EXPECT_THAT(refusalOf({"-x", "/a"}), HasSubstr("no option -x;"));
  EXPECT_THAT(refusalOf({"-vx", "/a"}), HasSubstr("no option -vx;"));
  EXPECT_THAT(refusalOf({"--force", "/a"}), HasSubstr("no option --force;"));
  EXPECT_THAT(refusalOf({"-\n", "/a"}), HasSubstr("no option -\\n;"));
}

TEST(RemoveCommandLineTest, AMissingPathIsRefused) {
  EXPECT_EQ(refusalOf({}), "A path is missing.");
  EXPECT_EQ(refusalOf({"-f", "--"}), "A path is missing.");
  EXPECT_EQ(refusalOf({"--explain"}), "A path is missing.");
}

TEST(RemoveCommandLineTest, ExplainTakesNoOtherOption) {
  EXPECT_THAT(refusalOf({"-r", "--explain", "/a"}), HasSubstr("removes nothing"));
  EXPECT_TRUE(parseRemoveCommandLine({"--explain", "/a"}).wantsExplanation);
}

TEST(RemoveCommandLineTest, WrongUsageIsOneSentenceAndStatus2) {
  const auto outcome = runRemove({"-Z", "/nowhere"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors,
            "tervano-remove: There is no option -Z; a path that begins with a hyphen goes behind "
            "\"--\".\n");
}

TEST(RemoveCommandLineTest, HelpTellsWhatOverwritingCannotPromise) {
  const auto outcome = runRemove({"--help"});
  expectSuccess(outcome);
  for (const char* const word : {"-P ", "-r ", "-f ", "-v ", "--explain", "Solid-state", "Btrfs",
                                 "snapshots", "network", "journal", "swap"}) {
    EXPECT_THAT(outcome.output, HasSubstr(word));
  }
}

}  // namespace
}  // namespace tervano::test
