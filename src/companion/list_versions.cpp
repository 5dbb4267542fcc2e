#include "companion/list_versions.h"

#include <algorithm>

#include "archive/platform_exception.h"
#include "archive/unarchiver.h"
#include "archive/url.h"
#include "extension/hand_off.h"
#include "model/action_list.h"
#include "platform/file_manager.h"
#include "platform/log.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr std::size_t kMaximumDigits = 15;
constexpr char kVersionExtension[] = ".plist";

// Nil where there are no containers.
std::optional<std::string> versionsFolder() {
  const auto container = handOffFolder();
  if (!container) return std::nullopt;
  return appendingPathComponent(*container, "Versions");
}

std::optional<std::uint64_t> numberOfName(const std::string& name) {
  if (!name.ends_with(kVersionExtension)) return std::nullopt;
  const std::string digits =
      name.substr(0, name.size() - std::string_view(kVersionExtension).size());
  if (digits.empty() || digits.size() > kMaximumDigits || digits.front() == '0' ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  return std::stoull(digits);
}

}  // namespace

std::vector<ListVersion> listVersions() {
  std::vector<ListVersion> versions;
  const auto folder = versionsFolder();
  if (!folder) return versions;
  for (const auto& name : platform().fileManager->contentsOfDirectoryAtPath(*folder)) {
    if (const auto number = numberOfName(name)) {
      versions.push_back({*number, appendingPathComponent(*folder, name)});
    }
  }
  std::sort(versions.begin(), versions.end(),
            [](const auto& left, const auto& right) { return left.number > right.number; });
  return versions;
}

std::optional<ActionList> actionsOfVersion(const ListVersion& version) {
  const auto bytes = platform().fileManager->contentsAtPath(version.path);
  if (!bytes) return std::nullopt;
  try {
    const Value root = Unarchiver::unarchiveObjectWithData(*bytes, *platform().classRegistry);
    const auto* array = root.getIf<Value::Array>();
    return array == nullptr ? std::nullopt : std::optional(actionsOfArray(*array));
  } catch (const PlatformException&) {
    return std::nullopt;
  }
}

void keepVersion(const Data& bytes) {
  const auto folder = versionsFolder();
  if (!folder) return;
  auto& files = *platform().fileManager;
  auto versions = listVersions();
  if (!versions.empty() && files.contentsAtPath(versions.front().path) == bytes) return;
  const std::uint64_t number = versions.empty() ? 1 : versions.front().number + 1;
  auto error = files.createDirectoryAtPath(*folder, true);
  if (!error) {
    error = files.writeDataToFile(
        bytes, appendingPathComponent(*folder, std::to_string(number) + kVersionExtension), true);
  }
  if (error) {
    log("Could not keep the former list of actions: " + error->message);
    return;
  }
  // With the new one.
  for (std::size_t i = kKeptVersions - 1; i < versions.size(); ++i) {
    files.removeItemAtPath(versions[i].path);
  }
}

}  // namespace tervano
