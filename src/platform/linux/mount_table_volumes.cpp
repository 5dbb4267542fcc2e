#include "platform/linux/mount_table_volumes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <sstream>

namespace tervano {

namespace {

// File systems that hold no files of a user.
constexpr std::array<std::string_view, 35> kSystemFileSystems = {
    "autofs",      "binder",     "binfmt_misc", "bpf",
    "cgroup",      "cgroup2",    "configfs",    "cpuset",
    "debugfs",     "devpts",     "devtmpfs",    "ecryptfs-system",
    "efivarfs",    "functionfs", "fuse.lxcfs",  "fuse.gvfsd-fuse",
    "fuse.portal", "fusectl",    "hugetlbfs",   "mqueue",
    "nfsd",        "nsfs",       "overlay",     "aufs",
    "proc",        "pstore",     "ramfs",       "resctrl",
    "rpc_pipefs",  "rootfs",     "securityfs",  "selinuxfs",
    "squashfs",    "sysfs",      "tracefs"};

// Folders in which only the system mounts.
constexpr std::array<std::string_view, 13> kSystemFolders = {"/proc",
                                                             "/sys",
                                                             "/dev",
                                                             "/run",
                                                             "/boot",
                                                             "/efi",
                                                             "/etc",
                                                             "/snap",
                                                             "/var/snap",
                                                             "/var/lib/docker",
                                                             "/var/lib/containers",
                                                             "/var/lib/kubelet",
                                                             "/usr"};

bool isInside(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool isBelowHiddenFolder(std::string_view path) {
  return path.find("/.") != std::string_view::npos;
}

// The kernel writes blanks, line ends and backslashes as a backslash and three octal digits.
std::string unescaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  const auto isOctal = [](char digit) { return digit >= '0' && digit <= '7'; };
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
        isOctal(text[i + 3])) {
      result.push_back(static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                         (text[i + 3] - '0')));
      i += 3;
    } else {
      result.push_back(text[i]);
    }
  }
  return result;
}

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  while (!line.empty()) {
    const auto blank = line.find(' ');
    if (blank != 0) fields.push_back(line.substr(0, blank));
    if (blank == std::string_view::npos) break;
    line.remove_prefix(blank + 1);
  }
  return fields;
}

}  // namespace

std::vector<MountTableEntry> mountTableEntries(std::string_view table) {
  constexpr std::size_t kFieldsBeforeOptional = 6;
  std::vector<MountTableEntry> entries;
  while (!table.empty()) {
    const auto end = table.find('\n');
    const auto fields = fieldsOf(table.substr(0, end));
    table.remove_prefix(end == std::string_view::npos ? table.size() : end + 1);
    if (fields.size() < kFieldsBeforeOptional) continue;
    // A single "-" ends the optional fields; the file system's type, source and options follow it.
    const auto separator =
        std::find(fields.begin() + kFieldsBeforeOptional, fields.end(), std::string_view("-"));
    if (separator == fields.end() || separator + 1 == fields.end()) continue;
    MountTableEntry entry;
    const auto number = fields[0];
    if (std::from_chars(number.data(), number.data() + number.size(), entry.identifier).ec !=
        std::errc{}) {
      continue;
    }
    entry.device = fields[2];
    entry.root = unescaped(fields[3]);
    entry.mountPoint = unescaped(fields[4]);
    entry.fileSystem = unescaped(separator[1]);
    if (fields.end() - separator > 2) entry.source = unescaped(separator[2]);
    if (fields.end() - separator > 3) entry.options = unescaped(separator[3]);
    if (!entry.mountPoint.starts_with('/')) continue;
    entries.push_back(std::move(entry));
  }
  return entries;
}

bool isSystemMount(const MountTableEntry& entry) {
  if (entry.mountPoint == "/") return false;
  if (isInside(entry.mountPoint, "/run/media")) return false;
  if (std::find(kSystemFileSystems.begin(), kSystemFileSystems.end(), entry.fileSystem) !=
      kSystemFileSystems.end()) {
    return true;
  }
  return std::any_of(kSystemFolders.begin(), kSystemFolders.end(),
                     [&](std::string_view folder) { return isInside(entry.mountPoint, folder); });
}

std::string mountTableText(const std::string& tablePath) {
  std::ifstream file(tablePath, std::ios::binary);
  std::ostringstream text;
  if (file) text << file.rdbuf();
  return text.str();
}

MountTableVolumes::MountTableVolumes(std::string tablePath) : tablePath_(std::move(tablePath)) {}

std::vector<Url> MountTableVolumes::mountedVolumeURLs(bool skipHidden) const {
  auto entries = mountTableEntries(mountTableText(tablePath_));
  std::vector<std::string> places{"/"};
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& entry = entries[i];
    const bool mountedOver =
        std::any_of(entries.begin() + static_cast<std::ptrdiff_t>(i) + 1, entries.end(),
                    [&](const auto& later) { return later.mountPoint == entry.mountPoint; });
    if (mountedOver || entry.mountPoint == "/") continue;
    if (skipHidden && (isSystemMount(entry) || isBelowHiddenFolder(entry.mountPoint))) continue;
    places.push_back(entry.mountPoint);
  }
  std::vector<Url> urls;
  urls.reserve(places.size());
  for (const auto& place : places) urls.push_back(Url::fileURLWithPath(place, true));
  return urls;
}

}  // namespace tervano
