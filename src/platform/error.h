#pragma once

#include <optional>
#include <string>

namespace tervano {

// Why an operation of the operating system failed. Nil (no error) is std::nullopt.
struct Error {
  // "POSIX" for errno values, else the name of the service.
  std::string domain;
  int code = 0;
  // A sentence for a person, naming the file it is about.
  std::string message;

  friend bool operator==(const Error&, const Error&) = default;
};

// An Error of domain "POSIX" whose message is `what`, a colon and the system's text for `code`.
Error posixError(int code, const std::string& what);

}  // namespace tervano
