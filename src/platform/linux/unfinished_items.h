#pragma once

#include <string>
#include <vector>

#include "platform/linux/descriptor.h"

namespace tervano {

// A note of this user that an unfinished item lies under a hidden name somewhere, for as long as it
// does. When the process is killed the note stays, and the next start finds the item by it and
// removes it; so does the next one when the item is still there although the work has ended. Notes
// are files in $XDG_STATE_HOME/tervano/unfinished, locked by the process that works. A note that
// cannot be written does not hold the work up. Move-only; one thread at a time.
class UnfinishedItem {
 public:
  UnfinishedItem() = default;
  // `path` is absolute and begins, after its last slash, with kPrefix; its folder exists.
  explicit UnfinishedItem(const std::string& path);
  UnfinishedItem(UnfinishedItem&& other) noexcept = default;
  UnfinishedItem& operator=(UnfinishedItem&& other) noexcept;
  // The work has ended.
  ~UnfinishedItem();

  // What every hidden name of unfinished work begins with.
  static constexpr char kPrefix[] = ".tervano-";

  // Removes what killed processes left behind, and their notes; answers the paths that were
  // removed. What lies in a folder that is not there now, such as on a disk that was taken out, is
  // kept for another time. Nothing but what a note names, in the very folder of then, is touched.
  // Blocking; any thread.
  static std::vector<std::string> removeLeftOvers();

 private:
  void forget();

  std::string note_;
  std::string path_;
  Descriptor lock_;
};

}  // namespace tervano
