#include "platform/linux/application_entry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/support/scoped_platform.h"

namespace tervano::test {
namespace {

using testing::HasSubstr;

class ApplicationEntryTest : public testing::Test {
 protected:
  std::string write(const std::string& text, const std::string& name = "odd.desktop") {
    const std::string path = platform_.home().path() + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  static std::string reason(const std::string& path) {
    std::optional<Error> error;
    EXPECT_FALSE(applicationEntryAtPath(path, &error));
    return error ? error->message : "no reason";
  }

  ScopedPlatform platform_;
};

TEST_F(ApplicationEntryTest, EveryKeyIsRead) {
  const auto path = write(
      "[Desktop Entry]\nType=Application\nName=Odd\nIcon=odd-icon\nExec=run \"a\\\\\"b\" %U\n"
      "Path=/tmp\nTerminal=true\nDBusActivatable=true\nStartupNotify=false\n",
      "org.example.Odd-App.desktop");
  const auto entry = applicationEntryAtPath(path).value();
  EXPECT_EQ(entry.path, path);
  EXPECT_EQ(entry.identifier, "org.example.Odd-App");
  EXPECT_EQ(entry.name, "Odd");
  EXPECT_EQ(entry.icon, "odd-icon");
  EXPECT_EQ(entry.exec, "run \"a\\\"b\" %U");
  EXPECT_EQ(entry.folder, "/tmp");
  EXPECT_TRUE(entry.terminal);
  EXPECT_FALSE(entry.takesActivationToken);
  EXPECT_EQ(entry.busName(), "org.example.Odd-App");
}

TEST_F(ApplicationEntryTest, WhatIsMissingIsEmptyAndTheIdentifierIsTheName) {
  const auto entry =
      applicationEntryAtPath(write("[Desktop Entry]\nType=Application\nExec=run\n")).value();
  EXPECT_EQ(entry.name, "odd");
  EXPECT_EQ(entry.folder, "");
  EXPECT_FALSE(entry.terminal);
  EXPECT_TRUE(entry.takesActivationToken);
  EXPECT_EQ(entry.busName(), "");
}

TEST_F(ApplicationEntryTest, AnEntryWhoseIdentifierIsNoBusNameIsNotActivated) {
  const auto path = write("[Desktop Entry]\nType=Application\nDBusActivatable=true\n");
  EXPECT_EQ(applicationEntryAtPath(path).value().busName(), "");
}

TEST_F(ApplicationEntryTest, AnEntryWithoutACommandLineHasNone) {
  EXPECT_FALSE(
      applicationEntryAtPath(write("[Desktop Entry]\nType=Application\n")).value().execLine());
  EXPECT_FALSE(applicationEntryAtPath(write("[Desktop Entry]\nType=Application\nExec=\"open\n"))
                   .value()
                   .execLine());
}

TEST_F(ApplicationEntryTest, AMissingFileGivesTheReason) {
  EXPECT_EQ(reason("/nonexistent/x.desktop"), "/nonexistent/x.desktop: No such file or directory");
}

TEST_F(ApplicationEntryTest, AnotherTypeIsNoApplication) {
  for (const char* text :
       {"[Desktop Entry]\nType=Link\nURL=http://x\n", "[Desktop Entry]\nExec=run\n", "",
        "no key file", "[Desktop Entry]\nType=Directory\n", "\xff\xfe[Desktop Entry]\n"}) {
    EXPECT_THAT(reason(write(text)), HasSubstr("is not the desktop entry of an application"))
        << text;
  }
}

TEST_F(ApplicationEntryTest, AHiddenEntryIsReadAsOne) {
  EXPECT_TRUE(
      applicationEntryAtPath(write("[Desktop Entry]\nType=Application\nExec=run\nHidden=true\n"))
          .value()
          .isHidden);
  EXPECT_FALSE(applicationEntryAtPath(write("[Desktop Entry]\nType=Application\nExec=run\n"))
                   .value()
                   .isHidden);
}

TEST_F(ApplicationEntryTest, ABrowserThatIsNoMailProgramIsOne) {
  const auto isBrowser = [this](const std::string& categories) {
    return applicationEntryAtPath(
               write("[Desktop Entry]\nType=Application\nCategories=" + categories + "\n"))
        .value()
        .isBrowser;
  };
  EXPECT_TRUE(isBrowser("GNOME;Network;WebBrowser;"));
  EXPECT_TRUE(isBrowser("WebBrowser"));
  EXPECT_FALSE(isBrowser("Network;WebBrowser;Email;"));
  EXPECT_FALSE(isBrowser("Network;Email;"));
  EXPECT_FALSE(isBrowser("NotAWebBrowser;"));
  EXPECT_FALSE(isBrowser(""));
}

TEST_F(ApplicationEntryTest, AnEntryThatIsNotDisplayedIsAnApplication) {
  EXPECT_TRUE(applicationEntryAtPath(
      write("[Desktop Entry]\nType=Application\nExec=run\nNoDisplay=true\n")));
}

TEST_F(ApplicationEntryTest, AnEntryWhoseTriedProgramIsMissingIsNotInstalled) {
  EXPECT_THAT(
      reason(write("[Desktop Entry]\nType=Application\nExec=sh\nTryExec=/nonexistent/program\n")),
      HasSubstr("is not installed: there is no \"/nonexistent/program\""));
  EXPECT_TRUE(applicationEntryAtPath(write("[Desktop Entry]\nType=Application\nTryExec=sh\n")));
}

TEST_F(ApplicationEntryTest, APipeAndAHugeFileAreNoEntries) {
  const std::string pipe = platform_.home().path() + "/pipe.desktop";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THAT(reason(pipe), HasSubstr("is not the desktop entry of an application"));
  const auto huge = write("[Desktop Entry]\nType=Application\n", "huge.desktop");
  ASSERT_EQ(truncate(huge.c_str(), off_t{1} << 40), 0);
  EXPECT_THAT(reason(huge), HasSubstr("is not the desktop entry of an application"));
}

}  // namespace
}  // namespace tervano::test
