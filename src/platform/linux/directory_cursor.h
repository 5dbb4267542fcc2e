#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/linux/descriptor.h"

namespace tervano {

// A place in a tree of folders that is walked by descriptors, so that no path is ever too long and
// no symbolic link is followed. Holds a bounded number of descriptors however deep it is. Functions
// answer false with errno set.
class DirectoryCursor {
 public:
  // Begins in the folder `name` of `parent`.
  bool begin(int parent, const std::string& name);
  bool enter(const std::string& name);
  // Back to the folder above. Fails (ESTALE) when the current one was moved away meanwhile.
  bool leave();

  // The folder it is in.
  int current() const { return levels_.back().folder.get(); }
  // How many folders lie above, within the tree.
  std::size_t depth() const { return levels_.size() - 1; }

 private:
  struct Level {
    Descriptor folder;
    dev_t device;
    ino_t inode;
  };
  bool push(Descriptor folder);

  std::vector<Level> levels_;
};

// A name in a folder with its type as readdir(3) gives it (DT_UNKNOWN when the file system does not
// tell).
struct DirectoryEntry {
  std::string name;
  unsigned char type;
};

// Reads the names in an open folder, without "." and "..". False with errno set on failure.
bool readEntries(int folder, std::vector<DirectoryEntry>& entries);

// Whether something is mounted on that name.
bool isMountPoint(int parent, const std::string& name);
// Whether the open item is where a mount begins.
bool isMountRoot(int item);

// Whether the open folder is the folder that `status` describes or lies below it.
bool isSameOrBelow(int folder, const struct stat& status);

}  // namespace tervano
