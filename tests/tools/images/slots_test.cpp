#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>

#include "tests/support/wait.h"
#include "tests/tools/images/images_test.h"
#include "tools/images/image_slots.h"

namespace tervano::test {

namespace {

namespace fs = std::filesystem;

class SlotsTest : public ImagesTest {
 protected:
  static bool allWait(const std::vector<RunningProgram>& programs) {
    return waitUntil([&] {
      return std::all_of(programs.begin(), programs.end(),
                         [](const RunningProgram& program) { return waitsForSlot(program.pid()); });
    });
  }
  // How many of them have loaded a picture library, at one moment: all are stopped for it.
  static int runningNow(const std::vector<RunningProgram>& programs) {
    for (const auto& program : programs) program.kill(SIGSTOP);
    int running = 0;
    for (const auto& program : programs) {
      EXPECT_TRUE(waitUntil([&] {
        const std::string status = procFile(program.pid(), "stat");
        const char state = status[status.rfind(") ") + 2];
        return state == 'T' || state == 'Z';
      }));
      running += hasLoadedCodecs(program.pid()) ? 1 : 0;
    }
    for (const auto& program : programs) program.kill(SIGCONT);
    return running;
  }
  // What the process holds alone, and its part of what it shares.
  static std::uint64_t proportionalMemory(pid_t process) {
    const std::string memory = procFile(process, "smaps_rollup");
    const auto line = memory.find("\nPss:");
    return line == std::string::npos ? 0 : std::stoull(memory.substr(line + 5));
  }
  std::vector<RunningProgram> startMany(int count, const std::string& target,
                                        const std::string& source) {
    std::vector<RunningProgram> programs;
    for (int number = 0; number < count; ++number) {
      programs.push_back(start(toolArguments(target, source, at("out/" + std::to_string(number)))));
    }
    return programs;
  }
};

}  // namespace

TEST_F(SlotsTest, WhoWaitsHasLoadedNoPictureLibrary) {
  home_.setVariable("TERVANO_IMAGE_SLOTS", "2");
  auto first = slotHolder(2);
  auto second = slotHolder(2);
  fs::create_directory(at("out"));
  auto programs = startMany(20, "jpeg", sampleAs("source.png"));
  ASSERT_TRUE(allWait(programs));
  for (const auto& program : programs) EXPECT_FALSE(hasLoadedCodecs(program.pid()));
  EXPECT_TRUE(namesIn(at("out")).empty());
  first.say("end");
  for (auto& program : programs) {
    const auto ending = program.wait();
    ASSERT_TRUE(ending);
    EXPECT_EQ(ending->status, 0) << ending->err;
  }
  EXPECT_EQ(namesIn(at("out")).size(), 20U);
}

TEST_F(SlotsTest, NoMoreThanTheSlotsRunAtOnceAndAllFinish) {
  constexpr int kSlots = 3;
  constexpr int kPrograms = 40;
  home_.setVariable("TERVANO_IMAGE_SLOTS", std::to_string(kSlots));
  fs::create_directory(at("out"));
  auto programs = startMany(kPrograms, "webp", sampleAs("source.png"));
  int most = 0;
  const bool finished = waitUntil(
      [&] {
        const int running = runningNow(programs);
        most = std::max(most, running);
        return namesIn(at("out")).size() == kPrograms;
      },
      60);
  EXPECT_TRUE(finished);
  EXPECT_GE(most, 1);
  EXPECT_LE(most, kSlots);
  for (auto& program : programs) {
    const auto ending = program.wait();
    ASSERT_TRUE(ending);
    EXPECT_EQ(ending->status, 0) << ending->err;
  }
}

TEST_F(SlotsTest, AThousandAtOnceWaitInLittleMemoryAndAllFinish) {
  constexpr int kPrograms = 1000;
  home_.setVariable("TERVANO_IMAGE_SLOTS", "2");
  auto first = slotHolder(2);
  auto second = slotHolder(2);
  fs::create_directory(at("out"));
  const std::string source = sampleAs("source.png");
  auto programs = startMany(kPrograms, "jpeg", source);
  ASSERT_TRUE(waitUntil(
      [&] {
        return std::all_of(programs.begin(), programs.end(), [](const RunningProgram& program) {
          return waitsForSlot(program.pid());
        });
      },
      60));
  std::uint64_t kibibytes = 0;
  for (const auto& program : programs) {
    EXPECT_FALSE(hasLoadedCodecs(program.pid()));
    kibibytes += proportionalMemory(program.pid());
  }
  EXPECT_GT(kibibytes, 0U);
  EXPECT_LT(kibibytes / kPrograms, 1024U);
  first.say("end");
  second.say("end");
  for (auto& program : programs) {
    const auto ending = program.wait(300);
    ASSERT_TRUE(ending);
    EXPECT_EQ(ending->status, 0) << ending->err;
  }
  EXPECT_EQ(namesIn(at("out")).size(), static_cast<std::size_t>(kPrograms));
}

TEST_F(SlotsTest, AKilledHolderFreesItsSlot) {
  home_.setVariable("TERVANO_IMAGE_SLOTS", "1");
  auto first = slotHolder(1);
  fs::create_directory(at("out"));
  auto programs = startMany(3, "jpeg", sampleAs("source.png"));
  ASSERT_TRUE(allWait(programs));
  first.kill(SIGKILL);
  for (auto& program : programs) {
    const auto ending = program.wait();
    ASSERT_TRUE(ending);
    EXPECT_EQ(ending->status, 0) << ending->err;
  }
}

TEST_F(SlotsTest, AKilledWaiterLetsTheOthersPass) {
  home_.setVariable("TERVANO_IMAGE_SLOTS", "1");
  auto first = slotHolder(1);
  fs::create_directory(at("out"));
  auto programs = startMany(4, "jpeg", sampleAs("source.png"));
  ASSERT_TRUE(allWait(programs));
  // One of them watches the holder, the others queue behind it.
  for (int number = 0; number < 3; ++number) {
    programs[static_cast<std::size_t>(number)].kill(number == 0 ? SIGTERM : SIGKILL);
    ASSERT_TRUE(programs[static_cast<std::size_t>(number)].wait());
  }
  first.say("end");
  const auto ending = programs[3].wait();
  ASSERT_TRUE(ending);
  EXPECT_EQ(ending->status, 0) << ending->err;
  EXPECT_EQ(namesIn(at("out")).size(), 1U);
}

TEST_F(SlotsTest, WaitingCostsNoProcessorTime) {
  home_.setVariable("TERVANO_IMAGE_SLOTS", "1");
  auto first = slotHolder(1);
  fs::create_directory(at("out"));
  auto programs = startMany(2, "jpeg", sampleAs("source.png"));
  ASSERT_TRUE(allWait(programs));
  // In user and kernel mode, in hundredths of a second.
  const auto used = [&] {
    int ticks = 0;
    for (const auto& program : programs) {
      const std::string status = procFile(program.pid(), "stat");
      std::istringstream fields(status.substr(status.rfind(") ") + 2));
      std::string skipped;
      for (int field = 3; field < 14; ++field) fields >> skipped;
      int user = 0;
      int kernel = 0;
      fields >> user >> kernel;
      ticks += user + kernel;
    }
    return ticks;
  };
  const int before = used();
  for (int count = 0; count < 100; ++count) outputOf({"/bin/true"});
  EXPECT_LE(used(), before + 1);
  first.say("end");
  for (auto& program : programs) EXPECT_TRUE(program.wait());
}

TEST_F(SlotsTest, ThereAreSlotsOfAllSizes) {
  const auto countWith = [this](const char* text) {
    home_.setVariable("TERVANO_IMAGE_SLOTS", text);
    return imageSlotCount();
  };
  EXPECT_EQ(countWith("1"), 1);
  EXPECT_EQ(countWith("1024"), 1024);
  home_.setVariable("TERVANO_IMAGE_SLOTS", std::nullopt);
  const int usual = imageSlotCount();
  EXPECT_GE(usual, 1);
  EXPECT_LE(usual, std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
  for (const char* text : {"", "0", "-1", "1025", "two", "2 ", "99999999999999999999"}) {
    EXPECT_EQ(countWith(text), usual) << text;
  }
}

TEST_F(SlotsTest, TheMemoryOfAllSlotsIsHalfOfTheMachine) {
  home_.setVariable("TERVANO_IMAGE_SLOTS", std::nullopt);
  const auto pages = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES));
  const auto machine = pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const auto all = imageSlotMemory() * static_cast<std::uint64_t>(imageSlotCount());
  EXPECT_LE(all, std::max(machine / 2 + machine / 50, std::uint64_t{768} << 20));
}

TEST_F(SlotsTest, WhereNothingCanBeLockedThatIsTold) {
  const std::string source = sampleAs("source.png");
  fs::create_directory(at("out"));
  expectRefused("jpeg", source, at("out/a.jpeg"),
                "the number of conversions at a time cannot be kept: No locks available", [] {
                  refuseCalls({{SYS_fcntl, ENOLCK, RefusedCall::Having::theValue, 1, F_SETLK}});
                });
}

TEST_F(SlotsTest, WithoutARuntimeFolderTheyAreInATemporaryOne) {
  home_.setVariable("XDG_RUNTIME_DIR", std::nullopt);
  const std::string source = sampleAs("source.png");
  expectConverted("jpeg", source, at("result.jpeg"));
}

}  // namespace tervano::test
