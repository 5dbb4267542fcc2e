#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/resources/default_script_test.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class ExtractHereTest : public DefaultScriptTest {
 protected:
  // An archive of what Python's writer of tar files is told to put into it.
  std::string makeTar(const std::string& name, const std::string& members,
                      const std::string& mode = "w:gz") const {
    const std::string path = at(name);
    output("/usr/bin/python3", {"-c",
                                "import io, sys, tarfile\n"
                                "archive = tarfile.open(sys.argv[1], sys.argv[2])\n"
                                "def file(name, text=b'text', mode=0o644):\n"
                                "  member = tarfile.TarInfo(name)\n"
                                "  member.size = len(text); member.mode = mode\n"
                                "  archive.addfile(member, io.BytesIO(text))\n"
                                "def folder(name, mode=0o755):\n"
                                "  member = tarfile.TarInfo(name)\n"
                                "  member.type = tarfile.DIRTYPE; member.mode = mode\n"
                                "  archive.addfile(member)\n"
                                "def link(name, target, kind=tarfile.SYMTYPE):\n"
                                "  member = tarfile.TarInfo(name)\n"
                                "  member.type = kind; member.linkname = target\n"
                                "  archive.addfile(member)\n" +
                                    members + "\narchive.close()\n",
                                path, mode});
    return path;
  }
  // An archive by bsdtar, in the format of its name, of one file "secret".
  std::string makeProtectedZip(const std::string& encryption) const {
    make("secret", "top");
    output("/usr/bin/bsdtar",
           {"--create", "--file", at("secret.zip"), "--format", "zip", "--options",
            "zip:encryption=" + encryption, "--passphrase", "open", "secret"},
           files());
    fs::remove(at("secret"));
    return at("secret.zip");
  }
  const std::string title_ = "Extract Here";
};

TEST_F(ExtractHereTest, PutsASingleTopFolderBesideTheArchive) {
  const auto archive = makeTar("download.tar.gz", "folder('pack'); file('pack/a'); file('pack/b')");
  expectSilent(run(title_, {archive}));
  EXPECT_THAT(tree(), ElementsAre("download.tar.gz", "pack/", "pack/a", "pack/b"));
}

TEST_F(ExtractHereTest, PutsASingleFileBesideTheArchive) {
  expectSilent(run(title_, {makeTar("download.tgz", "file('a.txt')")}));
  EXPECT_THAT(tree(), ElementsAre("a.txt", "download.tgz"));
}

TEST_F(ExtractHereTest, PutsManyIntoAFolderOfTheArchivesName) {
  const std::vector<std::pair<std::string, std::string>> archives{
      {"one.tar.gz", "w:gz"},    {"two.tgz", "w:gz"}, {"three.TAR.XZ", "w:xz"},
      {"four.tar.bz2", "w:bz2"}, {"five.tar", "w"},   {"six v1.5.tar", "w"}};
  for (const auto& [name, mode] : archives) {
    expectSilent(run(title_, {makeTar(name, "file('a'); file('b')", mode)}));
  }
  for (const char* folder : {"one", "two", "three", "four", "five", "six v1.5"}) {
    EXPECT_TRUE(exists(at(std::string(folder) + "/a"))) << folder;
    EXPECT_TRUE(exists(at(std::string(folder) + "/b"))) << folder;
  }
}

TEST_F(ExtractHereTest, ReadsZipFiles) {
  output("/usr/bin/python3", {"-c",
                              "import sys, zipfile\n"
                              "with zipfile.ZipFile(sys.argv[1], 'w') as archive:\n"
                              "  archive.writestr('ä/ü.txt', 'text')\n",
                              at("z.zip")});
  expectSilent(run(title_, {at("z.zip")}));
  EXPECT_EQ(contentsOf(at("ä/ü.txt")), "text");
}

TEST_F(ExtractHereTest, ReadsEveryArchiveWhateverItsName) {
  const auto pack = makeTar("pack.tar", "file('a'); file('b')", "w");
  std::vector<std::string> paths;
  for (const auto& name : hostileNames()) {
    if (name.size() == 255) continue;
    paths.push_back(at(name + ".zip"));
    fs::copy_file(pack, paths.back());
  }
  fs::remove(pack);
  expectSilent(run(title_, paths));
  EXPECT_THAT(tree(), SizeIs(4 * paths.size()));
  for (const auto& name : hostileNames()) {
    if (name.size() == 255) continue;
    EXPECT_TRUE(exists(at(name + "/b"))) << name;
  }
}

TEST_F(ExtractHereTest, UnpacksMembersOfEveryName) {
  makeHostile();
  output("/usr/bin/tar", {"--create", "--file", at("all.tar"), "--directory", files(), "."},
         "/tmp");
  for (const auto& name : hostileNames()) fs::remove(at(name));
  // The archive itself is one of its members: tar leaves it out.
  expectSilent(run(title_, {at("all.tar")}));
  for (const auto& name : hostileNames()) {
    ASSERT_TRUE(exists(at("all/" + name))) << name;
    EXPECT_EQ(contentsOf(at("all/" + name)), name);
  }
}

TEST_F(ExtractHereTest, NumbersWhatIsThereAlready) {
  const auto archive = makeTar("pack.tar.gz", "folder('pack'); file('pack/a', b'new')");
  const auto file = makeTar("file.tar.gz", "file('a.txt', b'new')");
  make("pack/a", "old");
  make("a.txt", "old");
  expectSilent(run(title_, {archive, file}));
  EXPECT_EQ(contentsOf(at("pack/a")), "old");
  EXPECT_EQ(contentsOf(at("pack 2/a")), "new");
  EXPECT_EQ(contentsOf(at("a.txt")), "old");
  EXPECT_EQ(contentsOf(at("a 2.txt")), "new");
}

TEST_F(ExtractHereTest, UnpacksAFileThatIsOnlyCompressed) {
  make("notes.txt", "text");
  output("/usr/bin/gzip", {at("notes.txt")});
  expectSilent(run(title_, {at("notes.txt.gz")}));
  EXPECT_EQ(contentsOf(at("notes.txt")), "text");
}

TEST_F(ExtractHereTest, RefusesMembersThatLeadOutside) {
  make("victim", "old");
  const auto archive = makeTar("evil.tar.gz", "file('a'); file('../victim', b'new'); file('b')");
  const auto outcome = run(title_, {archive});
  expectProblem(outcome, title_,
                "\"evil.tar.gz\" was not extracted: ../victim: Path contains '..'.");
  EXPECT_EQ(contentsOf(at("victim")), "old");
  EXPECT_THAT(tree(), ElementsAre("evil.tar.gz", "victim"));
}

TEST_F(ExtractHereTest, KeepsAbsoluteMembersInside) {
  const auto victim = make("victim", "old");
  const auto archive =
      makeTar("evil.tar.gz", "file(" + std::string("'''") + victim + "''', b'new'); file('b')");
  expectSilent(run(title_, {archive}));
  EXPECT_EQ(contentsOf(victim), "old");
  EXPECT_EQ(contentsOf(at("evil" + victim)), "new");
}

TEST_F(ExtractHereTest, NeverWritesThroughALinkOfTheArchive) {
  makeFolder("outside");
  for (const auto& target : {std::string("../../outside"), at("outside")}) {
    const auto archive = makeTar(
        "evil.tar.gz", "file('a'); link('way', '''" + target + "'''); file('way/planted', b'new')");
    run(title_, {archive});
    EXPECT_TRUE(fs::is_empty(at("outside"))) << target;
    fs::remove_all(at("evil"));
  }
}

TEST_F(ExtractHereTest, NeverLinksAFileFromOutsideIn) {
  const auto victim = make("victim", "old");
  for (const auto& target : {std::string("../../victim"), victim}) {
    const auto archive = makeTar("evil.tar.gz", "file('a'); link('hard', '''" + target +
                                                    "''', tarfile.LNKTYPE); "
                                                    "file('hard', b'new')");
    run(title_, {archive});
    EXPECT_EQ(contentsOf(victim), "old");
    EXPECT_EQ(fs::hard_link_count(victim), 1U);
    fs::remove_all(at("evil"));
  }
}

TEST_F(ExtractHereTest, DropsTheRightToActAsAnotherUser) {
  const auto archive = makeTar("a.tar.gz", "file('program', b'x', 0o6755)");
  expectSilent(run(title_, {archive}));
  EXPECT_EQ(fs::status(at("program")).permissions() & (fs::perms::set_uid | fs::perms::set_gid),
            fs::perms::none);
}

TEST_F(ExtractHereTest, MovesATopFolderThatMayNotBeWrittenTo) {
  const auto archive = makeTar("a.tar.gz", "folder('closed', 0o555); file('closed/a')");
  expectSilent(runAsNobody(title_, {archive}));
  EXPECT_EQ(contentsOf(at("closed/a")), "text");
  EXPECT_EQ(fs::status(at("closed")).permissions() & fs::perms::owner_write, fs::perms::none);
}

TEST_F(ExtractHereTest, SaysThatAnArchiveIsProtected) {
  for (const char* encryption : {"zipcrypt", "aes256"}) {
    fs::remove(homePath() + "/notified");
    const auto archive = makeProtectedZip(encryption);
    expectProblem(run(title_, {archive}), title_,
                  "\"secret.zip\" was not extracted: it is protected by a password.");
    EXPECT_THAT(tree(), ElementsAre("secret.zip"));
  }
}

TEST_F(ExtractHereTest, LeavesNothingOfADamagedArchive) {
  const auto archive = makeTar("a.tar.gz",
                               "import random\nfile('a', random.randbytes(100000))\n"
                               "file('b', random.randbytes(100000))");
  fs::resize_file(archive, 150000);
  expectProblem(run(title_, {archive}), title_,
                "\"a.tar.gz\" was not extracted: b: truncated gzip input.");
  EXPECT_THAT(tree(), ElementsAre("a.tar.gz"));
}

TEST_F(ExtractHereTest, SaysThatAFileIsNoArchive) {
  const auto text = make("notes.txt", "text");
  const auto outcome = run(title_, {text, makeFolder("folder")});
  EXPECT_EQ(outcome.errors,
            "Extract Here: \"notes.txt\" was not extracted: it is not an archive.\nExtract Here: "
            "\"folder\" is not a file that can be read.\n");
  EXPECT_THAT(tree(), ElementsAre("folder/", "notes.txt"));
}

TEST_F(ExtractHereTest, SaysThatBytesAreNoArchive) {
  expectProblem(run(title_, {make("bytes", std::string("\1\0\2", 3))}), title_,
                "\"bytes\" was not extracted: Error opening archive: Unrecognized archive format.");
}

TEST_F(ExtractHereTest, NeverFillsAListOfFilesWithFilesOfThisMachine) {
  const auto secret = make("secret", "secret");
  const std::string list = "./stolen type=file contents=" + secret + " size=6\n./b type=file\n";
  for (const auto& text : {list, "#mtree\n" + list}) {
    fs::remove(homePath() + "/notified");
    const auto file = make("a.tar", text);
    expectProblem(run(title_, {file}), title_,
                  "\"a.tar\" was not extracted: it is not an archive.");
    fs::remove(homePath() + "/notified");
    output("/usr/bin/gzip", {file});
    expectProblem(run(title_, {at("a.tar.gz")}), title_,
                  "\"a.tar.gz\" was not extracted: it is not an archive.");
    fs::remove(at("a.tar.gz"));
  }
  EXPECT_THAT(tree(), ElementsAre("secret"));
}

TEST_F(ExtractHereTest, UnpacksOtherKindsOfArchives) {
  make("pack/a");
  make("pack/b");
  for (const char* format : {"cpio", "newc", "7zip", "ar", "xar", "iso9660", "zip", "pax"}) {
    output("/usr/bin/bsdtar",
           {"--create", "--file", at(std::string("kind ") + format), "--format", format, "a", "b"},
           at("pack"));
    expectSilent(run(title_, {at(std::string("kind ") + format)}));
    EXPECT_TRUE(exists(at(std::string("kind ") + format + " 2/b")) ||
                exists(at(std::string("kind ") + format + " 2/B")))
        << format;
  }
}

TEST_F(ExtractHereTest, SaysThatAnArchiveIsEmpty) {
  expectProblem(run(title_, {makeTar("a.tar.gz", "")}), title_,
                "\"a.tar.gz\" was not extracted: it is empty.");
}

TEST_F(ExtractHereTest, SaysThatTheFolderCannotBeWrittenTo) {
  makeFolder("closed");
  const auto archive = makeTar("closed/a.tar.gz", "file('a')");
  fs::permissions(at("closed"), fs::perms::owner_read | fs::perms::owner_exec);
  expectProblem(runAsNobody(title_, {archive}), title_,
                "Nothing can be written to the folder \"closed\": Permission denied.");
}

TEST_F(ExtractHereTest, LeavesNothingOnAFullDisk) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  const auto archive = makeTar("a.tar.gz", "file('a', bytes(50000)); file('b', bytes(1000000))");
  ProgramOutcome outcome;
  const auto left = runOnSmallDisk(title_, 200, {archive}, {"a.tar.gz"}, &outcome);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, StartsWith("Extract Here: \"a.tar.gz\" was not extracted: b: "));
  EXPECT_THAT(left, ElementsAre("a.tar.gz"));
}

class CompressToTarArchiveTest : public DefaultScriptTest {
 protected:
  // The names in an archive, as another reader sees them.
  std::vector<std::string> members(const std::string& archive) const {
    const auto text =
        output("/usr/bin/python3",
               {"-c",
                "import sys, tarfile\n"
                "for name in tarfile.open(sys.argv[1], 'r:gz').getnames():\n"
                "  sys.stdout.buffer.write(name.encode('utf-8', 'surrogateescape') + b'\\0')\n",
                archive});
    std::vector<std::string> names;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\0', begin)) != std::string::npos;
         begin = end + 1) {
      names.push_back(text.substr(begin, end - begin));
    }
    return names;
  }
  const std::string title_ = "Compress to Tar Archive";
};

TEST_F(CompressToTarArchiveTest, PacksEveryNameAndIsUnpackedAgain) {
  const auto names = hostileNames();
  expectSilent(run(title_, makeHostile()));
  EXPECT_THAT(members(at("Archive.tgz")), SizeIs(names.size()));
  expectSilent(run("Extract Here", {at("Archive.tgz")}));
  for (const auto& name : names) EXPECT_EQ(contentsOf(at("Archive/" + name)), name);
}

TEST_F(CompressToTarArchiveTest, KeepsLinksPermissionsAndHiddenFiles) {
  fs::permissions(make("folder.d/program"), fs::perms::owner_all);
  make("folder.d/.hidden");
  fs::create_symlink("nowhere", at("folder.d/link"));
  expectSilent(run(title_, {at("folder.d")}));
  expectSilent(run("Extract Here", {at("folder.d.tgz")}));
  EXPECT_EQ(fs::read_symlink(at("folder 2.d/link")).string(), "nowhere");
  EXPECT_EQ(fs::status(at("folder 2.d/program")).permissions(), fs::perms::owner_all);
  EXPECT_TRUE(exists(at("folder 2.d/.hidden")));
}

TEST_F(CompressToTarArchiveTest, NamesTheArchiveAfterASingleItemAndNumbersIt) {
  const auto file = make("report.pdf");
  make("report.tgz", "taken");
  expectSilent(run(title_, {file}));
  EXPECT_EQ(contentsOf(at("report.tgz")), "taken");
  EXPECT_THAT(members(at("report 2.tgz")), ElementsAre("./report.pdf"));
}

TEST_F(CompressToTarArchiveTest, KeepsTheFoldersOfASelectionFromSeveral) {
  const auto first = make("one/a");
  const auto second = make("two/deep/a");
  expectSilent(run(title_, {first, second}));
  EXPECT_THAT(members(at("one/Archive.tgz")), UnorderedElementsAre("./one/a", "./two/deep/a"));
}

TEST_F(CompressToTarArchiveTest, LeavesItselfOut) {
  const auto inner = make("folder/a");
  expectSilent(run(title_, {inner, at("folder")}));
  EXPECT_THAT(members(at("folder/Archive.tgz")),
              UnorderedElementsAre("./folder/a", "./folder", "./folder/a"));
}

TEST_F(CompressToTarArchiveTest, MakesNoArchiveWithGaps) {
  const auto file = make("a");
  expectProblem(run(title_, {file, at("gone")}), title_, "\"gone\" cannot be found.");
  EXPECT_THAT(tree(), ElementsAre("a"));
}

TEST_F(CompressToTarArchiveTest, SaysWhatCannotBeRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root for a file of another user";
  make("folder/open");
  fs::permissions(make("folder/secret"), fs::perms::none);
  giveToNobody(homePath());
  ASSERT_EQ(chown(at("folder/secret").c_str(), 0, 0), 0);
  expectProblem(runAsNobody(title_, {at("folder")}, false), title_,
                "No archive was made: ./folder/secret: Cannot open: Permission denied.");
  EXPECT_THAT(tree(), ElementsAre("folder/", "folder/open", "folder/secret"));
}

TEST_F(CompressToTarArchiveTest, LeavesNothingOnAFullDisk) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  std::string noise(200000, '\0');
  std::ifstream("/dev/urandom", std::ios::binary).read(noise.data(), 200000);
  ProgramOutcome outcome;
  const auto left = runOnSmallDisk(title_, 300, {make("noise", noise)}, {"noise"}, &outcome);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, StartsWith("Compress to Tar Archive: No archive was made: "));
  EXPECT_THAT(left, ElementsAre("noise"));
}

}  // namespace
}  // namespace tervano::test
