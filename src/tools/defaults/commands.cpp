#include "tools/defaults/commands.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <vector>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/stderr_log.h"
#include "tools/defaults/backup.h"
#include "tools/defaults/domain.h"
#include "tools/defaults/domain_settings.h"
#include "tools/defaults/preferences_file.h"

namespace tervano {

namespace {

// A name from outside in a sentence.
std::string shown(const std::string& name) {
  constexpr std::size_t kLongest = 100;
  if (name.size() <= kLongest) return name;
  std::size_t length = kLongest;
  while ((static_cast<unsigned char>(name[length]) & 0xC0) == 0x80 && length > 0) --length;
  return name.substr(0, length) + "...";
}

std::string shown(const std::vector<std::string>& keys) {
  constexpr std::size_t kMost = 20;
  std::string text;
  for (std::size_t index = 0; index < std::min(keys.size(), kMost); ++index) {
    text += (index == 0 ? "" : ", ") + shown(keys[index]);
  }
  if (keys.size() > kMost) text += " and " + std::to_string(keys.size() - kMost) + " more";
  return text;
}

// A path as a word of a command line.
std::string asWord(const std::string& path) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789%+,-./:=@_";
  if (path.find_first_not_of(kPlain) == std::string::npos) return path;
  return GCharPtr(g_shell_quote(path.c_str())).get();
}

std::string ownPath() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "tervano-defaults" : path.string();
}

int fail(const std::string& sentence) {
  complain(sentence);
  return kExitFailure;
}

// Why settings of this session cannot be changed; nil when they can. Without anything to change the
// service is not asked.
std::optional<std::string> obstacleTo(const Settings& changes, SettingsDatabase& database) {
  if (const auto other = SettingsDatabase::otherBackend()) {
    return "this session does not keep settings in dconf but in " + *other;
  }
  return changes.empty() ? std::nullopt : database.reachService();
}

// Takes the keys out of `settings` of which `leave` says so.
template <typename Predicate>
std::vector<std::string> takeOut(Settings& settings, const Predicate& leave) {
  std::vector<std::string> keys;
  for (auto setting = settings.begin(); setting != settings.end();) {
    if (leave(*setting)) {
      keys.push_back(setting->first);
      setting = settings.erase(setting);
    } else {
      ++setting;
    }
  }
  return keys;
}

}  // namespace

void complain(const std::string& sentence) {
  std::string line = "tervano-defaults: " + StderrLog::escaped(sentence);
  if (!line.ends_with('.')) line += '.';
  line += '\n';
  // Nobody is left to tell of a failure.
  static_cast<void>(writeFully(STDERR_FILENO, line.data(), line.size()));
}

bool print(const std::string& text) {
  if (writeFully(STDOUT_FILENO, text.data(), text.size())) return true;
  complain(posixError(errno, "Could not write to standard output").message);
  return false;
}

int deleteDomain(const std::string& domain) {
  const std::string name = "Domain (" + shown(domain) + ") ";
  if (const auto refusal = refusalOfDomain(domain); !refusal.empty()) return fail(name + refusal);

  PreferencesFile preferences(domain);
  if (const auto error = preferences.open()) return fail("Nothing was reset: " + error->message);
  SettingsDatabase database;
  DomainSettings settings = settingsOfDomain(domain, installedSettingsSchemas(), database);
  if (!settings.isKnown && !preferences.contents()) {
    return fail(name + "not found: no settings and no preferences are known by that name");
  }

  bool hasFailed = false;
  if (settings.isKnown) {
    if (const auto obstacle = obstacleTo(settings.resettable, database)) {
      complain("The settings of " + domain + " could not be reset: " + *obstacle);
      hasFailed = true;
      settings = {};
    }
  }
  const auto unsaved = takeOut(settings.resettable, [](const auto& setting) {
    return !canBackUp(setting.first, setting.second.get());
  });

  if (!settings.resettable.empty() || preferences.contents()) {
    const Backup backup{domain, std::move(settings.resettable), preferences.contents()};
    std::string folder;
    if (const auto error = writeBackup(backup, folder)) {
      return fail("Nothing was reset, since there is no backup: " + error->message);
    }
    hasFailed |= !print("Backed up to " + asWord(folder) + ". To restore: " + asWord(ownPath()) +
                        " restore " + asWord(folder) + "\n");
    if (preferences.contents()) {
      if (const auto error = preferences.remove()) {
        complain(error->message);
        hasFailed = true;
      }
    }
    if (const auto reason = database.reset(backup.settings)) {
      complain("The settings of " + domain + " could not be reset: " + *reason);
      hasFailed = true;
    }
  }
  if (!settings.locked.empty()) {
    complain("Locked settings could not be reset: " + shown(settings.locked));
    hasFailed = true;
  }
  if (!unsaved.empty()) {
    complain("Settings that cannot be backed up were not reset: " + shown(unsaved));
    hasFailed = true;
  }
  return hasFailed ? kExitFailure : kExitSuccess;
}

int restoreBackup(const std::string& folder) {
  std::string reason;
  auto backup = readBackup(folder, reason);
  if (!backup) return fail(shown(folder) + " " + reason);

  bool hasFailed = false;
  SettingsDatabase database;
  if (!backup->settings.empty()) {
    if (const auto obstacle = obstacleTo(backup->settings, database)) {
      complain("The settings of " + backup->domain + " could not be restored: " + *obstacle);
      hasFailed = true;
      backup->settings.clear();
    }
  }
  const auto locked = takeOut(backup->settings, [&database](const auto& setting) {
    return !database.isWritable(setting.first);
  });
  if (const auto failure = database.set(backup->settings)) {
    complain("The settings of " + backup->domain + " could not be restored: " + *failure);
    hasFailed = true;
  }
  if (backup->preferences) {
    if (const auto error = PreferencesFile(backup->domain).merge(*backup->preferences)) {
      complain(error->message);
      hasFailed = true;
    }
  }
  if (!locked.empty()) {
    complain("Locked settings could not be restored: " + shown(locked));
    hasFailed = true;
  }
  return hasFailed ? kExitFailure : kExitSuccess;
}

}  // namespace tervano
