#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/work_observer.h"

namespace tervano::test {

// Counts what long work tells, and stops it when the test says so.
class WatchingObserver : public WorkObserver {
 public:
  void willMakeTemporary(const std::string& path) override { temporaries.push_back(path); }
  void didProcess(std::uint64_t bytes) override {
    processed += bytes;
    if (onBytes) onBytes();
  }
  bool isCancelled() const override { return cancelled; }

  std::vector<std::string> temporaries;
  std::uint64_t processed = 0;
  bool cancelled = false;
  // Called after each part.
  std::function<void()> onBytes;
};

}  // namespace tervano::test
