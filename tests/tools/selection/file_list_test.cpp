#include "tools/selection/file_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tervano::test {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kText[] = "text/plain;charset=utf-8";

TEST(FileListTest, AListOfURIsNamesItsLocalFiles) {
  EXPECT_THAT(filesOfContent("text/uri-list",
                             "# a comment\r\nfile:///a%20b\r\nfile:///%FF%0A\r\n"
                             "http://example.org/x\r\nfile://elsewhere/y\r\nfile:///a%20b\r\n"),
              ElementsAre("/a b", "/\xff\n"));
}

TEST(FileListTest, AURIWithOneSlashIsAFileToo) {
  EXPECT_THAT(filesOfContent("text/uri-list", "file:/a/b\nfile://localhost/c"),
              ElementsAre("/a/b", "/c"));
}

TEST(FileListTest, TheFirstLineOfCopiedFilesTellsWhatIsToBeDone) {
  EXPECT_THAT(filesOfContent("x-special/gnome-copied-files",
                             std::string("cut\nfile:///a\nfile:///b\0", 23)),
              ElementsAre("/a", "/b"));
  EXPECT_THAT(filesOfContent("x-special/gnome-copied-files", "copy"), IsEmpty());
}

TEST(FileListTest, ATextNamesFilesWhenEveryLineDoes) {
  EXPECT_THAT(filesOfContent(kText, "/a b\n\nfile:///c%20d\r\n/e \n"),
              ElementsAre("/a b", "/c d", "/e "));
  EXPECT_THAT(filesOfContent("text/plain", "/a\nand some words"), IsEmpty());
  EXPECT_THAT(filesOfContent(kText, "relative/path"), IsEmpty());
  EXPECT_THAT(filesOfContent(kText, "http://example.org/"), IsEmpty());
  EXPECT_THAT(filesOfContent(kText, ""), IsEmpty());
}

TEST(FileListTest, BrokenContentNamesNothing) {
  EXPECT_THAT(filesOfContent("text/uri-list", "file:///%zz\nfile:\nfile:///%00\nfile:"), IsEmpty());
  EXPECT_THAT(filesOfContent(kText, std::string("/a\0b", 4)), IsEmpty());
  EXPECT_THAT(filesOfContent("text/uri-list", "\r\n\r\n\n"), IsEmpty());
}

}  // namespace tervano::test
