#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/companion/tervano_program.h"
#include "tests/support/fake_bus_service.h"
#include "tests/support/private_bus.h"
#include "tests/support/virtual_display.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr char kShare[] = TERVANO_BUILD "/share";
constexpr char kServiceCommand[] = TERVANO_PROGRAM " service --idle-seconds 1";
constexpr char kDaemonCommand[] = "/usr/bin/dunst -conf /dev/null";

// Lets the folder of Thunar's modules hold what `folder` holds, for the calling process alone.
bool showModules(const std::string& folder) {
  const int namespaces = geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS;
  return unshare(namespaces) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(folder.c_str(), THUNAR_MODULES, nullptr, MS_BIND, nullptr) == 0;
}

// A text in a program's place that can be executed.
void writeScript(const std::string& path, const std::string& line) {
  fs::remove(path);
  std::ofstream(path) << "#!/bin/bash\n" << line << "\n";
  fs::permissions(path, fs::perms::owner_all);
}

class DoctorTest : public testing::Test {
 protected:
  // What "doctor --json" found, whatever the status.
  nlohmann::ordered_json findings(std::function<bool()> prepare = nullptr) {
    ProgramStart start;
    start.path = program_;
    start.arguments = {"doctor", "--json"};
    start.prepare = std::move(prepare);
    start.seconds = 60;
    const auto outcome = runProgram(start);
    EXPECT_THAT(outcome.status, testing::AnyOf(0, 1)) << outcome.errors;
    return nlohmann::ordered_json::parse(outcome.output);
  }
  static nlohmann::ordered_json findingOf(const nlohmann::ordered_json& findings,
                                          const std::string& what) {
    for (const auto& finding : findings) {
      if (finding["what"] == what) return finding;
    }
    ADD_FAILURE() << "nothing was found about " << what << " in " << findings.dump(1);
    return {{"state", ""}, {"detail", ""}, {"mend", ""}, {"needed", false}};
  }
  nlohmann::ordered_json look(const std::string& what, std::function<bool()> prepare = nullptr) {
    return findingOf(findings(std::move(prepare)), what);
  }
  void expectState(const std::string& what, const std::string& state, const std::string& detail,
                   std::function<bool()> prepare = nullptr) {
    const auto finding = look(what, std::move(prepare));
    EXPECT_EQ(finding["state"], state) << finding.dump(1);
    EXPECT_THAT(finding["detail"].get<std::string>(), HasSubstr(detail));
    EXPECT_EQ(finding["mend"].is_null(), state == "OK");
  }

  // From now on the program of an installation of its own, of which parts may be taken away.
  void install() {
    prefix_ = home_.folder("prefix");
    fs::create_directory(prefix_ + "/bin");
    fs::copy_file(TERVANO_PROGRAM, prefix_ + "/bin/tervano");
    for (const std::string folder : {"share/tervano", "libexec/tervano"}) {
      fs::create_directories(prefix_ + "/" + folder);
      for (const auto& entry : fs::directory_iterator(TERVANO_BUILD "/" + folder)) {
        fs::create_symlink(fs::canonical(entry.path()),
                           prefix_ + "/" + folder + "/" + entry.path().filename().string());
      }
    }
    program_ = prefix_ + "/bin/tervano";
  }
  std::string libexec(const std::string& name) const {
    return prefix_ + "/libexec/tervano/" + name;
  }
  std::string resource(const std::string& name) const { return prefix_ + "/share/tervano/" + name; }

  // A folder of modules for Thunar with our module's name in it, as a link to `target`.
  std::string moduleFolder(const std::string& target) {
    const std::string folder = home_.folder("modules");
    fs::create_symlink(target, folder + "/libtervano-thunar.so");
    return folder;
  }
  std::string writeEntry(const std::string& name, const std::string& program) {
    return home_.file(".local/share/applications/" + name,
                      "[Desktop Entry]\nType=Application\nName=N\nExec=" + program +
                          " %u\nMimeType=x-scheme-handler/tervano;\n");
  }

  ProgramHome home_;
  std::string prefix_;
  std::string program_ = TERVANO_PROGRAM;
};

}  // namespace

TEST_F(DoctorTest, EachPartIsOneLineWithItsStateAndHowToMendIt) {
  const auto outcome = home_.tervano({"doctor"});
  EXPECT_EQ(outcome.status, 1);
  expectOneSentence(outcome.errors);
  std::istringstream lines(outcome.output);
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_THAT(line, MatchesRegex("(OK|missing|broken) +[A-Za-z].*: .*\\.")) << line;
  }
  const auto all = findings();
  EXPECT_EQ(count, all.size());
  for (const auto& finding : all) {
    EXPECT_EQ(finding["state"] == "OK", finding["mend"].is_null()) << finding.dump();
    EXPECT_THAT(finding["detail"].get<std::string>(), EndsWith("."));
  }
}

TEST_F(DoctorTest, TheSentenceCountsWhatIsNeededAndDoesNotWork) {
  std::size_t bad = 0;
  for (const auto& finding : findings()) {
    if (finding["needed"] == true && finding["state"] != "OK") ++bad;
  }
  ASSERT_GT(bad, 1U);
  EXPECT_EQ(home_.tervano({"doctor"}).errors,
            "tervano: " + std::to_string(bad) + " parts that are needed do not work.\n");
}

TEST_F(DoctorTest, WithoutABusThreePartsSaySoAndNothingElseDoes) {
  const auto all = findings();
  for (const std::string what : {"session bus", "D-Bus service", "notification daemon"}) {
    EXPECT_EQ(findingOf(all, what)["state"], "missing") << what;
    EXPECT_EQ(findingOf(all, what)["needed"], true) << what;
  }
  for (const std::string what : {"icons", "tervano-ask", "message channel", "shell scripts"}) {
    EXPECT_EQ(findingOf(all, what)["state"], "OK") << what;
  }
}

TEST_F(DoctorTest, ABuildTreeHasEverythingThatComesWithTheProgram) {
  const auto all = findings();
  for (const std::string what :
       {"icons", "templates", "default scripts", "tervano-images", "picture formats",
        "tervano-remove", "tervano-defaults", "tervano-ask", "icon drawings", "AppImage reader"}) {
    EXPECT_EQ(findingOf(all, what)["state"], "OK") << findingOf(all, what).dump();
  }
}

TEST_F(DoctorTest, WordsBehindItAreAUsageError) {
  expectUsageError(home_.tervano({"doctor", "now"}));
  expectUsageError(home_.tervano({"doctor", "--module"}));
}

// --- The user's own ------------------------------------------------------------------------------

TEST_F(DoctorTest, ANewHomeLacksOnlyWhatTheFirstActionMakesAndNothingIsMade) {
  const auto all = findings();
  for (const std::string what : {"shared container", "action list"}) {
    EXPECT_EQ(findingOf(all, what)["state"], "missing") << what;
    EXPECT_EQ(findingOf(all, what)["needed"], false) << what;
  }
  EXPECT_FALSE(exists(home_.container()));
}

TEST_F(DoctorTest, AListIsReadAndCounted) {
  home_.succeed({"add", "move"});
  expectState("action list", "OK", "holds 1 entry.");
  home_.succeed({"add", "copy"});
  expectState("action list", "OK", "holds 2 entries.");
  expectState("shared container", "OK", home_.container());
}

TEST_F(DoctorTest, AListThatCannotBeReadIsBrokenAndStays) {
  home_.succeed({"add", "move"});
  std::ofstream(home_.listFile(), std::ios::trunc) << "garbage";
  expectState("action list", "broken", "The action list cannot be read");
  EXPECT_EQ(contentsOf(home_.listFile()), "garbage");
}

TEST_F(DoctorTest, AContainerThatIsAFileIsBroken) {
  home_.file(".local/share/Q4T7N2XR8K.com.vessok.tervano");
  expectState("shared container", "broken", "is no folder.");
}

TEST_F(DoctorTest, AContainerThatCannotBeMadeIsBroken) {
  fs::remove_all(home_.home().dataHome());
  home_.file(".local/share");
  expectState("shared container", "broken", "cannot be made: " + home_.path() + "/.local/share");
}

TEST_F(DoctorTest, AContainerThatCannotBeWrittenToIsBroken) {
  home_.succeed({"add", "move"});
  giveToNobody(home_.path());
  fs::permissions(home_.container(), fs::perms::owner_read | fs::perms::owner_exec);
  expectState("shared container", "broken", "cannot be written to.", becomeNobody);
  fs::permissions(home_.container(), fs::perms::owner_all);
}

// --- What comes with the program -----------------------------------------------------------------

TEST_F(DoctorTest, AnInstallationIsWhereItsProgramIs) {
  install();
  expectState("icons", "OK", resource("icons"));
  expectState("tervano-remove", "OK", libexec("tervano-remove"));
}

TEST_F(DoctorTest, ToolsThatAreAbsentAreMissing) {
  install();
  fs::remove(libexec("tervano-remove"));
  fs::remove(libexec("tervano-images"));
  const auto all = findings();
  EXPECT_EQ(findingOf(all, "tervano-remove")["state"], "missing");
  EXPECT_THAT(findingOf(all, "tervano-remove")["mend"].get<std::string>(), HasSubstr(prefix_));
  EXPECT_EQ(findingOf(all, "tervano-images")["state"], "missing");
  EXPECT_EQ(findingOf(all, "tervano-defaults")["state"], "OK");
}

TEST_F(DoctorTest, AToolThatFailsIsBrokenWithItsOwnWords) {
  install();
  writeScript(libexec("tervano-remove"), "echo 'no such library' >&2; exit 127");
  expectState("tervano-remove", "broken", "no such library");
}

TEST_F(DoctorTest, AToolThatFailsSilentlyIsBrokenWithItsStatus) {
  install();
  writeScript(libexec("tervano-defaults"), "exit 9");
  expectState("tervano-defaults", "broken", "it ended with status 9");
}

TEST_F(DoctorTest, AToolThatMayNotBeExecutedIsBroken) {
  install();
  fs::remove(libexec("tervano-ask"));
  std::ofstream(libexec("tervano-ask")) << "text";
  expectState("tervano-ask", "broken", "tervano-ask");
}

TEST_F(DoctorTest, PictureFormatsThatCannotBeWrittenAreNamed) {
  install();
  writeScript(libexec("tervano-images"), "printf '%s\\n' jpeg png tiff gif bmp jp2 webp pdf");
  const auto finding = look("picture formats");
  EXPECT_EQ(finding["state"], "missing");
  EXPECT_EQ(finding["needed"], false);
  EXPECT_EQ(finding["detail"], "Pictures cannot be converted to heic, avif.");
}

TEST_F(DoctorTest, TemplatesThatAreAbsentAreMissingAndAnEmptyFolderIsBroken) {
  install();
  fs::remove(resource("Templates"));
  expectState("templates", "missing", "There is no folder " + resource("Templates"));
  fs::create_directory(resource("Templates"));
  expectState("templates", "broken", "is empty");
}

TEST_F(DoctorTest, AModuleThatIsTextIsBroken) {
  install();
  fs::remove(libexec("pictures.so"));
  std::ofstream(libexec("pictures.so")) << "text";
  expectState("icon drawings", "broken", "pictures.so");
}

TEST_F(DoctorTest, AnotherModuleInItsPlaceIsBroken) {
  install();
  fs::remove(libexec("appimages.so"));
  fs::create_symlink(TERVANO_BUILD "/libexec/tervano/pictures.so", libexec("appimages.so"));
  expectState("AppImage reader", "broken", "lacks the function tervanoSquashfsEntries");
}

TEST_F(DoctorTest, AModuleThatEndsItsProcessIsBrokenAndTheDoctorLives) {
  install();
  fs::remove(libexec("pictures.so"));
  fs::create_symlink(DEADLY_MODULE, libexec("pictures.so"));
  const auto all = findings();
  EXPECT_THAT(findingOf(all, "icon drawings")["detail"].get<std::string>(),
              EndsWith("was ended by signal 9."));
  EXPECT_EQ(findingOf(all, "AppImage reader")["state"], "OK");
}

TEST_F(DoctorTest, OneModuleCanBeTriedAlone) {
  home_.succeed(
      {"doctor", "--module", TERVANO_BUILD "/libexec/tervano/pictures.so", "tervanoPictureCodec"});
  expectFailure(home_.tervano(
      {"doctor", "--module", TERVANO_BUILD "/libexec/tervano/pictures.so", "another"}));
  expectFailure(home_.tervano({"doctor", "--module", home_.path() + "/none.so"}));
}

TEST_F(DoctorTest, ProgramsThatAreAbsentAreMissingWithTheirPackage) {
  home_.home().setVariable("PATH", home_.folder("empty"));
  const auto all = findings();
  EXPECT_EQ(findingOf(all, "Lua scripts")["mend"], "Install the package lua5.4.");
  EXPECT_EQ(findingOf(all, "Lua scripts")["needed"], false);
  EXPECT_EQ(findingOf(all, "shell scripts")["needed"], true);
}

// --- The handler of the URLs ---------------------------------------------------------------------

TEST_F(DoctorTest, TheHandlerIsFoundInTheDataFolders) {
  home_.home().setVariable("XDG_DATA_DIRS", std::string(kShare));
  expectState("scheme handler", "OK", TERVANO_PROGRAM);
}

TEST_F(DoctorTest, WithoutADesktopEntryTheHandlerIsMissing) {
  home_.home().setVariable("XDG_DATA_DIRS", home_.folder("empty"));
  const auto finding = look("scheme handler");
  EXPECT_EQ(finding["state"], "missing");
  EXPECT_THAT(finding["mend"].get<std::string>(),
              HasSubstr(std::string(kShare) + " in XDG_DATA_DIRS"));
}

TEST_F(DoctorTest, AnotherHandlerThatTheUserChoseIsBroken) {
  home_.home().setVariable("XDG_DATA_DIRS", std::string(kShare));
  const auto other = writeEntry("other.desktop", "/bin/true");
  home_.file(".config/mimeapps.list",
             "[Default Applications]\nx-scheme-handler/tervano=other.desktop\n");
  const auto finding = look("scheme handler");
  EXPECT_EQ(finding["state"], "broken");
  EXPECT_THAT(finding["detail"].get<std::string>(), HasSubstr(other));
  EXPECT_THAT(finding["mend"].get<std::string>(), HasSubstr("gio mime x-scheme-handler/tervano"));
}

TEST_F(DoctorTest, AnEntryOfAProgramThatIsGoneIsBroken) {
  home_.home().setVariable("XDG_DATA_DIRS", home_.folder("empty"));
  writeEntry("com.vessok.tervano.desktop", home_.path() + "/gone");
  expectState("scheme handler", "broken", "starts a program that is not there.");
}

TEST_F(DoctorTest, AnEntryThatTheDesktopsTableLacksIsBroken) {
  home_.home().setVariable("XDG_DATA_DIRS", home_.folder("empty"));
  writeEntry("com.vessok.tervano.desktop", TERVANO_PROGRAM);
  home_.file(".local/share/applications/mimeinfo.cache", "[MIME Cache]\n");
  const auto finding = look("scheme handler");
  EXPECT_EQ(finding["state"], "broken");
  EXPECT_EQ(finding["mend"],
            "Run \"update-desktop-database " + home_.home().dataHome() + "/applications\".");
}

// --- The bus and what it starts ------------------------------------------------------------------

TEST_F(DoctorTest, ServicesThatTheBusCanStartAnswer) {
  const VirtualDisplay display;
  const PrivateBus bus(
      {{"com.vessok.tervano", kServiceCommand}, {"org.freedesktop.Notifications", kDaemonCommand}});
  const auto all = findings();
  EXPECT_EQ(findingOf(all, "session bus")["state"], "OK");
  EXPECT_EQ(findingOf(all, "D-Bus service")["detail"], "com.vessok.tervano answers.");
  EXPECT_THAT(findingOf(all, "notification daemon")["detail"].get<std::string>(),
              testing::StartsWith("dunst 1."));
}

TEST_F(DoctorTest, ABusThatKnowsNoServicesLacksThem) {
  const PrivateBus bus;
  const auto all = findings();
  EXPECT_EQ(findingOf(all, "session bus")["state"], "OK");
  EXPECT_EQ(findingOf(all, "D-Bus service")["state"], "missing");
  EXPECT_EQ(findingOf(all, "notification daemon")["state"], "missing");
}

TEST_F(DoctorTest, ServicesThatCannotBeStartedAreBroken) {
  const PrivateBus bus({{"com.vessok.tervano", "/nonexistent/tervano service"},
                        {"org.freedesktop.Notifications", "/bin/false"}});
  const auto all = findings();
  EXPECT_EQ(findingOf(all, "D-Bus service")["state"], "broken");
  EXPECT_THAT(findingOf(all, "D-Bus service")["detail"].get<std::string>(),
              HasSubstr("Failed to execute program"));
  EXPECT_EQ(findingOf(all, "notification daemon")["state"], "broken");
}

TEST_F(DoctorTest, ADaemonThatDoesNotAnswerIsBroken) {
  const PrivateBus bus;
  constexpr char kXML[] =
      "<node><interface name='org.freedesktop.Notifications'>"
      "<method name='GetServerInformation'><arg type='s' direction='out'/></method>"
      "</interface></node>";
  const FakeBusService silent(bus.address(), "org.freedesktop.Notifications",
                              "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                              kXML, [](const auto&) { return nullptr; });
  expectState("notification daemon", "broken", "did not answer in time");
}

TEST_F(DoctorTest, ABusThatIsGoneIsBroken) {
  PrivateBus bus;
  bus.kill();
  expectState("session bus", "broken", "does not answer");
}

TEST_F(DoctorTest, ABusThatHangsIsBroken) {
  PrivateBus bus;
  bus.stop();
  expectState("session bus", "broken", "does not answer");
  bus.resume();
}

// --- File managers -------------------------------------------------------------------------------

TEST_F(DoctorTest, AFileManagerWithoutTheModuleIsMissingAndNotNeeded) {
  const auto finding = look("Thunar", [&] { return showModules(home_.folder("modules")); });
  EXPECT_EQ(finding["state"], "missing");
  EXPECT_EQ(finding["needed"], false);
  EXPECT_THAT(finding["mend"].get<std::string>(), HasSubstr("the package tervano-thunar."));
}

TEST_F(DoctorTest, AFileManagerThatIsNotInstalledSaysSo) {
  home_.home().setVariable("PATH", home_.folder("empty"));
  expectState("Thunar", "missing", "It is not installed",
              [&] { return showModules(home_.folder("modules")); });
}

TEST_F(DoctorTest, WithoutAnyModuleTheMenuIsMissingAndNeeded) {
  const auto finding = look("menu", [&] { return showModules(home_.folder("modules")); });
  EXPECT_EQ(finding["state"], "missing");
  EXPECT_EQ(finding["needed"], true);
}

TEST_F(DoctorTest, AModuleOfAFileManagerThatIsTextIsBrokenAndNeeded) {
  const auto folder = moduleFolder(home_.file("text"));
  const auto all = findings([&] { return showModules(folder); });
  EXPECT_EQ(findingOf(all, "Thunar")["state"], "broken");
  EXPECT_EQ(findingOf(all, "Thunar")["needed"], true);
  EXPECT_EQ(findingOf(all, "menu")["state"], "broken");
}

TEST_F(DoctorTest, AModuleOfAFileManagerWithoutItsFunctionsIsBroken) {
  const auto folder = moduleFolder(TERVANO_BUILD "/libexec/tervano/pictures.so");
  expectState("Thunar", "broken", "lacks the function thunar_extension_initialize",
              [&] { return showModules(folder); });
}

TEST_F(DoctorTest, AModuleThatIsADanglingLinkIsBroken) {
  const auto folder = moduleFolder(home_.path() + "/gone");
  expectState("Thunar", "broken", "libtervano-thunar.so", [&] { return showModules(folder); });
}

#ifdef THUNAR_MODULE

TEST_F(DoctorTest, AModuleInTheFileManagersFolderIsLoaded) {
  const auto folder = moduleFolder(THUNAR_MODULE);
  const auto all = findings([&] { return showModules(folder); });
  EXPECT_EQ(findingOf(all, "Thunar")["state"], "OK") << findingOf(all, "Thunar").dump();
  EXPECT_THAT(findingOf(all, "menu")["detail"].get<std::string>(), HasSubstr("Thunar"));
}

TEST_F(DoctorTest, AModuleWithoutItsFileManagerIsMissingTheFileManager) {
  home_.home().setVariable("PATH", home_.folder("empty"));
  const auto folder = moduleFolder(THUNAR_MODULE);
  const auto finding = look("Thunar", [&] { return showModules(folder); });
  EXPECT_EQ(finding["state"], "missing");
  EXPECT_EQ(finding["mend"], "Install the package thunar.");
}

TEST_F(DoctorTest, AModuleWhereTheFileManagerDoesNotLookIsPointedAt) {
  const auto finding = look("Thunar", [&] { return showModules(home_.folder("modules")); });
  EXPECT_THAT(finding["detail"].get<std::string>(), HasSubstr(THUNAR_MODULE));
  EXPECT_THAT(finding["mend"].get<std::string>(), HasSubstr(THUNAR_MODULES));
}

TEST_F(DoctorTest, APluginOfDolphinIsFoundInTheFoldersOfTheEnvironment) {
  home_.home().setVariable("QT_PLUGIN_PATH", "relative:" TERVANO_BUILD "/lib/dolphin");
  expectState("Dolphin", "OK", TERVANO_BUILD "/lib/dolphin/kf5/kfileitemaction/tervano.so");
}

TEST_F(DoctorTest, APluginThatTheUserHasSwitchedOffSaysWhereAndIsNotNeeded) {
  home_.home().setVariable("QT_PLUGIN_PATH", TERVANO_BUILD "/lib/dolphin");
  home_.file(".config/kservicemenurc", "[Show]\ntervano=false\n");
  const auto finding = look("Dolphin");
  EXPECT_EQ(finding["state"], "broken");
  EXPECT_EQ(finding["needed"], false);
  EXPECT_THAT(finding["detail"].get<std::string>(), HasSubstr("the settings of Dolphin"));
}

TEST_F(DoctorTest, APluginThatTheUserHasSwitchedOnAgainIsInOrder) {
  home_.home().setVariable("QT_PLUGIN_PATH", TERVANO_BUILD "/lib/dolphin");
  home_.file(".config/kservicemenurc", "[Show]\ntervano=true\nother=false\n");
  expectState("Dolphin", "OK", "");
}

TEST_F(DoctorTest, ADesktopThatHasEverythingIsAnsweredWithNought) {
  home_.home().setVariable("XDG_DATA_DIRS", std::string(kShare) + ":/usr/share");
  home_.succeed({"add", "move"});
  const VirtualDisplay display;
  const PrivateBus bus(
      {{"com.vessok.tervano", kServiceCommand}, {"org.freedesktop.Notifications", kDaemonCommand}});
  ProgramStart start;
  start.arguments = {"doctor"};
  const auto folder = moduleFolder(THUNAR_MODULE);
  start.prepare = [&] { return showModules(folder); };
  const auto outcome = home_.start(start);
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_EQ(outcome.errors, "");
}

#endif

}  // namespace tervano::test
