#include "platform/linux/desktop_entry.h"

#include <algorithm>
#include <filesystem>

#include "platform/linux/regular_file.h"
#include "platform/linux/user_folders.h"

namespace tervano {

namespace {

namespace fs = std::filesystem;

constexpr off_t kLargestEntry = off_t{1} << 20;
constexpr std::string_view kExtension = ".desktop";

std::string withoutExtension(std::string name) {
  if (name.ends_with(kExtension)) name.resize(name.size() - kExtension.size());
  return name;
}

// The paths by which the entry may lie in an application folder, the given one first.
std::vector<fs::path> spellingsOf(const fs::path& path) {
  std::vector<fs::path> spellings;
  // ".." behind a symbolic link is not where it seems to be.
  if (std::find(path.begin(), path.end(), "..") == path.end()) {
    spellings.push_back(path.lexically_normal());
  }
  std::error_code error;
  const fs::path folder = fs::canonical(path.parent_path(), error);
  if (!error) spellings.push_back(folder / path.filename());
  const fs::path target = fs::canonical(path, error);
  if (!error) spellings.push_back(target);
  return spellings;
}

}  // namespace

std::optional<DesktopEntry> DesktopEntry::atPath(const std::string& path) {
  const auto bytes = contentsOfRegularFile(path, kLargestEntry);
  if (!bytes) return std::nullopt;
  GKeyFilePtr file(g_key_file_new());
  if (!g_key_file_load_from_data(file.get(), reinterpret_cast<const gchar*>(bytes->data()),
                                 bytes->size(), G_KEY_FILE_KEEP_TRANSLATIONS, nullptr)) {
    return std::nullopt;
  }
  const GCharPtr type(g_key_file_get_string(file.get(), G_KEY_FILE_DESKTOP_GROUP,
                                            G_KEY_FILE_DESKTOP_KEY_TYPE, nullptr));
  if (type == nullptr || std::string_view(type.get()) != G_KEY_FILE_DESKTOP_TYPE_APPLICATION) {
    return std::nullopt;
  }
  return DesktopEntry(std::move(file));
}

std::optional<std::string> DesktopEntry::string(const char* key) const {
  const GCharPtr value(g_key_file_get_string(file_.get(), G_KEY_FILE_DESKTOP_GROUP, key, nullptr));
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value.get();
}

std::optional<bool> DesktopEntry::boolean(const char* key) const {
  GError* failure = nullptr;
  const gboolean value =
      g_key_file_get_boolean(file_.get(), G_KEY_FILE_DESKTOP_GROUP, key, &failure);
  const GErrorPtr error(failure);
  return error == nullptr ? std::optional<bool>(value != FALSE) : std::nullopt;
}

std::optional<std::string> DesktopEntry::localeString(const char* key) const {
  const GCharPtr value(
      g_key_file_get_locale_string(file_.get(), G_KEY_FILE_DESKTOP_GROUP, key, nullptr, nullptr));
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value.get();
}

std::vector<std::string> DesktopEntry::words(const char* key) const {
  const GCharPtr value(g_key_file_get_string(file_.get(), G_KEY_FILE_DESKTOP_GROUP, key, nullptr));
  gint count = 0;
  gchar** words = nullptr;
  if (value == nullptr || !g_shell_parse_argv(value.get(), &count, &words, nullptr)) return {};
  std::vector<std::string> result(words, words + count);
  g_strfreev(words);
  return result;
}

std::string DesktopEntry::identifierAtPath(const std::string& path) {
  std::vector<fs::path> folders;
  for (const auto& dataFolder : dataFolders()) {
    const fs::path folder = fs::path(dataFolder + "/applications").lexically_normal();
    std::error_code error;
    const fs::path resolved = fs::canonical(folder, error);
    folders.push_back(folder);
    if (!error && resolved != folder) folders.push_back(resolved);
  }
  for (const auto& spelling : spellingsOf(path)) {
    for (const auto& folder : folders) {
      const std::string prefix = folder.string() + "/";
      if (!spelling.string().starts_with(prefix)) continue;
      std::string identifier = withoutExtension(spelling.string().substr(prefix.size()));
      std::replace(identifier.begin(), identifier.end(), '/', '-');
      return identifier;
    }
  }
  return withoutExtension(fs::path(path).filename().string());
}

}  // namespace tervano
