#include "history/process_identity.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace tervano::test {

TEST(ProcessIdentityTest, ThisProcessIsAlive) {
  const auto identity = ProcessIdentity::ofThisProcess();
  EXPECT_EQ(identity.pid, getpid());
  EXPECT_TRUE(identity.isAlive());
}

TEST(ProcessIdentityTest, AnotherProcessOfThatNumberIsNotTakenForIt) {
  auto identity = ProcessIdentity::ofThisProcess();
  identity.start += "1";
  EXPECT_FALSE(identity.isAlive());
}

TEST(ProcessIdentityTest, WhatIsNotKnownIsNotAlive) {
  EXPECT_FALSE(ProcessIdentity().isAlive());
  EXPECT_FALSE((ProcessIdentity{getpid(), ""}.isAlive()));
}

TEST(ProcessIdentityTest, AKilledProcessThatNobodyHasAskedAfterIsNotAlive) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    const auto identity = ProcessIdentity::ofThisProcess();
    const std::string text = identity.start;
    const bool isWritten = write(ends[1], text.data(), text.size()) > 0;
    while (isWritten) pause();
    _exit(1);
  }
  char text[256];
  const auto size = read(ends[0], text, sizeof text);
  ASSERT_GT(size, 0);
  const ProcessIdentity identity{child, std::string(text, static_cast<std::size_t>(size))};
  EXPECT_TRUE(identity.isAlive());
  kill(child, SIGKILL);
  siginfo_t info;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(identity.isAlive());
  waitpid(child, nullptr, 0);
  EXPECT_FALSE(identity.isAlive());
  close(ends[0]);
  close(ends[1]);
}

}  // namespace tervano::test
