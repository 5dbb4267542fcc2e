#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/companion/terminal.h"
#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;

class RemoveOnATerminalTest : public testing::Test {
 protected:
  RemoveOnATerminalTest()
      : group_(home_.succeed({"add", "group-move", "--title", "Group"})),
        member_(home_.succeed({"add", "move", "--title", "Member", "--into", group_})) {}

  ProgramHome home_;
  std::string group_;
  std::string member_;
};

}  // namespace

TEST_F(RemoveOnATerminalTest, AYesRemovesTheActionThatWasNamedWithItsMembers) {
  Terminal terminal(becomingTervano({"remove", group_}));
  const std::string question = terminal.readUntil("[y/N] ");
  EXPECT_THAT(question, HasSubstr("  Member\r\n"));
  EXPECT_THAT(question, HasSubstr("Remove \"Group\" from the list of actions?"));
  terminal.type("y\n");
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_EQ(home_.titles(), "");
}

TEST_F(RemoveOnATerminalTest, AnyOtherAnswerRemovesNothing) {
  Terminal terminal(becomingTervano({"remove", member_}));
  terminal.readUntil("[y/N] ");
  terminal.type("\n");
  EXPECT_EQ(terminal.waitForExit(), 1);
  EXPECT_THAT(terminal.rest(), HasSubstr("Nothing was removed."));
  EXPECT_EQ(home_.titles(), "Group[Member]");
}

TEST_F(RemoveOnATerminalTest, ThePreferenceTakesTheQuestionAway) {
  home_.succeed({"prefs", "set", "suppressActionDeletionAlert", "yes"});
  Terminal terminal(becomingTervano({"remove", member_}));
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_EQ(terminal.rest(), "");
  EXPECT_EQ(home_.titles(), "Group[]");
}

TEST_F(RemoveOnATerminalTest, TheOptionTakesTheQuestionAway) {
  Terminal terminal(becomingTervano({"remove", "--yes", member_}));
  EXPECT_EQ(terminal.waitForExit(), 0);
  EXPECT_EQ(terminal.rest(), "");
  EXPECT_EQ(home_.titles(), "Group[]");
}

TEST_F(RemoveOnATerminalTest, WithoutATerminalNothingIsAsked) {
  home_.succeed({"remove", member_});
  EXPECT_EQ(home_.titles(), "Group[]");
}

}  // namespace tervano::test
