#include "platform/linux/folder_bundle.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "archive/platform_exception.h"
#include "archive/property_list.h"
#include "archive/url.h"
#include "archive/value.h"
#include "platform/file_manager.h"
#include "platform/file_name.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/regular_file.h"
#include "platform/linux/workspace_error.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr off_t kLargestInformationList = off_t{16} << 20;

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

std::optional<std::string> bundleInformation(const std::string& bundlePath, const char* key) {
  const Descriptor folder(
      open(bundlePath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
  if (!folder) return std::nullopt;
  auto bytes = contentsOfRegularFile("Contents/Info.plist", kLargestInformationList, folder.get());
  if (!bytes && (errno == ENOENT || errno == ENOTDIR)) {
    bytes = contentsOfRegularFile("Info.plist", kLargestInformationList, folder.get());
  }
  if (!bytes) return std::nullopt;
  try {
    const Value list = propertyListWithData(*bytes);
    const Value* const value = list.find(key);
    const auto* const text = value == nullptr ? nullptr : value->getIf<std::string>();
    if (text != nullptr && !text->empty()) return *text;
  } catch (const PlatformException&) {
    // A damaged list names nothing.
  }
  return std::nullopt;
}

std::optional<std::string> bundleExecutable(const std::string& bundlePath, Error& error) {
  const std::string folder = bundlePath + "/Contents/MacOS";
  std::string name = bundleInformation(bundlePath, "CFBundleExecutable").value_or("");
  if (name.empty()) {
    name = lastPathComponent(bundlePath);
    name.resize(name.rfind('.'));
    const auto names = platform().fileManager->contentsOfDirectoryAtPath(folder);
    if (!isRegularFile(appendingPathComponent(folder, name)) && names.size() == 1) {
      name = names.front();
    }
  }
  const std::string path = appendingPathComponent(folder, name);
  if (!isFileName(name) || !isRegularFile(path)) {
    error = workspaceError("\"" + bundlePath + "\" has no program");
    return std::nullopt;
  }
  return path;
}

}  // namespace tervano
