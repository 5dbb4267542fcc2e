#pragma once

#include <cstdint>
#include <string>

namespace tervano {

// Names one process for ever: its number can be given to another one, when it began cannot.
struct ProcessIdentity {
  std::int64_t pid = 0;
  // The start of the system and, on its clock, the process's own; empty when that is not known.
  std::string start;

  static ProcessIdentity ofThisProcess();
  // Whether that very process lives. One that has ended and that nobody has asked after does not.
  bool isAlive() const;
  friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
};

}  // namespace tervano
