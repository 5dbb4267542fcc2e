#pragma once

#include <sys/stat.h>

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "platform/error.h"
#include "platform/work_observer.h"

namespace tervano {

// One end of a copy: an item `name` of the open folder `parent`; `path` is what messages call it.
struct TreePlace {
  int parent;
  std::string name;
  std::string path;
};

// The files that a copy has read, as they were, so that a move removes nothing else.
class CopiedItems {
 public:
  void add(const struct stat& status);
  // Whether that file was copied and has the content of then.
  bool contains(const struct stat& status) const;

 private:
  struct Content {
    off_t size;
    std::int64_t seconds;
    std::int64_t nanoseconds;
    friend bool operator==(const Content&, const Content&) = default;
  };
  std::map<std::pair<dev_t, ino_t>, Content> contents_;
};

// Copies an item to a name that does not exist, with everything that belongs to it: contents with
// their holes (as a reflink where both sides share a file system that can), mode, owner where
// permitted (else without set-user-id and set-group-id), times in nanoseconds, extended attributes
// and access lists where the target can hold them, symbolic links as links, hard links among the
// items, pipes, sockets and devices as such. Symbolic links carry no extended attributes.
//
// Nothing is readable by others before it is complete. The contents are flushed to the disk. A file
// that keeps changing while it is read, and a folder on which something is mounted, are errors
// (EBUSY). Trees of any depth, with a bounded number of descriptors.
//
// On failure whatever was made at `target` is removed again. The error's message is the reason,
// after the path of the item unless that is the source itself. `copied`, when given, receives what
// was read; `observer` hears of the bytes and may stop the copy. Blocking; any thread.
std::optional<Error> copyTree(const TreePlace& source, const TreePlace& target,
                              CopiedItems* copied = nullptr, WorkObserver* observer = nullptr);

}  // namespace tervano
