#pragma once

#include <chrono>
#include <set>

#include "platform/linux/descriptor.h"

namespace tervano {

// The user's processes share a number of slots, one for each thread that waits for the disk, so
// that many of them together do not ask more of it than one. A slot is a lock on one byte of a
// file in the user's runtime folder, which the kernel frees when the process ends; where there is
// no such folder, every process has slots of its own. One thread at a time.
class FlushSlots {
 public:
  static constexpr int kSlots = 128;

  // Takes one more slot until the end of this object, if one is free.
  bool take();

 private:
  Descriptor file_;
  bool isOpened_ = false;
  std::set<int> taken_;
  // After a refusal nothing becomes free for a moment.
  std::chrono::steady_clock::time_point nextTry_;
};

}  // namespace tervano
