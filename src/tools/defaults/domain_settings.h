#pragma once

#include <string>
#include <vector>

#include "tools/defaults/settings_database.h"
#include "tools/defaults/settings_schemas.h"

namespace tervano {

// What a domain has in the settings database.
struct DomainSettings {
  // A schema of the domain is installed, or the database holds something of it.
  bool isKnown = false;
  // What the user set and may reset.
  Settings resettable;
  // The keys that the user set once and that are locked now.
  std::vector<std::string> locked;
};

// Finds the settings of a domain:
// - the keys of its schemas (domainOwnsSchema);
// - every key below the folder that the domain's name spells, such as /org/gnome/gedit/ in any
//   case, and below the paths of its schemas: relocatable instances, and keys that no schema
//   declares. A schema's path of fewer than three parts is searched only below /apps/, since
//   others may live under it.
// Left out there is what belongs to another application: keys at and below the path of a schema
// that is not the domain's.
DomainSettings settingsOfDomain(const std::string& domain,
                                const std::vector<SettingsSchema>& schemas,
                                const SettingsDatabase& database);

}  // namespace tervano
