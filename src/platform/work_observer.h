#pragma once

#include <cstdint>
#include <string>

namespace tervano {

// Follows long work on files and may stop it. Every call comes on the thread that works.
class WorkObserver {
 public:
  virtual ~WorkObserver() = default;
  // An unfinished item is about to be made at that absolute path: a hidden name that becomes the
  // item's own when the item is whole. It is gone when the work has ended, however it ended, unless
  // the process was killed.
  virtual void willMakeTemporary(const std::string& path) = 0;
  // So many more bytes of the files' contents were dealt with, holes included.
  virtual void didProcess(std::uint64_t bytes) = 0;
  // Asked often, also inside large files. True stops the work: it ends with the error ECANCELED and
  // leaves nothing behind.
  virtual bool isCancelled() const = 0;
};

}  // namespace tervano
