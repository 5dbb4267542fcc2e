#pragma once

#include <map>
#include <optional>
#include <string>

namespace tervano {

// The companion's own settings: $XDG_CONFIG_HOME/tervano/companion.conf, sections of lines
// "key = value" (docs/formats.md). What it does not know stays in the file. Keys and values are
// one line each, a key has no "=". Blocking.

// All of a section; empty when there is none, or the file cannot be read.
std::map<std::string, std::string> companionSettings(const std::string& section);
// Nil removes it. Throws CommandError when it could not be saved.
void setCompanionSetting(const std::string& section, const std::string& key,
                         const std::optional<std::string>& value);

// The section of the queue policies: a uid and how many requests of that action run at once.
inline constexpr char kQueueSection[] = "queue";
// The policy of an action; 0 for any number.
std::size_t queueLimitOf(const std::string& actionUid);
// How many a word of the settings or of the command line allows: "one" or a number from 1 to 99.
std::optional<std::size_t> queueLimitOfWord(const std::string& word);

}  // namespace tervano
