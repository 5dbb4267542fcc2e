#include "archive/url.h"

#include <algorithm>
#include <cstdint>

namespace tervano {
namespace {

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isUrlDigit(char c) {
  return c >= '0' && c <= '9';
}

char lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowerCase) {
  if (text.size() != lowerCase.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (lowered(text[i]) != lowerCase[i]) return false;
  }
  return true;
}

void appendEscaped(std::string& out, std::string_view path) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  for (const char c : path) {
    if (isLetter(c) || isUrlDigit(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
      out.push_back(c);
    } else {
      const auto byte = static_cast<std::uint8_t>(c);
      out.push_back('%');
      out.push_back(kDigits[byte >> 4]);
      out.push_back(kDigits[byte & 0x0F]);
    }
  }
}

int hexDigit(char c) {
  if (isUrlDigit(c)) return c - '0';
  c = lowered(c);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Nullopt for a broken escape, and for an escaped NUL, which no path can hold.
std::optional<std::string> unescaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexDigit(text[i + 1]);
    const int low = hexDigit(text[i + 2]);
    if (high < 0 || low < 0 || high + low == 0) return std::nullopt;
    out.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return out;
}

// The five components of RFC 3986, section 3; delimiters are not part of them.
struct Components {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

Components componentsOf(std::string_view text) {
  Components parts;
  if (const auto at = text.find('#'); at != std::string_view::npos) {
    parts.fragment = text.substr(at + 1);
    text = text.substr(0, at);
  }
  if (const auto at = text.find('?'); at != std::string_view::npos) {
    parts.query = text.substr(at + 1);
    text = text.substr(0, at);
  }
  if (!text.empty() && isLetter(text.front())) {
    std::size_t at = 1;
    while (at < text.size() && (isLetter(text[at]) || isUrlDigit(text[at]) || text[at] == '+' ||
                                text[at] == '-' || text[at] == '.')) {
      ++at;
    }
    if (at < text.size() && text[at] == ':') {
      parts.scheme = text.substr(0, at);
      text = text.substr(at + 1);
    }
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::size_t end = std::min(text.find('/'), text.size());
    parts.authority = text.substr(0, end);
    text = text.substr(end);
  }
  parts.path = text;
  return parts;
}

// RFC 3986, section 5.2.4.
std::string withoutDotSegments(std::string_view input) {
  std::string out;
  out.reserve(input.size());
  while (!input.empty()) {
    if (input.starts_with("../")) {
      input.remove_prefix(3);
    } else if (input.starts_with("./") || input.starts_with("/./")) {
      input.remove_prefix(2);
    } else if (input == "/.") {
      input = "/";
    } else if (input.starts_with("/../") || input == "/..") {
      input = input == "/.." ? std::string_view("/") : input.substr(3);
      out.resize(out.find('/') == std::string::npos ? 0 : out.rfind('/'));
    } else if (input == "." || input == "..") {
      input = {};
    } else {
      const std::size_t end = std::min(input.find('/', 1), input.size());
      out.append(input.substr(0, end));
      input.remove_prefix(end);
    }
  }
  return out;
}

}  // namespace

Url Url::fileURLWithPath(std::string_view path, bool isDirectory) {
  std::string text = "file://";
  if (!path.starts_with('/')) text.push_back('/');
  appendEscaped(text, path);
  if (isDirectory && text.back() != '/') text.push_back('/');
  return Url(std::move(text));
}

Url Url::URLWithString(std::string_view reference, const Url& relativeToURL) {
  const Components relative = componentsOf(reference);
  if (relative.scheme) return Url(std::string(reference));
  const Components base = componentsOf(relativeToURL.text_);
  std::optional<std::string_view> authority = base.authority;
  std::optional<std::string_view> query = relative.query;
  std::string path;
  if (relative.authority) {
    authority = relative.authority;
    path = withoutDotSegments(relative.path);
  } else if (relative.path.empty()) {
    path = base.path;
    if (!query) query = base.query;
  } else if (relative.path.starts_with('/')) {
    path = withoutDotSegments(relative.path);
  } else {
    std::string merged;
    if (base.authority && base.path.empty()) {
      merged = "/";
    } else if (const auto slash = base.path.rfind('/'); slash != std::string_view::npos) {
      merged = base.path.substr(0, slash + 1);
    }
    path = withoutDotSegments(merged.append(relative.path));
  }
  std::string text;
  if (base.scheme) text.append(*base.scheme).append(":");
  if (authority) text.append("//").append(*authority);
  text.append(path);
  if (query) text.append("?").append(*query);
  if (relative.fragment) text.append("#").append(*relative.fragment);
  return Url(std::move(text));
}

bool Url::isFileURL() const {
  const Components parts = componentsOf(text_);
  return parts.scheme && equalsIgnoringCase(*parts.scheme, "file");
}

std::string Url::path() const {
  const Components parts = componentsOf(text_);
  if (!parts.scheme || !equalsIgnoringCase(*parts.scheme, "file")) return {};
  if (parts.authority && !parts.authority->empty() &&
      !equalsIgnoringCase(*parts.authority, "localhost")) {
    return {};
  }
  if (!parts.path.starts_with('/')) return {};
  const std::optional<std::string> plain = unescaped(parts.path);
  return plain ? std::string(withoutTrailingSlashes(*plain)) : std::string();
}

std::string Url::lastPathComponent() const {
  const std::optional<std::string> plain = unescaped(componentsOf(text_).path);
  return plain ? tervano::lastPathComponent(*plain) : std::string();
}

Url Url::URLByAppendingPathComponent(std::string_view component) const {
  const std::size_t end = std::min(text_.find_first_of("?#"), text_.size());
  std::string text = text_.substr(0, end);
  if (!text.ends_with('/')) text.push_back('/');
  while (component.starts_with('/')) component.remove_prefix(1);
  appendEscaped(text, component);
  return Url(text + text_.substr(end));
}

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  // When there is no slash, npos + 1 is the start.
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return std::string(withoutTrailingSlashes(path.substr(0, std::max<std::size_t>(slash, 1))));
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return std::string(component);
  if (component.empty()) return std::string(path);
  std::string joined(path);
  if (joined.back() != '/') joined.push_back('/');
  while (component.starts_with('/')) component.remove_prefix(1);
  return joined.append(component);
}

std::string pathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return {};
  return name.substr(dot + 1);
}

}  // namespace tervano
