#pragma once

#include "platform/file_manager.h"

namespace tervano {

// Tells the current job what was moved, copied, made and removed for it, and its progress while
// contents are copied; a cancelled job moves and copies nothing more (ECANCELED), and what is under
// way stops. Of the items that a move or copy makes under a hidden name there is a note for as long
// as they are unfinished; see UnfinishedItem.
class JobFileManager : public ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;

  std::optional<Error> removeItemAtPath(const std::string& path) override;
  std::optional<Error> copyItemAtPath(const std::string& from, const std::string& to) override;
  std::optional<Error> performCopy(const ItemCopy& copy) override;
  std::optional<Error> setAttributesOfItemAtPath(const FileAttributes& attributes,
                                                 const std::string& path) override;
  std::optional<Error> moveItemAtPath(const std::string& from, const std::string& to) override;
  std::optional<Error> performMove(const ItemMove& move) override;
};

}  // namespace tervano
