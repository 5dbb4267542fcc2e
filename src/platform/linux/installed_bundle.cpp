#include "platform/linux/installed_bundle.h"

#include <dlfcn.h>
#include <link.h>

#include <array>
#include <filesystem>
#include <string_view>

namespace tervano {

namespace {

namespace fs = std::filesystem;

bool isFolder(const fs::path& path) {
  std::error_code error;
  return fs::is_directory(path, error);
}

bool isFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

std::string prefixOf(const fs::path& codePath) {
  // A module lies at most that deep below its prefix: lib/<triplet>/<manager>/<version>/x.so.
  constexpr int kMaximumDepth = 6;
  fs::path folder = codePath.parent_path();
  for (int depth = 0; depth < kMaximumDepth && folder.has_relative_path(); ++depth) {
    if (isFolder(folder / "share" / "tervano")) return folder.string();
    folder = folder.parent_path();
  }
  if (isFolder(fs::path(TERVANO_BUILD_PREFIX) / "share" / "tervano")) return TERVANO_BUILD_PREFIX;
  return "/usr";
}

bool staysInside(std::string_view name) {
  if (name.empty() || name.front() == '/' || name.find('\0') != std::string_view::npos) {
    return false;
  }
  const fs::path path(name);
  for (const auto& component : path) {
    if (component == "..") return false;
  }
  return true;
}

}  // namespace

std::string pathOfRunningCode() {
  Dl_info information{};
  void* extra = nullptr;
  fs::path path;
  if (dladdr1(reinterpret_cast<const void*>(&pathOfRunningCode), &information, &extra,
              RTLD_DL_LINKMAP) != 0 &&
      extra != nullptr) {
    // The program itself has an empty name in the list of loaded objects.
    path = static_cast<const link_map*>(extra)->l_name;
  }
  std::error_code error;
  const fs::path resolved =
      path.empty() ? fs::read_symlink("/proc/self/exe", error) : fs::canonical(path, error);
  return error ? path.string() : resolved.string();
}

const InstalledBundle::Places& InstalledBundle::places() const {
  std::call_once(placesFound_, [this] {
    const std::string prefix = prefixOf(codePath_.empty() ? pathOfRunningCode() : codePath_);
    places_ = {prefix + "/share/tervano", prefix + "/libexec/tervano"};
  });
  return places_;
}

std::optional<std::string> InstalledBundle::pathForResource(const std::string& name,
                                                            const std::string& type) const {
  const std::string fileName = type.empty() ? name : name + "." + type;
  if (name.empty() || !staysInside(fileName)) return std::nullopt;
  const std::string path = places().resources + "/" + fileName;
  if (!isFile(path)) return std::nullopt;
  return path;
}

std::optional<std::string> InstalledBundle::pathForResource(const std::string& name,
                                                            const std::string& type,
                                                            const std::string& subdirectory) const {
  if (name.empty()) return std::nullopt;
  return pathForResource(subdirectory + "/" + name, type);
}

std::optional<std::string> InstalledBundle::pathForImageNamed(const std::string& name) const {
  if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
  constexpr std::array<const char*, 2> kKinds = {"svg", "png"};
  for (const char* kind : kKinds) {
    if (auto path = pathForResource("icons/" + name, kind)) return path;
  }
  return std::nullopt;
}

std::string InstalledBundle::pathForAuxiliaryExecutable(const std::string& name) const {
  return places().auxiliaryExecutables + "/" + name;
}

}  // namespace tervano
