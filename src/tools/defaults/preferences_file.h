#pragma once

#include <optional>
#include <string>

#include "archive/value.h"
#include "platform/error.h"
#include "platform/linux/descriptor.h"

namespace tervano {

// The file of a domain in our own defaults stores (PlistDefaultsStores), changed under the lock
// that the stores take. Blocking.
class PreferencesFile {
 public:
  explicit PreferencesFile(const std::string& domain);

  // Reads the file, and holds its lock from then on when there is one; an error when there is one
  // that cannot be read.
  std::optional<Error> open();
  // The bytes as open() found them; nil when there is no file.
  const std::optional<Data>& contents() const { return contents_; }
  // Removes what open() has read and gives the lock up.
  std::optional<Error> remove();

  // Puts every key of `former`, a property list with a dictionary, into the file, which is made
  // when there is none; its other keys stay.
  std::optional<Error> merge(const Data& former);

 private:
  std::optional<Error> lock();
  std::optional<Error> read();

  const std::string path_;
  const std::string lockPath_;
  Descriptor lock_;
  std::optional<Data> contents_;
};

}  // namespace tervano
