#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/tv_action.h"

namespace tervano {

// The last folders that files were moved and copied to, kept as ordinary members of the list's
// first move group and first copy group. Off until the user asks for it.
//
// Which members are ours stands in a file of the companion's own. One is ours for as long as it is
// just as it was made: what the user has edited, disabled or put elsewhere is the user's from then
// on and never removed. A folder that the group has already is not added. Changes are made under
// the lock of the list; whatever is killed in between leaves a list that is whole and a file that
// agrees with it. Blocking.

inline constexpr unsigned kDefaultRecentFolders = 5;
inline constexpr unsigned kMostRecentFolders = 30;

// A member that is ours.
struct RecentFolder {
  std::shared_ptr<TVAction> action;
  // "move" or "copy".
  std::string kind;
  std::string path;
};

// How many folders each group keeps; nil while this is off.
std::optional<unsigned> recentFolderLimit();
// Throws CommandError when it cannot be saved. Members beyond a lower limit go, the oldest first;
// switching off leaves all of them.
void setRecentFolderLimit(std::optional<unsigned> limit);

// Those that are ours now, the last used first. Throws CommandError when the list cannot be read.
std::vector<RecentFolder> recentFolders();
// Removes those that are ours from their groups. Throws CommandError.
void clearRecentFolders();

// After a move or copy that succeeded, when this is on: its folder becomes the last used one of the
// group for its kind. Nothing for other actions, and without such a group. A failure is one line in
// the log.
void noteRecentFolder(const TVAction& action);

}  // namespace tervano
