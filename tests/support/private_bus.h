#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tests/support/child_process.h"

namespace tervano::test {

// A session bus of the test's own, with DBUS_SESSION_BUS_ADDRESS pointing to it. It knows no
// service of the machine: only those given, by bus name with the program that owns the name. The
// destructor ends the bus and puts the variable back.
class PrivateBus {
 public:
  explicit PrivateBus(const std::map<std::string, std::string>& services = {});
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

  const std::string& address() const { return address_; }
  // Ends the bus as a crash would; the address stays.
  void kill();
  // Holds the bus still, so that it answers nobody, and lets it go on.
  void stop();
  void resume();

 private:
  std::string folder_;
  std::unique_ptr<ChildProcess> daemon_;
  std::string address_;
  std::optional<std::string> previous_;
};

// No session bus for the time being: unsets DBUS_SESSION_BUS_ADDRESS.
class NoBus {
 public:
  NoBus();
  NoBus(const NoBus&) = delete;
  NoBus& operator=(const NoBus&) = delete;
  ~NoBus();

 private:
  std::optional<std::string> previous_;
};

}  // namespace tervano::test
