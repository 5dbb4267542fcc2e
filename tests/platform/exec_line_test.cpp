#include "platform/linux/exec_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ExecLineTest : public testing::Test {
 protected:
  static std::optional<ExecLine> parsed(const std::string& exec) {
    return ExecLine::parse(exec, {"odd-icon", "Odd Name", "/x.desktop"});
  }

  static std::vector<std::string> expanded(const std::string& exec, const std::vector<Url>& urls) {
    const auto line = parsed(exec);
    return line ? line->arguments(urls) : std::vector<std::string>();
  }
  static std::vector<std::string> expanded(const std::string& exec,
                                           const std::string& url = "tervano://a b'c") {
    return expanded(exec, std::vector{Url(url)});
  }

  static bool takesLists(const std::string& exec) { return parsed(exec).value().takesLists(); }

  static std::vector<std::string> with(const std::string& exec) {
    const std::vector<std::string> options{"-m", "--compose"};
    return parsed(exec).value().argumentsWith({"NEW", "WORDS"}, options);
  }

  const std::vector<Url> two_{Url("file:///a%20b"), Url("file:///%FF")};
};

TEST_F(ExecLineTest, TheURLStandsWhereTheLineAsksForIt) {
  EXPECT_THAT(expanded("run --url=%u %U"),
              ElementsAre("run", "--url=tervano://a b'c", "tervano://a b'c"));
}

TEST_F(ExecLineTest, ALineThatAsksForAFileGetsThePathOfAFileURL) {
  EXPECT_THAT(expanded("run %f", "file:///tmp/a%20b"), ElementsAre("run", "/tmp/a b"));
  EXPECT_THAT(expanded("run %F"), ElementsAre("run", "tervano://a b'c"));
}

TEST_F(ExecLineTest, ALineThatAsksForNeitherGetsItAtItsEnd) {
  EXPECT_THAT(expanded("run -x"), ElementsAre("run", "-x", "tervano://a b'c"));
}

TEST_F(ExecLineTest, QuotesAreUndone) {
  EXPECT_THAT(expanded("\"/opt/odd dir/run\" \"a\\\"b\" %u"),
              ElementsAre("/opt/odd dir/run", "a\"b", "tervano://a b'c"));
}

TEST_F(ExecLineTest, NamesOfTheEntryAreFilledIn) {
  EXPECT_THAT(expanded("run %i %c %k %% %u"), ElementsAre("run", "--icon", "odd-icon", "Odd Name",
                                                          "/x.desktop", "%", "tervano://a b'c"));
}

TEST_F(ExecLineTest, DeprecatedCodesVanish) {
  EXPECT_THAT(expanded("run %d %D %n %N %v %m %u"), ElementsAre("run", "tervano://a b'c"));
}

TEST_F(ExecLineTest, ABrokenLineHasNoArguments) {
  EXPECT_THAT(expanded(""), IsEmpty());
  EXPECT_THAT(expanded("run \"open"), IsEmpty());
  EXPECT_THAT(expanded("run %"), IsEmpty());
}

TEST_F(ExecLineTest, AListOfFilesStandsWhereTheLineAsksForIt) {
  EXPECT_THAT(expanded("run %F last", two_), ElementsAre("run", "/a b", "/\xff", "last"));
  EXPECT_THAT(expanded("run %U last", two_),
              ElementsAre("run", "file:///a%20b", "file:///%FF", "last"));
}

TEST_F(ExecLineTest, OnlyAListCodeOfItsOwnTakesLists) {
  EXPECT_TRUE(takesLists("run %F"));
  EXPECT_TRUE(takesLists("run -x %U -y"));
  EXPECT_FALSE(takesLists("run"));
  EXPECT_FALSE(takesLists("run %f"));
  EXPECT_FALSE(takesLists("run %u"));
  EXPECT_FALSE(takesLists("run --files=%F"));
  EXPECT_FALSE(takesLists("run %f %U"));
}

TEST_F(ExecLineTest, WithoutFilesTheirPlacesVanish) {
  const std::vector<Url> none;
  for (const char* code : {"%f", "%F", "%u", "%U"}) {
    EXPECT_THAT(expanded(std::string("run ") + code + " last", none), ElementsAre("run", "last"));
  }
  EXPECT_THAT(expanded("run", none), ElementsAre("run"));
}

TEST_F(ExecLineTest, AURLWithoutALocalPathIsGivenAsItIs) {
  EXPECT_THAT(expanded("run %F", "file://elsewhere/x"), ElementsAre("run", "file://elsewhere/x"));
  EXPECT_THAT(expanded("run %f", "file:///%zz"), ElementsAre("run", "file:///%zz"));
}

TEST_F(ExecLineTest, AFileIsNeverTheProgram) {
  EXPECT_THAT(expanded("%f"), IsEmpty());
  EXPECT_THAT(expanded("%U run"), IsEmpty());
}

TEST_F(ExecLineTest, OnlyCodesOfTheLineAreReplaced) {
  EXPECT_THAT(expanded("run %%f %c %u", "file:///%25f%20%25U"),
              ElementsAre("run", "%f", "Odd Name", "file:///%25f%20%25U"));
  EXPECT_THAT(expanded("run %f", "file:///%25f%20%25U"), ElementsAre("run", "/%f %U"));
}

TEST_F(ExecLineTest, AnEmptyWordOfTheLineStays) {
  EXPECT_THAT(expanded("run \"\" %u", "x:"), ElementsAre("run", "", "x:"));
}

TEST_F(ExecLineTest, OtherWordsStandWhereTheFilesWouldBe) {
  EXPECT_THAT(with("run -P work %u last"),
              ElementsAre("run", "-P", "work", "NEW", "WORDS", "last"));
  EXPECT_THAT(with("run %f %F"), ElementsAre("run", "NEW", "WORDS"));
  EXPECT_THAT(with("run"), ElementsAre("run", "NEW", "WORDS"));
}

TEST_F(ExecLineTest, AnOptionOfTheFilesGoesWithThem) {
  EXPECT_THAT(with("run -m %U"), ElementsAre("run", "NEW", "WORDS"));
  EXPECT_THAT(with("run -m x %U"), ElementsAre("run", "-m", "x", "NEW", "WORDS"));
  EXPECT_THAT(with("-m %U"), ElementsAre("-m", "NEW", "WORDS"));
}

TEST_F(ExecLineTest, TheProgramIsNamedWithoutItsFolderAndEnvironment) {
  EXPECT_EQ(parsed("/opt/odd/run %u").value().programName(), "run");
  EXPECT_EQ(parsed("env A=b C=d /usr/bin/run %u").value().programName(), "run");
  EXPECT_EQ(parsed("/usr/bin/env -i run %u").value().programName(), "env");
  EXPECT_EQ(parsed("env A=b").value().programName(), "env");
}

TEST_F(ExecLineTest, AProgramAloneHasOnlyFiles) {
  EXPECT_TRUE(parsed("run %u").value().isProgramAlone());
  EXPECT_TRUE(parsed("env A=b run %u").value().isProgramAlone());
  EXPECT_FALSE(parsed("run -x %u").value().isProgramAlone());
  EXPECT_FALSE(parsed("box run %u").value().isProgramAlone());
}

}  // namespace
}  // namespace tervano::test
