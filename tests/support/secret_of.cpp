#include "tests/support/secret_of.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/linux/descriptor.h"

namespace tervano::test {

Secret secretOf(const std::string& text) {
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Descriptor readingEnd(ends[0]);
  Descriptor writingEnd(ends[1]);
  EXPECT_TRUE(writeFully(writingEnd.get(), text.data(), text.size()));
  writingEnd.reset();
  Secret secret;
  EXPECT_TRUE(secret.readFrom(readingEnd.get(), false));
  return secret;
}

}  // namespace tervano::test
