#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "platform/linux/descriptor.h"
#include "tests/companion/tervano_program.h"

namespace tervano::test {

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char kSecret[] = "What nobody is meant to read.";

// The real program and the real remove tool.
class SecureDeleteTest : public testing::Test {
 protected:
  ProgramOutcome deleteSecurely(std::vector<std::string> paths) const {
    paths.insert(paths.begin(), {"run", "--yes", uid_});
    return home_.tervano(paths);
  }

  ProgramHome home_;
  const std::string uid_ = home_.succeed({"add", "secure-delete"});
};

}  // namespace

TEST_F(SecureDeleteTest, EachSelectedPathIsOverwrittenAndRemoved) {
  const auto file = home_.file("one \xFF\n.txt", kSecret);
  const auto inside = home_.file("folder/a/two.txt", kSecret);
  const Descriptor one(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  const Descriptor two(open(inside.c_str(), O_RDONLY | O_CLOEXEC));
  const auto outcome = deleteSecurely({file, home_.path() + "/folder"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_FALSE(exists(file));
  EXPECT_FALSE(exists(home_.path() + "/folder"));
  for (const auto* const descriptor : {&one, &two}) {
    std::array<char, sizeof kSecret> now{};
    ASSERT_GT(pread(descriptor->get(), now.data(), now.size(), 0), 0);
    EXPECT_THAT(std::string(now.data(), now.size()), Not(HasSubstr("nobody")));
  }
}

TEST_F(SecureDeleteTest, AFileThatIsGoneAlreadyIsNoFailure) {
  const auto outcome = deleteSecurely({home_.path() + "/nothing"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
}

TEST_F(SecureDeleteTest, WhatStaysIsTold) {
  const auto file = home_.file("file");
  const auto outcome = deleteSecurely({"/proc/version", file});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Could not remove \"/proc/version\": "));
  EXPECT_FALSE(exists(file));
}

}  // namespace tervano::test
