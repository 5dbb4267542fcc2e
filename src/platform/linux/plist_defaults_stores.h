#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/defaults_stores.h"

namespace tervano {

// Defaults stores as files: each suite is one binary property list,
// $XDG_CONFIG_HOME/tervano/SUITE.plist (escapedFileName), of mode 0600.
//
// A write takes the lock file ".SUITE.lock" beside it, reads the file anew when it changed, changes
// only the keys that this store object set or removed, and renames a new file over the old one. It
// is not flushed to the disk: a power cut may lose the last moments of changes, never the file. A
// reader reads the file again only when it is another one (inode, size, and a time in nanoseconds
// that every write sets to a new value). The stores of one process share what was read.
//
// A file that cannot be read or is damaged counts as empty, which is logged once; the next write
// sets it aside as SUITE.plist.broken rather than losing it.
class PlistDefaultsStores : public DefaultsStores {
 public:
  // The suite of standardUserDefaults.
  explicit PlistDefaultsStores(std::string applicationIdentifier);
  ~PlistDefaultsStores() override;

  std::shared_ptr<DefaultsStore> initWithSuiteName(const std::string& suiteName) override;
  std::shared_ptr<DefaultsStore> standardUserDefaults() override;

  // Where a suite's values are.
  static std::string pathForSuiteName(const std::string& suiteName);
  // The file that whoever changes those values holds locked (flock) meanwhile.
  static std::string lockPathForSuiteName(const std::string& suiteName);

 private:
  class SuiteFile;
  class Store;

  std::shared_ptr<SuiteFile> fileForSuiteName(const std::string& suiteName);

  const std::string applicationIdentifier_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<SuiteFile>> files_;
  std::shared_ptr<DefaultsStore> standard_;
};

}  // namespace tervano
