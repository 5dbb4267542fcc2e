#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/url.h"
#include "archive/value.h"
#include "platform/error.h"

namespace tervano {

// The road of a request from the file manager to the application: a JSON file with the selected
// paths in the application group's container, and a URL that names the action and the file. Writer
// and reader share this header. The scheme is open to every program and every web page, so the
// reader takes exactly what the writer makes, and the file must be the user's own.

// A hand-off as its URL names it.
struct HandOff {
  // The action's uid, 32 upper-case hexadecimal characters.
  std::string action;
  // The hand-off file's name, a UUID in upper case.
  std::string file;

  friend bool operator==(const HandOff&, const HandOff&) = default;
};

// Whether the text is the name of a hand-off file: a UUID in upper case.
bool isHandOffFileName(std::string_view text);

// A larger hand-off file is refused.
inline constexpr std::size_t kMaximumHandOffFileSize = std::size_t{64} << 20;

// The domain of this header's errors.
inline constexpr char kHandOffErrorDomain[] = "TVHandOff";

// "tervano://runaction?action=UID&file=NAME"; neither is escaped.
Url handOffURL(std::string_view uid, std::string_view fileName);

// Takes only what handOffURL makes of a well-formed uid and name: another order, more keys,
// escapes, a fragment or anything behind it is refused. Nil when refused; `error`, when given, says
// why.
std::optional<HandOff> parseHandOffURL(std::string_view text,
                                       std::optional<Error>* error = nullptr);

// JSON (RFC 8259) in the layout of the platform's pretty writer: indented by two blanks, a blank on
// both sides of each colon, every "/" escaped. Nil for what JSON cannot hold (a text that is not
// UTF-8, data, a date, a number that is not finite); `reason`, when given, says what that was.
std::optional<std::string> prettyPrintedJSON(const Value& value, std::string* reason = nullptr);

// The paths in a hand-off file's text: an object whose one member "paths" is an array of strings,
// each an absolute path. Other members are ignored. Nil for anything else.
std::optional<std::vector<std::string>> pathsOfHandOffJSON(std::string_view json,
                                                           std::optional<Error>* error = nullptr);

// The container's path, nil when there is none. Creates nothing.
std::optional<std::string> handOffFolder();

// Reads the file of that name in the container: only a regular file of this user with a single
// name, not reached through a link. Nil on any failure. Blocking.
std::optional<std::vector<std::string>> readHandOffFile(const std::string& fileName,
                                                        std::optional<Error>* error = nullptr);

// Removes the file of that name from the container; what is no regular file of this user stays. Nil
// for success.
std::optional<Error> removeHandOffFile(const std::string& fileName);

}  // namespace tervano
