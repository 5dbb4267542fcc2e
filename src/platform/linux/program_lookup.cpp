#include "platform/linux/program_lookup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace tervano {

namespace {

constexpr char kDefaultSearchPath[] = "/usr/local/bin:/usr/bin:/bin";

}  // namespace

std::optional<std::string> programInPath(std::string_view name) {
  const char* variable = std::getenv("PATH");
  std::string_view folders = variable == nullptr ? kDefaultSearchPath : variable;
  while (true) {
    const auto end = std::min(folders.find(':'), folders.size());
    const std::string_view folder = folders.substr(0, end);
    if (folder.starts_with("/")) {
      std::string path = std::string(folder).append("/").append(name);
      struct stat status {};
      if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
          faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0) {
        return path;
      }
    }
    if (end == folders.size()) return std::nullopt;
    folders.remove_prefix(end + 1);
  }
}

}  // namespace tervano
