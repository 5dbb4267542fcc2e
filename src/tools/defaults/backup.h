#pragma once

#include <optional>
#include <string>

#include "archive/value.h"
#include "platform/error.h"
#include "tools/defaults/settings_database.h"

namespace tervano {

// What a reset takes away; on disk a folder, $XDG_DATA_HOME/tervano/backups/defaults/DOMAIN-TIME,
// as docs/formats.md tells.
struct Backup {
  std::string domain;
  Settings settings;
  // The bytes of the preferences file.
  std::optional<Data> preferences;
};

// Whether the text form of a setting stands for exactly this key and value.
bool canBackUp(const std::string& key, GVariant* value);

// Makes a new folder (0700) with files (0600) of a backup whose settings can all be backed up.
// Everything is flushed to the disk when this answers; after an error nothing stays. `folder`
// receives the path.
std::optional<Error> writeBackup(const Backup& backup, std::string& folder);

// Reads a backup; nil with a sentence's end in `reason` when the folder is none or is damaged.
std::optional<Backup> readBackup(const std::string& folder, std::string& reason);

}  // namespace tervano
