#include "platform/linux/user_folders.h"

#include <fcntl.h>
#include <glib.h>
#include <pwd.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string_view>

namespace tervano {

namespace {

constexpr std::size_t kLongestFileName = 200;

std::optional<std::string> absoluteVariable(const char* name) {
  const char* const value = std::getenv(name);
  if (value == nullptr || value[0] != '/') return std::nullopt;
  std::string path(value);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string accountHome() {
  std::vector<char> buffer(16384);
  passwd account{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &account, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
    return found->pw_dir;
  }
  return "/";
}

bool isOwnFolder(const struct stat& status, mode_t forbidden) {
  return S_ISDIR(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & forbidden) == 0;
}

Descriptor openFolder(int parent, const std::string& name, bool create, mode_t forbidden) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  Descriptor folder(openat(parent, name.c_str(), kFlags));
  if (!folder && errno == ENOENT && create) {
    if (mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) return {};
    folder.reset(openat(parent, name.c_str(), kFlags));
  }
  struct stat status {};
  if (!folder || fstat(folder.get(), &status) != 0) return {};
  if (!isOwnFolder(status, forbidden)) {
    folder.reset();
    errno = EPERM;
  }
  return folder;
}

// The quoted text of a shell's assignment: "$HOME/..." or an absolute path; nil for any other.
std::optional<std::string> pathOfAssignment(std::string_view text) {
  if (!text.starts_with('"')) return std::nullopt;
  std::string path;
  for (std::size_t at = 1; at < text.size() && text[at] != '"'; ++at) {
    if (text[at] == '\\' && at + 1 < text.size()) ++at;
    path += text[at];
  }
  constexpr std::string_view kHome = "$HOME";
  if (path.starts_with(kHome)) path = homeFolder() + path.substr(kHome.size());
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (!path.starts_with('/')) return std::nullopt;
  return path;
}

}  // namespace

std::optional<std::string> userDirectory(const std::string& name) {
  std::ifstream file(configHomeFolder() + "/user-dirs.dirs");
  const std::string key = "XDG_" + name + "_DIR=";
  std::optional<std::string> path;
  for (std::string line; std::getline(file, line);) {
    const auto begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line.compare(begin, key.size(), key) != 0) continue;
    // As in a shell, the last one counts.
    if (auto found = pathOfAssignment(std::string_view(line).substr(begin + key.size()))) {
      path = std::move(found);
    }
  }
  return path;
}

std::string homeFolder() {
  return absoluteVariable("HOME").value_or(accountHome());
}

std::string dataHomeFolder() {
  const auto variable = absoluteVariable("XDG_DATA_HOME");
  return variable ? *variable : homeFolder() + "/.local/share";
}

std::string configHomeFolder() {
  const auto variable = absoluteVariable("XDG_CONFIG_HOME");
  return variable ? *variable : homeFolder() + "/.config";
}

std::string stateHomeFolder() {
  const auto variable = absoluteVariable("XDG_STATE_HOME");
  return variable ? *variable : homeFolder() + "/.local/state";
}

std::vector<std::string> dataFolders() {
  std::vector<std::string> folders{dataHomeFolder()};
  const char* const value = std::getenv("XDG_DATA_DIRS");
  std::string_view list =
      value != nullptr && *value != '\0' ? value : "/usr/local/share:/usr/share";
  while (!list.empty()) {
    const auto end = list.find(':');
    const auto folder = list.substr(0, end);
    if (folder.starts_with('/')) folders.emplace_back(folder);
    list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
  }
  return folders;
}

std::vector<RuntimeFolders::Candidate> RuntimeFolders::usable() {
  std::vector<Candidate> candidates;
  const std::string user = std::to_string(geteuid());
  const auto addBase = [&](const std::string& base) {
    struct stat status {};
    const Candidate candidate{base, "tervano", false};
    if (std::find(candidates.begin(), candidates.end(), candidate) == candidates.end() &&
        stat(base.c_str(), &status) == 0 && isOwnFolder(status, S_IWGRP | S_IWOTH)) {
      candidates.push_back(candidate);
    }
  };
  if (const auto variable = absoluteVariable("XDG_RUNTIME_DIR")) addBase(*variable);
  addBase("/run/user/" + user);
  candidates.push_back({"/tmp", "tervano-" + user, true});
  return candidates;
}

Descriptor RuntimeFolders::open(const Candidate& candidate, const std::string& name, bool create) {
  const Descriptor base(::open(candidate.base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!base) return {};
  const mode_t forbidden = candidate.shared ? S_IRWXG | S_IRWXO : S_IWGRP | S_IWOTH;
  const Descriptor folder = openFolder(base.get(), candidate.name, create, forbidden);
  if (!folder) return {};
  return openFolder(folder.get(), name, create, forbidden);
}

std::string escapedFileName(const std::string& name) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string escaped;
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    const bool plain = g_ascii_isalnum(character) || character == '-' || character == '_' ||
                       (character == '.' && !escaped.empty());
    if (plain) {
      escaped += character;
    } else {
      escaped += '%';
      escaped += kDigits[byte >> 4];
      escaped += kDigits[byte & 0xF];
    }
  }
  if (escaped.empty()) return "%";
  if (escaped.size() <= kLongestFileName) return escaped;
  const std::unique_ptr<gchar, decltype(&g_free)> digest(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(name.data()),
                                  name.size()),
      g_free);
  return std::string("%%") + digest.get();
}

std::string unescapedFileName(const std::string& fileName) {
  if (fileName == "%") return "";
  std::string name;
  for (std::size_t index = 0; index < fileName.size(); ++index) {
    if (fileName[index] != '%' || index + 2 >= fileName.size() ||
        !g_ascii_isxdigit(fileName[index + 1]) || !g_ascii_isxdigit(fileName[index + 2])) {
      name += fileName[index];
      continue;
    }
    name += static_cast<char>(g_ascii_xdigit_value(fileName[index + 1]) * 16 +
                              g_ascii_xdigit_value(fileName[index + 2]));
    index += 2;
  }
  return name;
}

std::string randomFileNameSuffix(std::size_t length) {
  static constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz012345";
  static_assert(sizeof kAlphabet == 33);
  std::string suffix(length, '\0');
  std::size_t filled = 0;
  while (filled < length) {
    const ssize_t count = getrandom(suffix.data() + filled, length - filled, 0);
    if (count > 0) filled += static_cast<std::size_t>(count);
  }
  for (char& character : suffix) character = kAlphabet[static_cast<unsigned char>(character) % 32];
  return suffix;
}

}  // namespace tervano
