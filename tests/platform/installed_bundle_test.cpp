#include "platform/linux/installed_bundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temporary_home.h"

namespace tervano::test {
namespace {

using testing::EndsWith;
using testing::Optional;

class InstalledBundleTest : public testing::Test {
 protected:
  InstalledBundleTest() {
    write("/usr/share/tervano/icons/icon-move.svg");
    write("/usr/share/tervano/icons/photo.png");
    write("/usr/share/tervano/BundledDescriptions.plist");
    write("/usr/share/tervano/Default Scripts/Say.sh");
    write("/usr/share/outside.sh");
  }

  void write(const std::string& path) const {
    const std::filesystem::path whole(home_.path() + path);
    std::filesystem::create_directories(whole.parent_path());
    std::ofstream(whole) << "x";
  }
  InstalledBundle bundleOf(const std::string& codePath) const {
    return InstalledBundle(home_.path() + codePath);
  }
  std::string prefix() const { return home_.path() + "/usr"; }

  TemporaryHome home_;
};

TEST_F(InstalledBundleTest, AProgramFindsTheResourcesBesideItsFolder) {
  const auto bundle = bundleOf("/usr/bin/tervano");
  EXPECT_EQ(bundle.resourcePath(), prefix() + "/share/tervano");
  EXPECT_EQ(bundle.pathForAuxiliaryExecutable("tervano-sips"),
            prefix() + "/libexec/tervano/tervano-sips");
}

TEST_F(InstalledBundleTest, AProgramOfOurOwnInLibexecFindsThem) {
  EXPECT_EQ(bundleOf("/usr/libexec/tervano/tervano-sips").resourcePath(),
            prefix() + "/share/tervano");
}

TEST_F(InstalledBundleTest, AModuleDeepBelowThePrefixFindsThem) {
  const auto bundle =
      bundleOf("/usr/lib/x86_64-linux-gnu/nautilus/extensions-4/libtervano-nautilus.so");
  EXPECT_EQ(bundle.resourcePath(), prefix() + "/share/tervano");
}

TEST_F(InstalledBundleTest, TheNearestPrefixWins) {
  write("/usr/local/share/tervano/x");
  EXPECT_EQ(bundleOf("/usr/local/bin/tervano").resourcePath(), prefix() + "/local/share/tervano");
}

TEST_F(InstalledBundleTest, ANamedImageIsADrawingOrAPicture) {
  const auto bundle = bundleOf("/usr/bin/tervano");
  EXPECT_THAT(bundle.pathForImageNamed("icon-move"),
              Optional(prefix() + "/share/tervano/icons/icon-move.svg"));
  EXPECT_THAT(bundle.pathForImageNamed("photo"),
              Optional(prefix() + "/share/tervano/icons/photo.png"));
  EXPECT_EQ(bundle.pathForImageNamed("icon-unknown"), std::nullopt);
  EXPECT_EQ(bundle.pathForImageNamed(""), std::nullopt);
}

TEST_F(InstalledBundleTest, AResourceMayStandInAFolderOfTheResources) {
  const auto bundle = bundleOf("/usr/bin/tervano");
  EXPECT_THAT(bundle.pathForResource("BundledDescriptions", "plist"),
              Optional(prefix() + "/share/tervano/BundledDescriptions.plist"));
  EXPECT_THAT(bundle.pathForResource("Default Scripts/Say", "sh"),
              Optional(prefix() + "/share/tervano/Default Scripts/Say.sh"));
  EXPECT_EQ(bundle.pathForResource("Missing", "plist"), std::nullopt);
}

TEST_F(InstalledBundleTest, NoNameLeadsOutOfTheResources) {
  const auto bundle = bundleOf("/usr/bin/tervano");
  EXPECT_EQ(bundle.pathForResource("../outside", "sh"), std::nullopt);
  EXPECT_EQ(bundle.pathForResource("icons/../../outside", "sh"), std::nullopt);
  EXPECT_EQ(bundle.pathForResource(prefix() + "/share/outside", "sh"), std::nullopt);
  EXPECT_EQ(bundle.pathForResource("", "sh"), std::nullopt);
  EXPECT_EQ(bundle.pathForResource(std::string("BundledDescriptions\0x", 21), "plist"),
            std::nullopt);
  EXPECT_EQ(bundle.pathForImageNamed("../Default Scripts/Say"), std::nullopt);
}

TEST_F(InstalledBundleTest, AFolderIsNoResource) {
  EXPECT_EQ(bundleOf("/usr/bin/tervano").pathForResource("icons", ""), std::nullopt);
}

TEST_F(InstalledBundleTest, CodeFromAnotherPlaceUsesTheBuildThatItCameFrom) {
  const auto bundle = bundleOf("/elsewhere/module.so");
  EXPECT_TRUE(bundle.pathForImageNamed("icon-move").has_value()) << bundle.resourcePath();
}

TEST(RunningCodeTest, IsThisTestProgram) {
  EXPECT_THAT(pathOfRunningCode(), EndsWith("/tests/platform_tests"));
}

TEST(BundleOfThisBuildTest, HasEveryApplicationImage) {
  const InstalledBundle bundle;
  for (const char* name :
       {"icon-open-with", "icon-copy", "icon-new-file", "icon-move", "icon-open-faves",
        "icon-convert-images", "icon-tervano", "icon-contextmenu", "icon-shell", "icon-reset-app",
        "icon-image", "icon-secure-delete", "icon-compress", "icon-send-mail",
        "icon-tervano-symbolic", "tervano"}) {
    EXPECT_TRUE(bundle.pathForImageNamed(name).has_value()) << name;
  }
}

}  // namespace
}  // namespace tervano::test
