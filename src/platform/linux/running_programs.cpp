#include "platform/linux/running_programs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace tervano {

namespace {

namespace fs = std::filesystem;

std::string processFolder(pid_t pid) {
  return "/proc/" + std::to_string(pid);
}

bool isOurs(pid_t pid) {
  struct stat status {};
  return stat(processFolder(pid).c_str(), &status) == 0 && status.st_uid == geteuid();
}

// Names of files that are gone end with what the kernel appends.
std::vector<fs::path> loadedFiles(pid_t pid) {
  std::vector<fs::path> paths;
  std::ifstream maps(processFolder(pid) + "/maps");
  for (std::string line; std::getline(maps, line);) {
    // Nothing before the path has one.
    const auto begin = line.find('/');
    if (begin != std::string::npos) paths.emplace_back(line.substr(begin));
  }
  return paths;
}

}  // namespace

std::vector<pid_t> processesOfProgram(const std::string& name) {
  std::vector<pid_t> found;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string number = entry->path().filename();
    pid_t pid = 0;
    const auto [rest, wrong] = std::from_chars(number.data(), number.data() + number.size(), pid);
    if (wrong != std::errc{} || rest != number.data() + number.size() || !isOurs(pid)) continue;
    std::error_code unreadable;
    std::string program = fs::read_symlink(processFolder(pid) + "/exe", unreadable).string();
    // What the kernel appends when the file was replaced.
    constexpr std::string_view kReplaced = " (deleted)";
    if (program.ends_with(kReplaced)) program.resize(program.size() - kReplaced.size());
    if (!unreadable && fs::path(program).filename() == name) found.push_back(pid);
  }
  return found;
}

bool processHasLoaded(pid_t pid, const std::string& fileName) {
  const auto paths = loadedFiles(pid);
  return std::any_of(paths.begin(), paths.end(),
                     [&](const fs::path& path) { return path.filename() == fileName; });
}

bool processHasLoadedFrom(pid_t pid, const std::string& folder) {
  const auto paths = loadedFiles(pid);
  return std::any_of(paths.begin(), paths.end(),
                     [&](const fs::path& path) { return path.parent_path() == folder; });
}

}  // namespace tervano
