#include "actions/next_available_path.h"

#include <cstdint>

#include "actions/path_names.h"
#include "archive/url.h"
#include "platform/file_manager.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr std::size_t kLongestName = 255;

// The beginning of a name that leaves room for so many bytes, without half a UTF-8 character.
std::string shortened(const std::string& stem, std::size_t needed) {
  if (needed >= kLongestName || stem.size() + needed <= kLongestName) return stem;
  std::size_t length = kLongestName - needed;
  const auto continues = [&](std::size_t at) {
    return (static_cast<unsigned char>(stem[at]) & 0xC0U) == 0x80U;
  };
  const std::size_t longest = length;
  while (length > 0 && longest - length < 4 && continues(length)) --length;
  return stem.substr(0, length > 0 && !continues(length) ? length : longest);
}

}  // namespace

std::string nameWithEnding(const std::string& stem, const std::string& ending) {
  return shortened(stem, ending.size()) + ending;
}

std::string nextFreeName(const std::string& name,
                         const std::function<bool(const std::string&)>& isTaken) {
  if (!isTaken(name)) return name;
  const std::string stem = deletingPathExtension(name);
  const std::string suffix = name.substr(stem.size());
  for (std::int64_t number = 2;; ++number) {
    std::string candidate = nameWithEnding(stem, " " + std::to_string(number) + suffix);
    if (!isTaken(candidate)) return candidate;
  }
}

std::string vx_nextAvailablePath(const std::string& path) {
  const FileManager& files = *platform().fileManager;
  if (!files.itemExistsAtPath(path)) return path;
  const std::string folder = deletingLastPathComponent(path);
  const auto isTaken = [&](const std::string& name) {
    return files.itemExistsAtPath(appendingPathComponent(folder, name));
  };
  return appendingPathComponent(folder, nextFreeName(lastPathComponent(path), isTaken));
}

}  // namespace tervano
