#include "actions/path_names.h"

#include <algorithm>
#include <vector>

#include "archive/url.h"

namespace tervano {

std::string standardizingPath(std::string_view path) {
  const bool isAbsolute = path.starts_with('/');
  std::vector<std::string_view> components;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string_view component = path.substr(at, end - at);
    const bool isFirst = at == 0;
    at = end + 1;
    if (component.empty() || (component == "." && !isFirst)) continue;
    if (component == ".." && isAbsolute) {
      if (!components.empty()) components.pop_back();
    } else {
      components.push_back(component);
    }
  }
  std::string result;
  for (const std::string_view component : components) {
    if (isAbsolute || !result.empty()) result += '/';
    result += component;
  }
  return isAbsolute && result.empty() ? "/" : result;
}

std::string deletingPathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::string extension = pathExtension(path);
  if (!extension.empty()) path.remove_suffix(extension.size() + 1);
  return std::string(path);
}

std::string appendingPathExtension(std::string_view path, std::string_view extension) {
  std::string result(withoutTrailingSlashes(path));
  if (extension.empty()) return result;
  result += '.';
  result += extension;
  return result;
}

}  // namespace tervano
