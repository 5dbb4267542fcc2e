#include "actions/path_relations.h"

#include <filesystem>
#include <system_error>

#include "archive/url.h"

namespace tervano {
namespace {

namespace fs = std::filesystem;

bool isSameFolder(const std::string& left, const std::string& right) {
  std::error_code ignored;
  return fs::equivalent(left, right, ignored);
}

// Calls `found` with the path and every folder above it as spelled, until it answers true.
template <typename Predicate>
bool anyAtOrAbove(std::string path, const Predicate& found) {
  while (!path.empty()) {
    if (found(path)) return true;
    std::string above = deletingLastPathComponent(path);
    if (above == path) return false;
    path = std::move(above);
  }
  return false;
}

}  // namespace

bool itemContainsPath(const std::string& item, const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(item, error);
  if (error || !fs::exists(status)) return false;
  const std::string name = lastPathComponent(item);
  const std::string folder = deletingLastPathComponent(item);
  const bool isSpelledInside = anyAtOrAbove(path, [&](const std::string& above) {
    return lastPathComponent(above) == name &&
           isSameFolder(deletingLastPathComponent(above), folder);
  });
  if (isSpelledInside) return true;
  if (!fs::is_directory(status)) return false;
  const bool pathIsFolder = fs::is_directory(fs::symlink_status(path, error));
  const fs::path start =
      fs::canonical(pathIsFolder ? path : deletingLastPathComponent(path), error);
  return !error && anyAtOrAbove(start.string(), [&](const std::string& above) {
    return isSameFolder(above, item);
  });
}

std::optional<Error> reasonNotToReplace(const std::string& target, const std::string& source,
                                        const std::string& destination) {
  if (!itemContainsPath(target, source) && !itemContainsPath(source, target) &&
      !itemContainsPath(target, destination)) {
    return std::nullopt;
  }
  return Error{"Paths", 1,
               "\"" + target + "\" and \"" + source + "\" are, or contain, the same item"};
}

}  // namespace tervano
