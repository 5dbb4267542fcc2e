#include "tools/defaults/backup.h"

#include <dconf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <string_view>

#include "archive/utf.h"
#include "platform/linux/regular_file.h"
#include "platform/linux/user_folders.h"
#include "tools/defaults/domain.h"

namespace tervano {

namespace {

constexpr char kSettingsFile[] = "settings.dconf";
constexpr char kPreferencesFile[] = "preferences.plist";
// Written last: a folder without it is no whole backup.
constexpr char kDomainFile[] = "domain";
constexpr std::array<const char*, 3> kFiles = {kSettingsFile, kPreferencesFile, kDomainFile};
constexpr off_t kLargestBackup = off_t{256} << 20;
constexpr int kMostBackupsInASecond = 1000;

// A key of the database as the text form has it: a folder without its outer slashes, and a name.
struct Place {
  std::string group;
  std::string name;
};

Place placeOf(const std::string& key) {
  const auto slash = key.rfind('/');
  return {slash == 0 ? "/" : key.substr(1, slash - 1), key.substr(slash + 1)};
}

std::string keyAt(const std::string& group, const std::string& name) {
  return group == "/" ? "/" + name : "/" + group + "/" + name;
}

bool isPlain(std::string_view text) {
  return isValidUtf8(text) && !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
           return static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '[' || c == ']';
         });
}

void put(GKeyFile* file, const std::string& key, GVariant* value) {
  const Place place = placeOf(key);
  const GCharPtr text(g_variant_print(value, TRUE));
  g_key_file_set_value(file, place.group.c_str(), place.name.c_str(), text.get());
}

std::string textOf(GKeyFile* file) {
  gsize length = 0;
  const GCharPtr text(g_key_file_to_data(file, &length, nullptr));
  return {text.get(), length};
}

std::string messageOf(GError* failure) {
  const GErrorPtr error(failure);
  return error->message;
}

// Nil with `reason` set.
std::optional<Settings> settingsOfText(const char* text, std::size_t length, std::string& reason) {
  const GKeyFilePtr file(g_key_file_new());
  GError* failure = nullptr;
  if (!g_key_file_load_from_data(file.get(), text, length, G_KEY_FILE_KEEP_TRANSLATIONS,
                                 &failure)) {
    reason = messageOf(failure);
    return std::nullopt;
  }
  Settings settings;
  gchar** const groups = g_key_file_get_groups(file.get(), nullptr);
  for (gchar** group = groups; *group != nullptr && reason.empty(); ++group) {
    gchar** const names = g_key_file_get_keys(file.get(), *group, nullptr, nullptr);
    for (gchar** name = names; names != nullptr && *name != nullptr && reason.empty(); ++name) {
      const std::string key = keyAt(*group, *name);
      const GCharPtr value(g_key_file_get_value(file.get(), *group, *name, nullptr));
      if (!dconf_is_key(key.c_str(), &failure)) {
        reason = messageOf(failure);
        break;
      }
      GVariantPtr parsed(g_variant_parse(nullptr, value.get(), nullptr, nullptr, &failure));
      if (parsed == nullptr) {
        reason = key + ": " + messageOf(failure);
        break;
      }
      settings.insert_or_assign(key, std::move(parsed));
    }
    g_strfreev(names);
  }
  g_strfreev(groups);
  if (!reason.empty()) return std::nullopt;
  return settings;
}

std::string timestamp() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts)};
}

// Some file systems cannot flush a folder.
bool flush(int descriptor) {
  return fsync(descriptor) == 0 || errno == EINVAL;
}

bool flushFolder(const std::string& path) {
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && flush(folder.get());
}

// Makes a folder with those above it, so that they outlive a power cut.
bool makeFolders(const std::string& path) {
  if (mkdir(path.c_str(), 0700) != 0) {
    if (errno == EEXIST) return true;
    const auto slash = path.rfind('/');
    if (errno != ENOENT || slash == 0 || !makeFolders(path.substr(0, slash))) return false;
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  return flushFolder(path.substr(0, path.rfind('/') + 1));
}

// A folder of a name that was free; empty with errno set.
std::string makeBackupFolder(const std::string& parent, const std::string& domain) {
  const std::string path = parent + "/" + escapedFileName(domain) + "-" + timestamp();
  for (int number = 1; number <= kMostBackupsInASecond; ++number) {
    std::string candidate = number == 1 ? path : path + "-" + std::to_string(number);
    if (mkdir(candidate.c_str(), 0700) == 0) return candidate;
    if (errno != EEXIST) break;
  }
  return {};
}

bool writeFile(int folder, const char* name, std::string_view bytes) {
  const Descriptor file(
      openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  return file && writeFully(file.get(), bytes.data(), bytes.size()) && flush(file.get());
}

bool writeFiles(int folder, const Backup& backup) {
  if (!backup.settings.empty()) {
    const GKeyFilePtr file(g_key_file_new());
    for (const auto& [key, value] : backup.settings) put(file.get(), key, value.get());
    if (!writeFile(folder, kSettingsFile, textOf(file.get()))) return false;
  }
  if (backup.preferences) {
    const auto& bytes = *backup.preferences;
    if (!writeFile(folder, kPreferencesFile,
                   {reinterpret_cast<const char*>(bytes.data()), bytes.size()})) {
      return false;
    }
  }
  return writeFile(folder, kDomainFile, backup.domain) && flush(folder);
}

}  // namespace

bool canBackUp(const std::string& key, GVariant* value) {
  const Place place = placeOf(key);
  if (!isPlain(place.group) || !isPlain(place.name) || place.name.find('=') != std::string::npos ||
      place.name.starts_with('#') || place.name.starts_with(' ') || place.name.ends_with(' ')) {
    return false;
  }
  const GKeyFilePtr file(g_key_file_new());
  put(file.get(), key, value);
  const std::string text = textOf(file.get());
  std::string reason;
  const auto settings = settingsOfText(text.data(), text.size(), reason);
  if (!settings || settings->size() != 1) return false;
  const auto& [readKey, readValue] = *settings->begin();
  return readKey == key && g_variant_equal(readValue.get(), value) != FALSE;
}

std::optional<Error> writeBackup(const Backup& backup, std::string& folder) {
  const std::string parent = dataHomeFolder() + "/tervano/backups/defaults";
  if (!makeFolders(parent)) return posixError(errno, "Could not make the folder " + parent);
  folder = makeBackupFolder(parent, backup.domain);
  if (folder.empty()) return posixError(errno, "Could not make a folder in " + parent);
  const Descriptor open(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (open && writeFiles(open.get(), backup) && flushFolder(parent)) return std::nullopt;
  auto error = posixError(errno, "Could not write to " + folder);
  for (const char* name : kFiles) unlinkat(open.get(), name, 0);
  rmdir(folder.c_str());
  return error;
}

std::optional<Backup> readBackup(const std::string& folder, std::string& reason) {
  const Descriptor open(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
  const auto domain = contentsOfRegularFile(kDomainFile, kLongestDomain, open.get());
  if (!open || !domain) {
    reason = "is no backup of this program";
    return std::nullopt;
  }
  Backup backup;
  backup.domain.assign(domain->begin(), domain->end());
  if (!refusalOfDomain(backup.domain).empty()) {
    reason = "is damaged: it names no application";
    return std::nullopt;
  }
  const auto settings = contentsOfRegularFile(kSettingsFile, kLargestBackup, open.get());
  if (!settings && errno != ENOENT) {
    reason = "cannot be read: " + posixError(errno, kSettingsFile).message;
    return std::nullopt;
  }
  if (settings) {
    auto read =
        settingsOfText(reinterpret_cast<const char*>(settings->data()), settings->size(), reason);
    if (!read) {
      reason = "is damaged: " + reason;
      return std::nullopt;
    }
    backup.settings = std::move(*read);
  }
  backup.preferences = contentsOfRegularFile(kPreferencesFile, kLargestBackup, open.get());
  if (!backup.preferences && errno != ENOENT) {
    reason = "cannot be read: " + posixError(errno, kPreferencesFile).message;
    return std::nullopt;
  }
  return backup;
}

}  // namespace tervano
