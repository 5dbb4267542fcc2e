#pragma once

#include <string>
#include <string_view>

namespace tervano {

// Operations on the bytes of a path; nothing is looked up on the disk. Any thread.

// The path without empty and "." components and without slashes at its end. Of an absolute path,
// ".." takes the component before it away as it is spelled, so after a symbolic link it names the
// folder of the link; above "/" it is dropped. A relative path keeps each "..", and a "." at its
// beginning. "~" is a name like any other.
std::string standardizingPath(std::string_view path);

// The path without its last extension and the dot before it, and without slashes at its end. What
// counts as an extension is what `pathExtension` answers: a name whose only dot is its first
// character has none.
std::string deletingPathExtension(std::string_view path);

// The path without slashes at its end, a dot and the extension; of an empty extension neither.
std::string appendingPathExtension(std::string_view path, std::string_view extension);

}  // namespace tervano
