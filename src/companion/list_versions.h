#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "archive/value.h"
#include "model/tv_action.h"

namespace tervano {

// Former versions of the action list: files "Versions/NUMBER.plist" in the container, in the list's
// own format. Every change made by the companion keeps what it replaces; the last ten are kept.
// Blocking.
struct ListVersion {
  // Counts up by one with each version, so that it names the version for as long as it is kept.
  std::uint64_t number = 0;
  std::string path;
};

inline constexpr std::size_t kKeptVersions = 10;

// The newest first.
std::vector<ListVersion> listVersions();

// The list that the version holds; nil when it cannot be read.
std::optional<ActionList> actionsOfVersion(const ListVersion& version);

// Keeps these bytes of the list's file, and lets go of the oldest versions, unless the newest
// version is the same. A failure is one line in the log: it is no reason not to change the list.
// Under the list's lock.
void keepVersion(const Data& bytes);

}  // namespace tervano
