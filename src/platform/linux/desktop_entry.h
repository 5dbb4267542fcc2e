#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/glib_handles.h"

namespace tervano {

// A desktop entry of Type=Application (Desktop Entry Specification 1.5). Any thread.
class DesktopEntry {
 public:
  // Reads the file, following symbolic links; nil when it is missing, no regular file, larger than
  // 1 MiB, no desktop entry or one of another type.
  static std::optional<DesktopEntry> atPath(const std::string& path);

  // The value; nil when absent, empty or not UTF-8.
  std::optional<std::string> string(const char* key) const;
  // Nil when absent or neither "true" nor "false".
  std::optional<bool> boolean(const char* key) const;
  // The value for the user's language; nil when absent or empty.
  std::optional<std::string> localeString(const char* key) const;
  // The words of an "Exec" or "TryExec" value without their quotes, field codes included; empty
  // when it is absent or badly quoted.
  std::vector<std::string> words(const char* key) const;

  // The desktop-file id of the entry at that path, without ".desktop": in a folder "applications"
  // of the data folders, or a link into one, the path below it with "-" for "/"; elsewhere the
  // file's name. Does not look whether there is an entry.
  static std::string identifierAtPath(const std::string& path);

 private:
  explicit DesktopEntry(GKeyFilePtr file) : file_(std::move(file)) {}

  GKeyFilePtr file_;
};

}  // namespace tervano
