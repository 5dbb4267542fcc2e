#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/linux/secret.h"
#include "platform/work_observer.h"

namespace tervano {

// A file, link or folder that goes into an archive with all that lies in it.
struct PackedItem {
  // Absolute.
  std::string path;
  // Its name in the archive: one component, another one for each item.
  std::string name;
};

// What a reader of the archive should know besides.
struct PackReport {
  // Sockets, pipes and devices, which have no content that an archive could hold.
  std::vector<std::string> leftOut;
  // What has another name in the archive, which holds only names in UTF-8: the bytes of the others
  // that are not ASCII are spelled %XX.
  std::vector<std::string> respelled;
  // The items themselves, not what lies in them, that are symbolic links.
  std::vector<std::string> links;
};

// Where an archive is written to.
struct ArchivePlace {
  // Open for writing, empty, not closed here.
  int descriptor;
  // What messages call it.
  std::string path;
};

// Writes the items to a ZIP file whose contents are encrypted with AES-256 under the password,
// which is not empty. Names, sizes, dates and the targets of symbolic links are not: the format
// has no way to hide them. Links are packed as links and never followed, folders with their modes
// and dates; hard links as files of their own. Files and archives of any size (ZIP64).
//
// An item that cannot be read, changes while it is read, or on which something is mounted is an
// error; then, as after a stop by `observer`, the file is incomplete and for the caller to remove.
// The archive's own file is passed over. Blocking; any thread.
std::optional<Error> packZip(const std::vector<PackedItem>& items, const ArchivePlace& archive,
                             const Secret& password, WorkObserver& observer, PackReport& report);

}  // namespace tervano
