#include "platform/linux/desktop_applications.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "archive/property_list.h"
#include "tests/support/child_process.h"
#include "tests/support/recording_services.h"
#include "tests/support/run_program.h"
#include "tests/support/scoped_platform.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;

constexpr char kEntry[] = "[Desktop Entry]\nType=Application\nName=Example\nExec=example %U\n";
constexpr char kIdentifier[] = "org.example.App";

class DesktopApplicationsTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return home().path() + "/" + name; }
  std::string inApplications(const std::string& name) const {
    return home().dataHome() + "/applications/" + name;
  }
  TemporaryHome& home() const { return platform_->home(); }

  static std::string write(const std::string& path, const std::string& bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  std::optional<std::string> identifierOf(const std::string& path) const {
    return applications_.bundleIdentifierAtPath(path);
  }

  // A folder bundle with that information list.
  std::string bundle(const std::string& list, const std::string& place = "Contents/Info.plist",
                     const std::string& name = "Example.app") const {
    write(at(name) + "/" + place, list);
    return at(name);
  }
  static std::string binaryList(const Value& value) {
    const Data bytes = binaryDataWithPropertyList(value);
    return {bytes.begin(), bytes.end()};
  }
  static std::string listNaming(const std::string& identifier) {
    return binaryList(Value::Dictionary{{"CFBundleIdentifier", identifier}});
  }

  // A file system image of a folder with those files, each with an entry's content.
  std::string squashfs(const std::vector<std::string>& names,
                       const std::string& compression = "gzip") const {
    const std::string folder = at("image-content");
    fs::remove_all(folder);
    fs::create_directories(folder);
    for (const auto& name : names) write(folder + "/" + name, kEntry);
    return squashfsOf(folder, compression);
  }
  std::string squashfsOf(const std::string& folder, const std::string& compression = "gzip") const {
    ProgramStart start;
    start.path = "/usr/bin/mksquashfs";
    start.arguments = {folder,  at("image"), "-noappend",   "-quiet", "-no-progress",
                       "-comp", compression, "-processors", "1"};
    const auto outcome = runProgram(start);
    if (outcome.status != 0) throw std::runtime_error("mksquashfs: " + outcome.errors);
    return contentsOf(at("image"));
  }

  // A real program that says it is an AppImage, with `image` behind it.
  std::string appImage(const std::string& image, char type = 2,
                       const std::string& name = "Example.AppImage") const {
    std::string program = contentsOf("/bin/true");
    program.replace(8, 3, std::string("AI") + type);
    write(at(name), program + image);
    chmod(at(name).c_str(), 0755);
    return at(name);
  }

  MemoryTemporaryFolder memory_;
  std::unique_ptr<ScopedPlatform> platform_ = std::make_unique<ScopedPlatform>();
  DesktopApplications applications_;
};

// Desktop entries.

TEST_F(DesktopApplicationsTest, AnEntryInTheUsersApplicationFolderHasItsNameAsIdentifier) {
  EXPECT_THAT(identifierOf(write(inApplications("org.example.App.desktop"), kEntry)),
              Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, AnEntryInASubfolderHasTheFoldersInItsIdentifier) {
  EXPECT_THAT(identifierOf(write(inApplications("kde4/office/writer.desktop"), kEntry)),
              Optional(std::string("kde4-office-writer")));
}

TEST_F(DesktopApplicationsTest, AnEntryInADataFolderOfTheSystemIsNamedFromThatFolder) {
  home().setVariable("XDG_DATA_DIRS", at("first") + ":relative:" + at("second") + "/");
  EXPECT_THAT(identifierOf(write(at("second/applications/vendor/tool.desktop"), kEntry)),
              Optional(std::string("vendor-tool")));
  EXPECT_THAT(identifierOf(write(at("relative/applications/vendor/tool.desktop"), kEntry)),
              Optional(std::string("tool")));
}

TEST_F(DesktopApplicationsTest, AnEntryElsewhereHasItsFileNameAsIdentifier) {
  EXPECT_THAT(identifierOf(write(at("Desktop/kde4/org.example.App.desktop"), kEntry)),
              Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, ALinkOnTheDesktopHasTheIdentifierOfTheInstalledEntry) {
  const std::string entry = write(inApplications("kde4/writer.desktop"), kEntry);
  fs::create_directories(at("Desktop"));
  fs::create_symlink(entry, at("Desktop/Write Texts.desktop"));
  EXPECT_THAT(identifierOf(at("Desktop/Write Texts.desktop")),
              Optional(std::string("kde4-writer")));
}

TEST_F(DesktopApplicationsTest, ALinkInAnApplicationFolderHasTheNameOfTheLink) {
  const std::string entry = write(at("opt/program.desktop"), kEntry);
  fs::create_directories(inApplications(""));
  fs::create_symlink(entry, inApplications("org.example.App.desktop"));
  EXPECT_THAT(identifierOf(inApplications("org.example.App.desktop")),
              Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, AnApplicationFolderReachedThroughALinkIsRecognised) {
  write(inApplications("kde4/writer.desktop"), kEntry);
  fs::create_symlink(home().dataHome(), at("data"));
  EXPECT_THAT(identifierOf(at("data/applications/kde4/writer.desktop")),
              Optional(std::string("kde4-writer")));
  home().setVariable("XDG_DATA_HOME", at("data"));
  EXPECT_THAT(identifierOf(at(".local/share/applications/kde4/writer.desktop")),
              Optional(std::string("kde4-writer")));
}

TEST_F(DesktopApplicationsTest, ExtraSlashesAndDotsInThePathChangeNothing) {
  write(inApplications("kde4/writer.desktop"), kEntry);
  EXPECT_THAT(identifierOf(inApplications("/./kde4//writer.desktop")),
              Optional(std::string("kde4-writer")));
  EXPECT_THAT(identifierOf(inApplications("../applications/kde4/writer.desktop")),
              Optional(std::string("kde4-writer")));
}

TEST_F(DesktopApplicationsTest, IdentifiersAreThoseOfTheDesktopsOwnDatabase) {
  // The MIME cache lists entries by their identifiers.
  const std::vector<std::string> names = {"plain.desktop", "sub/one.desktop",
                                          "sub/deep-er/two.desktop", "org.example.App.desktop",
                                          "W\xC3\xB6rter 2.desktop"};
  std::string all;
  for (const auto& name : names) {
    const std::string type = "x-test/t" + std::to_string(all.size());
    const std::string path =
        write(inApplications(name), std::string(kEntry) + "MimeType=" + type + ";\n");
    all += type + "=" + identifierOf(path).value_or("nil") + ".desktop;\n";
  }
  ProgramStart start;
  start.path = "/usr/bin/update-desktop-database";
  start.arguments = {inApplications("")};
  ASSERT_EQ(runProgram(start).status, 0);
  std::istringstream lines(all);
  const std::string cache = contentsOf(inApplications("mimeinfo.cache"));
  for (std::string line; std::getline(lines, line);) EXPECT_THAT(cache, HasSubstr(line + "\n"));
}

TEST_F(DesktopApplicationsTest, InstalledProgramsOfThisSystemHaveTheirIdentifiers) {
  std::size_t found = 0;
  for (const auto& item : fs::directory_iterator("/usr/share/applications")) {
    const std::string name = item.path().filename().string();
    if (!name.ends_with(".desktop")) continue;
    if (contentsOf(item.path().string()).find("\nType=Application") == std::string::npos) continue;
    EXPECT_THAT(identifierOf(item.path().string()), Optional(item.path().stem().string()));
    ++found;
  }
  // Python, which the tests need, brings one.
  EXPECT_GE(found, 1u);
}

TEST_F(DesktopApplicationsTest, AnEntryOfAnotherTypeIsNoApplication) {
  for (const std::string type : {"Link", "Directory", "application", ""}) {
    EXPECT_EQ(identifierOf(write(at("a.desktop"),
                                 "[Desktop Entry]\nType=" + type + "\nName=A\nURL=http://x/\n")),
              std::nullopt)
        << type;
  }
  EXPECT_EQ(identifierOf(write(at("a.desktop"), "[Desktop Entry]\nName=A\nExec=a\n")),
            std::nullopt);
}

TEST_F(DesktopApplicationsTest, AFileThatOnlyHasTheNameOfAnEntryIsNoApplication) {
  EXPECT_EQ(identifierOf(write(at("a.desktop"), "")), std::nullopt);
  EXPECT_EQ(identifierOf(write(at("a.desktop"), "#!/bin/sh\nexit\n")), std::nullopt);
  EXPECT_EQ(identifierOf(write(at("a.desktop"), "[Other]\nType=Application\n")), std::nullopt);
  EXPECT_EQ(identifierOf(write(at("a.desktop"), std::string("\0\xFF[Desktop", 10))), std::nullopt);
}

TEST_F(DesktopApplicationsTest, AnEntryWithoutItsExtensionIsNoApplication) {
  EXPECT_EQ(identifierOf(write(at("org.example.App"), kEntry)), std::nullopt);
  EXPECT_EQ(identifierOf(write(at("org.example.App.desktop.bak"), kEntry)), std::nullopt);
}

TEST_F(DesktopApplicationsTest, AnEntryThatIsOnlyAnExtensionHasNoIdentifier) {
  EXPECT_EQ(identifierOf(write(at(".desktop"), kEntry)), std::nullopt);
  EXPECT_EQ(identifierOf(write(inApplications(".desktop"), kEntry)), std::nullopt);
}

TEST_F(DesktopApplicationsTest, AHugeEntryIsNotRead) {
  const std::string path = write(at("a.desktop"), kEntry);
  fs::resize_file(path, std::uintmax_t{1} << 40);
  EXPECT_EQ(identifierOf(path), std::nullopt);
  fs::resize_file(path, (std::uintmax_t{1} << 20) + 1);
  EXPECT_EQ(identifierOf(path), std::nullopt);
}

TEST_F(DesktopApplicationsTest, APipeASocketAFolderAndADeviceAreNotWaitedFor) {
  for (const std::string extension : {".desktop", ".AppImage"}) {
    const std::string pipe = at("pipe" + extension);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0700), 0);
    EXPECT_EQ(identifierOf(pipe), std::nullopt);
    EXPECT_EQ(applications_.displayNameAtPath(pipe), std::nullopt);
    const std::string socketPath = at("socket" + extension);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(identifierOf(socketPath), std::nullopt);
    close(listener);
    fs::create_directories(at("folder" + extension));
    EXPECT_EQ(identifierOf(at("folder" + extension)), std::nullopt);
    fs::create_symlink("/dev/zero", at("device" + extension));
    EXPECT_EQ(identifierOf(at("device" + extension)), std::nullopt);
  }
}

TEST_F(DesktopApplicationsTest, AMissingPathADanglingLinkAndARingOfLinksGiveNil) {
  fs::create_symlink(at("nowhere"), at("dangling.desktop"));
  fs::create_symlink(at("ring.desktop"), at("ring.desktop"));
  fs::create_symlink(at("ring.app"), at("ring.app"));
  for (const std::string& path :
       {at("missing.desktop"), at("dangling.desktop"), at("ring.desktop"), at("missing.AppImage"),
        at("missing.app"), at("ring.app"), std::string(), std::string("/"),
        at("a.desktop") + std::string("\0.desktop", 9)}) {
    EXPECT_EQ(identifierOf(path), std::nullopt) << path;
  }
}

TEST_F(DesktopApplicationsTest, AnEntryThatMayNotBeReadGivesNil) {
  const std::string path = write(at("a.desktop"), kEntry);
  chmod(path.c_str(), 0);
  giveToNobody(home().path());
  auto child = forkChild([&](ParentLink&) {
    return becomeNobody() && DesktopApplications().bundleIdentifierAtPath(path) == std::nullopt ? 0
                                                                                                : 1;
  });
  EXPECT_EQ(child.waitForExit(), 0);
}

// Identifiers that nothing may be started with.

TEST_F(DesktopApplicationsTest, AnIdentifierWithOddBytesIsNone) {
  for (const std::string name :
       {"a\nb", "a\x01", "a\x7F", "a\x1B[31m", "a\xFF", "a\xC2\x85z", "a\xED\xA0\x80"}) {
    EXPECT_EQ(identifierOf(write(at(name + ".desktop"), kEntry)), std::nullopt) << name;
    EXPECT_EQ(identifierOf(bundle(listNaming(name))), std::nullopt) << name;
  }
  EXPECT_EQ(identifierOf(bundle(listNaming("../../etc"))), std::nullopt);
  EXPECT_EQ(identifierOf(bundle(listNaming(std::string("a\0b", 3)))), std::nullopt);
}

TEST_F(DesktopApplicationsTest, AnIdentifierInAnyScriptIsOne) {
  EXPECT_THAT(identifierOf(write(at("W\xC3\xB6rter \xE2\x9C\x93.desktop"), kEntry)),
              Optional(std::string("W\xC3\xB6rter \xE2\x9C\x93")));
  EXPECT_THAT(identifierOf(bundle(listNaming("-x"))), Optional(std::string("-x")));
}

TEST_F(DesktopApplicationsTest, AnIdentifierOfMoreThan255BytesIsNone) {
  EXPECT_THAT(identifierOf(bundle(listNaming(std::string(255, 'a')))), Optional(SizeIs(255)));
  EXPECT_EQ(identifierOf(bundle(listNaming(std::string(256, 'a')))), std::nullopt);
}

// Folder bundles.

TEST_F(DesktopApplicationsTest, AFolderBundleIsNamedByItsInformationList) {
  EXPECT_THAT(identifierOf(bundle(listNaming(kIdentifier))), Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, AnInformationListMayBeXML) {
  const Data xml = XMLDataWithPropertyList(Value::Dictionary{{"CFBundleIdentifier", kIdentifier}});
  EXPECT_THAT(identifierOf(bundle({xml.begin(), xml.end()})), Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, AnInformationListMayLieAtTheTopOfTheBundle) {
  EXPECT_THAT(identifierOf(bundle(listNaming(kIdentifier), "Info.plist")),
              Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, TheInformationListInContentsComesFirstAlsoWhenItIsDamaged) {
  bundle(listNaming("org.example.Other"), "Info.plist");
  EXPECT_THAT(identifierOf(bundle(listNaming(kIdentifier))), Optional(std::string(kIdentifier)));
  EXPECT_EQ(identifierOf(bundle("bplist00broken")), std::nullopt);
}

TEST_F(DesktopApplicationsTest, AFolderBundleMayBeGivenWithASlashAsALinkAndInCapitals) {
  const std::string path = bundle(listNaming(kIdentifier), "Contents/Info.plist", "Example.APP");
  fs::create_symlink(path, at("link.app"));
  EXPECT_THAT(identifierOf(path + "//"), Optional(std::string(kIdentifier)));
  EXPECT_THAT(identifierOf(at("link.app")), Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, AFolderThatIsNoBundleHasNoIdentifier) {
  EXPECT_EQ(identifierOf(bundle(listNaming(kIdentifier), "Contents/Info.plist", "Example")),
            std::nullopt);
  EXPECT_EQ(identifierOf(bundle(listNaming(kIdentifier), "Contents/Info.plist", ".app")),
            std::nullopt);
  fs::create_directories(at("Empty.app"));
  EXPECT_EQ(identifierOf(at("Empty.app")), std::nullopt);
  EXPECT_EQ(identifierOf(write(at("File.app"), listNaming(kIdentifier))), std::nullopt);
}

TEST_F(DesktopApplicationsTest, AnIdentifierThatIsMissingOrNoStringIsNone) {
  EXPECT_EQ(identifierOf(bundle(binaryList(Value::Dictionary{{"CFBundleName", "Example"}}))),
            std::nullopt);
  for (const Value& value : {Value(5), Value(true), Value(Data{'a'}), Value(Value::Array{"a"}),
                             Value(Value::Dictionary{}), Value("")}) {
    EXPECT_EQ(identifierOf(bundle(binaryList(Value::Dictionary{{"CFBundleIdentifier", value}}))),
              std::nullopt);
  }
  EXPECT_EQ(identifierOf(bundle(binaryList(Value("CFBundleIdentifier")))), std::nullopt);
}

TEST_F(DesktopApplicationsTest, ADamagedInformationListGivesNil) {
  const std::string good = listNaming(kIdentifier);
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_EQ(identifierOf(bundle(good.substr(0, length))), std::nullopt) << length;
  }
  EXPECT_EQ(identifierOf(bundle("<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a \"b\">]>"
                                "<plist><dict><key>CFBundleIdentifier</key><string>&a;</string>"
                                "</dict></plist>")),
            std::nullopt);
}

TEST_F(DesktopApplicationsTest, AHugeInformationListAPipeAndAFolderInItsPlaceGiveNil) {
  const std::string list = bundle(listNaming(kIdentifier)) + "/Contents/Info.plist";
  fs::resize_file(list, std::uintmax_t{1} << 40);
  EXPECT_EQ(identifierOf(at("Example.app")), std::nullopt);
  fs::remove(list);
  ASSERT_EQ(mkfifo(list.c_str(), 0600), 0);
  EXPECT_EQ(identifierOf(at("Example.app")), std::nullopt);
  fs::remove(list);
  fs::create_directory(list);
  EXPECT_EQ(identifierOf(at("Example.app")), std::nullopt);
}

// AppImages.

TEST_F(DesktopApplicationsTest, AnAppImageHasTheIdentifierOfTheEntryInsideIt) {
  const std::string image = squashfs(
      {"org.example.App.desktop", "AppRun", "icon.png", "usr/share/applications/other.desktop"});
  EXPECT_THAT(identifierOf(appImage(image)), Optional(std::string(kIdentifier)));
  EXPECT_THAT(identifierOf(appImage(image, 2, "small.appimage")),
              Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, AnAppImageOfEveryUsualCompressionIsRead) {
  for (const std::string compression : {"xz", "zstd", "lz4"}) {
    EXPECT_THAT(identifierOf(appImage(squashfs({"org.example.App.desktop"}, compression))),
                Optional(std::string(kIdentifier)))
        << compression;
  }
}

TEST_F(DesktopApplicationsTest, TheEntryInAnAppImageMayBeALink) {
  write(at("linked/usr/share/applications/org.example.App.desktop"), kEntry);
  fs::create_symlink("usr/share/applications/org.example.App.desktop",
                     at("linked/org.example.App.desktop"));
  EXPECT_THAT(identifierOf(appImage(squashfsOf(at("linked")))), Optional(std::string(kIdentifier)));
}

TEST_F(DesktopApplicationsTest, AnAppImageWithoutOneEntryAtItsTopIsNotGuessed) {
  EXPECT_EQ(identifierOf(appImage(squashfs({"AppRun", "usr/a.desktop"}))), std::nullopt);
  EXPECT_EQ(identifierOf(appImage(squashfs({"a.desktop", "b.desktop"}))), std::nullopt);
  EXPECT_EQ(identifierOf(appImage(squashfs({"a.desktop/not-an-entry"}))), std::nullopt);
}

TEST_F(DesktopApplicationsTest, AnAppImageThatTellsNothingIsNamedByTheEntryThatStartsIt) {
  const std::string path = appImage("no file system");
  EXPECT_EQ(identifierOf(path), std::nullopt);
  write(inApplications("a.desktop"), "[Desktop Entry]\nType=Application\nName=A\nExec=other\n");
  write(inApplications("images/example.desktop"),
        "[Desktop Entry]\nType=Application\nName=A\nExec=env A=1 \"" + path + "\" %U\n");
  EXPECT_THAT(identifierOf(path), Optional(std::string("images-example")));
}

TEST_F(DesktopApplicationsTest, AnAppImageIsFoundByTryExecAndThroughLinks) {
  const std::string path = appImage("");
  fs::create_symlink(path, at("link"));
  write(inApplications("example.desktop"),
        "[Desktop Entry]\nType=Application\nName=A\nTryExec=" + at("link") + "\nExec=a\n");
  EXPECT_THAT(identifierOf(path), Optional(std::string("example")));
}

TEST_F(DesktopApplicationsTest, AnAppImageOfTheFirstTypeIsNamedByTheEntryThatStartsIt) {
  const std::string path = appImage(squashfs({"org.example.App.desktop"}), 1);
  EXPECT_EQ(identifierOf(path), std::nullopt);
  write(inApplications("example.desktop"),
        "[Desktop Entry]\nType=Application\nName=A\nExec=" + path + "\n");
  EXPECT_THAT(identifierOf(path), Optional(std::string("example")));
}

TEST_F(DesktopApplicationsTest, EntriesThatCannotBeReadDoNotHideTheOneThatStartsTheAppImage) {
  const std::string path = appImage("");
  write(inApplications("a.desktop"), "[Desktop Entry]\nType=Application\nName=A\nExec=\"open\n");
  ASSERT_EQ(mkfifo(inApplications("b.desktop").c_str(), 0600), 0);
  fs::create_symlink(inApplications(""), inApplications("ring"));
  write(inApplications("example.desktop"),
        "[Desktop Entry]\nType=Application\nName=A\nExec='" + path + "'\n");
  EXPECT_THAT(identifierOf(path), Optional(std::string("example")));
}

TEST_F(DesktopApplicationsTest, AFileThatOnlyHasTheNameOfAnAppImageIsNone) {
  const std::string path = at("Example.AppImage");
  write(inApplications("example.desktop"),
        "[Desktop Entry]\nType=Application\nName=A\nExec=" + path + "\n");
  const std::string program = contentsOf("/bin/true");
  for (const std::string& bytes : {std::string(), std::string("AI\x02"), program,
                                   program.substr(0, 8) + "AI\x03" + program.substr(11),
                                   "\x7F"
                                   "XLF" +
                                       program.substr(4, 4) + "AI\x02"}) {
    write(path, bytes);
    chmod(path.c_str(), 0755);
    EXPECT_EQ(identifierOf(path), std::nullopt);
  }
}

TEST_F(DesktopApplicationsTest, AnAppImageThatIsNotExecutableIsNone) {
  const std::string path = appImage(squashfs({"org.example.App.desktop"}));
  chmod(path.c_str(), 0644);
  EXPECT_EQ(identifierOf(path), std::nullopt);
}

TEST_F(DesktopApplicationsTest, ACutOrDamagedAppImageGivesNil) {
  const std::string path = appImage(squashfs({"org.example.App.desktop"}));
  const std::string whole = contentsOf(path);
  const std::size_t start = contentsOf("/bin/true").size();
  for (std::size_t length = 0; length < whole.size(); length += length < start ? 4001 : 61) {
    write(path, whole.substr(0, length));
    const auto identifier = identifierOf(path);
    EXPECT_TRUE(!identifier || identifier == kIdentifier) << length;
    if (length < start + 96) {
      EXPECT_EQ(identifier, std::nullopt) << length;
    }
  }
  for (std::size_t index = 0; index < whole.size();
       index += index < 64 || index > start ? 1 : 997) {
    std::string damaged = whole;
    damaged[index] = static_cast<char>(~damaged[index]);
    write(path, damaged);
    const auto identifier = identifierOf(path);
    EXPECT_TRUE(!identifier || !identifier->empty()) << index;
  }
}

TEST_F(DesktopApplicationsTest, AMissingModuleIsLoggedOnceAndLeavesTheInstalledEntry) {
  RecordingLog log(*platform_->services().log);
  platform_->services().log = &log;
  const DesktopApplications applications(at("missing.so"));
  const std::string path = appImage(squashfs({"org.example.App.desktop"}));
  EXPECT_EQ(applications.bundleIdentifierAtPath(path), std::nullopt);
  write(inApplications("example.desktop"),
        "[Desktop Entry]\nType=Application\nName=A\nExec=" + path + "\n");
  EXPECT_THAT(applications.bundleIdentifierAtPath(path), Optional(std::string("example")));
  ASSERT_THAT(log.lines(), SizeIs(1));
  EXPECT_THAT(log.lines().front(), HasSubstr("Could not load the AppImage library: "));
}

TEST_F(DesktopApplicationsTest, SeveralThreadsAskAtOnce) {
  const std::string path = appImage(squashfs({"org.example.App.desktop"}));
  std::vector<std::thread> threads;
  std::atomic<int> found = 0;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] { found += identifierOf(path) == kIdentifier ? 1 : 0; });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(found, 4);
}

// Names for people.

TEST_F(DesktopApplicationsTest, TheNameForPeopleIsTheEntrysFullNameElseItsName) {
  EXPECT_THAT(applications_.displayNameAtPath(write(at("a.desktop"), kEntry)),
              Optional(std::string("Example")));
  write(at("a.desktop"), std::string(kEntry) + "X-GNOME-FullName=Example of an Application\n");
  EXPECT_THAT(applications_.displayNameAtPath(at("a.desktop")),
              Optional(std::string("Example of an Application")));
  EXPECT_EQ(applications_.displayNameAtPath(at("missing.desktop")), std::nullopt);
}

TEST_F(DesktopApplicationsTest, TheNameForPeopleOfABundleIsInItsInformationList) {
  EXPECT_THAT(applications_.displayNameAtPath(
                  bundle(binaryList(Value::Dictionary{{"CFBundleName", "Example"}}))),
              Optional(std::string("Example")));
  EXPECT_THAT(applications_.displayNameAtPath(bundle(binaryList(Value::Dictionary{
                  {"CFBundleName", "Example"}, {"CFBundleDisplayName", "An Example"}}))),
              Optional(std::string("An Example")));
  EXPECT_EQ(applications_.displayNameAtPath(bundle(listNaming(kIdentifier))), std::nullopt);
}

}  // namespace
}  // namespace tervano::test
