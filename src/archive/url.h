#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tervano {

// An absolute URI kept exactly as text. A value type; nil is std::optional.
//
// File URLs follow RFC 8089 with an empty host: "file://" and the path, every byte outside the
// unreserved set and "/" percent-escaped, so that a path of any bytes survives. A folder's URL ends
// in "/".
class Url {
 public:
  Url() = default;
  explicit Url(std::string text) : text_(std::move(text)) {}

  // The file URL of an absolute path. `isDirectory` adds the trailing slash when it is missing.
  static Url fileURLWithPath(std::string_view path, bool isDirectory = false);

  // A URI reference resolved against a base by RFC 3986, section 5.2; an absolute reference stays
  // as it is.
  static Url URLWithString(std::string_view reference, const Url& relativeToURL);

  const std::string& absoluteString() const { return text_; }
  bool isFileURL() const;
  // The unescaped path without a trailing slash (except for "/"); empty when this is no file URL
  // of this machine or an escape is broken.
  std::string path() const;
  std::string lastPathComponent() const;
  // This URL with one more path component, escaped.
  Url URLByAppendingPathComponent(std::string_view component) const;

  friend bool operator==(const Url&, const Url&) = default;

 private:
  std::string text_;
};

// Path operations on plain byte strings. `lastPathComponent` of "/a/b/" is "b", of "/" is "/".
// Of a path that is nothing but slashes one stays.
std::string_view withoutTrailingSlashes(std::string_view path);
std::string lastPathComponent(std::string_view path);
std::string deletingLastPathComponent(std::string_view path);
std::string appendingPathComponent(std::string_view path, std::string_view component);
// The characters after the last "." of the last component; empty when there is none, when the name
// begins with its only dot, or when the dot is the last character.
std::string pathExtension(std::string_view path);

}  // namespace tervano
