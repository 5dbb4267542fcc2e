#include <gtest/gtest.h>

#include "tests/support/run_program.h"

namespace tervano::test {

TEST(ThunarVersionTest, InAnotherVersionTheModuleProvidesNothingAndSaysWhy) {
  ProgramStart start;
  start.path = TERVANO_ANOTHER_VERSION;
  const auto outcome = runProgram(start);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "nothing\n");
  EXPECT_NE(outcome.errors.find("does not fit this version: version too old"), std::string::npos)
      << outcome.errors;
}

}  // namespace tervano::test
