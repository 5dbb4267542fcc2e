#include "actions/next_available_path.h"

#include <cstdint>

#include "archive/url.h"
#include "platform/file_manager.h"
#include "platform/platform.h"

namespace tervano {

std::string vx_nextAvailablePath(const std::string& path) {
  const FileManager& files = *platform().fileManager;
  if (!files.itemExistsAtPath(path)) return path;
  const std::string folder = deletingLastPathComponent(path);
  const std::string name = lastPathComponent(path);
  const std::string extension = pathExtension(name);
  const std::string suffix = extension.empty() ? "" : "." + extension;
  const std::string stem = name.substr(0, name.size() - suffix.size());
  for (std::int64_t number = 2;; ++number) {
    std::string candidate = stem;
    candidate.append(" ").append(std::to_string(number)).append(suffix);
    candidate = appendingPathComponent(folder, candidate);
    if (!files.itemExistsAtPath(candidate)) return candidate;
  }
}

}  // namespace tervano
