#pragma once

namespace tervano::test {

// Lets `operator new` throw on this thread from the allocation of that number on, for as long as it
// lives: 0 is the next one. Libraries whose paths hold the text `spared` get what they ask for
// themselves.
class FailingMemory {
 public:
  explicit FailingMemory(int allocation, const char* spared = nullptr);
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  // Whether anything was refused.
  static bool hasFailed();
};

}  // namespace tervano::test
