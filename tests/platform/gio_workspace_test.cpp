#include "platform/linux/gio_workspace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/platform/workspace_fixture.h"

namespace tervano::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr char kItemsOnlyXML[] = R"(<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowItems"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
  </interface></node>)";
// Every kind of byte that a rewriting of the URL would change.
constexpr char kOddUrl[] = "tervano://x/a%20b/../c?t=0&b=%C3%A9#f;'\"$(x)";

class GioWorkspaceTest : public WorkspaceFixture {};

TEST_F(GioWorkspaceTest, TheHandlerGetsTheURLByteForByte) {
  const NoBus noBus;
  install("handler", "Exec=" + recorder() + " first %u last\nPath=/\n");
  auto peer = startPeer();
  peer.say("open " + asWord(kOddUrl));
  EXPECT_THAT(peer.hear(), Optional(std::string("opened 1")));
  EXPECT_THAT(peer.hear(), Optional(std::string("done")));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("first", kOddUrl, "last"));
  EXPECT_EQ(onlyRun().folder, "/");
}

TEST_F(GioWorkspaceTest, ASchemeIsFoundWithoutRegardToCase) {
  const NoBus noBus;
  install("handler", "Exec=" + recorder() + " %u\n");
  auto peer = startPeer();
  peer.say("open " + asWord("TERVANO://X"));
  EXPECT_THAT(peer.hear(), Optional(std::string("opened 1")));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("TERVANO://X"));
}

TEST_F(GioWorkspaceTest, AURLWithoutAHandlerIsNotOpened) {
  const NoBus noBus;
  auto peer = startPeer();
  for (const char* url : {"tervano-nobody://x", "no scheme", "", ":", "1a:b", "mail to:x"}) {
    peer.say("open " + asWord(url));
    EXPECT_THAT(peer.hear(), Optional(std::string("opened 0"))) << url;
    EXPECT_THAT(peer.hear(), Optional(std::string("done"))) << url;
  }
}

TEST_F(GioWorkspaceTest, AHandlerThatCannotBeStartedIsOneLogLine) {
  const NoBus noBus;
  install("handler", "Exec=" + recorder() + " %u\nPath=/nonexistent-folder\n");
  auto peer = startPeer();
  peer.say("open " + asWord("tervano://x"));
  EXPECT_THAT(linesUntilDone(peer),
              UnorderedElementsAre("opened 1", HasSubstr("log Could not open tervano://x: ")));
}

TEST_F(GioWorkspaceTest, AHandlerThatRunsOnIsNotWaitedFor) {
  const NoBus noBus;
  // Its program runs until the test says something to it.
  const std::string pipe = platform_.home().path() + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  install("handler",
          "Exec=/bin/sh -c \"read word <'" + pipe + "'; exec " + recorder() + " $1\" sh %u\n");
  auto peer = startPeer();
  peer.say("open " + asWord("tervano://x"));
  EXPECT_THAT(peer.hear(), Optional(std::string("opened 1")));
  EXPECT_THAT(peer.hear(), Optional(std::string("done")));
  EXPECT_FALSE(hasRun());
  std::ofstream(pipe) << "go\n";
  EXPECT_THAT(onlyRun().arguments, ElementsAre("tervano://x"));
}

TEST_F(GioWorkspaceTest, AnActivatableHandlerGetsTheURLByteForByteThroughTheBus) {
  const PrivateBus bus;
  install("org.example.Odd-Handler", "Exec=/bin/false %u\nDBusActivatable=true\n");
  FakeBusService handler(bus.address(), "org.example.Odd-Handler", "/org/example/Odd_Handler",
                         "org.freedesktop.Application", kApplicationXML,
                         [](const auto&) { return g_variant_new("()"); });
  auto peer = startPeer();
  peer.say("open " + asWord("tervano://run?t=1&u=a%20b"));
  ASSERT_TRUE(waitUntil([&] { return !handler.calls().empty(); }));
  EXPECT_EQ(handler.calls()[0].method, "Open");
  EXPECT_EQ(handler.calls()[0].arguments, "(['tervano://run?t=1&u=a%20b'], @a{sv} {})");
  EXPECT_THAT(peer.hear(), Optional(std::string("opened 1")));
  EXPECT_THAT(peer.hear(), Optional(std::string("done")));
}

TEST_F(GioWorkspaceTest, AnActivatableHandlerThatTheBusDoesNotKnowIsStartedByItsCommandLine) {
  const PrivateBus bus;
  install("org.example.Absent", "Exec=" + recorder() + " %u\nDBusActivatable=true\n");
  auto peer = startPeer();
  peer.say("open " + asWord("tervano://x"));
  EXPECT_THAT(linesUntilDone(peer),
              UnorderedElementsAre("opened 1", HasSubstr("log Could not open tervano://x: ")));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("tervano://x"));
}

TEST_F(GioWorkspaceTest, AnActivatableHandlerThatRefusesIsOneLogLineAndIsNotStartedASecondTime) {
  const PrivateBus bus;
  install("org.example.Refusing", "Exec=" + recorder() + " %u\nDBusActivatable=true\n");
  // It owns the name and has no object where an application has its own.
  FakeBusService handler(bus.address(), "org.example.Refusing", "/elsewhere",
                         "org.freedesktop.Application", kApplicationXML,
                         [](const auto&) { return g_variant_new("()"); });
  auto peer = startPeer();
  peer.say("open " + asWord("tervano://x"));
  EXPECT_THAT(linesUntilDone(peer),
              UnorderedElementsAre("opened 1", HasSubstr("log Could not open tervano://x: ")));
  EXPECT_FALSE(hasRun());
}

TEST_F(GioWorkspaceTest, WithoutABusAnActivatableHandlerIsStartedByItsCommandLine) {
  const NoBus noBus;
  install("org.example.Handler", "Exec=" + recorder() + " %u\nDBusActivatable=true\n");
  auto peer = startPeer();
  peer.say("open " + asWord("tervano://x"));
  EXPECT_THAT(peer.hear(), Optional(std::string("opened 1")));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("tervano://x"));
}

TEST_F(GioWorkspaceTest, TheApplicationOfASchemeIsItsDefaultHandlersDesktopEntry) {
  const NoBus noBus;
  const auto path =
      install("my mail", "Exec=" + recorder() + " %u\nNoDisplay=true\n", "x-scheme-handler/mailto");
  auto peer = startPeer();
  for (const char* url : {"mailto:", "MAILTO:", "MailTo:a@b"}) {
    peer.say("handler " + asWord(url));
    EXPECT_EQ(nextLine(peer), "handler " + Url::fileURLWithPath(path).absoluteString()) << url;
  }
}

TEST_F(GioWorkspaceTest, WithoutAHandlerOfASchemeThereIsNoApplication) {
  const NoBus noBus;
  auto peer = startPeer();
  for (const char* url : {"mailto:", "tervano-nobody:", "", "no scheme"}) {
    peer.say("handler " + asWord(url));
    EXPECT_EQ(nextLine(peer), "handler nil") << url;
  }
}

TEST_F(GioWorkspaceTest, AHandlerThatTheUserChoseIsAnApplicationAlsoWhenItIsHidden) {
  const NoBus noBus;
  const auto path =
      install("hidden", "Exec=" + recorder() + " %u\nHidden=true\n", "x-scheme-handler/mailto");
  auto peer = startPeer();
  peer.say("handler " + asWord("mailto:"));
  EXPECT_EQ(nextLine(peer), "handler " + Url::fileURLWithPath(path).absoluteString());
}

TEST_F(GioWorkspaceTest, AHandlerWhoseProgramIsMissingIsNoApplication) {
  const NoBus noBus;
  install("missing", "Exec=/nonexistent/program %u\n", "x-scheme-handler/mailto");
  auto peer = startPeer();
  peer.say("handler " + asWord("mailto:"));
  EXPECT_EQ(nextLine(peer), "handler nil");
}

TEST_F(GioWorkspaceTest, FilesAreShownSelectedInTheFileManager) {
  const PrivateBus bus;
  FakeBusService fileManager(bus.address(), "org.freedesktop.FileManager1",
                             "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1",
                             kItemsOnlyXML, [](const auto&) { return g_variant_new("()"); });
  GioWorkspace workspace;
  workspace.activateFileViewerSelectingURLs(
      {Url::fileURLWithPath("/tmp/a b"), Url::fileURLWithPath("/tmp/\xff")});
  ASSERT_TRUE(waitUntil([&] { return workspace.pendingRequests() == 0; }));
  ASSERT_THAT(fileManager.calls(), SizeIs(1));
  EXPECT_EQ(fileManager.calls()[0].arguments, "(['file:///tmp/a%20b', 'file:///tmp/%FF'], '')");
}

TEST_F(GioWorkspaceTest, AnEmptyListAsksForNothing) {
  const PrivateBus bus;
  FakeBusService fileManager(bus.address(), "org.freedesktop.FileManager1",
                             "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1",
                             kItemsOnlyXML, [](const auto&) { return g_variant_new("()"); });
  GioWorkspace workspace;
  workspace.activateFileViewerSelectingURLs({});
  EXPECT_EQ(workspace.pendingRequests(), 0);
  workspace.activateFileViewerSelectingURLs({Url("file:///last")});
  ASSERT_TRUE(waitUntil([&] { return workspace.pendingRequests() == 0; }));
  EXPECT_THAT(fileManager.calls(), SizeIs(1));
}

TEST_F(GioWorkspaceTest, WithoutABusShowingFilesIsOneLogLine) {
  const NoBus noBus;
  RecordingLog log(*platform_.services().log);
  platform_.services().log = &log;
  GioWorkspace workspace;
  workspace.activateFileViewerSelectingURLs({Url("file:///a")});
  ASSERT_TRUE(waitUntil([&] { return workspace.pendingRequests() == 0; }));
  EXPECT_THAT(log.lines(), ElementsAre("Could not show the files: there is no session bus"));
}

TEST_F(GioWorkspaceTest, WithoutAFileManagerShowingFilesIsOneLogLine) {
  const PrivateBus bus;
  RecordingLog log(*platform_.services().log);
  platform_.services().log = &log;
  GioWorkspace workspace;
  workspace.activateFileViewerSelectingURLs({Url("file:///a")});
  ASSERT_TRUE(waitUntil([&] { return workspace.pendingRequests() == 0; }));
  EXPECT_THAT(log.lines(), SizeIs(1));
}

TEST_F(GioWorkspaceTest, RealMountsAreAnnouncedAsTheyComeMoveAndGo) {
  const std::string first = platform_.home().path() + "/first disk";
  const std::string second = platform_.home().path() + "/second";
  std::filesystem::create_directories(first);
  std::filesystem::create_directories(second);
  auto peer = startPeer({"mounts"});
  ASSERT_THAT(peer.hear(), Optional(std::string("observing")));
  const auto nextLines = [&peer] {
    std::vector<std::string> lines;
    for (int i = 0; i < 2; ++i) lines.push_back(peer.hear().value_or("nothing"));
    return lines;
  };
  peer.say("mount " + asWord(first) + " " + asWord("memory"));
  EXPECT_THAT(nextLines(), ElementsAre("mounted", "NSWorkspaceDidMountNotification " + first));
  peer.say("move " + asWord(first) + " " + asWord(second));
  EXPECT_THAT(nextLines(),
              ElementsAre("moved", "NSWorkspaceDidRenameVolumeNotification " + second));
  peer.say("unmount " + asWord(second));
  EXPECT_THAT(nextLines(), ElementsAre("unmounted", "NSWorkspaceDidUnmountNotification " + second));
}

TEST(VolumeChangesTest, NothingChangedIsNothingToSay) {
  const std::vector<MountTableEntry> mounts{{1, "8:1", "/", "/media/a", "ext4"}};
  EXPECT_THAT(volumeChanges(mounts, mounts), IsEmpty());
}

TEST(VolumeChangesTest, ANewMountIsAMountAndAGoneOneAnUnmount) {
  const std::vector<MountTableEntry> before{{1, "8:1", "/", "/media/a", "ext4"}};
  const std::vector<MountTableEntry> after{{2, "8:2", "/", "/media/b", "ext4"}};
  EXPECT_THAT(volumeChanges(before, after),
              ElementsAre(VolumeChange{kWorkspaceDidUnmountNotification, "/media/a"},
                          VolumeChange{kWorkspaceDidMountNotification, "/media/b"}));
}

TEST(VolumeChangesTest, TheSameFileSystemAtAnotherPlaceIsARename) {
  const std::vector<MountTableEntry> before{{1, "8:1", "/", "/media/OLD", "vfat"}};
  const std::vector<MountTableEntry> after{{2, "8:1", "/", "/media/NEW", "vfat"}};
  EXPECT_THAT(volumeChanges(before, after),
              ElementsAre(VolumeChange{kWorkspaceDidRenameVolumeNotification, "/media/NEW"}));
}

TEST(VolumeChangesTest, AnotherFolderOfTheSameFileSystemIsNoRename) {
  const std::vector<MountTableEntry> before{{1, "8:1", "/x", "/media/a", "ext4"}};
  const std::vector<MountTableEntry> after{{2, "8:1", "/y", "/media/b", "ext4"}};
  EXPECT_THAT(volumeChanges(before, after), SizeIs(2));
}

TEST(VolumeChangesTest, AFileSystemMountedASecondTimeIsAMount) {
  const std::vector<MountTableEntry> before{{1, "8:1", "/", "/media/a", "ext4"}};
  auto after = before;
  after.push_back({2, "8:1", "/", "/media/b", "ext4"});
  EXPECT_THAT(volumeChanges(before, after),
              ElementsAre(VolumeChange{kWorkspaceDidMountNotification, "/media/b"}));
}

}  // namespace
}  // namespace tervano::test
