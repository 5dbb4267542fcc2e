#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/companion/terminal.h"
#include "tests/companion/tervano_program.h"
#include "tests/support/program.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr int kBigMegabytes = 400;

// "tervano run" that is killed or interrupted in the middle of long work.
class InterruptedRunTest : public testing::Test {
 protected:
  InterruptedRunTest() : disk_(fs::path("/tmp") / ("tervano-disk-" + std::to_string(getpid()))) {
    fs::create_directory(disk_);
  }
  ~InterruptedRunTest() override { fs::remove_all(disk_); }

  std::string makeBig(const std::string& name) const {
    std::string path = home_.file(name, "");
    const std::string megabyte(1 << 20, 'x');
    std::ofstream file(path, std::ios::binary);
    for (int count = 0; count < kBigMegabytes; ++count) file << megabyte;
    return path;
  }
  static bool isWhole(const std::string& path) {
    return fs::exists(path) && fs::file_size(path) == std::uintmax_t{kBigMegabytes} << 20;
  }
  static std::vector<std::string> hiddenIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
      const std::string name = entry.path().filename();
      if (name.starts_with(".tervano-")) names.push_back(name);
    }
    return names;
  }
  // Kills the run once the unfinished item is there; answers whether it was there to the end.
  static bool killInTheMiddle(ChildProcess& run, const fs::path& folder) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    // The small one has one for a moment, too.
    while (!fs::exists(folder / "small") || hiddenIn(folder).empty()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
    }
    run.kill(SIGKILL);
    return run.waitForExit(30) == -SIGKILL && !hiddenIn(folder).empty();
  }
  void startAgain() const {
    EXPECT_EQ(home_.tervano({"service", "--idle-seconds", "0"}).status, 0);
  }

  ProgramHome home_;
  // On another file system than the home.
  fs::path disk_;
};

}  // namespace

TEST_F(InterruptedRunTest, AKilledCopyLosesNothingAndLeavesNothing) {
  const std::string big = makeBig("docs/big");
  const std::string small = home_.file("docs/small");
  const auto uid = home_.succeed({"add", "copy", "--to", disk_});
  auto run = startProgram(TERVANO_PROGRAM, {"run", uid, small, big});
  ASSERT_TRUE(killInTheMiddle(run, disk_));
  EXPECT_FALSE(fs::exists(disk_ / "big"));
  startAgain();
  EXPECT_TRUE(hiddenIn(disk_).empty());
  EXPECT_TRUE(isWhole(big));
  EXPECT_TRUE(fs::exists(small) && fs::exists(disk_ / "small"));
}

TEST_F(InterruptedRunTest, AKilledMoveAcrossFileSystemsLosesNothingAndLeavesNothing) {
  const std::string big = makeBig("docs/big");
  const std::string small = home_.file("docs/small");
  struct stat here {};
  struct stat there {};
  ASSERT_EQ(stat(big.c_str(), &here), 0);
  ASSERT_EQ(stat(disk_.c_str(), &there), 0);
  ASSERT_NE(here.st_dev, there.st_dev) << "needs two file systems";
  const auto uid = home_.succeed({"add", "move", "--to", disk_});
  auto run = startProgram(TERVANO_PROGRAM, {"run", uid, small, big});
  ASSERT_TRUE(killInTheMiddle(run, disk_));
  EXPECT_TRUE(isWhole(big));
  EXPECT_FALSE(fs::exists(disk_ / "big"));
  startAgain();
  EXPECT_TRUE(hiddenIn(disk_).empty());
  EXPECT_TRUE(isWhole(big));
  EXPECT_TRUE(fs::exists(disk_ / "small"));
  EXPECT_FALSE(fs::exists(small));
}

TEST_F(InterruptedRunTest, OnATerminalThereIsABarWhichAnInterruptTakesAway) {
  home_.home().setVariable("TERM", "xterm");
  const std::string big = home_.file("docs/big", "");
  fs::resize_file(big, std::uintmax_t{1} << 40);
  const auto uid = home_.succeed({"add", "compress", "--title", "Pack"});
  Terminal terminal(becomingTervano({"run", uid, big}));
  for (const std::string question : {"Password: ", "Again: "}) {
    terminal.readUntil(question);
    terminal.type("word\n");
  }
  const std::string seen = terminal.readUntil(" of 1.1 TB");
  EXPECT_THAT(seen, HasSubstr("\r\033[K["));
  EXPECT_THAT(seen, HasSubstr("%  Pack: "));
  terminal.type("\x03");
  EXPECT_EQ(terminal.waitForExit(), 1);
  const auto erased = terminal.rest().rfind("\r\033[K");
  const auto told = terminal.rest().find("tervano: \"Pack\" was cancelled.");
  ASSERT_NE(erased, std::string::npos);
  ASSERT_NE(told, std::string::npos) << terminal.rest();
  EXPECT_LT(erased, told);
  EXPECT_EQ(terminal.rest().find('%', erased), std::string::npos);
  EXPECT_TRUE(hiddenIn(home_.path() + "/docs").empty());
}

TEST_F(InterruptedRunTest, ATerminalThatCannotEraseGetsNoBar) {
  home_.home().setVariable("TERM", "dumb");
  const auto uid = home_.succeed({"add", "compress", "--title", "Pack"});
  const std::string big = home_.file("docs/big", "");
  fs::resize_file(big, std::uintmax_t{4} << 30);
  Terminal terminal(becomingTervano({"run", uid, big}));
  for (const std::string question : {"Password: ", "Again: "}) {
    terminal.readUntil(question);
    terminal.type("word\n");
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
  while (std::chrono::steady_clock::now() < deadline) poll(nullptr, 0, 50);
  terminal.type("\x03");
  terminal.waitForExit();
  EXPECT_THAT(terminal.rest(), Not(HasSubstr("%")));
}

TEST_F(InterruptedRunTest, WhatWasMovedBeforeTheInterruptIsListed) {
  const std::string big = makeBig("docs/big");
  const std::string small = home_.file("docs/small");
  const auto uid = home_.succeed({"add", "move", "--title", "Sort", "--to", disk_});
  Terminal terminal(becomingTervano({"run", uid, small, big}));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!(fs::exists(disk_ / "small") && !hiddenIn(disk_).empty()) &&
         std::chrono::steady_clock::now() < deadline) {
  }
  terminal.type("\x03");
  EXPECT_EQ(terminal.waitForExit(), 1);
  EXPECT_THAT(terminal.rest(),
              HasSubstr("Moved before the end:\r\n  " + (disk_ / "small").string() + "\r\n"));
  EXPECT_THAT(terminal.rest(),
              HasSubstr("tervano: \"Sort\" was cancelled. 1 of 2 items was moved: small.\r\n"));
  EXPECT_TRUE(isWhole(big));
  EXPECT_FALSE(fs::exists(disk_ / "big"));
  EXPECT_TRUE(hiddenIn(disk_).empty());
}

}  // namespace tervano::test
