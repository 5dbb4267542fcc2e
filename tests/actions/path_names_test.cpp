#include "actions/path_names.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/temporary_home.h"

namespace tervano::test {
namespace {

TEST(StandardizingPathTest, AnAbsolutePathWithoutOdditiesStaysAsItIs) {
  EXPECT_EQ(standardizingPath("/p/photo.tiff"), "/p/photo.tiff");
}

TEST(StandardizingPathTest, EmptyComponentsGo) {
  EXPECT_EQ(standardizingPath("//p///photo.tiff"), "/p/photo.tiff");
}

TEST(StandardizingPathTest, ComponentsOfOneDotGo) {
  EXPECT_EQ(standardizingPath("/./p/././photo.tiff"), "/p/photo.tiff");
  EXPECT_EQ(standardizingPath("/p/photo.tiff/."), "/p/photo.tiff");
}

TEST(StandardizingPathTest, SlashesAtTheEndGo) {
  EXPECT_EQ(standardizingPath("/p/folder//"), "/p/folder");
  EXPECT_EQ(standardizingPath("p/"), "p");
}

TEST(StandardizingPathTest, TwoDotsTakeTheComponentBeforeThemAway) {
  EXPECT_EQ(standardizingPath("/p/q/../photo.tiff"), "/p/photo.tiff");
  EXPECT_EQ(standardizingPath("/p/q/r/../../photo.tiff"), "/p/photo.tiff");
  EXPECT_EQ(standardizingPath("/p/q/.//../photo.tiff"), "/p/photo.tiff");
  EXPECT_EQ(standardizingPath("/p/q/.."), "/p");
}

TEST(StandardizingPathTest, TwoDotsAboveTheRootAreDropped) {
  EXPECT_EQ(standardizingPath("/../../photo.tiff"), "/photo.tiff");
  EXPECT_EQ(standardizingPath("/p/../.."), "/");
}

TEST(StandardizingPathTest, TheRootStays) {
  EXPECT_EQ(standardizingPath("/"), "/");
  EXPECT_EQ(standardizingPath("//"), "/");
  EXPECT_EQ(standardizingPath("/."), "/");
}

TEST(StandardizingPathTest, TwoDotsAfterALinkNameTheFolderOfTheLink) {
  const TemporaryHome home;
  std::filesystem::create_directories(home.path() + "/far/away");
  std::filesystem::create_directory_symlink(home.path() + "/far/away", home.path() + "/link");
  EXPECT_EQ(standardizingPath(home.path() + "/link/../photo.tiff"), home.path() + "/photo.tiff");
}

TEST(StandardizingPathTest, ALinkIsNotFollowed) {
  const TemporaryHome home;
  std::filesystem::create_symlink(home.path(), home.path() + "/link");
  EXPECT_EQ(standardizingPath(home.path() + "/link/a"), home.path() + "/link/a");
}

TEST(StandardizingPathTest, ARelativePathKeepsItsTwoDots) {
  EXPECT_EQ(standardizingPath("p/..//q/./photo.tiff"), "p/../q/photo.tiff");
  EXPECT_EQ(standardizingPath("../photo.tiff"), "../photo.tiff");
}

TEST(StandardizingPathTest, ARelativePathKeepsTheDotAtItsBeginning) {
  EXPECT_EQ(standardizingPath("./-s"), "./-s");
}

TEST(StandardizingPathTest, AnEmptyPathStaysEmpty) {
  EXPECT_EQ(standardizingPath(""), "");
}

TEST(StandardizingPathTest, NamesThatOnlyBeginWithDotsAreNames) {
  EXPECT_EQ(standardizingPath("/p/.../..a/.b/a.."), "/p/.../..a/.b/a..");
}

TEST(StandardizingPathTest, ATildeIsANameLikeAnyOther) {
  EXPECT_EQ(standardizingPath("~/photo.tiff"), "~/photo.tiff");
}

TEST(StandardizingPathTest, BytesStayAsTheyAre) {
  EXPECT_EQ(standardizingPath("/\xFF\xFE//a\nb/$(x) '\""), "/\xFF\xFE/a\nb/$(x) '\"");
}

TEST(PathExtensionTest, TheLastExtensionGoesWithItsDot) {
  EXPECT_EQ(deletingPathExtension("/p/photo.tiff"), "/p/photo");
  EXPECT_EQ(deletingPathExtension("archive.tar.gz"), "archive.tar");
}

TEST(PathExtensionTest, WithoutExtensionNothingGoes) {
  EXPECT_EQ(deletingPathExtension("/p/README"), "/p/README");
  EXPECT_EQ(deletingPathExtension("/"), "/");
  EXPECT_EQ(deletingPathExtension(""), "");
}

TEST(PathExtensionTest, ADotInAFolderIsNoExtension) {
  EXPECT_EQ(deletingPathExtension("/p.d/README"), "/p.d/README");
}

TEST(PathExtensionTest, ADotFileHasNone) {
  EXPECT_EQ(deletingPathExtension("/p/.profile"), "/p/.profile");
  EXPECT_EQ(deletingPathExtension("/p/.config.json"), "/p/.config");
}

TEST(PathExtensionTest, ADotAtTheEndIsNoExtension) {
  EXPECT_EQ(deletingPathExtension("/p/odd."), "/p/odd.");
  EXPECT_EQ(deletingPathExtension("/p/.."), "/p/..");
}

TEST(PathExtensionTest, SlashesAtTheEndAreNoPartOfIt) {
  EXPECT_EQ(deletingPathExtension("/p/photos.old//"), "/p/photos");
}

TEST(PathExtensionTest, AnExtensionIsAppendedBehindADot) {
  EXPECT_EQ(appendingPathExtension("/p/photo", "png"), "/p/photo.png");
  EXPECT_EQ(appendingPathExtension("/p/archive.tar", "jpg"), "/p/archive.tar.jpg");
  EXPECT_EQ(appendingPathExtension("/p/odd.", "jpg"), "/p/odd..jpg");
  EXPECT_EQ(appendingPathExtension("/p/.profile", "jpg"), "/p/.profile.jpg");
}

TEST(PathExtensionTest, AnEmptyExtensionIsAppendedWithoutADot) {
  EXPECT_EQ(appendingPathExtension("/p/photo", ""), "/p/photo");
  EXPECT_EQ(appendingPathExtension("/p/photos/", ""), "/p/photos");
}

TEST(PathExtensionTest, AnExtensionIsAppendedBeforeSlashesAtTheEnd) {
  EXPECT_EQ(appendingPathExtension("/p/photos/", "png"), "/p/photos.png");
}

}  // namespace
}  // namespace tervano::test
