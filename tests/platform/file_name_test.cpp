#include "platform/file_name.h"

#include <gtest/gtest.h>

#include <string>

namespace tervano::test {
namespace {

TEST(FileNameTest, AnyOtherBytesAreAName) {
  for (const std::string& name :
       {std::string("a"), std::string(".profile"), std::string("..."), std::string("a..b"),
        std::string("\xFF\n -rf"), std::string("~"), std::string(300, 'n')}) {
    EXPECT_TRUE(isFileName(name)) << name;
  }
}

TEST(FileNameTest, NothingIsNoName) {
  EXPECT_FALSE(isFileName(""));
}

TEST(FileNameTest, TheFolderItselfAndTheOneAboveAreNoNames) {
  EXPECT_FALSE(isFileName("."));
  EXPECT_FALSE(isFileName(".."));
}

TEST(FileNameTest, ASlashMakesItSeveralNames) {
  for (const char* const path : {"/", "a/b", "/a", "a/", "../a"}) EXPECT_FALSE(isFileName(path));
}

TEST(FileNameTest, ANulEndsEveryName) {
  EXPECT_FALSE(isFileName(std::string_view("a\0b", 3)));
  EXPECT_FALSE(isFileName(std::string_view("\0", 1)));
}

}  // namespace
}  // namespace tervano::test
