#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/resources/default_script_test.h"

namespace tervano::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

// --- Create Checksums File, Verify Checksums

class ChecksumScriptsTest : public DefaultScriptTest {
 protected:
  // What "sha256sum --check" says of a list, from the list's own folder.
  ProgramOutcome check(const std::string& list) const {
    ProgramStart start;
    start.path = "/usr/bin/sha256sum";
    start.arguments = {"--check", "--strict", "--quiet", fs::path(list).filename().string()};
    start.folder = fs::path(list).parent_path().string();
    return runProgram(start);
  }
  // The number of lines of a list.
  static long lines(const std::string& list) {
    const auto text = contentsOf(list);
    return std::count(text.begin(), text.end(), '\n');
  }
  const std::string create_ = "Create Checksums File";
  const std::string verify_ = "Verify Checksums";
};

TEST_F(ChecksumScriptsTest, AListOfEveryNameIsVerified) {
  expectSilent(run(create_, makeHostile()));
  EXPECT_EQ(lines(at("SHA256SUMS")), static_cast<long>(hostileNames().size()));
  const auto outcome = check(at("SHA256SUMS"));
  EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  make("new\nline", "changed");
  EXPECT_EQ(check(at("SHA256SUMS")).status, 1);
}

TEST_F(ChecksumScriptsTest, AListHoldsFoldersSorted) {
  make("b/2", "x");
  make("b/1", "x");
  make("a", "x");
  make("b/deep/.hidden", "x");
  makeFolder("b/empty");
  fs::create_symlink("nowhere", at("b/link"));
  expectSilent(run(create_, {at("b"), at("a")}));
  const std::string sum = "2d711642b726b04401627ca9fbac32f5c8530fb1903cc4db02258717921a4881  ";
  EXPECT_EQ(contentsOf(at("SHA256SUMS")),
            sum + "a\n" + sum + "b/1\n" + sum + "b/2\n" + sum + "b/deep/.hidden\n");
}

TEST_F(ChecksumScriptsTest, AListNamesEachFileOnce) {
  make("folder/a");
  expectSilent(run(create_, {at("folder"), at("folder"), at("folder/a")}));
  EXPECT_EQ(check(at("SHA256SUMS")).status, 0);
}

TEST_F(ChecksumScriptsTest, AListReplacesNone) {
  make("SHA256SUMS", "old");
  expectSilent(run(create_, {make("a")}));
  EXPECT_EQ(contentsOf(at("SHA256SUMS")), "old");
  EXPECT_EQ(lines(at("SHA256SUMS 2")), 1);
}

TEST_F(ChecksumScriptsTest, AListOfSeveralFoldersIsVerifiedTo) {
  const auto first = make("one/a");
  const auto second = make("two/b");
  expectSilent(run(create_, {first, second}));
  EXPECT_EQ(lines(at("one/SHA256SUMS")), 2);
  EXPECT_EQ(check(at("one/SHA256SUMS")).status, 0);
}

TEST_F(ChecksumScriptsTest, AListFollowsASelectedLink) {
  make("folder/a", "x");
  fs::create_symlink("folder", at("link"));
  fs::create_symlink("folder/a", at("file link"));
  expectSilent(run(create_, {at("link"), at("file link")}));
  EXPECT_THAT(contentsOf(at("SHA256SUMS")), HasSubstr("  link/a\n"));
  EXPECT_THAT(contentsOf(at("SHA256SUMS")), HasSubstr("  file link\n"));
}

TEST_F(ChecksumScriptsTest, AListOfThousandsOfFilesIsWhole) {
  for (int number = 0; number < 4000; ++number) make("many/" + std::to_string(number), "");
  expectSilent(run(create_, {at("many")}));
  EXPECT_EQ(lines(at("SHA256SUMS")), 4000);
}

TEST_F(ChecksumScriptsTest, NoListIsMadeWithGaps) {
  const auto file = make("a");
  expectProblem(run(create_, {file, at("gone")}), create_, "\"gone\" cannot be found.");
  EXPECT_THAT(tree(), ElementsAre("a"));
}

TEST_F(ChecksumScriptsTest, NoListIsMadeOfWhatCannotBeRead) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root for a file of another user";
  make("folder/open");
  fs::permissions(make("folder/secret"), fs::perms::none);
  giveToNobody(homePath());
  ASSERT_EQ(chown(at("folder/secret").c_str(), 0, 0), 0);
  expectProblem(runAsNobody(create_, {at("folder")}, false), create_,
                "No checksums were written: folder/secret: Permission denied.");
  EXPECT_THAT(tree(), ElementsAre("folder/", "folder/open", "folder/secret"));
}

TEST_F(ChecksumScriptsTest, NoListIsMadeOfAFolderWithoutFiles) {
  expectProblem(run(create_, {makeFolder("empty")}), create_, "There is no file in the selection.");
}

TEST_F(ChecksumScriptsTest, NoListIsMadeOnAFullDiskAndThatIsTold) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  const auto file = make("a");
  for (const int kibibytes : {4, 8, 12, 16}) {
    fs::remove(homePath() + "/notified");
    ProgramOutcome outcome;
    const auto left = runOnSmallDisk(create_, kibibytes, {file}, {"a"}, &outcome);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(notifications(), ElementsAre(StartsWith(create_ + ": "))) << outcome.errors;
    EXPECT_THAT(left, ElementsAre("a"));
  }
}

TEST_F(ChecksumScriptsTest, NoListWaitsForAPipe) {
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  expectProblem(run(create_, {at("pipe")}), create_,
                "\"pipe\" is neither a file nor a folder; no checksums were written.");
}

TEST_F(ChecksumScriptsTest, TheVerifierSaysThatAllIsWell) {
  run(create_, makeHostile());
  const auto outcome = run(verify_, {at("SHA256SUMS")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  const std::string count = std::to_string(hostileNames().size());
  EXPECT_EQ(outcome.output, "Verify Checksums: " + count + " files are as recorded.\n");
  EXPECT_THAT(notifications(),
              ElementsAre("Verify Checksums: " + count + " files are as recorded."));
}

TEST_F(ChecksumScriptsTest, TheVerifierNamesWhatIsDamagedOrMissing) {
  run(create_, {make("a"), make("b"), make("c"), make("d")});
  make("b", "changed");
  fs::remove(at("c"));
  expectProblem(run(verify_, {at("SHA256SUMS")}), verify_,
                "2 of 4 files in \"SHA256SUMS\" are damaged or missing, the first is \"b\".");
}

TEST_F(ChecksumScriptsTest, TheVerifierKnowsTheKindByItsLook) {
  const auto file = make("a");
  for (const char* kind : {"md5", "sha1", "sha224", "sha256", "sha384", "sha512"}) {
    for (const bool tagged : {false, true}) {
      fs::remove(homePath() + "/notified");
      std::vector<std::string> words;
      if (tagged) words.push_back("--tag");
      words.push_back("a");
      const auto list =
          make("list", output("/usr/bin/" + std::string(kind) + "sum", words, files()));
      const auto outcome = run(verify_, {list});
      EXPECT_EQ(outcome.output, "Verify Checksums: 1 file is as recorded.\n")
          << kind << outcome.errors;
    }
  }
}

TEST_F(ChecksumScriptsTest, TheVerifierReadsAListOfAnyName) {
  const auto list = output("/usr/bin/sha256sum", {make("a")});
  for (const auto& name : hostileNames()) {
    const auto outcome = run(verify_, {make(name, list)});
    EXPECT_EQ(outcome.status, 0) << name << outcome.errors;
  }
}

TEST_F(ChecksumScriptsTest, TheVerifierRefusesWhatIsNoList) {
  expectProblem(run(verify_, {make("text", "Hello\nworld\n")}), verify_,
                "\"text\" is not a list of checksums.");
  EXPECT_EQ(run(verify_, {make("zeros", std::string(100000, '\0'))}).status, 1);
  EXPECT_EQ(run(verify_, {makeFolder("folder")}).errors,
            "Verify Checksums: \"folder\" is not a file that can be read.\n");
}

// --- Merge PDFs

class MergePdfsTest : public DefaultScriptTest {
 protected:
  // A document of one page that is so wide.
  std::string makePdf(const std::string& name, int width) const {
    const std::string number = std::to_string(width);
    const auto drawing = homePath() + "/page.svg";
    std::ofstream(drawing) << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << number
                           << "pt\" height=\"50pt\"><rect width=\"5\" height=\"5\"/></svg>";
    return make(name, output("/usr/bin/rsvg-convert", {"--format", "pdf", drawing}));
  }
  // The widths of the pages, in order.
  std::string widths(const std::string& path) const {
    return output(
        "/usr/bin/python3",
        {"-c",
         "import re, subprocess, sys\n"
         "text = subprocess.run(['qpdf', '--qdf', '--object-streams=disable', sys.argv[1], '-'],\n"
         "  check=True, stdout=subprocess.PIPE).stdout.decode('latin-1')\n"
         "pages = re.findall(r'%% Page (\\d+)\\n.*?MediaBox \\[\\s*\\S+\\s+\\S+\\s+(\\d+)', text, "
         "re.S)\n"
         "print(*[width for number, width in sorted((int(n), w) for n, w in pages)])",
         path});
  }
  const std::string title_ = "Merge PDFs";
};

TEST_F(MergePdfsTest, JoinsInTheOrderGiven) {
  const auto a = makePdf("a.pdf", 100);
  const auto b = makePdf("b.pdf", 200);
  const auto c = makePdf("c.pdf", 300);
  expectSilent(run(title_, {c, a, b}));
  EXPECT_EQ(widths(at("Merged.pdf")), "300 100 200\n");
}

TEST_F(MergePdfsTest, TakesEveryName) {
  const auto page = contentsOf(makePdf("page", 100));
  std::vector<std::string> paths;
  for (const auto& name : hostileNames()) paths.push_back(make(name, page));
  expectSilent(run(title_, paths));
  EXPECT_EQ(widths(at("Merged.pdf")).size(), 4 * paths.size());
}

TEST_F(MergePdfsTest, ReplacesNothing) {
  const auto a = makePdf("a.pdf", 100);
  make("Merged.pdf", "old");
  expectSilent(run(title_, {a, makePdf("b.pdf", 200)}));
  EXPECT_EQ(contentsOf(at("Merged.pdf")), "old");
  EXPECT_EQ(widths(at("Merged 2.pdf")), "100 200\n");
}

TEST_F(MergePdfsTest, TakesTheOtherProgramWhereTheFirstIsMissing) {
  const auto a = makePdf("a.pdf", 100);
  const auto b = makePdf("b.pdf", 200);
  leaveOnly({"bash"});
  install("pdfunite", "printf '%s\\0' \"${@:1:2}\" >\"$3\"");
  expectSilent(run(title_, {b, a}));
  EXPECT_EQ(contentsOf(at("Merged.pdf")), b + '\0' + a + '\0');
}

TEST_F(MergePdfsTest, WantsTwo) {
  expectProblem(run(title_, {makePdf("a.pdf", 100)}), title_, "Select two PDF files or more.");
}

TEST_F(MergePdfsTest, MakesNothingWithoutOneOfTheParts) {
  const auto a = makePdf("a.pdf", 100);
  const auto b = makePdf("b.pdf", 200);
  expectProblem(run(title_, {a, at("gone.pdf"), b}), title_, "\"gone.pdf\" cannot be found.");
  fs::remove(homePath() + "/notified");
  expectProblem(run(title_, {a, make("text.pdf", "text"), b}), title_,
                "\"text.pdf\" is not a PDF file that can be read; nothing was merged.");
  EXPECT_THAT(tree(), ElementsAre("a.pdf", "b.pdf", "text.pdf"));
}

TEST_F(MergePdfsTest, SaysThatOneIsProtected) {
  const auto a = makePdf("a.pdf", 100);
  output("/usr/bin/qpdf", {"--encrypt", "user", "owner", "256", "--", a, at("closed.pdf")});
  const auto outcome = run(title_, {a, at("closed.pdf")});
  expectProblem(outcome, title_, "The PDF files were not merged: closed.pdf: invalid password.");
  EXPECT_THAT(tree(), ElementsAre("a.pdf", "closed.pdf"));
}

TEST_F(MergePdfsTest, LeavesNothingOnAFullDisk) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  ProgramOutcome outcome;
  const auto left = runOnSmallDisk(title_, 8, {makePdf("a.pdf", 100), makePdf("b.pdf", 200)},
                                   {"a.pdf", "b.pdf"}, &outcome);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, StartsWith("Merge PDFs: The PDF files were not merged: "));
  EXPECT_THAT(left, ElementsAre("a.pdf", "b.pdf"));
}

// --- Remove Metadata from Pictures

class RemoveMetadataTest : public DefaultScriptTest {
 protected:
  // A grey square of eight by eight.
  static std::string jpeg() {
    using namespace std::string_literals;
    const auto code = [](char kind) {
      return "\xff\xc4\x00\x14"s + kind + "\x01"s + std::string(16, '\0');
    };
    return "\xff\xd8"s + "\xff\xdb\x00\x43\x00"s + std::string(64, '\1') +
           "\xff\xc0\x00\x0b\x08\x00\x08\x00\x08\x01\x01\x11\x00"s + code('\0') + code('\x10') +
           picture();
  }
  static std::string picture() {
    using namespace std::string_literals;
    return "\xff\xda\x00\x08\x01\x01\x00\x00\x3f\x00\x3f\xff\xd9"s;
  }
  // The picture with a place, an artist, a camera, a comment and turned to the right.
  std::string withMetadata(const std::string& name, const std::string& content) const {
    const auto path = make("plain", content);
    const auto kept = homePath() + "/tagged";
    output(
        "/usr/bin/exiftool",
        {"-q", "-Artist=Bob Secret", "-Make=Camera Secret", "-GPSLatitude=50", "-GPSLatitudeRef=N",
         "-Orientation#=6", "-XMP:Creator=Bob Secret", "-Comment=Bob Secret", "-o", kept, path});
    fs::remove(path);
    const auto text = contentsOf(kept);
    fs::remove(kept);
    return make(name, text);
  }
  // The tags of a picture as another reader lists them.
  std::string tags(const std::string& path) const {
    return output("/usr/bin/exiftool", {"-s", "-a", "-G1", path});
  }
  const std::string title_ = "Remove Metadata from Pictures";
};

TEST_F(RemoveMetadataTest, MakesACopyThatTellsNothing) {
  const auto photo = withMetadata("photo.jpg", jpeg());
  const auto before = contentsOf(photo);
  ASSERT_THAT(before, HasSubstr("Bob Secret"));
  expectSilent(run(title_, {photo}));
  EXPECT_EQ(contentsOf(photo), before) << "the original stays";
  const auto clean = contentsOf(at("photo without metadata.jpg"));
  EXPECT_THAT(clean, Not(HasSubstr("Secret")));
  EXPECT_THAT(clean, EndsWith(picture())) << "the picture itself is the same";
  const auto left = tags(at("photo without metadata.jpg"));
  EXPECT_THAT(left, Not(HasSubstr("GPS")));
  EXPECT_THAT(left, HasSubstr("Rotate 90 CW")) << "it is still turned";
}

TEST_F(RemoveMetadataTest, CleansPngTiffAndGif) {
  output("/usr/bin/rsvg-convert",
         {TERVANO_RESOURCES "/icons/icon-move.svg", "--output", at("icon.png")});
  const auto png = contentsOf(at("icon.png"));
  output(
      "/usr/bin/python3",
      {"-c",
       "import struct, sys\n"
       "tags = [(256, 4, 1, 8), (257, 4, 1, 8), (258, 3, 1, 8), (259, 3, 1, 1), (262, 3, 1, 1),\n"
       "        (273, 4, 1, 8), (277, 3, 1, 1), (278, 4, 1, 8), (279, 4, 1, 64)]\n"
       "open(sys.argv[1], 'wb').write(b'II*\\0' + struct.pack('<I', 72) + bytes(64) +\n"
       "  struct.pack('<H', len(tags)) + b''.join(struct.pack('<HHII', *t) for t in tags) +\n"
       "  bytes(4))\n",
       at("grey.tif")});
  const auto tiff = contentsOf(at("grey.tif"));
  using namespace std::string_literals;
  const auto gif =
      "GIF89a\x01\x00\x01\x00\x80\x00\x00\xff\xff\xff\x00\x00\x00,"
      "\x00\x00\x00\x00\x01\x00\x01\x00\x00\x02\x02\x44\x01\x00;"s;
  fs::remove(at("icon.png"));
  fs::remove(at("grey.tif"));
  expectSilent(run(title_, {withMetadata("a.png", png), withMetadata("b.TIF", tiff),
                            withMetadata("c.gif", gif)}));
  for (const char* name :
       {"a without metadata.png", "b without metadata.TIF", "c without metadata.gif"}) {
    EXPECT_THAT(contentsOf(at(name)), Not(HasSubstr("Secret"))) << name;
    EXPECT_THAT(tags(at(name)), Not(HasSubstr("GPS"))) << name;
  }
}

TEST_F(RemoveMetadataTest, TakesEveryName) {
  const auto photo = contentsOf(withMetadata("photo.jpg", jpeg()));
  fs::remove(at("photo.jpg"));
  std::vector<std::string> paths;
  for (const auto& name : hostileNames()) {
    paths.push_back(make(name.substr(0, 251) + ".jpg", photo));
  }
  expectSilent(run(title_, paths));
  EXPECT_EQ(tree().size(), 2 * paths.size());
  for (const auto& name : hostileNames()) {
    const auto clean = at(name.substr(0, 251 - 17) + " without metadata.jpg");
    ASSERT_TRUE(exists(clean)) << name;
    EXPECT_THAT(contentsOf(clean), Not(HasSubstr("Secret")));
  }
}

TEST_F(RemoveMetadataTest, CleansAPictureWhoseEndingIsWrong) {
  expectSilent(run(title_, {withMetadata("photo.png", jpeg())}));
  EXPECT_THAT(contentsOf(at("photo without metadata.png")), Not(HasSubstr("Secret")));
}

TEST_F(RemoveMetadataTest, CleansPicturesOfSeveralFoldersAndNumbersTheCopies) {
  const auto first = withMetadata("one/a.jpg", jpeg());
  const auto second = withMetadata("two/a.jpg", jpeg());
  make("one/a without metadata.jpg", "old");
  expectSilent(run(title_, {first, second}));
  EXPECT_EQ(contentsOf(at("one/a without metadata.jpg")), "old");
  EXPECT_TRUE(exists(at("one/a without metadata 2.jpg")));
  EXPECT_TRUE(exists(at("two/a without metadata.jpg")));
}

TEST_F(RemoveMetadataTest, RefusesWhatIsNoPictureAndDoesTheRest) {
  const auto photo = withMetadata("photo.jpg", jpeg());
  const auto outcome = run(title_, {make("text.jpg", "text"), make("a.pdf", "%PDF-1.4"), photo});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, title_ +
                                ": No copy of \"text.jpg\" without metadata was made: it is not a "
                                "picture of a known kind.\n" +
                                title_ +
                                ": No copy of \"a.pdf\" without metadata was made: it is not a "
                                "picture of a known kind.\n");
  EXPECT_THAT(tree(), ElementsAre("a.pdf", "photo without metadata.jpg", "photo.jpg", "text.jpg"));
}

TEST_F(RemoveMetadataTest, LeavesNothingOnAFullDisk) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a file system";
  auto text = jpeg();
  text.insert(text.size() - 2, 60000, 'x');
  const auto photo = make("photo.jpg", text);
  // Room for one more, and for two more but not for their folders' contents.
  for (const int kibibytes : {100, 140}) {
    ProgramOutcome outcome;
    const auto left = runOnSmallDisk(title_, kibibytes, {photo}, {"photo.jpg"}, &outcome);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, StartsWith(title_ + ": No copy of \"photo.jpg\" without "));
    EXPECT_THAT(left, ElementsAre("photo.jpg"));
  }
}

// --- Show Disk Usage

class ShowDiskUsageTest : public DefaultScriptTest {
 protected:
  const std::string title_ = "Show Disk Usage";
};

TEST_F(ShowDiskUsageTest, TellsTheSizeOfAFolderWithAllInIt) {
  make("folder/a", std::string(1000000, 'x'));
  make("folder/deep/b", std::string(1000000, 'x'));
  const auto outcome = run(title_, {at("folder")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, MatchesRegex("Show Disk Usage: \"folder\" takes 2\\.0 MB in 2 files; "
                                           "[0-9]+\\.[0-9] [kMGTPE]?B are free\\.\n"));
  EXPECT_EQ(notifications().size(), 1U);
}

TEST_F(ShowDiskUsageTest, TellsTheSumOfEveryName) {
  const auto outcome = run(title_, makeHostile());
  EXPECT_THAT(outcome.output, HasSubstr(std::to_string(hostileNames().size()) + " items take "));
  EXPECT_THAT(outcome.output,
              HasSubstr(" in " + std::to_string(hostileNames().size()) + " files; "));
}

TEST_F(ShowDiskUsageTest, CountsAFileWithTwoNamesOnce) {
  const auto file = make("a", std::string(1000000, 'x'));
  fs::create_hard_link(file, at("b"));
  EXPECT_THAT(run(title_, {file, at("b")}).output, HasSubstr("2 items take 1.0 MB in 2 files"));
}

TEST_F(ShowDiskUsageTest, SaysThatItIsMoreWhereAFolderIsClosed) {
  make("folder/closed/a");
  fs::permissions(at("folder/closed"), fs::perms::none);
  const auto outcome = runAsNobody(title_, {at("folder")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, HasSubstr("\"folder\" takes at least "));
}

}  // namespace
}  // namespace tervano::test
