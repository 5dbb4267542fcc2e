#pragma once

#include <exception>
#include <string>
#include <vector>

namespace tervano {

// The one exception of the system: a bad archive, an unknown class, a tool that cannot be launched,
// nil in an argument list, and nothing else. It passes through actions; only the outermost caller
// catches it, logs it and tells the user.
class PlatformException : public std::exception {
 public:
  // Captures the call stack of the caller.
  PlatformException(std::string name, std::string reason);

  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }
  // "name: reason".
  const char* what() const noexcept override { return what_.c_str(); }

  // One line per frame of the stack at the time of construction, innermost first. Symbolised on
  // the first call, which is therefore not for the hot path.
  std::vector<std::string> callStackSymbols() const;

 private:
  std::string name_;
  std::string reason_;
  std::string what_;
  std::vector<void*> frames_;
};

// Names used with PlatformException.
inline constexpr char kInvalidArchiveException[] = "NSInvalidArchiveOperationException";
inline constexpr char kInvalidUnarchiveException[] = "NSInvalidUnarchiveOperationException";
inline constexpr char kInvalidArgumentException[] = "NSInvalidArgumentException";

}  // namespace tervano
