#include "platform/linux/file_viewer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/platform/workspace_fixture.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr char kFolderType[] = "inode/directory";
constexpr char kFileManagerXML[] = R"(<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowFolders"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
  <method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
  </interface></node>)";

class FileViewerTest : public WorkspaceFixture {
 protected:
  FakeBusService fileManager(const std::string& path = "/org/freedesktop/FileManager1") {
    return FakeBusService(std::getenv("DBUS_SESSION_BUS_ADDRESS"), "org.freedesktop.FileManager1",
                          path, "org.freedesktop.FileManager1", kFileManagerXML,
                          [](const auto&) { return g_variant_new("()"); });
  }

  std::string folder(const std::string& name) {
    const std::string path = platform_.home().path() + "/files/" + name;
    std::filesystem::create_directories(path);
    return path;
  }

  // What the peer says to showing a folder, with a file selected unless it is nil.
  std::vector<std::string> shown(const std::string& root,
                                 const std::optional<std::string>& selected = std::nullopt,
                                 const std::vector<std::string>& mode = {}) {
    auto peer = startPeer(mode);
    peer.say("show " + asWord(root) + (selected ? " " + asWord(*selected) : ""));
    return linesUntilDone(peer);
  }
};

TEST_F(FileViewerTest, TheFileManagerGetsTheTokenOfTheRequestOnce) {
  const PrivateBus bus;
  const auto manager = fileManager();
  auto peer = startPeer();
  peer.say("request " + asWord("token") + " " + asWord("identifier"));
  for (int i = 0; i < 2; ++i) {
    peer.say("reveal " + asWord("file:///a"));
    EXPECT_THAT(linesUntilDone(peer), IsEmpty());
  }
  peer.say("request - " + asWord("identifier"));
  peer.say("show " + asWord(folder("a")));
  EXPECT_THAT(linesUntilDone(peer), ElementsAre("shown 1"));
  ASSERT_THAT(manager.calls(), SizeIs(3));
  EXPECT_EQ(manager.calls()[0].arguments, "(['file:///a'], 'token')");
  EXPECT_EQ(manager.calls()[1].arguments, "(['file:///a'], '')");
  EXPECT_THAT(manager.calls()[2].arguments, testing::EndsWith(", 'identifier')"));
}

TEST_F(FileViewerTest, AFolderIsOpenedByTheFileManagerOfTheBus) {
  const PrivateBus bus;
  const auto manager = fileManager();
  for (const auto& name : kHostileNames) {
    EXPECT_THAT(shown(folder(name)), ElementsAre("shown 1")) << name;
    EXPECT_EQ(manager.calls().back().method, "ShowFolders");
    EXPECT_EQ(manager.calls().back().arguments,
              "(['" + Url::fileURLWithPath(folder(name), true).absoluteString() + "'], '')");
  }
  EXPECT_THAT(manager.calls(), SizeIs(kHostileNames.size()));
}

TEST_F(FileViewerTest, AFileIsShownSelectedInIt) {
  const PrivateBus bus;
  const auto manager = fileManager();
  EXPECT_THAT(shown(folder("a b"), file("a b/x")), ElementsAre("shown 1"));
  ASSERT_THAT(manager.calls(), SizeIs(1));
  EXPECT_EQ(manager.calls()[0].method, "ShowItems");
  EXPECT_EQ(manager.calls()[0].arguments,
            "(['" + Url::fileURLWithPath(file("a b/x")).absoluteString() + "'], '')");
}

TEST_F(FileViewerTest, AFileMayDoWithoutAFolder) {
  const PrivateBus bus;
  const auto manager = fileManager();
  EXPECT_THAT(shown("", file("x")), ElementsAre("shown 1"));
  ASSERT_THAT(manager.calls(), SizeIs(1));
  EXPECT_EQ(manager.calls()[0].method, "ShowItems");
}

TEST_F(FileViewerTest, WhatIsMissingIsFalseAndOneLogLine) {
  const PrivateBus bus;
  const auto manager = fileManager();
  const auto missing = platform_.home().path() + "/gone";
  const std::string line = "log Could not show the files: ";
  EXPECT_THAT(shown(missing),
              UnorderedElementsAre("shown 0", line + missing + ": No such file or directory"));
  EXPECT_THAT(shown(folder("a"), missing),
              UnorderedElementsAre("shown 0", line + missing + ": No such file or directory"));
  EXPECT_THAT(shown(file("x")),
              UnorderedElementsAre("shown 0", line + file("x") + ": Not a directory"));
  EXPECT_THAT(shown(""), UnorderedElementsAre("shown 0", line + "\"\" is no absolute path"));
  EXPECT_THAT(shown("relative"),
              UnorderedElementsAre("shown 0", line + "\"relative\" is no absolute path"));
  EXPECT_THAT(manager.calls(), IsEmpty());
}

TEST_F(FileViewerTest, WithoutABusTheDefaultApplicationOpensTheFolder) {
  const NoBus noBus;
  install("files", "Exec=" + recorder() + " --new-window %U\n", kFolderType);
  EXPECT_THAT(shown(folder("a b")), ElementsAre("shown 1"));
  EXPECT_THAT(
      onlyRun().arguments,
      ElementsAre("--new-window", Url::fileURLWithPath(folder("a b"), true).absoluteString()));
}

TEST_F(FileViewerTest, WithADeadBusTheDefaultApplicationOpensTheFolder) {
  PrivateBus bus;
  bus.kill();
  install("files", "Exec=" + recorder() + " %F\n", kFolderType);
  EXPECT_THAT(shown(folder("a b"), file("a b/x")), ElementsAre("shown 1"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre(folder("a b")));
}

TEST_F(FileViewerTest, WithABusThatDoesNotAnswerTheDefaultApplicationOpensTheFolder) {
  PrivateBus bus;
  install("files", "Exec=" + recorder() + " %F\n", kFolderType);
  auto peer = startPeer({"hasty"});
  peer.say("show " + asWord(folder("a")));
  EXPECT_THAT(linesUntilDone(peer), ElementsAre("shown 1"));
  bus.stop();
  peer.say("show " + asWord(folder("b")));
  EXPECT_THAT(linesUntilDone(peer), ElementsAre("shown 1"));
  bus.resume();
  EXPECT_THAT(runs(2), SizeIs(2));
}

TEST_F(FileViewerTest, WithoutAFileManagerOnTheBusTheDefaultApplicationOpensTheFolder) {
  const PrivateBus bus;
  install("files", "Exec=" + recorder() + " %F\n", kFolderType);
  EXPECT_THAT(shown(folder("a b")), ElementsAre("shown 1"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre(folder("a b")));
}

TEST_F(FileViewerTest, AFileManagerThatCannotBeStartedLeavesItToTheDefaultApplication) {
  const PrivateBus bus(
      std::map<std::string, std::string>{{"org.freedesktop.FileManager1", "/nonexistent/program"}});
  install("files", "Exec=" + recorder() + " %F\n", kFolderType);
  EXPECT_THAT(shown(folder("a b")),
              UnorderedElementsAre("shown 1", StartsWith("log Could not show the files: ")));
  EXPECT_THAT(onlyRun().arguments, ElementsAre(folder("a b")));
}

TEST_F(FileViewerTest, AFileManagerThatRefusesIsOneLogLine) {
  const PrivateBus bus;
  const auto manager = fileManager("/elsewhere");
  install("files", "Exec=" + recorder() + " %F\n", kFolderType);
  EXPECT_THAT(shown(folder("a b")),
              UnorderedElementsAre("shown 1", StartsWith("log Could not show the files: ")));
  EXPECT_FALSE(hasRun());
}

TEST_F(FileViewerTest, WithNobodyToAskItIsFalseAndOneLogLine) {
  const NoBus noBus;
  EXPECT_THAT(
      shown(folder("a b")),
      UnorderedElementsAre("shown 0", "log Could not show the files: there is no file manager"));
}

TEST_F(FileViewerTest, ADefaultApplicationThatCannotBeStartedIsFalseAndOneLogLine) {
  const NoBus noBus;
  install("files", "Exec=" + recorder() + " %F\nPath=/nonexistent\n", kFolderType);
  EXPECT_THAT(shown(folder("a b")),
              UnorderedElementsAre("shown 0", HasSubstr("starts in \"/nonexistent\"")));
}

}  // namespace
}  // namespace tervano::test
