#include "tools/selection/file_list.h"

#include <algorithm>
#include <set>

#include "archive/url.h"

namespace tervano {

namespace {

std::vector<std::string> linesOf(std::string_view content) {
  // Some programs end a text with a NUL.
  while (content.ends_with('\0')) content.remove_suffix(1);
  std::vector<std::string> lines;
  while (!content.empty()) {
    const auto end = std::min(content.find('\n'), content.size());
    std::string_view line = content.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.empty()) lines.emplace_back(line);
    content.remove_prefix(std::min(end + 1, content.size()));
  }
  return lines;
}

bool isUsablePath(std::string_view path) {
  return path.starts_with('/') && path.find('\0') == std::string_view::npos;
}

// Empty for what is no file of this machine.
std::string pathOfURI(const std::string& text) {
  // The older form with one slash (RFC 8089, appendix B) is the same file.
  constexpr std::string_view kScheme = "file:";
  const bool isShort = text.size() > kScheme.size() + 1 && text.starts_with(kScheme) &&
                       text[kScheme.size()] == '/' && text[kScheme.size() + 1] != '/';
  std::string path = Url(isShort ? "file://" + text.substr(kScheme.size()) : text).path();
  return isUsablePath(path) ? path : "";
}

std::vector<std::string> eachOnce(const std::vector<std::string>& paths) {
  std::vector<std::string> result;
  std::set<std::string> known;
  for (const auto& path : paths) {
    if (!path.empty() && known.insert(path).second) result.push_back(path);
  }
  return result;
}

}  // namespace

std::vector<std::string> filesOfContent(std::string_view type, std::string_view content) {
  auto lines = linesOf(content);
  std::vector<std::string> paths;
  if (type.starts_with("text/plain")) {
    for (const auto& line : lines) {
      paths.push_back(isUsablePath(line) ? line : pathOfURI(line));
      if (paths.back().empty()) return {};
    }
    return eachOnce(paths);
  }
  if (type == "x-special/gnome-copied-files" && !lines.empty()) lines.erase(lines.begin());
  for (const auto& line : lines) {
    if (!line.starts_with('#')) paths.push_back(pathOfURI(line));
  }
  return eachOnce(paths);
}

}  // namespace tervano
