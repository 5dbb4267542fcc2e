#pragma once

#include <vector>

namespace tervano::test {

// What a system call is answered with: calls of that number, or only those in which an argument is
// `value`, or has one of its bits.
struct RefusedCall {
  enum class Having { anything, theValue, aBit };

  long number = 0;
  int code = 0;
  Having having = Having::anything;
  int argument = 0;
  unsigned value = 0;
};
// From now on, for this process and the programs that it becomes. For children before their
// program.
void refuseCalls(const std::vector<RefusedCall>& calls);

}  // namespace tervano::test
