#include "actions/next_available_path.h"

#include "tests/actions/action_test.h"

namespace tervano::test {
namespace {

class NextAvailablePathTest : public ActionTest {};

TEST_F(NextAvailablePathTest, AFreePathIsAnsweredAsItIs) {
  EXPECT_EQ(vx_nextAvailablePath(home() + "/a.txt"), home() + "/a.txt");
}

TEST_F(NextAvailablePathTest, ATakenNameGetsTheNumberTwoBeforeItsExtension) {
  EXPECT_EQ(vx_nextAvailablePath(makeFile("a.txt")), home() + "/a 2.txt");
}

TEST_F(NextAvailablePathTest, TakenNumbersAreSkipped) {
  makeFile("a.txt");
  makeFile("a 2.txt");
  makeFile("a 3.txt");
  EXPECT_EQ(vx_nextAvailablePath(home() + "/a.txt"), home() + "/a 4.txt");
}

TEST_F(NextAvailablePathTest, AGapInTheNumbersIsFilled) {
  makeFile("a.txt");
  makeFile("a 3.txt");
  EXPECT_EQ(vx_nextAvailablePath(home() + "/a.txt"), home() + "/a 2.txt");
}

TEST_F(NextAvailablePathTest, ANumberedNameIsANameLikeAnyOther) {
  EXPECT_EQ(vx_nextAvailablePath(makeFile("a 2.txt")), home() + "/a 2 2.txt");
}

TEST_F(NextAvailablePathTest, OnlyTheLastExtensionCounts) {
  EXPECT_EQ(vx_nextAvailablePath(makeFile("a.tar.gz")), home() + "/a.tar 2.gz");
}

TEST_F(NextAvailablePathTest, ANameWithoutExtensionGetsTheNumberAtItsEnd) {
  EXPECT_EQ(vx_nextAvailablePath(makeFile("README")), home() + "/README 2");
}

TEST_F(NextAvailablePathTest, ADotFileHasNoExtension) {
  EXPECT_EQ(vx_nextAvailablePath(makeFile(".profile")), home() + "/.profile 2");
}

TEST_F(NextAvailablePathTest, ADotFileWithASecondDotHasAnExtension) {
  EXPECT_EQ(vx_nextAvailablePath(makeFile(".config.json")), home() + "/.config 2.json");
}

TEST_F(NextAvailablePathTest, ADotAtTheEndIsNoExtension) {
  EXPECT_EQ(vx_nextAvailablePath(makeFile("odd.")), home() + "/odd. 2");
}

TEST_F(NextAvailablePathTest, AFolderIsNumberedByTheSameRule) {
  EXPECT_EQ(vx_nextAvailablePath(makeFolder("Photos.old")), home() + "/Photos 2.old");
}

TEST_F(NextAvailablePathTest, ADanglingLinkTakesItsName) {
  std::filesystem::create_symlink("nowhere", home() + "/link.txt");
  EXPECT_EQ(vx_nextAvailablePath(home() + "/link.txt"), home() + "/link 2.txt");
}

TEST_F(NextAvailablePathTest, ADanglingLinkUnderADerivedNameTakesItToo) {
  makeFile("a.txt");
  std::filesystem::create_symlink("nowhere", home() + "/a 2.txt");
  EXPECT_EQ(vx_nextAvailablePath(home() + "/a.txt"), home() + "/a 3.txt");
}

TEST_F(NextAvailablePathTest, TrailingSlashesAreDropped) {
  EXPECT_EQ(vx_nextAvailablePath(makeFolder("Folder") + "//"), home() + "/Folder 2");
}

TEST_F(NextAvailablePathTest, ANameInTheRootFolderStaysThere) {
  ASSERT_TRUE(exists("/etc"));
  ASSERT_FALSE(exists("/etc 2"));
  EXPECT_EQ(vx_nextAvailablePath("/etc"), "/etc 2");
}

TEST_F(NextAvailablePathTest, NamesOfAnyBytesAreKept) {
  const std::string name = "\xFF\n'\" $(x) %2F\\.t\x01";
  EXPECT_EQ(vx_nextAvailablePath(makeFile(name)), home() + "/\xFF\n'\" $(x) %2F\\ 2.t\x01");
}

TEST_F(NextAvailablePathTest, TheDotsOfTheFolderAboveAreNoExtension) {
  makeFile("v1.2/notes");
  EXPECT_EQ(vx_nextAvailablePath(home() + "/v1.2/notes"), home() + "/v1.2/notes 2");
}

TEST_F(NextAvailablePathTest, TheLongestNameIsShortenedToMakeRoomForItsNumber) {
  const std::string taken = makeFile(std::string(251, 'a') + ".txt");
  EXPECT_EQ(vx_nextAvailablePath(taken), home() + "/" + std::string(249, 'a') + " 2.txt");
}

TEST_F(NextAvailablePathTest, ShorteningCutsNoCharacterInHalf) {
  std::string name;
  while (name.size() + 2 <= 255) name += "\u00e4";
  EXPECT_EQ(vx_nextAvailablePath(makeFile(name)), home() + "/" + name.substr(0, 252) + " 2");
}

}  // namespace
}  // namespace tervano::test
