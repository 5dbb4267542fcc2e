#include "companion/companion_settings.h"

#include <sstream>
#include <vector>

#include "archive/url.h"
#include "companion/action_store.h"
#include "platform/file_coordinator.h"
#include "platform/file_manager.h"
#include "platform/linux/user_folders.h"
#include "platform/platform.h"

namespace tervano {

namespace {

constexpr char kSettingBlanks[] = " \t\r";

std::string settingsPath() {
  return configHomeFolder() + "/tervano/companion.conf";
}

std::string trimmedSetting(const std::string& text) {
  const auto begin = text.find_first_not_of(kSettingBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kSettingBlanks) - begin + 1);
}

std::vector<std::string> settingsLines() {
  const auto bytes = platform().fileManager->contentsAtPath(settingsPath());
  if (!bytes) return {};
  std::istringstream text(std::string(bytes->begin(), bytes->end()));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

// The name in "[name]"; nil for any other line.
std::optional<std::string> sectionOfLine(const std::string& line) {
  const std::string text = trimmedSetting(line);
  if (!text.starts_with("[") || !text.ends_with("]")) return std::nullopt;
  return trimmedSetting(text.substr(1, text.size() - 2));
}

// Nil for a comment, a section or an empty line.
std::optional<std::pair<std::string, std::string>> settingOfLine(const std::string& line) {
  const std::string text = trimmedSetting(line);
  const auto equals = text.find('=');
  if (text.starts_with("#") || equals == std::string::npos || sectionOfLine(line)) {
    return std::nullopt;
  }
  return std::pair(trimmedSetting(text.substr(0, equals)), trimmedSetting(text.substr(equals + 1)));
}

std::vector<std::string> changedLines(const std::vector<std::string>& lines,
                                      const std::string& section, const std::string& key,
                                      const std::optional<std::string>& value) {
  std::vector<std::string> changed;
  std::string current;
  // Behind the last setting of the section.
  std::optional<std::size_t> place;
  for (const auto& line : lines) {
    if (const auto name = sectionOfLine(line)) current = *name;
    const auto setting = settingOfLine(line);
    if (current == section && setting && setting->first == key) continue;
    changed.push_back(line);
    if (current == section && !trimmedSetting(line).empty()) place = changed.size();
  }
  if (!value) return changed;
  if (!place) {
    changed.push_back("[" + section + "]");
    place = changed.size();
  }
  changed.insert(changed.begin() + static_cast<std::ptrdiff_t>(*place), key + " = " + *value);
  return changed;
}

}  // namespace

std::map<std::string, std::string> companionSettings(const std::string& section) {
  std::map<std::string, std::string> settings;
  std::string current;
  for (const auto& line : settingsLines()) {
    if (const auto name = sectionOfLine(line)) {
      current = *name;
    } else if (auto setting = settingOfLine(line); setting && current == section) {
      settings[setting->first] = setting->second;
    }
  }
  return settings;
}

void setCompanionSetting(const std::string& section, const std::string& key,
                         const std::optional<std::string>& value) {
  const std::string path = settingsPath();
  auto& files = *platform().fileManager;
  auto error = files.createDirectoryAtPath(deletingLastPathComponent(path), true);
  if (!error) {
    std::optional<Error> unwritten;
    error = platform().fileCoordinator->coordinateWriting(path, [&](const std::string& file) {
      std::optional<Error> unreadable;
      // What cannot be read is not replaced.
      if (!files.contentsAtPath(file, &unreadable) && files.itemExistsAtPath(file)) {
        unwritten = unreadable;
        return;
      }
      std::string text;
      for (const auto& line : changedLines(settingsLines(), section, key, value)) {
        text += line + "\n";
      }
      unwritten = files.writeDataToFile(Data(text.begin(), text.end()), file, true);
    });
    if (!error) error = unwritten;
  }
  if (error) throw CommandError(tr("The setting could not be saved: {1}", error->message));
}

std::size_t queueLimitOf(const std::string& actionUid) {
  if (actionUid.empty()) return 0;
  const auto settings = companionSettings(kQueueSection);
  const auto found = settings.find(actionUid);
  return found == settings.end() ? 0 : queueLimitOfWord(found->second).value_or(0);
}

std::optional<std::size_t> queueLimitOfWord(const std::string& word) {
  constexpr std::size_t kMaximumDigits = 2;
  if (word == "one") return 1;
  if (word.empty() || word.size() > kMaximumDigits || word.front() == '0' ||
      word.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  return std::stoul(word);
}

}  // namespace tervano
