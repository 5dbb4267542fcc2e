#include "platform/linux/application_launcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "platform/applications.h"
#include "tests/platform/workspace_fixture.h"

namespace tervano::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

constexpr char kApplicationInterface[] = "org.freedesktop.Application";

GVariant* nothing(const FakeBusService::Call& /*call*/) {
  return g_variant_new("()");
}

// What an action's "open with" asks of the desktop.
class ApplicationLauncherTest : public WorkspaceFixture {
 protected:
  static std::vector<std::string> urlsOf(const std::vector<std::string>& paths) {
    std::vector<std::string> urls;
    for (const auto& path : paths) urls.push_back(Url::fileURLWithPath(path).absoluteString());
    return urls;
  }

  // The peer's answer to opening one file.
  std::vector<std::string> openedOne(const std::string& application) {
    auto peer = startPeer();
    return opened(peer, application, {file("a")});
  }

  std::string bundle(const std::string& name) {
    const std::string path = platform_.home().path() + "/" + name;
    std::filesystem::create_directories(path + "/Contents/MacOS");
    return path;
  }

  // A terminal that runs what follows "-e", and nothing else in PATH.
  void installTerminal(const std::string& name) {
    const std::string path = platform_.home().path() + "/bin/" + name;
    std::ofstream(path) << "#!/bin/sh\nexport DESKTOP_STARTUP_ID=\"$1\"\nshift\nexec \"$@\"\n";
    chmod(path.c_str(), 0755);
  }
};

TEST_F(ApplicationLauncherTest, AProgramThatTakesListsGetsAllFilesInOneProcess) {
  const NoBus noBus;
  const auto files = hostileFiles();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " first %F last\nPath=/\n"), files),
              ElementsAre("opened"));
  const auto run = onlyRun();
  EXPECT_EQ(run.folder, "/");
  auto expected = files;
  expected.insert(expected.begin(), "first");
  expected.emplace_back("last");
  EXPECT_THAT(run.arguments, ElementsAreArray(expected));
}

TEST_F(ApplicationLauncherTest, AProgramThatTakesURLsGetsThemByteForByte) {
  const NoBus noBus;
  const auto files = hostileFiles();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " %U\n"), files),
              ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAreArray(urlsOf(files)));
}

TEST_F(ApplicationLauncherTest, AProgramThatTakesOneFileIsStartedForEach) {
  const NoBus noBus;
  const auto files = hostileFiles();
  for (const char* code : {"%f", "%u"}) {
    auto peer = startPeer();
    EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " -x " + code + "\n"), files),
                ElementsAre("opened"));
    std::multiset<std::string> got;
    for (const auto& run : runs(files.size())) {
      ASSERT_THAT(run.arguments, SizeIs(2));
      EXPECT_EQ(run.arguments[0], "-x");
      got.insert(run.arguments[1]);
    }
    EXPECT_THAT(got, UnorderedElementsAreArray(std::string(code) == "%f" ? files : urlsOf(files)));
    std::filesystem::remove_all(runsFolder());
    std::filesystem::create_directories(runsFolder());
  }
}

TEST_F(ApplicationLauncherTest, AProgramThatNamesNoFilesIsStartedForEachWithItsPathLast) {
  const NoBus noBus;
  const std::vector<std::string> files{file("a"), file("b")};
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " -x\n"), files),
              ElementsAre("opened"));
  std::vector<std::vector<std::string>> got;
  for (const auto& run : runs(2)) got.push_back(run.arguments);
  EXPECT_THAT(
      got, testing::UnorderedElementsAre(ElementsAre("-x", files[0]), ElementsAre("-x", files[1])));
}

TEST_F(ApplicationLauncherTest, EveryFieldCodeIsFilledIn) {
  const NoBus noBus;
  const auto path =
      entry("app", "Exec=" + recorder() +
                       " %i %c %k %% %d %D %n %N %v %m \"a b\" \"\" %F\nIcon=odd-icon\n");
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, path, {file("x")}), ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments,
              ElementsAre("--icon", "odd-icon", "Odd Handler", path, "%", "a b", "", file("x")));
}

TEST_F(ApplicationLauncherTest, WithoutFilesTheApplicationJustStarts) {
  const NoBus noBus;
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " -x %U\n"), {}),
              ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre("-x"));
}

TEST_F(ApplicationLauncherTest, TenThousandFilesGoToOneProcess) {
  const NoBus noBus;
  std::vector<std::string> files;
  for (int i = 0; i < 10'000; ++i) files.push_back("/files/number " + std::to_string(i));
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " %F\n"), files),
              ElementsAre("opened"));
  EXPECT_EQ(onlyRun().arguments, files);
}

TEST_F(ApplicationLauncherTest, MoreThanACommandLineHoldsIsSpreadOverSeveralProcesses) {
  const NoBus noBus;
  std::vector<std::string> files;
  for (int i = 0; i < 1'000; ++i) {
    files.push_back("/" + std::string(200, 'x') + std::to_string(1'000 + i));
  }
  auto peer = startPeer({"limited"});
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " -x %F\n"), files),
              ElementsAre("opened"));
  const auto all = runs(2);
  EXPECT_LE(all.size(), 4U);
  std::vector<std::string> got;
  for (const auto& run : all) {
    EXPECT_EQ(run.arguments.at(0), "-x");
    got.insert(got.end(), run.arguments.begin() + 1, run.arguments.end());
  }
  std::sort(got.begin(), got.end());
  EXPECT_EQ(got, files);
}

TEST_F(ApplicationLauncherTest, OneFileThatNoCommandLineHoldsIsAnError) {
  const NoBus noBus;
  auto peer = startPeer();
  EXPECT_THAT(
      opened(peer, entry("app", "Exec=" + recorder() + " %U\n"), {"/" + std::string(140'000, 'x')}),
      ElementsAre(HasSubstr("cannot be given as much at once")));
  EXPECT_FALSE(hasRun());
}

TEST_F(ApplicationLauncherTest, ManyProgramsWithAFileEachAreStartedAndReaped) {
  const NoBus noBus;
  // More than the launcher watches one by one.
  std::vector<std::string> files;
  for (int i = 0; i < 150; ++i) files.push_back("/files/" + std::to_string(i));
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " %f\n"), files),
              ElementsAre("opened"));
  std::vector<std::string> got;
  for (const auto& run : runs(files.size())) got.push_back(run.arguments.at(0));
  EXPECT_THAT(got, UnorderedElementsAreArray(files));
  EXPECT_TRUE(waitUntil([&] {
    // A child is listed with the thread that started it.
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(peer.pid()) + "/task")) {
      std::ifstream list(task.path().string() + "/children");
      if (std::string child; list >> child) return false;
    }
    return true;
  }));
}

TEST_F(ApplicationLauncherTest, AnExecutableProgramGetsThePaths) {
  const NoBus noBus;
  const auto files = hostileFiles();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, recorder("Odd App.AppImage"), files), ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAreArray(files));
}

TEST_F(ApplicationLauncherTest, ANotExecutableFileIsAnError) {
  const NoBus noBus;
  EXPECT_THAT(
      openedOne(file("text.txt")),
      ElementsAre("failed \"" + file("text.txt") + "\" could not be started: Permission denied"));
}

TEST_F(ApplicationLauncherTest, AProgramOfAnotherSystemIsAnError) {
  const NoBus noBus;
  const auto path = file("program", std::string("\xcf\xfa\xed\xfe\0\0\0\0", 8));
  chmod(path.c_str(), 0755);
  EXPECT_THAT(openedOne(path), ElementsAre("failed \"" + path + "\" is no program of this system"));
}

TEST_F(ApplicationLauncherTest, AFolderBundleStartsTheProgramThatItNames) {
  const NoBus noBus;
  const auto path = bundle("Odd.app");
  std::filesystem::copy(recorder(), path + "/Contents/MacOS/main");
  std::ofstream(path + "/Contents/MacOS/Odd") << "no program";
  std::ofstream(path + "/Contents/Info.plist")
      << "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleExecutable</key>"
         "<string>main</string></dict></plist>";
  EXPECT_THAT(openedOne(path), ElementsAre("opened"));
  EXPECT_EQ(onlyRun().program, path + "/Contents/MacOS/main");
  EXPECT_THAT(onlyRun().arguments, ElementsAre(file("a")));
}

TEST_F(ApplicationLauncherTest, AFolderBundleWithoutAListStartsTheProgramOfItsNameOrItsOnlyOne) {
  const NoBus noBus;
  const auto named = bundle("Odd.app");
  std::filesystem::copy(recorder(), named + "/Contents/MacOS/Odd");
  std::ofstream(named + "/Contents/MacOS/other") << "no program";
  EXPECT_THAT(openedOne(named), ElementsAre("opened"));
  const auto only = bundle("Single.app");
  std::filesystem::copy(recorder(), only + "/Contents/MacOS/whatever");
  EXPECT_THAT(openedOne(only), ElementsAre("opened"));
  std::vector<std::string> programs;
  for (const auto& run : runs(2)) programs.push_back(run.program);
  EXPECT_THAT(programs, testing::UnorderedElementsAre(named + "/Contents/MacOS/Odd",
                                                      only + "/Contents/MacOS/whatever"));
}

TEST_F(ApplicationLauncherTest, AFolderBundleCannotReachOutOfItself) {
  const NoBus noBus;
  const auto path = bundle("Odd.app");
  std::filesystem::copy(recorder(), path + "/outside");
  std::ofstream(path + "/Contents/Info.plist")
      << "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleExecutable</key>"
         "<string>../../outside</string></dict></plist>";
  EXPECT_THAT(openedOne(path), ElementsAre("failed \"" + path + "\" has no program"));
  EXPECT_FALSE(hasRun());
}

TEST_F(ApplicationLauncherTest, AnEmptyFolderBundleAndABrokenListAreErrors) {
  const NoBus noBus;
  const auto path = bundle("Odd.app");
  EXPECT_THAT(openedOne(path), ElementsAre("failed \"" + path + "\" has no program"));
  std::ofstream(path + "/Contents/Info.plist") << "bplist00 broken";
  EXPECT_THAT(openedOne(path), ElementsAre("failed \"" + path + "\" has no program"));
}

TEST_F(ApplicationLauncherTest, ABundleOfAnotherSystemIsAnError) {
  const NoBus noBus;
  const auto path = bundle("Odd.app");
  const std::string program = path + "/Contents/MacOS/Odd";
  std::ofstream(program, std::ios::binary) << std::string("\xca\xfe\xba\xbe\0\0\0\2", 8);
  chmod(program.c_str(), 0755);
  EXPECT_THAT(openedOne(path),
              ElementsAre("failed \"" + program + "\" is no program of this system"));
}

TEST_F(ApplicationLauncherTest, NoApplicationIsAnError) {
  const NoBus noBus;
  auto peer = startPeer();
  peer.say("open-with nil " + asWord("file:///a"));
  EXPECT_THAT(linesUntilDone(peer), ElementsAre("failed No application is chosen"));
}

TEST_F(ApplicationLauncherTest, AnApplicationThatIsNoFileIsAnError) {
  const NoBus noBus;
  auto peer = startPeer();
  for (const char* url :
       {"http://example.org/x.desktop", "file://elsewhere/x", "", "file:///%00"}) {
    peer.say("open-with " + asWord(url) + " " + asWord("file:///a"));
    EXPECT_THAT(linesUntilDone(peer),
                ElementsAre(HasSubstr("is not the location of an application")))
        << url;
  }
}

TEST_F(ApplicationLauncherTest, AMissingApplicationIsAnError) {
  const NoBus noBus;
  for (const char* path : {"/nonexistent/x.desktop", "/nonexistent/X.app", "/nonexistent/x"}) {
    EXPECT_THAT(openedOne(path), ElementsAre("failed The application \"" + std::string(path) +
                                             "\": No such file or directory"));
  }
}

TEST_F(ApplicationLauncherTest, AFolderAndADeviceAreNoApplications) {
  const NoBus noBus;
  EXPECT_THAT(openedOne("/tmp"), ElementsAre("failed \"/tmp\" is a folder, not an application"));
  EXPECT_THAT(openedOne("/dev/null"), ElementsAre("failed \"/dev/null\" is no application"));
}

TEST_F(ApplicationLauncherTest, ARemovedApplicationIsAnError) {
  const NoBus noBus;
  EXPECT_THAT(openedOne(entry("app", "Exec=" + recorder() + " %F\nHidden=true\n")),
              ElementsAre("failed The application \"Odd Handler\" has been removed"));
  EXPECT_FALSE(hasRun());
}

TEST_F(ApplicationLauncherTest, AnEntryOfAnotherTypeIsAnError) {
  const NoBus noBus;
  const auto path = applications() + "/link.desktop";
  std::ofstream(path) << "[Desktop Entry]\nType=Link\nName=x\nURL=http://example.org\n";
  EXPECT_THAT(openedOne(path),
              ElementsAre(HasSubstr("is not the desktop entry of an application")));
}

TEST_F(ApplicationLauncherTest, ABrokenCommandLineIsAnError) {
  const NoBus noBus;
  for (const char* exec : {"Exec=\"open", "Exec=", "Exec=sh %", "", "Exec=%F", "Exec=sh \xff"}) {
    EXPECT_THAT(openedOne(entry("app", std::string(exec) + "\n")),
                ElementsAre("failed \"Odd Handler\" has no usable command line"))
        << exec;
  }
}

TEST_F(ApplicationLauncherTest, AMissingProgramIsAnError) {
  const NoBus noBus;
  EXPECT_THAT(openedOne(entry("app", "Exec=tervano-nobody %F\n")),
              ElementsAre("failed \"tervano-nobody\" could not be started: "
                          "No such file or directory"));
}

TEST_F(ApplicationLauncherTest, AFolderToStartInThatIsMissingIsAnError) {
  const NoBus noBus;
  EXPECT_THAT(openedOne(entry("app", "Exec=" + recorder() + " %F\nPath=/nonexistent\n")),
              ElementsAre("failed \"Odd Handler\" starts in \"/nonexistent\": "
                          "No such file or directory"));
  EXPECT_THAT(openedOne(entry("app", "Exec=" + recorder() + " %F\nPath=/dev/null\n")),
              ElementsAre("failed \"Odd Handler\" starts in \"/dev/null\": Not a directory"));
}

TEST_F(ApplicationLauncherTest, SomethingThatIsNoURLIsNeverAnArgument) {
  const NoBus noBus;
  const auto path = entry("app", "Exec=" + recorder() + " %U\n");
  auto peer = startPeer();
  for (const std::string& url : {std::string("-rf"), std::string("--x:y"), std::string("plain"),
                                 std::string(":x"), std::string("file:///a\0b", 11)}) {
    peer.say("open-with " + asWord(Url::fileURLWithPath(path).absoluteString()) + " " +
             asWord("file:///a") + " " + asWord(url));
    EXPECT_THAT(linesUntilDone(peer), ElementsAre(HasSubstr("is no location that can be opened")))
        << url;
  }
  EXPECT_FALSE(hasRun());
}

TEST_F(ApplicationLauncherTest, ATerminalProgramRunsInTheDesktopsTerminal) {
  const NoBus noBus;
  const auto files = hostileFiles();
  const auto path = entry("app", "Exec=" + recorder() + " %F\nTerminal=true\nPath=/\n");
  installTerminal("x-terminal-emulator");
  platform_.home().setVariable("PATH", platform_.home().path() + "/bin:/usr/bin:/bin");
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, path, files), ElementsAre("opened"));
  const auto run = onlyRun();
  EXPECT_EQ(run.startupIdentifier, "-e");
  EXPECT_EQ(run.folder, "/");
  EXPECT_THAT(run.arguments, ElementsAreArray(files));
}

TEST_F(ApplicationLauncherTest, WithoutATerminalATerminalProgramIsAnError) {
  const NoBus noBus;
  const auto path = entry("app", "Exec=" + recorder() + " %F\nTerminal=true\n");
  platform_.home().setVariable("PATH", platform_.home().path() + "/bin");
  EXPECT_THAT(openedOne(path), ElementsAre("failed There is no terminal for \"Odd Handler\""));
}

TEST_F(ApplicationLauncherTest, TheTokenOfTheSessionGoesToTheFirstProcessOnly) {
  const NoBus noBus;
  platform_.home().setVariable("XDG_ACTIVATION_TOKEN", "token");
  platform_.home().setVariable("DESKTOP_STARTUP_ID", "identifier");
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, entry("app", "Exec=" + recorder() + " %f\n"), {file("a"), file("b")}),
              ElementsAre("opened"));
  std::vector<std::string> tokens;
  for (const auto& run : runs(2)) tokens.push_back(run.activationToken + run.startupIdentifier);
  EXPECT_THAT(tokens, testing::UnorderedElementsAre("tokenidentifier", ""));
}

TEST_F(ApplicationLauncherTest, AProgramThatKnowsNoTokensGetsNone) {
  const NoBus noBus;
  platform_.home().setVariable("XDG_ACTIVATION_TOKEN", "token");
  EXPECT_THAT(openedOne(entry("app", "Exec=" + recorder() + " %F\nStartupNotify=false\n")),
              ElementsAre("opened"));
  EXPECT_EQ(onlyRun().activationToken, "");
}

TEST_F(ApplicationLauncherTest, NobodyMakesUpAToken) {
  const NoBus noBus;
  EXPECT_THAT(openedOne(entry("app", "Exec=" + recorder() + " %F\nStartupNotify=true\n")),
              ElementsAre("opened"));
  EXPECT_EQ(onlyRun().activationToken + onlyRun().startupIdentifier, "");
}

TEST_F(ApplicationLauncherTest, TheTokenOfARequestGoesToWhatItOpensFirst) {
  const NoBus noBus;
  platform_.home().setVariable("XDG_ACTIVATION_TOKEN", "of the session");
  const auto application =
      asWord(Url::fileURLWithPath(entry("app", "Exec=" + recorder() + " %F\n")).absoluteString());
  auto peer = startPeer();
  peer.say("request " + asWord("token") + " " + asWord("identifier"));
  for (const char* url : {"file:///1", "file:///2"}) {
    peer.say("open-with " + application + " " + asWord(url));
    EXPECT_THAT(linesUntilDone(peer), ElementsAre("opened"));
  }
  peer.say("request - " + asWord("other"));
  peer.say("open-with " + application + " " + asWord("file:///3"));
  EXPECT_THAT(linesUntilDone(peer), ElementsAre("opened"));
  std::vector<std::string> tokens;
  for (const auto& run : runs(3)) {
    tokens.push_back(run.arguments.at(0) + run.activationToken + run.startupIdentifier);
  }
  EXPECT_THAT(tokens, testing::UnorderedElementsAre("/1tokenidentifier", "/2", "/3other"));
}

TEST_F(ApplicationLauncherTest, ATokenThatAProgramDoesNotKnowStaysForTheNext) {
  const NoBus noBus;
  const auto knows =
      Url::fileURLWithPath(entry("app", "Exec=" + recorder() + " %F\n")).absoluteString();
  const auto doesNot =
      Url::fileURLWithPath(entry("other", "Exec=" + recorder() + " %F\nStartupNotify=false\n"))
          .absoluteString();
  auto peer = startPeer();
  peer.say("request " + asWord("token") + " -");
  for (const auto& application : {doesNot, knows}) {
    peer.say("open-with " + asWord(application) + " " + asWord("file:///a"));
    EXPECT_THAT(linesUntilDone(peer), ElementsAre("opened"));
  }
  std::vector<std::string> tokens;
  for (const auto& run : runs(2)) tokens.push_back(run.activationToken);
  EXPECT_THAT(tokens, testing::UnorderedElementsAre("", "token"));
}

TEST_F(ApplicationLauncherTest, TheRunningApplicationHasItsIdentifier) {
  const NoBus noBus;
  const auto path = entry("org.example.App", "Exec=" + recorder() + " %F\n");
  auto peer = startPeer();
  peer.say("identify " + asWord(Url::fileURLWithPath(path).absoluteString()));
  EXPECT_EQ(nextLine(peer),
            platform_.services().applications->bundleIdentifierAtPath(path).value_or(""));
  EXPECT_THAT(onlyRun().arguments, IsEmpty());
}

TEST_F(ApplicationLauncherTest, AFailureWithoutAPlaceForItsReasonIsJustNil) {
  const NoBus noBus;
  auto peer = startPeer();
  peer.say("identify " + asWord("file:///nonexistent"));
  EXPECT_EQ(nextLine(peer), "failed");
}

TEST_F(ApplicationLauncherTest, AnyThreadMayAsk) {
  const NoBus noBus;
  const auto path = entry("app", "Exec=" + recorder() + " %F\n");
  auto peer = startPeer();
  peer.say("crowd " + asWord(Url::fileURLWithPath(path).absoluteString()) + " " +
           asWord("file:///a") + " 8");
  EXPECT_THAT(linesUntilDone(peer), testing::AllOf(SizeIs(8), Each("opened")));
  EXPECT_THAT(runs(8), SizeIs(8));
}

class ActivatableApplicationTest : public ApplicationLauncherTest {
 protected:
  std::string activatable(const std::string& exec) {
    return entry("org.example.Odd-App", exec + "\nDBusActivatable=true\n");
  }

  FakeBusService service(const FakeBusService::Answer& answer = nothing,
                         const std::string& path = "/org/example/Odd_App") {
    return FakeBusService(bus_.address(), "org.example.Odd-App", path, kApplicationInterface,
                          kApplicationXML, answer);
  }

  PrivateBus bus_;
};

TEST_F(ActivatableApplicationTest, AllFilesGoInOneRequestByteForByte) {
  const auto app = service();
  const auto files = hostileFiles();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, activatable("Exec=" + recorder() + " %f"), files),
              ElementsAre("opened"));
  ASSERT_THAT(app.calls(), SizeIs(1));
  EXPECT_EQ(app.calls()[0].method, "Open");
  std::string expected;
  for (const auto& url : urlsOf(files)) {
    expected += (expected.empty() ? "'" : ", '") + url + "'";
  }
  EXPECT_EQ(app.calls()[0].arguments, "([" + expected + "], @a{sv} {})");
  EXPECT_FALSE(hasRun());
}

TEST_F(ActivatableApplicationTest, TenThousandFilesGoInOneRequest) {
  const auto app = service();
  std::vector<std::string> files;
  for (int i = 0; i < 10'000; ++i) files.push_back("/files/number " + std::to_string(i));
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, activatable("Exec=" + recorder() + " %F"), files),
              ElementsAre("opened"));
  ASSERT_THAT(app.calls(), SizeIs(1));
  EXPECT_THAT(app.calls()[0].arguments, HasSubstr("'file:///files/number%209999'], @a{sv} {})"));
}

TEST_F(ActivatableApplicationTest, MoreThanTheBusTakesGoesToTheCommandLine) {
  const auto app = service();
  auto peer = startPeer();
  // 2,000 of 16 KiB.
  peer.say("open-many " +
           asWord(Url::fileURLWithPath(activatable("Exec=/bin/true %U")).absoluteString()) +
           " 2000");
  EXPECT_THAT(linesUntilDone(peer), ElementsAre("opened"));
  EXPECT_THAT(app.calls(), IsEmpty());
}

TEST_F(ActivatableApplicationTest, WithoutFilesItIsActivated) {
  const auto app = service();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, activatable("Exec=" + recorder() + " %U"), {}), ElementsAre("opened"));
  ASSERT_THAT(app.calls(), SizeIs(1));
  EXPECT_EQ(app.calls()[0].method, "Activate");
}

TEST_F(ActivatableApplicationTest, TheTokenOfTheSessionGoesWithTheRequest) {
  platform_.home().setVariable("XDG_ACTIVATION_TOKEN", "token");
  platform_.home().setVariable("DESKTOP_STARTUP_ID", "identifier");
  const auto app = service();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, activatable("Exec=false %U"), {"/a"}), ElementsAre("opened"));
  ASSERT_THAT(app.calls(), SizeIs(1));
  EXPECT_EQ(app.calls()[0].arguments,
            "(['file:///a'], {'activation-token': <'token'>, 'desktop-startup-id': "
            "<'identifier'>})");
}

TEST_F(ActivatableApplicationTest, TheTokenOfARequestGoesWithItOnce) {
  const auto app = service();
  auto peer = startPeer();
  const auto path = activatable("Exec=false %U");
  peer.say("request " + asWord("token") + " -");
  EXPECT_THAT(opened(peer, path, {"/a"}), ElementsAre("opened"));
  EXPECT_THAT(opened(peer, path, {"/b"}), ElementsAre("opened"));
  ASSERT_THAT(app.calls(), SizeIs(2));
  EXPECT_EQ(app.calls()[0].arguments, "(['file:///a'], {'activation-token': <'token'>})");
  EXPECT_EQ(app.calls()[1].arguments, "(['file:///b'], @a{sv} {})");
}

TEST_F(ActivatableApplicationTest, TheTokenGoesToTheCommandLineThatIsUsedInstead) {
  const PrivateBus bus(
      std::map<std::string, std::string>{{"org.example.Odd-App", "/nonexistent/program"}});
  auto peer = startPeer();
  peer.say("request " + asWord("token") + " " + asWord("identifier"));
  EXPECT_THAT(opened(peer, activatable("Exec=" + recorder() + " %F"), {file("a")}),
              Contains("opened"));
  EXPECT_EQ(onlyRun().activationToken + onlyRun().startupIdentifier, "tokenidentifier");
}

TEST_F(ActivatableApplicationTest, ANameThatTheBusDoesNotKnowIsStartedByItsCommandLine) {
  const auto files = hostileFiles();
  auto peer = startPeer();
  EXPECT_THAT(opened(peer, activatable("Exec=" + recorder() + " %F"), files),
              ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAreArray(files));
}

TEST_F(ActivatableApplicationTest, ANameThatTheBusDoesNotKnowWithoutACommandLineIsAnError) {
  EXPECT_THAT(openedOne(activatable("")),
              ElementsAre("failed \"Odd Handler\" has no usable command line"));
}

TEST_F(ActivatableApplicationTest, AServiceThatCannotBeStartedIsStartedByItsCommandLine) {
  const PrivateBus bus(
      std::map<std::string, std::string>{{"org.example.Odd-App", "/nonexistent/program"}});
  auto peer = startPeer();
  EXPECT_THAT(
      opened(peer, activatable("Exec=" + recorder() + " %F"), {file("a")}),
      testing::UnorderedElementsAre(
          "opened", testing::AllOf(StartsWith("log Could not open \"a\" with \"Odd Handler\": "),
                                   HasSubstr("the application's command line is used instead"))));
  EXPECT_THAT(onlyRun().arguments, ElementsAre(file("a")));
}

TEST_F(ActivatableApplicationTest, WhatFailsLaterIsLoggedAndToldToTheUser) {
  // It owns the name and has no object where an application has its own.
  const auto app = service(nothing, "/elsewhere");
  auto peer = startPeer();
  const auto lines =
      opened(peer, activatable("Exec=" + recorder() + " %F"), {file("a"), file("b")});
  EXPECT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines, Contains("opened"));
  EXPECT_THAT(lines, Contains(StartsWith("log Could not open 2 files with \"Odd Handler\": ")));
  EXPECT_THAT(lines,
              Contains(StartsWith("tell Tervano: Could not open 2 files with \"Odd Handler\": ")));
  EXPECT_FALSE(hasRun());
}

TEST_F(ActivatableApplicationTest, AServiceAndACommandLineThatBothFailAreToldToTheUser) {
  const PrivateBus bus(
      std::map<std::string, std::string>{{"org.example.Odd-App", "/nonexistent/program"}});
  auto peer = startPeer();
  const auto lines = opened(peer, activatable("Exec=/nonexistent/app %F"), {file("a")});
  EXPECT_THAT(lines,
              Contains("tell Tervano: Could not open \"a\" with \"Odd Handler\": "
                       "\"/nonexistent/app\" could not be started: No such file or directory"));
}

TEST_F(ActivatableApplicationTest, WithoutABusItIsStartedByItsCommandLine) {
  const NoBus noBus;
  EXPECT_THAT(openedOne(activatable("Exec=" + recorder() + " %F")), ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre(file("a")));
}

TEST_F(ActivatableApplicationTest, WithADeadBusItIsStartedByItsCommandLine) {
  bus_.kill();
  EXPECT_THAT(openedOne(activatable("Exec=" + recorder() + " %F")), ElementsAre("opened"));
  EXPECT_THAT(onlyRun().arguments, ElementsAre(file("a")));
}

TEST_F(ActivatableApplicationTest, WithABusThatDoesNotAnswerItIsStartedByItsCommandLine) {
  auto peer = startPeer({"hasty"});
  const auto path = activatable("Exec=" + recorder() + " %F");
  // Connected by then.
  EXPECT_THAT(opened(peer, path, {file("a")}), ElementsAre("opened"));
  bus_.stop();
  EXPECT_THAT(opened(peer, path, {file("b")}), ElementsAre("opened"));
  bus_.resume();
  EXPECT_THAT(runs(2), SizeIs(2));
}

}  // namespace
}  // namespace tervano::test
