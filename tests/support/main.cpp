#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
  // What the tests expect of sentences is English, wherever they run.
  setenv("LC_ALL", "C.UTF-8", 1);
  unsetenv("LANGUAGE");
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
