#include "packing/zip_packer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

#include "platform/linux/descriptor.h"
#include "tests/support/child_process.h"
#include "tests/support/memory_search.h"
#include "tests/support/run_program.h"
#include "tests/support/secret_of.h"
#include "tests/support/temporary_home.h"
#include "tests/support/watching_observer.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kPassword[] = "pass 'w\"ord\xC3\xA9";

// Archives that other programs read: 7z, bsdtar and Python.
class ZipPackerTest : public testing::Test {
 protected:
  ZipPackerTest() { fs::create_directory(at("from")); }

  std::string at(const std::string& name) const { return home_.path() + "/" + name; }
  std::string make(const std::string& name, const std::string& text = "text") const {
    const std::string path = at("from/" + name);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  std::optional<Error> pack(const std::vector<PackedItem>& items) {
    const Descriptor file(open(archive_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return packZip(items, {file.get(), archive_}, secretOf(kPassword), observer_, report_);
  }
  void packWhole(const std::vector<PackedItem>& items) {
    const auto error = pack(items);
    ASSERT_FALSE(error) << error->message;
  }
  ProgramOutcome readWith7z(const std::string& password, const std::string& folder) const {
    ProgramStart start{"/usr/bin/7z", {"x", "-y", "-p" + password, "-o" + at(folder), archive_}};
    start.seconds = 60;
    return runProgram(start);
  }
  ProgramOutcome readWithBsdtar(const std::string& password, const std::string& folder) const {
    fs::create_directory(at(folder));
    return runProgram(
        {"/usr/bin/bsdtar", {"-x", "--passphrase", password, "-f", archive_, "-C", at(folder)}});
  }
  // Reads the archive with both programs, into the folders "7z" and "bsdtar".
  void readWithBoth() const {
    // 7z takes arguments in the character set of the locale.
    const auto seven = readWith7z(kPassword, "7z");
    EXPECT_EQ(seven.status, 0) << seven.output << seven.errors;
    const auto bsdtar = readWithBsdtar(kPassword, "bsdtar");
    EXPECT_EQ(bsdtar.status, 0) << bsdtar.output << bsdtar.errors;
  }
  // What Python says of each entry, by its name.
  std::map<std::string, nlohmann::json> entries() const {
    constexpr char kScript[] =
        "import json, sys, zipfile\n"
        "for e in zipfile.ZipFile(sys.argv[1]).infolist():\n"
        "    extra, fields = e.extra, {}\n"
        "    while len(extra) >= 4:\n"
        "        size = int.from_bytes(extra[2:4], 'little')\n"
        "        fields[int.from_bytes(extra[:2], 'little')] = extra[4:4 + size]\n"
        "        extra = extra[4 + size:]\n"
        "    print(json.dumps([e.orig_filename, {'flags': e.flag_bits, 'method': e.compress_type,\n"
        "        'size': e.file_size, 'mode': e.external_attr >> 16,\n"
        "        'aes': fields[0x9901][4] if 0x9901 in fields else 0}]))\n";
    const auto outcome = runProgram({"/usr/bin/python3", {"-c", kScript, archive_}});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    std::map<std::string, nlohmann::json> entries;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
      const auto entry = nlohmann::json::parse(line);
      entries[entry[0]] = entry[1];
    }
    return entries;
  }

  TemporaryHome home_;
  const std::string archive_ = at("a.zip");
  WatchingObserver observer_;
  PackReport report_;
};

}  // namespace

TEST_F(ZipPackerTest, OtherProgramsReadAFileWithThePassword) {
  std::string text;
  for (int i = 0; i < 200'000; ++i) text += std::to_string(i);
  packWhole({{make("a.txt", text), "a.txt"}});
  readWithBoth();
  EXPECT_EQ(contentsOf(at("7z/a.txt")), text);
  EXPECT_EQ(contentsOf(at("bsdtar/a.txt")), text);
  EXPECT_EQ(observer_.processed, text.size());
  EXPECT_LT(fs::file_size(archive_), text.size() / 2) << "it is compressed";
}

TEST_F(ZipPackerTest, NothingIsReadWithAnotherPasswordOrNone) {
  packWhole({{make("a.txt", "the secret"), "a.txt"}});
  for (const std::string password : {"pass", "x"}) {
    EXPECT_NE(readWith7z(password, "7z-" + password).status, 0);
    EXPECT_NE(contentsOf(at("7z-" + password + "/a.txt")), "the secret");
    EXPECT_NE(readWithBsdtar(password, "bsdtar-" + password).status, 0);
    EXPECT_NE(contentsOf(at("bsdtar-" + password + "/a.txt")), "the secret");
  }
  EXPECT_THAT(contentsOf(archive_), testing::Not(HasSubstr("the secret")));
}

TEST_F(ZipPackerTest, WhateverHasContentIsEncryptedWithAes256) {
  constexpr int kEncrypted = 1;
  constexpr int kAesMethod = 99;
  constexpr int kAes256 = 3;
  packWhole({{make("large", std::string(300'000, 'x')), "large"}, {make("byte", "x"), "byte"}});
  for (const std::string name : {"large", "byte"}) {
    const auto entry = entries().at(name);
    EXPECT_EQ(entry["flags"].get<int>() & kEncrypted, kEncrypted) << name;
    EXPECT_EQ(entry["method"], kAesMethod) << name;
    EXPECT_EQ(entry["aes"], kAes256) << name;
  }
}

TEST_F(ZipPackerTest, AnEmptyFileIsReadAsOne) {
  packWhole({{make("empty", ""), "empty"}});
  readWithBoth();
  EXPECT_TRUE(fs::is_empty(at("7z/empty")));
  EXPECT_TRUE(fs::is_empty(at("bsdtar/empty")));
}

TEST_F(ZipPackerTest, FoldersComeWithAllThatLiesInThem) {
  make("tree/a", "1");
  make("tree/sub/deeper/b", "2");
  fs::create_directory(at("from/tree/nothing"));
  packWhole({{at("from/tree"), "tree"}});
  readWithBoth();
  for (const std::string reader : {"7z", "bsdtar"}) {
    EXPECT_EQ(contentsOf(at(reader + "/tree/a")), "1");
    EXPECT_EQ(contentsOf(at(reader + "/tree/sub/deeper/b")), "2");
    EXPECT_TRUE(fs::is_directory(at(reader + "/tree/nothing")));
  }
}

TEST_F(ZipPackerTest, AnItemGetsItsNameInTheArchive) {
  make("tree/a");
  packWhole({{at("from/tree"), "other 2"}});
  readWithBoth();
  EXPECT_EQ(contentsOf(at("7z/other 2/a")), "text");
}

TEST_F(ZipPackerTest, LinksStayLinksAndAreNeverFollowed) {
  make("secret", "not packed");
  make("tree/a");
  fs::create_symlink("a", at("from/tree/link"));
  fs::create_symlink("../secret", at("from/tree/out"));
  fs::create_symlink("/no/such", at("from/tree/dangling"));
  fs::create_directory_symlink(at("from"), at("from/tree/round"));
  packWhole({{at("from/tree"), "tree"}});
  const auto bsdtar = readWithBsdtar(kPassword, "bsdtar");
  EXPECT_EQ(bsdtar.status, 0) << bsdtar.errors;
  EXPECT_EQ(fs::read_symlink(at("bsdtar/tree/link")), "a");
  EXPECT_EQ(fs::read_symlink(at("bsdtar/tree/out")), "../secret");
  EXPECT_EQ(fs::read_symlink(at("bsdtar/tree/dangling")), "/no/such");
  EXPECT_EQ(fs::read_symlink(at("bsdtar/tree/round")), at("from"));
  // 7z makes no link that leaves the folder it unpacks to.
  readWith7z(kPassword, "7z");
  EXPECT_EQ(fs::read_symlink(at("7z/tree/link")), "a");
  EXPECT_EQ(contentsOf(at("7z/tree/a")), "text");
}

TEST_F(ZipPackerTest, ModesAndDatesAreKept) {
  const std::string path = make("tree/run.sh");
  ASSERT_EQ(chmod(path.c_str(), 0750), 0);
  ASSERT_EQ(chmod(at("from/tree").c_str(), 0711), 0);
  for (const auto& item : {path, at("from/tree")}) {
    const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, item.c_str(), times, 0), 0);
  }
  packWhole({{at("from/tree"), "tree"}});
  readWithBoth();
  for (const std::string reader : {"7z", "bsdtar"}) {
    struct stat status {};
    ASSERT_EQ(stat(at(reader + "/tree/run.sh").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0750u) << reader;
    EXPECT_EQ(status.st_mtime, 1'000'000'000) << reader;
    ASSERT_EQ(stat(at(reader + "/tree").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0711u) << reader;
    EXPECT_EQ(status.st_mtime, 1'000'000'000) << reader;
  }
}

TEST_F(ZipPackerTest, NamesAreMarkedAsUtf8WhateverTheLocale) {
  constexpr int kUtf8Names = 0x800;
  const std::string name = "\xC3\xA9t\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC.txt";
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* const locale : {"C", "C.UTF-8"}) {
    SCOPED_TRACE(locale);
    ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
    packWhole({{make(name), name}});
    std::setlocale(LC_ALL, before.c_str());
    const auto packed = entries();
    ASSERT_EQ(packed.count(name), 1U);
    EXPECT_EQ(packed.at(name)["flags"].get<int>() & kUtf8Names, kUtf8Names);
  }
}

TEST_F(ZipPackerTest, HostileNamesComeBackUnchanged) {
  const std::vector<std::string> names = {"two\nlines.txt",
                                          "it's \"quoted\"",
                                          "$(touch pwned)",
                                          "-rf",
                                          "--out",
                                          " blank ",
                                          "%@ %s %n",
                                          "tab\tand\x01"
                                          "control",
                                          "*",
                                          "back\\slash",
                                          std::string(255, 'n')};
  for (const auto& name : names) make("tree/" + name, name);
  packWhole({{at("from/tree"), "tree"}});
  const auto bsdtar = readWithBsdtar(kPassword, "bsdtar");
  EXPECT_EQ(bsdtar.status, 0) << bsdtar.errors;
  for (const auto& name : names) EXPECT_EQ(contentsOf(at("bsdtar/tree/" + name)), name);
  const auto tested = runProgram({"/usr/bin/7z", {"t", std::string("-p") + kPassword, archive_}});
  EXPECT_EQ(tested.status, 0) << tested.output;
  EXPECT_TRUE(report_.respelled.empty());
}

TEST_F(ZipPackerTest, NamesAreNotNormalised) {
  // Both are an e with an acute accent.
  make("tree/e\xCC\x81", "1");
  make("tree/\xC3\xA9", "2");
  packWhole({{at("from/tree"), "tree"}});
  EXPECT_EQ(entries().count("tree/e\xCC\x81"), 1U);
  EXPECT_EQ(entries().count("tree/\xC3\xA9"), 1U);
}

TEST_F(ZipPackerTest, NamesThatAreNotUtf8AreRespelledWithoutMeetingOthers) {
  make("caf\xE9/50%\xFF", "1");
  make("caf\xE9/50%25%FF", "2");
  make("caf%E9", "3");
  packWhole({{at("from"), "from"}});
  readWithBoth();
  EXPECT_EQ(contentsOf(at("bsdtar/from/caf%E9")), "3");
  EXPECT_EQ(contentsOf(at("bsdtar/from/caf%E9_/50%25%FF")), "2");
  EXPECT_EQ(contentsOf(at("bsdtar/from/caf%E9_/50%25%FF_")), "1");
  EXPECT_EQ(contentsOf(at("7z/from/caf%E9_/50%25%FF_")), "1");
  EXPECT_THAT(report_.respelled, ElementsAre(at("from/caf\xE9"), at("from/caf\xE9/50%\xFF")));
}

TEST_F(ZipPackerTest, ChosenItemsThatAreNotUtf8DoNotMeetEither) {
  packWhole({{make("a\xFF", "1"), "a\xFF"}, {make("a%FF", "2"), "a%FF"}});
  readWithBoth();
  EXPECT_EQ(contentsOf(at("7z/a%FF")), "2");
  EXPECT_EQ(contentsOf(at("7z/a%FF_")), "1");
}

TEST_F(ZipPackerTest, WhatHasNoContentIsLeftOutAndReported) {
  make("tree/a");
  ASSERT_EQ(mkfifo(at("from/tree/pipe").c_str(), 0600), 0);
  const Descriptor server(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = at("from/tree/sock");
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(bind(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  packWhole({{at("from/tree"), "tree"}});
  EXPECT_THAT(report_.leftOut,
              testing::UnorderedElementsAre(at("from/tree/pipe"), at("from/tree/sock")));
  readWithBoth();
  EXPECT_EQ(contentsOf(at("7z/tree/a")), "text");
}

TEST_F(ZipPackerTest, HardLinksAreFilesOfTheirOwn) {
  make("tree/a", "same");
  fs::create_hard_link(at("from/tree/a"), at("from/tree/b"));
  packWhole({{at("from/tree"), "tree"}});
  readWithBoth();
  EXPECT_EQ(contentsOf(at("7z/tree/a")), "same");
  EXPECT_EQ(contentsOf(at("bsdtar/tree/b")), "same");
}

TEST_F(ZipPackerTest, TheArchiveDoesNotPackItself) {
  make("a");
  packWhole({{home_.path(), "home"}});
  EXPECT_EQ(entries().count("home/a.zip"), 0U);
  EXPECT_EQ(entries().count("home/from/a"), 1U);
}

TEST_F(ZipPackerTest, AFileThatCannotBeReadIsAnErrorThatNamesIt) {
  make("tree/open");
  make("tree/closed");
  ASSERT_EQ(chmod(at("from/tree/closed").c_str(), 0), 0);
  giveToNobody(home_.path());
  auto child = forkChild([&](ParentLink& parent) {
    if (!becomeNobody()) return 98;
    const auto error = pack({{at("from/tree"), "tree"}});
    parent.say(error ? error->message : "none");
    return 0;
  });
  EXPECT_EQ(child.hear(), "Could not pack " + at("from/tree/closed") + ": Permission denied");
  EXPECT_EQ(child.waitForExit(), 0);
}

TEST_F(ZipPackerTest, AnItemThatIsGoneIsAnError) {
  EXPECT_EQ(pack({{at("from/gone"), "gone"}})->code, ENOENT);
  EXPECT_EQ(pack({{at("gone/too"), "too"}})->code, ENOENT);
}

TEST_F(ZipPackerTest, AFileThatGrowsMeanwhileIsAnError) {
  const std::string path = make("log", std::string(1'000'000, 'x'));
  observer_.onBytes = [&] { std::ofstream(path, std::ios::app) << "more"; };
  const auto error = pack({{path, "log"}});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->message, "Could not pack " + path + ": it changed while it was being read");
}

TEST_F(ZipPackerTest, AFileThatShrinksMeanwhileIsAnError) {
  const std::string path = make("log", std::string(1'000'000, 'x'));
  observer_.onBytes = [&] { ASSERT_EQ(truncate(path.c_str(), 10), 0); };
  const auto error = pack({{path, "log"}});
  ASSERT_TRUE(error);
  EXPECT_THAT(error->message, HasSubstr("it changed while it was being read"));
}

TEST_F(ZipPackerTest, AStopInsideALargeFileIsHeardAtOnce) {
  const std::string path = make("big", std::string(8'000'000, 'x'));
  observer_.onBytes = [&] { observer_.cancelled = true; };
  EXPECT_EQ(pack({{path, "big"}})->code, ECANCELED);
  EXPECT_GT(observer_.processed, 0U);
  EXPECT_LE(observer_.processed, 1'000'000U);
}

TEST_F(ZipPackerTest, AFullDiskIsAnErrorThatNamesTheArchive) {
  const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  const auto error = packZip({{make("a", std::string(100'000, 'x')), "a"}},
                             {full.get(), "/target.zip"}, secretOf(kPassword), observer_, report_);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOSPC);
  EXPECT_EQ(error->message, "Could not write /target.zip: No space left on device");
}

TEST_F(ZipPackerTest, AFileOfMoreThanFourGigabytesHasItsSizeAndWhatFollowsIsRead) {
  constexpr off_t kSize = (off_t{4} << 30) + 12'345;
  const std::string path = make("big", "");
  ASSERT_EQ(truncate(path.c_str(), kSize), 0);
  packWhole({{path, "big"}, {make("after", "text"), "after"}});
  EXPECT_EQ(observer_.processed, static_cast<std::uint64_t>(kSize) + 4);
  EXPECT_EQ(entries().at("big")["size"].get<off_t>(), kSize);
  const auto seven =
      runProgram({"/usr/bin/7z",
                  {"x", "-y", std::string("-p") + kPassword, "-o" + at("7z"), archive_, "after"}});
  EXPECT_EQ(seven.status, 0) << seven.output << seven.errors;
  EXPECT_EQ(contentsOf(at("7z/after")), "text");
}

TEST_F(ZipPackerTest, ThePasswordIsNotLeftInMemory) {
  const std::string path = make("a", std::string(1'000'000, 'x'));
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Descriptor readingEnd(ends[0]);
  const Descriptor writingEnd(ends[1]);
  auto child = forkChild([&](ParentLink& parent) {
    {
      Secret password;
      if (!password.readFrom(readingEnd.get(), true)) return 1;
      // The test looks into this process, also when it is not the superuser.
      prctl(PR_SET_DUMPABLE, 1);
      bool told = false;
      observer_.onBytes = [&] {
        if (std::exchange(told, true)) return;
        parent.say("packing");
        parent.hear();
      };
      const Descriptor file(open(archive_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      if (packZip({{path, "a"}}, {file.get(), archive_}, password, observer_, report_)) return 2;
    }
    parent.say("packed");
    parent.hear();
    return 0;
  });
  // Made up only now, so that the child has no copy of it from here.
  std::string password;
  std::random_device random;
  for (int i = 0; i < 24; ++i) password += static_cast<char>('a' + random() % 26);
  const std::string line = password + "\n";
  ASSERT_TRUE(writeFully(writingEnd.get(), line.data(), line.size()));
  ASSERT_EQ(child.hear(), "packing");
  EXPECT_GT(occurrencesInMemory(child.pid(), password), 0) << "it is in use now";
  child.say("go on");
  ASSERT_EQ(child.hear(), "packed");
  EXPECT_EQ(occurrencesInMemory(child.pid(), password), 0);
  child.say("end");
  EXPECT_EQ(child.waitForExit(), 0);
  EXPECT_EQ(readWith7z(password, "7z").status, 0);
}

}  // namespace tervano::test
