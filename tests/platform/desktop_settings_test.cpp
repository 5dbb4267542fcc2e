#include "platform/linux/desktop_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/scoped_platform.h"

namespace tervano::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A home whose settings are in a file.
class DesktopSettingsTest : public testing::Test {
 protected:
  DesktopSettingsTest() { platform_.home().setVariable("GSETTINGS_BACKEND", "keyfile"); }

  void write(const std::string& name, const std::string& text) {
    const std::filesystem::path path =
        std::filesystem::path(platform_.home().path()) / ".config" / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << text;
  }

  ScopedPlatform platform_;
};

}  // namespace

TEST_F(DesktopSettingsTest, AListHoldsWhatTheUserHasSet) {
  write("glib-2.0/settings/keyfile",
        "[org/mate/caja/extensions]\ndisabled-extensions=['one', 'two']\n");
  EXPECT_THAT(settingsList("org.mate.caja.extensions", "disabled-extensions"),
              ElementsAre("one", "two"));
}

TEST_F(DesktopSettingsTest, AListThatNobodyHasSetIsEmpty) {
  EXPECT_THAT(settingsList("org.mate.caja.extensions", "disabled-extensions"), IsEmpty());
}

TEST_F(DesktopSettingsTest, WhatIsNotDeclaredOrNoListIsEmpty) {
  EXPECT_THAT(settingsList("com.vessok.none", "disabled-extensions"), IsEmpty());
  EXPECT_THAT(settingsList("org.mate.caja.extensions", "none"), IsEmpty());
  EXPECT_THAT(settingsList("org.mate.caja.preferences", "default-folder-viewer"), IsEmpty());
}

TEST_F(DesktopSettingsTest, AValueIsFoundInItsGroupOfTheFile) {
  write("menurc", "[Other]\nkey=wrong\n[Show]\nkey=false\n");
  EXPECT_EQ(configFileValue("menurc", "Show", "key"), "false");
  EXPECT_EQ(configFileValue("menurc", "Show", "other"), std::nullopt);
  EXPECT_EQ(configFileValue("menurc", "None", "key"), std::nullopt);
}

TEST_F(DesktopSettingsTest, AFileThatIsAbsentOrJunkHasNoValues) {
  EXPECT_EQ(configFileValue("none", "Show", "key"), std::nullopt);
  write("menurc", "\xff\xfe junk\n[");
  EXPECT_EQ(configFileValue("menurc", "Show", "key"), std::nullopt);
}

}  // namespace tervano::test
