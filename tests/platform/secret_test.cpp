#include "platform/linux/secret.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "platform/linux/descriptor.h"

namespace tervano::test {

namespace {

class SecretTest : public testing::Test {
 protected:
  SecretTest() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    readingEnd_.reset(ends[0]);
    writingEnd_.reset(ends[1]);
  }
  void write(const std::string& bytes) {
    EXPECT_TRUE(writeFully(writingEnd_.get(), bytes.data(), bytes.size()));
  }

  Descriptor readingEnd_;
  Descriptor writingEnd_;
  Secret secret_;
};

}  // namespace

TEST_F(SecretTest, ItIsEmptyAtFirst) {
  EXPECT_TRUE(secret_.empty());
  EXPECT_EQ(secret_.text(), "");
}

TEST_F(SecretTest, ReadsToTheEnd) {
  write("pass\nword\n");
  writingEnd_.reset();
  EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), false));
  EXPECT_EQ(secret_.text(), "pass\nword\n");
  EXPECT_EQ(std::string(secret_.text().data()), "pass\nword\n") << "a NUL follows";
}

TEST_F(SecretTest, ReadsOneLineAndNothingBehindIt) {
  write("first\nsecond\n");
  EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(secret_.text(), "first");
  EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(secret_.text(), "second");
}

TEST_F(SecretTest, ALineWithoutAnEndIsALineToo) {
  write("last");
  writingEnd_.reset();
  EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(secret_.text(), "last");
}

TEST_F(SecretTest, ALinesEndMayHaveOneCarriageReturn) {
  write("word\r\ntwo\r\r\n\r\nin\rside\n");
  for (const char* const text : {"word", "two\r", "", "in\rside"}) {
    EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), true));
    EXPECT_EQ(secret_.text(), text);
    EXPECT_EQ(std::string(secret_.text().data()), text) << "a NUL follows";
  }
}

TEST_F(SecretTest, ACarriageReturnThatEndsNoLineBelongsToIt) {
  write("word\r");
  writingEnd_.reset();
  EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(secret_.text(), "word\r");
}

TEST_F(SecretTest, TheLongestMayEndInBothCharactersAndInNoMore) {
  const std::string longest(Secret::kLongest, 'x');
  write(longest + "\r\n");
  EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(secret_.text(), longest);
  write(longest + "\rx\n");
  EXPECT_FALSE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(SecretTest, TheLongestAndACarriageReturnWithoutALinesEndIsTooLong) {
  write(std::string(Secret::kLongest, 'x') + "\r");
  writingEnd_.reset();
  EXPECT_FALSE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(SecretTest, TheLongestIsTakenAndOneMoreByteIsRefused) {
  write(std::string(Secret::kLongest, 'x') + "\n" + std::string(Secret::kLongest + 1, 'y') + "\n");
  EXPECT_TRUE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(secret_.text().size(), Secret::kLongest);
  EXPECT_FALSE(secret_.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_TRUE(secret_.empty());
}

TEST_F(SecretTest, ANulIsRefused) {
  write(std::string("a\0b", 3));
  writingEnd_.reset();
  EXPECT_FALSE(secret_.readFrom(readingEnd_.get(), false));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(secret_.empty());
}

TEST_F(SecretTest, WhatIsNotThereYetIsNotWaitedForOnSuchADescriptor) {
  write("half");
  EXPECT_FALSE(secret_.readFrom(readingEnd_.get(), false));
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_TRUE(secret_.empty());
}

TEST_F(SecretTest, EqualIsTheSameText) {
  write("word\nword\nwords\n");
  Secret same;
  Secret other;
  ASSERT_TRUE(secret_.readFrom(readingEnd_.get(), true));
  ASSERT_TRUE(same.readFrom(readingEnd_.get(), true));
  ASSERT_TRUE(other.readFrom(readingEnd_.get(), true));
  EXPECT_EQ(secret_, same);
  EXPECT_FALSE(secret_ == other);
  EXPECT_FALSE(secret_ == Secret());
}

TEST_F(SecretTest, MovingTakesItAway) {
  write("word");
  writingEnd_.reset();
  ASSERT_TRUE(secret_.readFrom(readingEnd_.get(), false));
  Secret other = std::move(secret_);
  EXPECT_EQ(other.text(), "word");
  secret_ = std::move(other);
  EXPECT_EQ(secret_.text(), "word");
}

TEST(ProcessWithSecretsTest, LeavesNoDumpWhileThereIsOne) {
  ASSERT_EQ(prctl(PR_GET_DUMPABLE), 1);
  {
    Secret first;
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
    auto second = std::make_unique<Secret>();
    const Secret moved = std::move(first);
    second.reset();
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
  }
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
}

TEST(ProcessWithSecretsTest, ItsOwnFilesStayWithinItsReach) {
  const Secret secret;
  EXPECT_GE(open("/proc/self/fd/0", O_PATH | O_CLOEXEC), 0);
  EXPECT_TRUE(std::ifstream("/proc/self/maps").good());
}

TEST_F(SecretTest, ItsMemoryIsLockedAndKeptOutOfDumps) {
  std::ostringstream address;
  address << std::hex << reinterpret_cast<std::uintptr_t>(secret_.text().data());
  std::ifstream maps("/proc/self/smaps");
  bool isFound = false;
  for (std::string line; std::getline(maps, line);) {
    if (line.starts_with(address.str() + "-")) isFound = true;
    if (!isFound || !line.starts_with("VmFlags:")) continue;
    EXPECT_NE(line.find(" lo"), std::string::npos) << line;
    EXPECT_NE(line.find(" dd"), std::string::npos) << line;
    return;
  }
  FAIL() << "the mapping is not there";
}

}  // namespace tervano::test
