#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "tests/support/wait.h"
#include "tests/tools/images/images_test.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

// What the file system of the result cannot do, as bits.
enum Lack : unsigned { nothing = 0, namelessFiles = 1, renamesThatKeep = 2, links = 4 };

// From now on the process and its programs get the answers of such a file system.
void lack(unsigned what) {
  using Having = RefusedCall::Having;
  constexpr unsigned kNameless = 020000000;
  std::vector<RefusedCall> calls;
  if ((what & namelessFiles) != 0) {
    calls.push_back({SYS_openat, EOPNOTSUPP, Having::aBit, 2, kNameless});
  }
  if ((what & renamesThatKeep) != 0) calls.push_back({SYS_renameat2, EINVAL});
  if ((what & links) != 0) calls.push_back({SYS_linkat, EPERM});
  refuseCalls(calls);
}

constexpr unsigned kFileSystems[] = {nothing, namelessFiles, namelessFiles | renamesThatKeep,
                                     namelessFiles | renamesThatKeep | links, links};

std::string nameOf(unsigned fileSystem) {
  std::string name = "With";
  if ((fileSystem & namelessFiles) != 0) name += "outNamelessFiles";
  if ((fileSystem & renamesThatKeep) != 0) name += "OrRenamesThatKeep";
  if ((fileSystem & links) != 0) name += (fileSystem == links ? "outLinks" : "OrLinks");
  return fileSystem == nothing ? "WithEverything" : name;
}

class PlaceTest : public ImagesTest, public testing::WithParamInterface<unsigned> {
 protected:
  static std::function<void()> fileSystem() {
    return [] { lack(GetParam()); };
  }
  static bool hasHiddenName() { return (GetParam() & namelessFiles) != 0; }
  // A picture that takes seconds, so that a test can do something meanwhile.
  std::string slowPicture() {
    write(at("slow.pgm"), "P5 6000 6000 255\n" + std::string(36000000, 'x'));
    return at("slow.pgm");
  }
};

}  // namespace

TEST_P(PlaceTest, TheResultAppearsUnderItsNameAlone) {
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  for (const std::string target : {"jpeg", "webp"}) {
    const std::string result = at("out/a." + target);
    const Ending ending = convert(target, source, result, fileSystem());
    EXPECT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(ending.err, "");
    EXPECT_GE(likeness(read(result), read(source)), 30);
  }
  EXPECT_THAT(namesIn(at("out")), ElementsAre("a.jpeg", "a.webp"));
}

TEST_P(PlaceTest, WhatIsThereIsNeverReplaced) {
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  write(at("out/file"), "precious");
  fs::create_symlink("nowhere", at("out/link"));
  fs::create_directory(at("out/folder"));
  for (const std::string name : {"file", "link", "folder"}) {
    expectRefused("jpeg", source, at("out/" + name), "File exists", fileSystem());
  }
  EXPECT_EQ(contentOf(at("out/file")), "precious");
  EXPECT_TRUE(fs::is_symlink(at("out/link")));
  expectRefused("png", source, source, "File exists", fileSystem());
}

TEST_P(PlaceTest, WhatAppearsMeanwhileIsNotReplaced) {
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  home_.setVariable("TERVANO_IMAGE_SLOTS", "1");
  auto slot = slotHolder(1);
  auto waiting = start(toolArguments("jpeg", source, at("out/a")), fileSystem());
  // It looks at the place before it queues for its slot.
  ASSERT_TRUE(waitUntil([&] { return waitsForSlot(waiting.pid()); }));
  write(at("out/a"), "precious");
  slot.say("end");
  const auto ending = waiting.wait();
  ASSERT_TRUE(ending);
  EXPECT_EQ(ending->status, 1);
  EXPECT_THAT(ending->err, EndsWith(": File exists\n"));
  EXPECT_EQ(contentOf(at("out/a")), "precious");
  EXPECT_THAT(namesIn(at("out")), ElementsAre("a"));
}

TEST_P(PlaceTest, OfManyForOneNameOneWinsWhole) {
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  home_.setVariable("TERVANO_IMAGE_SLOTS", "8");
  std::vector<RunningProgram> racing;
  for (int count = 0; count < 8; ++count) {
    racing.push_back(start(toolArguments("png", source, at("out/a.png")), fileSystem()));
  }
  int winners = 0;
  for (auto& program : racing) {
    const auto ending = program.wait();
    ASSERT_TRUE(ending);
    if (ending->status == 0) {
      ++winners;
      EXPECT_EQ(ending->err, "");
    } else {
      EXPECT_EQ(ending->status, 1);
      EXPECT_THAT(ending->err, EndsWith(": File exists\n"));
    }
  }
  EXPECT_EQ(winners, 1);
  EXPECT_EQ(read(at("out/a.png")).bytes, read(source).bytes);
  EXPECT_THAT(namesIn(at("out")), ElementsAre("a.png"));
}

TEST_P(PlaceTest, NothingIsLeftWhenASignalEndsIt) {
  const std::string source = slowPicture();
  fs::create_directory(at("out"));
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGXCPU}) {
    auto running = start(toolArguments("avif", source, at("out/a.avif")), fileSystem());
    ASSERT_TRUE(waitUntil([&] {
      return hasHiddenName() ? !namesIn(at("out")).empty() : hasLoadedCodecs(running.pid());
    }));
    running.kill(signal);
    const auto ending = running.wait();
    ASSERT_TRUE(ending);
    EXPECT_EQ(ending->status, -signal);
    EXPECT_THAT(namesIn(at("out")), IsEmpty());
  }
}

INSTANTIATE_TEST_SUITE_P(FileSystems, PlaceTest, testing::ValuesIn(kFileSystems),
                         [](const auto& information) { return nameOf(information.param); });

TEST_F(ImagesTest, AKillLeavesNothingWhereFilesMayBeNameless) {
  write(at("slow.pgm"), "P5 6000 6000 255\n" + std::string(36000000, 'x'));
  fs::create_directory(at("out"));
  auto running = start(toolArguments("avif", at("slow.pgm"), at("out/a.avif")));
  ASSERT_TRUE(waitUntil([&] { return hasLoadedCodecs(running.pid()); }));
  running.kill(SIGKILL);
  ASSERT_TRUE(running.wait());
  EXPECT_THAT(namesIn(at("out")), IsEmpty());
}

TEST_F(ImagesTest, AFailureInsideALibraryLeavesNothingAlsoWhenNobodyListens) {
  write(at("slow.pgm"), "P5 6000 6000 255\n" + std::string(36000000, 'x'));
  fs::create_directory(at("out"));
  for (const bool listens : {true, false}) {
    for (const int signal : {SIGSEGV, SIGABRT}) {
      auto running = start(toolArguments("avif", at("slow.pgm"), at("out/a.avif")), [listens] {
        lack(namelessFiles);
        int ends[2];
        if (listens) return;
        // A pipe whose reader is gone.
        if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) _exit(98);
        close(ends[0]);
        close(ends[1]);
      });
      ASSERT_TRUE(waitUntil([&] { return !namesIn(at("out")).empty(); }));
      running.kill(signal);
      const auto ending = running.wait();
      ASSERT_TRUE(ending);
      EXPECT_EQ(ending->status, 1);
      EXPECT_THAT(ending->err, EndsWith(listens ? ": a picture library failed on it\n" : ""));
      EXPECT_THAT(namesIn(at("out")), IsEmpty());
    }
  }
}

TEST_F(ImagesTest, TheHiddenNameIsOursAndHidden) {
  write(at("slow.pgm"), "P5 6000 6000 255\n" + std::string(36000000, 'x'));
  fs::create_directory(at("out"));
  auto running =
      start(toolArguments("avif", at("slow.pgm"), at("out/a.avif")), [] { lack(namelessFiles); });
  ASSERT_TRUE(waitUntil([&] { return !namesIn(at("out")).empty(); }));
  EXPECT_THAT(namesIn(at("out")), ElementsAre(StartsWith(".tervano-")));
}

TEST_F(ImagesTest, TheResultHasTheModeOfANewFile) {
  const std::string source = sampleAs("source.png");
  for (const auto& [mask, mode] : {std::pair(022, 0644), std::pair(077, 0600)}) {
    const std::string result = at(std::to_string(mask));
    const Ending ending = convert("jpeg", source, result, [mask = mask] { umask(mask); });
    EXPECT_EQ(ending.status, 0);
    struct stat status {};
    ASSERT_EQ(stat(result.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, static_cast<mode_t>(mode));
    EXPECT_EQ(status.st_nlink, 1U);
  }
}

TEST_F(ImagesTest, NamesAreBytes) {
  const std::string content = contentOf(sampleAs("source.png"));
  fs::create_directory(at("names"));
  const auto there = [this] {
    if (chdir(at("names").c_str()) != 0) _exit(98);
  };
  const std::vector<std::string> names{"-s",
                                       "--out",
                                       "-",
                                       "--formats",
                                       "%d.png",
                                       "100%",
                                       "a[0].png",
                                       "a.png[page=1,n=-1]",
                                       "@list",
                                       "|cat",
                                       "two\nlines.png",
                                       "\xff\xfe\x80.png",
                                       " blank ",
                                       "png:x",
                                       "a.tif,1",
                                       "$(touch x)",
                                       "\\n",
                                       "'\""};
  int number = 0;
  for (const std::string& name : names) {
    write(at("names/" + name), content);
    for (const std::string target : {"jpeg", "webp"}) {
      const std::string result = name + std::to_string(number++);
      const Ending ending = convert(target, name, result, there);
      EXPECT_EQ(ending.status, 0) << ending.err;
      EXPECT_EQ(ending.err, "");
      EXPECT_FALSE(contentOf(at("names/" + result)).empty()) << result;
    }
  }
  EXPECT_EQ(namesIn(at("names")).size(), names.size() * 3);
}

TEST_F(ImagesTest, ASentenceIsOneLineOfValidTextWhateverTheName) {
  const Ending ending = convert("png", at("a\nb\xff\x1b[31m.jpg"), at("c\r\td"));
  EXPECT_EQ(ending.status, 1);
  EXPECT_EQ(ending.err, "tervano-images: Could not convert " + home_.path() +
                            "/a\xef\xbf\xbd"
                            "b\xef\xbf\xbd\xef\xbf\xbd[31m.jpg to " +
                            home_.path() +
                            "/c\xef\xbf\xbd\xef\xbf\xbd"
                            "d: No such file or directory\n");
}

}  // namespace tervano::test
