#pragma once

#include <string>

#include "tools/remove/item_removal.h"
#include "tools/remove/report.h"
#include "tools/remove/worker_pool.h"

namespace tervano {

struct RemovalOptions {
  bool isForced = false;
  bool isRecursive = false;
  bool overwrites = false;
};

// Removes paths, several files at once, and reports what was removed and what was not. Contents
// come first, then the emptied folders from the inside out. A failure stops nothing else.
//
// Refused are "/", ".", ".." and everything that something is mounted on. Symbolic links are
// removed and never followed, except in front of a path's last component. Whoever changes the tree
// meanwhile can make removals fail, but never lead them out of the tree.
class Removal {
 public:
  Removal(const RemovalOptions& options, Report& report);

  // A folder is gone when this returns, a file at the latest when this object ends.
  void remove(const std::string& path);

 private:
  class Contents;
  class Folders;

  const RemovalOptions options_;
  Report& report_;
  IncompleteFolders incomplete_;
  ItemRemoval items_;
  // The last member: its end waits for work that uses the others.
  WorkerPool pool_;
};

}  // namespace tervano
