#pragma once

#include <optional>
#include <string>

#include "tests/support/child_process.h"

namespace tervano::test {

// An X server without a screen, with DISPLAY pointing to it. The destructor ends it and puts the
// variable back.
class VirtualDisplay {
 public:
  VirtualDisplay();
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;
  ~VirtualDisplay();

  // Such as ":5".
  const std::string& name() const { return name_; }

 private:
  ChildProcess server_;
  std::string name_;
  std::optional<std::string> previous_;
};

}  // namespace tervano::test
