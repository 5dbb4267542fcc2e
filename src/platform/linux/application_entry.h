#pragma once

#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/linux/exec_line.h"

namespace tervano {

// What a desktop entry says of starting its application (Desktop Entry Specification 1.5).
struct ApplicationEntry {
  // Of its file.
  std::string path;
  // The desktop-file id without ".desktop".
  std::string identifier;
  // In the user's language where it has one; the identifier when it has none.
  std::string name;
  std::string icon;
  std::string exec;
  // Where the program is to start; empty for here.
  std::string folder;
  // The user has removed it.
  bool isHidden = false;
  bool terminal = false;
  bool isActivatable = false;
  // Of the category WebBrowser, and not of Email.
  bool isBrowser = false;
  // False when the application is known not to look at an activation token.
  bool takesActivationToken = true;

  // The name under which the bus starts it, empty when the bus does not.
  std::string busName() const;
  // Nil when it has none or a broken one.
  std::optional<ExecLine> execLine() const;
};

// Reads the entry of an installed application. Nil, with the reason in `error`, when the file
// cannot be read, is no application's, or says that its program is missing. Any thread.
std::optional<ApplicationEntry> applicationEntryAtPath(const std::string& path,
                                                       std::optional<Error>* error = nullptr);

}  // namespace tervano
