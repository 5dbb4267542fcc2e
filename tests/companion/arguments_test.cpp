#include "companion/arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/temporary_home.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const Arguments::Known kKnown = {{"title", "to"}, {"json", "print"}};

std::string refusalOf(const std::vector<std::string>& words) {
  try {
    const Arguments arguments(words, kKnown);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "accepted";
}

// The current folder for the length of a test.
class CurrentFolder {
 public:
  explicit CurrentFolder(const std::string& path) : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~CurrentFolder() { std::filesystem::current_path(before_); }

 private:
  std::filesystem::path before_;
};

}  // namespace

TEST(ArgumentsTest, ValuedOptionTakesTheNextWord) {
  const Arguments arguments({"--title", "A title"}, kKnown);
  EXPECT_EQ(arguments.value("title"), "A title");
  EXPECT_EQ(arguments.value("to"), std::nullopt);
}

TEST(ArgumentsTest, ValuedOptionTakesWhatFollowsItsEqualsSign) {
  const Arguments arguments({"--title=a=b"}, kKnown);
  EXPECT_EQ(arguments.value("title"), "a=b");
}

TEST(ArgumentsTest, ValueMayBeEmpty) {
  EXPECT_EQ(Arguments({"--title="}, kKnown).value("title"), "");
  EXPECT_EQ(Arguments({"--title", ""}, kKnown).value("title"), "");
}

TEST(ArgumentsTest, ValueMayBeginWithAHyphen) {
  EXPECT_EQ(Arguments({"--title", "--json"}, kKnown).value("title"), "--json");
}

TEST(ArgumentsTest, FlagIsThereOrNot) {
  const Arguments arguments({"--json"}, kKnown);
  EXPECT_TRUE(arguments.has("json"));
  EXPECT_FALSE(arguments.has("print"));
}

TEST(ArgumentsTest, OtherWordsKeepTheirOrderAmongTheOptions) {
  const Arguments arguments({"b", "--json", "a", "--to", "x", "c"}, kKnown);
  EXPECT_THAT(arguments.positional(), ElementsAre("b", "a", "c"));
}

TEST(ArgumentsTest, BehindTwoHyphensEveryWordIsTakenAsItIs) {
  const Arguments arguments({"--", "--json", "-x", "--"}, kKnown);
  EXPECT_THAT(arguments.positional(), ElementsAre("--json", "-x", "--"));
  EXPECT_FALSE(arguments.has("json"));
}

TEST(ArgumentsTest, OneHyphenIsAnOrdinaryWord) {
  EXPECT_THAT(Arguments({"-"}, kKnown).positional(), ElementsAre("-"));
}

TEST(ArgumentsTest, EmptyWordIsAnOrdinaryWord) {
  EXPECT_THAT(Arguments({""}, kKnown).positional(), ElementsAre(""));
}

TEST(ArgumentsTest, UnknownOptionIsRefusedByItsName) {
  EXPECT_THAT(refusalOf({"--tilte=x"}), HasSubstr("--tilte "));
}

TEST(ArgumentsTest, OptionWithOneHyphenIsUnknown) {
  EXPECT_THAT(refusalOf({"-title", "x"}), HasSubstr("-title"));
  EXPECT_THAT(refusalOf({"-x"}), HasSubstr("-x"));
}

TEST(ArgumentsTest, MissingValueIsRefused) {
  EXPECT_EQ(refusalOf({"--title"}), "The option --title needs a value.");
}

TEST(ArgumentsTest, FlagWithAValueIsRefused) {
  EXPECT_EQ(refusalOf({"--json=yes"}), "The option --json takes no value.");
}

TEST(ArgumentsTest, RepeatedOptionIsRefused) {
  EXPECT_EQ(refusalOf({"--title", "a", "--title=b"}), "The option --title is given twice.");
}

TEST(ArgumentsTest, RepeatedFlagIsRefused) {
  EXPECT_EQ(refusalOf({"--json", "--json"}), "The option --json is given twice.");
}

TEST(ArgumentsTest, UnknownOptionWithALineBreakIsShownInOneLine) {
  EXPECT_THAT(refusalOf({"--a\nb"}), HasSubstr("--a\\nb"));
}

TEST(ArgumentsTest, TooFewWordsAreRefusedByWhatIsMissing) {
  const Arguments arguments({"a"}, kKnown);
  EXPECT_NO_THROW(arguments.requirePositional(1, 1, "The uid"));
  try {
    arguments.requirePositional(2, 3, "The uid");
    FAIL();
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "The uid is missing.");
  }
}

TEST(ArgumentsTest, FirstWordTooManyIsNamed) {
  const Arguments arguments({"a", "b\x1b", "c"}, kKnown);
  try {
    arguments.requirePositional(0, 1, "");
    FAIL();
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "\"b\\x1b\" is one word too many.");
  }
}

class AbsolutePathTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(home_.path() + "/real/inner");
    std::filesystem::create_directory_symlink("real", home_.path() + "/link");
    folder_ = std::filesystem::canonical(home_.path()).string();
  }

  TemporaryHome home_;
  std::string folder_;
};

TEST_F(AbsolutePathTest, RelativeNameIsJoinedToTheCurrentFolder) {
  const CurrentFolder current(home_.path() + "/real");
  EXPECT_EQ(absolutePath("inner"), folder_ + "/real/inner");
  EXPECT_EQ(absolutePath("missing.txt"), folder_ + "/real/missing.txt");
}

TEST_F(AbsolutePathTest, DotsAreResolved) {
  const CurrentFolder current(home_.path() + "/real");
  EXPECT_EQ(absolutePath("."), folder_ + "/real");
  EXPECT_EQ(absolutePath(".."), folder_);
  EXPECT_EQ(absolutePath("./inner/../inner"), folder_ + "/real/inner");
}

TEST_F(AbsolutePathTest, LinkOnTheWayIsResolved) {
  EXPECT_EQ(absolutePath(home_.path() + "/link/inner"), folder_ + "/real/inner");
}

TEST_F(AbsolutePathTest, LinkThatIsTheItemStaysALink) {
  EXPECT_EQ(absolutePath(home_.path() + "/link"), folder_ + "/link");
}

TEST_F(AbsolutePathTest, LinkWithASlashAtItsEndStaysALink) {
  EXPECT_EQ(absolutePath(home_.path() + "/link/"), folder_ + "/link");
}

TEST_F(AbsolutePathTest, ParentOfALinkIsTheParentOfWhatItNames) {
  std::filesystem::create_directory_symlink("real/inner", home_.path() + "/deep");
  EXPECT_EQ(absolutePath(home_.path() + "/deep/.."), folder_ + "/real");
}

TEST_F(AbsolutePathTest, PathInAMissingFolderIsOnlyMadeNormal) {
  EXPECT_EQ(absolutePath("/no/such/./folder/../x"), "/no/such/x");
}

TEST_F(AbsolutePathTest, RootStaysTheRoot) {
  EXPECT_EQ(absolutePath("/"), "/");
  EXPECT_EQ(absolutePath("//"), "/");
}

TEST_F(AbsolutePathTest, BytesThatAreNoTextAreKept) {
  EXPECT_EQ(absolutePath(home_.path() + "/\xff\n"), folder_ + "/\xff\n");
}

TEST_F(AbsolutePathTest, EmptyPathIsRefused) {
  EXPECT_THROW(absolutePath(""), UsageError);
}

}  // namespace tervano::test
