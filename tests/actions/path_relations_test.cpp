#include "actions/path_relations.h"

#include "tests/actions/action_test.h"

namespace tervano::test {
namespace {

class PathRelationsTest : public ActionTest {};

TEST_F(PathRelationsTest, AnItemContainsItself) {
  const auto file = makeFile("folder/a");
  EXPECT_TRUE(itemContainsPath(file, file));
  EXPECT_TRUE(itemContainsPath(home() + "/folder", home() + "/folder"));
}

TEST_F(PathRelationsTest, AFolderContainsWhatLiesInside) {
  const auto file = makeFile("outer/inner/a");
  EXPECT_TRUE(itemContainsPath(home() + "/outer", file));
  EXPECT_TRUE(itemContainsPath("/", file));
}

TEST_F(PathRelationsTest, AFolderDoesNotContainItsNeighboursNorWhatIsAbove) {
  const auto file = makeFile("outer/a");
  makeFolder("out");
  EXPECT_FALSE(itemContainsPath(home() + "/out", file));
  EXPECT_FALSE(itemContainsPath(file, home() + "/outer"));
}

TEST_F(PathRelationsTest, AMissingItemContainsNothing) {
  EXPECT_FALSE(itemContainsPath(home() + "/missing", home() + "/missing"));
  EXPECT_FALSE(itemContainsPath(home() + "/missing", home() + "/missing/a"));
}

TEST_F(PathRelationsTest, AnotherSpellingThroughALinkIsFound) {
  const auto file = makeFile("folder/a");
  std::filesystem::create_directory_symlink(home() + "/folder", home() + "/link");
  EXPECT_TRUE(itemContainsPath(file, home() + "/link/a"));
  EXPECT_TRUE(itemContainsPath(home() + "/link/a", file));
  EXPECT_TRUE(itemContainsPath(home() + "/folder", home() + "/link/a"));
}

TEST_F(PathRelationsTest, AnotherSpellingWithDotsIsFound) {
  const auto file = makeFile("folder/a");
  EXPECT_TRUE(itemContainsPath(file, home() + "/folder/../folder/./a"));
  EXPECT_TRUE(itemContainsPath(home() + "/folder/..", file));
  EXPECT_TRUE(itemContainsPath(home() + "/folder/.", file));
}

TEST_F(PathRelationsTest, ALinkThroughWhichAPathIsSpelledContainsIt) {
  makeFile("folder/a");
  std::filesystem::create_directory_symlink(home() + "/folder", home() + "/link");
  EXPECT_TRUE(itemContainsPath(home() + "/link", home() + "/link/a"));
}

TEST_F(PathRelationsTest, ALinkDoesNotContainWhatItsTargetHolds) {
  const auto file = makeFile("folder/a");
  std::filesystem::create_directory_symlink(home() + "/folder", home() + "/link");
  EXPECT_FALSE(itemContainsPath(home() + "/link", file));
}

TEST_F(PathRelationsTest, ALinkAsTheLastComponentIsNotFollowed) {
  const auto file = makeFile("folder/a");
  std::filesystem::create_symlink(file, home() + "/link");
  EXPECT_FALSE(itemContainsPath(file, home() + "/link"));
  EXPECT_FALSE(itemContainsPath(home() + "/folder", home() + "/link"));
}

TEST_F(PathRelationsTest, ASecondHardLinkIsAnotherItem) {
  const auto file = makeFile("folder/a");
  makeFolder("other");
  std::filesystem::create_hard_link(file, home() + "/other/a");
  EXPECT_FALSE(itemContainsPath(file, home() + "/other/a"));
}

TEST_F(PathRelationsTest, ADanglingLinkContainsItself) {
  std::filesystem::create_symlink("nowhere", home() + "/link");
  EXPECT_TRUE(itemContainsPath(home() + "/link", home() + "/link"));
}

}  // namespace
}  // namespace tervano::test
