#pragma once

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "platform/linux/descriptor.h"
#include "tools/remove/random_bytes.h"
#include "tools/remove/report.h"

namespace tervano {

// An open folder whose items are removed.
class RemovalFolder {
 public:
  // The same folder under a descriptor of its own; null, with errno, when there is none to be had.
  static std::shared_ptr<const RemovalFolder> open(int folder);

  int descriptor() const { return descriptor_.get(); }
  // The errno with which removing an item of that owner would fail, 0 when it would not: asked
  // before contents are overwritten.
  int refusal(uid_t owner) const;

 private:
  explicit RemovalFolder(Descriptor descriptor);

  Descriptor descriptor_;
  int refusal_ = 0;
  // Only those may remove an item who own it (the folder's sticky bit).
  bool needsOwner_ = false;
};

// The folders in which something had to stay and was told of. Any thread.
class IncompleteFolders {
 public:
  void add(int folder);
  // Whether the folder `name` of `parent` is one of them; with an empty name `parent` itself.
  bool contains(int parent, const std::string& name) const;

 private:
  mutable std::mutex mutex_;
  std::set<std::pair<dev_t, ino_t>> folders_;
};

// Removes single items, everything but folders, and reports each; `path` is what the report calls
// the item. An item that is gone already is no failure. Any number of threads.
class ItemRemoval {
 public:
  ItemRemoval(Report& report, IncompleteFolders& incomplete)
      : report_(report), incomplete_(incomplete) {}

  // Removes the name and nothing more.
  void unlink(const RemovalFolder& folder, const std::string& name, const std::string& path);
  // Overwrites the contents of a regular file before it removes its last name. What cannot be
  // overwritten keeps its name.
  void overwriteAndUnlink(const RemovalFolder& folder, const std::string& name,
                          const std::string& path, RandomBytes& random);

 private:
  class Attempt;

  Report& report_;
  IncompleteFolders& incomplete_;
  // Held while a file that has several names loses one, so that one thread sees the last.
  std::mutex names_;
};

}  // namespace tervano
