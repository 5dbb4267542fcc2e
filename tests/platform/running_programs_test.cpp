#include "platform/linux/running_programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/support/scoped_platform.h"
#include "tests/support/wait.h"

namespace tervano::test {

namespace {

using testing::Contains;
using testing::IsEmpty;

// A program of our own that runs until the test ends.
class CopiedProgram {
 public:
  CopiedProgram() {
    std::filesystem::copy_file("/usr/bin/sleep", path_);
    child_ = std::make_unique<ChildProcess>(startProgram(path_, {"600"}));
  }

  pid_t pid() const { return child_->pid(); }
  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }
  std::vector<pid_t> found() const { return processesOfProgram(name_); }
  // Until the fork has become the program.
  bool runs() const {
    return waitUntil([this] { return !found().empty() && processHasLoaded(pid(), "libc.so.6"); });
  }

 private:
  ScopedPlatform platform_;
  // Its own, since tests run beside each other.
  const std::string name_ = "a program of " + std::to_string(getpid());
  const std::string path_ = platform_.home().path() + "/" + name_;
  std::unique_ptr<ChildProcess> child_;
};

}  // namespace

TEST(RunningProgramsTest, AProgramIsFoundByTheNameOfItsFile) {
  const CopiedProgram program;
  ASSERT_TRUE(program.runs());
  EXPECT_THAT(program.found(), testing::ElementsAre(program.pid()));
  EXPECT_THAT(processesOfProgram(program.name().substr(2)), IsEmpty());
}

TEST(RunningProgramsTest, AProgramWhoseFileWasRemovedIsStillFound) {
  const CopiedProgram program;
  ASSERT_TRUE(program.runs());
  std::filesystem::remove(program.path());
  EXPECT_THAT(program.found(), Contains(program.pid()));
}

TEST(RunningProgramsTest, WhatAProcessHasLoadedIsKnownByItsWholeFileName) {
  const CopiedProgram program;
  ASSERT_TRUE(program.runs());
  EXPECT_FALSE(processHasLoaded(program.pid(), "c.so.6"));
  EXPECT_FALSE(processHasLoaded(program.pid(), "libtervano-nautilus.so"));
}

TEST(RunningProgramsTest, AFileThatWasRemovedSinceDoesNotCount) {
  const CopiedProgram program;
  ASSERT_TRUE(program.runs());
  EXPECT_TRUE(processHasLoaded(program.pid(), program.name()));
  std::filesystem::remove(program.path());
  EXPECT_FALSE(processHasLoaded(program.pid(), program.name()));
}

TEST(RunningProgramsTest, WhatAProcessHasLoadedIsKnownByItsFolderAlone) {
  const CopiedProgram program;
  ASSERT_TRUE(program.runs());
  const auto folder = std::filesystem::path(program.path()).parent_path();
  EXPECT_TRUE(processHasLoadedFrom(program.pid(), folder));
  EXPECT_FALSE(processHasLoadedFrom(program.pid(), folder.parent_path()));
  EXPECT_FALSE(processHasLoadedFrom(program.pid(), folder / "none"));
}

TEST(RunningProgramsTest, AProcessThatIsGoneHasNothingLoaded) {
  const ScopedPlatform platform;
  EXPECT_FALSE(processHasLoaded(std::numeric_limits<pid_t>::max(), "libc.so.6"));
}

}  // namespace tervano::test
