#pragma once

#include <functional>
#include <string>

namespace tervano {

// `name` itself unless it is taken, else "name 2.ext", "name 3.ext" and so on, the first that is
// not taken, shortened as vx_nextAvailablePath tells. For names that are not on the disk.
std::string nextFreeName(const std::string& name,
                         const std::function<bool(const std::string&)>& isTaken);

// The stem and the ending as one file name, the stem shortened when it gets longer than 255 bytes.
std::string nameWithEnding(const std::string& stem, const std::string& ending);

// `path` itself when nothing has that name, else a path in the same folder at which nothing exists:
// "name 2.ext", "name 3.ext" and so on, the first that is free. Only the last extension counts as
// one, and a name whose only dot is its first character has none. A dangling link takes its name.
// Trailing slashes are dropped. A name that would get longer than 255 bytes loses the end of its
// stem.
//
// One rule for every action that makes files. Blocking; any thread. Another process may take the
// name before the caller does, so the caller must create without replacing.
std::string vx_nextAvailablePath(const std::string& path);

}  // namespace tervano
