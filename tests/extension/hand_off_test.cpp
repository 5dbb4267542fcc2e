#include "extension/hand_off.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>

#include "tests/extension/extension_test.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kUid[] = "0123456789ABCDEF0123456789ABCDEF";
constexpr char kFile[] = "01234567-89AB-CDEF-0123-456789ABCDEF";
const std::string kUrl = std::string("tervano://runaction?action=") + kUid + "&file=" + kFile;

TEST(HandOffURLTest, TheWriterFillsTheFormat) {
  EXPECT_EQ(handOffURL(kUid, kFile).absoluteString(), kUrl);
}

TEST(HandOffURLTest, TheReaderTakesWhatTheWriterMakes) {
  EXPECT_EQ(parseHandOffURL(kUrl), (HandOff{kUid, kFile}));
  const std::string name = Uuid::random().UUIDString();
  EXPECT_EQ(parseHandOffURL(handOffURL(kUid, name).absoluteString()), (HandOff{kUid, name}));
}

class RefusedURLTest : public testing::TestWithParam<std::pair<const char*, std::string>> {};

TEST_P(RefusedURLTest, IsRefusedWithAReason) {
  std::optional<Error> error;
  EXPECT_EQ(parseHandOffURL(GetParam().second, &error), std::nullopt);
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->domain, kHandOffErrorDomain);
  EXPECT_NE(error->message, "");
  EXPECT_EQ(parseHandOffURL(GetParam().second), std::nullopt);
}

std::string urlOf(const std::string& action, const std::string& file) {
  return "tervano://runaction?action=" + action + "&file=" + file;
}

const std::string kShortUid(kUid, 31);

INSTANTIATE_TEST_SUITE_P(
    Urls, RefusedURLTest,
    testing::Values(
        std::pair("Empty", std::string()), std::pair("SchemeOnly", std::string("tervano:")),
        std::pair("OtherScheme", "https" + kUrl.substr(7)),
        std::pair("SchemeInUpperCase", "TERVANO" + kUrl.substr(7)),
        std::pair("OtherHost", std::string("tervano://run?action=") + kUid + "&file=" + kFile),
        std::pair("PathBehindTheHost",
                  std::string("tervano://runaction/?action=") + kUid + "&file=" + kFile),
        std::pair("OtherOrder",
                  std::string("tervano://runaction?file=") + kFile + "&action=" + kUid),
        std::pair("DuplicateAction", std::string("tervano://runaction?action=") + kUid +
                                         "&action=" + kUid + "&file=" + kFile),
        std::pair("DuplicateFile", kUrl + "&file=" + kFile), std::pair("MoreKeys", kUrl + "&x=y"),
        std::pair("Fragment", kUrl + "#x"), std::pair("TrailingBlank", kUrl + " "),
        std::pair("TrailingLineFeed", kUrl + "\n"),
        std::pair("TrailingNul", kUrl + std::string(1, '\0')),
        std::pair("LeadingBlank", " " + kUrl), std::pair("ShortUid", urlOf(kShortUid, kFile)),
        std::pair("LongUid", urlOf(std::string(kUid) + "0", kFile)),
        std::pair("LowerCaseUid", urlOf(kShortUid + "f", kFile)),
        std::pair("UidBeyondHexadecimal", urlOf(kShortUid + "G", kFile)),
        std::pair("EscapedUid", urlOf("%30" + kShortUid, kFile)),
        std::pair("NoFile", std::string("tervano://runaction?action=") + kUid),
        std::pair("EmptyFile", urlOf(kUid, "")),
        std::pair("LowerCaseFile", urlOf(kUid, "01234567-89ab-CDEF-0123-456789ABCDEF")),
        std::pair("FileWithoutHyphens", urlOf(kUid, kUid)),
        std::pair("FileThatClimbs", urlOf(kUid, "../../../../../../../../etc/passwd12")),
        std::pair("FileInAFolder", urlOf(kUid, std::string("a/") + kFile)),
        std::pair("EscapedFile", urlOf(kUid, "%3" + std::string(kFile))),
        std::pair("HugeText", kUrl + std::string(1 << 20, 'A'))),
    [](const auto& info) { return info.param.first; });

TEST(PrettyJSONTest, TheLayoutIsThatOfThePlatform) {
  EXPECT_EQ(prettyPrintedJSON(Value::Dictionary{{"paths", Value::Array{"/a", "/b/c"}}}),
            "{\n  \"paths\" : [\n    \"\\/a\",\n    \"\\/b\\/c\"\n  ]\n}");
}

TEST(PrettyJSONTest, EmptyContainersHaveAnEmptyLine) {
  EXPECT_EQ(prettyPrintedJSON(Value::Dictionary{{"paths", Value::Array()}}),
            "{\n  \"paths\" : [\n\n  ]\n}");
  EXPECT_EQ(prettyPrintedJSON(Value::Dictionary()), "{\n\n}");
}

TEST(PrettyJSONTest, NestedContainersAreIndentedFurther) {
  EXPECT_EQ(prettyPrintedJSON(Value::Dictionary{
                {"a", Value::Array{Value::Dictionary{{"b", 1}, {"c", nullptr}}}}}),
            "{\n  \"a\" : [\n    {\n      \"b\" : 1,\n      \"c\" : null\n    }\n  ]\n}");
}

TEST(PrettyJSONTest, ControlCharactersQuotesAndBackslashesAreEscaped) {
  EXPECT_EQ(prettyPrintedJSON(Value(std::string("\"\\/\b\f\n\r\t\x01\x1F\x7F", 11))),
            "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7F\"");
}

TEST(PrettyJSONTest, TextBeyondASCIIIsWrittenAsItIs) {
  EXPECT_EQ(prettyPrintedJSON(Value("Größe \xF0\x9F\x93\x81")), "\"Größe \xF0\x9F\x93\x81\"");
}

TEST(PrettyJSONTest, NumbersAndBooleansAreLiterals) {
  EXPECT_EQ(prettyPrintedJSON(Value(true)), "true");
  EXPECT_EQ(prettyPrintedJSON(Value(false)), "false");
  EXPECT_EQ(prettyPrintedJSON(Value(-7)), "-7");
  EXPECT_EQ(prettyPrintedJSON(Value(UINT64_MAX)), "18446744073709551615");
  EXPECT_EQ(prettyPrintedJSON(Value(0.25)), "0.25");
}

TEST(PrettyJSONTest, WhatJSONCannotHoldIsRefusedWithAReason) {
  const Value values[] = {Value("\xFF"),
                          Value("a\xC3"),
                          Value("\xED\xA0\x80"),
                          Value(Data{1}),
                          Value(Date{1}),
                          Value(Uuid()),
                          Value(Url("file:///")),
                          Value(std::numeric_limits<double>::infinity()),
                          Value(std::numeric_limits<double>::quiet_NaN())};
  for (const Value& value : values) {
    std::string reason;
    EXPECT_EQ(prettyPrintedJSON(Value::Dictionary{{"a", Value::Array{value}}}, &reason),
              std::nullopt);
    EXPECT_NE(reason, "");
  }
  EXPECT_EQ(prettyPrintedJSON(Value::Dictionary{{"\xFF", 1}}), std::nullopt);
}

TEST(PathsOfHandOffJSONTest, ThePathsAreReadInOrder) {
  EXPECT_THAT(pathsOfHandOffJSON(R"({"paths":["\/b","/a"]})").value(), ElementsAre("/b", "/a"));
  EXPECT_THAT(pathsOfHandOffJSON(R"({"paths" : [ ]})").value(), IsEmpty());
}

TEST(PathsOfHandOffJSONTest, EveryTextThatTheWriterEscapesComesBack) {
  std::string odd = "/";
  for (int byte = 1; byte < 128; ++byte) odd += static_cast<char>(byte);
  odd += "Größe \xF0\x9F\x93\x81";
  const auto json = prettyPrintedJSON(Value::Dictionary{{"paths", Value::Array{odd}}});
  EXPECT_THAT(pathsOfHandOffJSON(*json).value(), ElementsAre(odd));
}

TEST(PathsOfHandOffJSONTest, OtherMembersAreIgnored) {
  EXPECT_THAT(
      pathsOfHandOffJSON(
          R"({"a":{"paths":["/no"],"b":[[1]]},"c":[{"paths":2}],"paths":["/a"],"d":null,"e":1.5})")
          .value(),
      ElementsAre("/a"));
}

TEST(PathsOfHandOffJSONTest, DotsInsideANameAreFine) {
  EXPECT_THAT(pathsOfHandOffJSON(R"({"paths":["/.a/..b/c..","/","/a/"]})").value(),
              ElementsAre("/.a/..b/c..", "/", "/a/"));
}

class RefusedJSONTest : public testing::TestWithParam<std::pair<const char*, std::string>> {};

TEST_P(RefusedJSONTest, IsRefusedWithAReason) {
  std::optional<Error> error;
  EXPECT_EQ(pathsOfHandOffJSON(GetParam().second, &error), std::nullopt);
  ASSERT_TRUE(error.has_value());
  EXPECT_THAT(error->message, HasSubstr("The hand-off file cannot be used: "));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedJSONTest,
    testing::Values(std::pair("Empty", std::string()), std::pair("OnlyNul", std::string(1, '\0')),
                    std::pair("NoJSON", std::string("paths")),
                    std::pair("AText", std::string("\"/a\"")),
                    std::pair("AnArray", std::string(R"(["/a"])")),
                    std::pair("ANumber", std::string("1")), std::pair("NoPaths", std::string("{}")),
                    std::pair("PathsNil", std::string(R"({"paths":null})")),
                    std::pair("PathsText", std::string(R"({"paths":"/a"})")),
                    std::pair("PathsObject", std::string(R"({"paths":{"0":"/a"}})")),
                    std::pair("PathsTwice", std::string(R"({"paths":["/a"],"paths":["/b"]})")),
                    std::pair("PathsTwiceByEscape",
                              std::string(R"({"paths":["/a"],"p\u0061ths":["/b"]})")),
                    std::pair("NumberAmongPaths", std::string(R"({"paths":["/a",1]})")),
                    std::pair("NilAmongPaths", std::string(R"({"paths":[null]})")),
                    std::pair("ArrayAmongPaths", std::string(R"({"paths":[["/a"]]})")),
                    std::pair("ObjectAmongPaths", std::string(R"({"paths":[{}]})")),
                    std::pair("RelativePath", std::string(R"({"paths":["a"]})")),
                    std::pair("EmptyPath", std::string(R"({"paths":[""]})")),
                    std::pair("PathWithNul", std::string(R"({"paths":["/a\u0000b"]})")),
                    std::pair("PathThatClimbs", std::string(R"({"paths":["/a/../b"]})")),
                    std::pair("PathThatEndsInDots", std::string(R"({"paths":["/a/.."]})")),
                    std::pair("PathWithADot", std::string(R"({"paths":["/a/./b"]})")),
                    std::pair("LoneSurrogate", std::string(R"({"paths":["/\ud800"]})")),
                    std::pair("NotUTF8", std::string("{\"paths\":[\"/\xFF\"]}")),
                    std::pair("Truncated", std::string(R"({"paths":["/a")")),
                    std::pair("Trailing", std::string(R"({"paths":["/a"]} x)")),
                    std::pair("TwoDocuments", std::string(R"({"paths":["/a"]}{"paths":["/a"]})")),
                    std::pair("TrailingComma", std::string(R"({"paths":["/a",]})")),
                    std::pair("Comment", std::string(R"({"paths":["/a"]/**/})")),
                    std::pair("DeepNesting", std::string(1 << 20, '[')),
                    std::pair("DeepNestingInside", "{\"a\":" + std::string(1 << 20, '['))),
    [](const auto& info) { return info.param.first; });

class HandOffFileTest : public ExtensionTest {
 protected:
  HandOffFileTest() {
    std::filesystem::create_directories(container());
    path_ = container() + "/" + kFile;
  }
  void expectRefused(const std::string& reason) {
    std::optional<Error> error;
    EXPECT_EQ(readHandOffFile(kFile, &error), std::nullopt);
    ASSERT_TRUE(error.has_value());
    EXPECT_THAT(error->message, HasSubstr(reason));
    EXPECT_EQ(readHandOffFile(kFile), std::nullopt);
  }
  std::string path_;
  const std::string good_ = R"({"paths":["/a"]})";
};

TEST_F(HandOffFileTest, AGoodFileIsRead) {
  writeFile(path_, good_);
  EXPECT_THAT(readHandOffFile(kFile).value(), ElementsAre("/a"));
  EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(HandOffFileTest, ItsFolderIsTheContainer) {
  EXPECT_EQ(handOffFolder(), container());
}

TEST_F(HandOffFileTest, AMissingFileIsAnError) {
  std::optional<Error> error;
  EXPECT_EQ(readHandOffFile(kFile, &error), std::nullopt);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_THAT(error->message, HasSubstr(path_));
}

TEST_F(HandOffFileTest, AMissingContainerIsAnErrorAndNotCreated) {
  std::filesystem::remove_all(container());
  std::optional<Error> error;
  EXPECT_EQ(readHandOffFile(kFile, &error), std::nullopt);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_FALSE(std::filesystem::exists(container()));
}

TEST_F(HandOffFileTest, WithoutGroupContainersThereIsNoFile) {
  files_.hasContainers = false;
  expectRefused("no folder");
  EXPECT_TRUE(removeHandOffFile(kFile).has_value());
}

TEST_F(HandOffFileTest, ALinkIsRefused) {
  writeFile(home() + "/target", good_);
  std::filesystem::create_symlink(home() + "/target", path_);
  std::optional<Error> error;
  EXPECT_EQ(readHandOffFile(kFile, &error), std::nullopt);
  EXPECT_EQ(error->code, ELOOP);
}

TEST_F(HandOffFileTest, AFileWithASecondNameIsRefused) {
  writeFile(path_, good_);
  std::filesystem::create_hard_link(path_, home() + "/second");
  expectRefused("several names");
}

TEST_F(HandOffFileTest, AFolderIsRefused) {
  std::filesystem::create_directory(path_);
  expectRefused("no regular file");
}

TEST_F(HandOffFileTest, APipeIsRefusedWithoutWaiting) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  expectRefused("no regular file");
}

TEST_F(HandOffFileTest, AFileOfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give files away";
  writeFile(path_, good_);
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(chown(path_.c_str(), kNobody, kNobody), 0);
  expectRefused("belongs to another user");
}

TEST_F(HandOffFileTest, AFileBeyondTheLimitIsRefusedUnread) {
  writeFile(path_, good_);
  std::filesystem::resize_file(path_, kMaximumHandOffFileSize + 1);
  expectRefused("larger than 67108864 bytes");
}

TEST_F(HandOffFileTest, AnEmptyFileIsRefused) {
  writeFile(path_, "");
  expectRefused("no JSON text");
}

TEST_F(HandOffFileTest, ANameThatIsNoUUIDIsRefused) {
  writeFile(container() + "/other", good_);
  writeFile(container() + "/wormhole/" + kFile, good_);
  for (const std::string name : {"other", "", "..", "wormhole/01234567-89AB-CDEF-0123-456789ABCDEF",
                                 "01234567-89ab-cdef-0123-456789abcdef"}) {
    std::optional<Error> error;
    EXPECT_EQ(readHandOffFile(name, &error), std::nullopt) << name;
    EXPECT_THAT(error->message, HasSubstr("upper-case UUID")) << name;
    EXPECT_TRUE(removeHandOffFile(name).has_value()) << name;
  }
  EXPECT_TRUE(std::filesystem::exists(container() + "/other"));
}

TEST_F(HandOffFileTest, RemovingTakesTheFileAway) {
  writeFile(path_, good_);
  EXPECT_EQ(removeHandOffFile(kFile), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(removeHandOffFile(kFile)->code, ENOENT);
}

TEST_F(HandOffFileTest, RemovingALinkIsRefusedAndLeavesItAndItsTarget) {
  writeFile(home() + "/target", "kept");
  std::filesystem::create_symlink(home() + "/target", path_);
  EXPECT_THAT(removeHandOffFile(kFile)->message, HasSubstr("no regular file"));
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(readFile(home() + "/target"), "kept");
}

TEST_F(HandOffFileTest, RemovingAFolderIsAnError) {
  std::filesystem::create_directory(path_);
  EXPECT_TRUE(removeHandOffFile(kFile).has_value());
  EXPECT_TRUE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace tervano::test
