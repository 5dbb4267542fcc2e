#pragma once

#include <optional>
#include <string>

#include "platform/error.h"

namespace tervano {

// Applications that are "*.app" folders with an information list, "Contents/Info.plist" or
// "Info.plist". Reads files; any thread.

// The string under a key of the bundle's information list; nil when there is none.
std::optional<std::string> bundleInformation(const std::string& bundlePath, const char* key);

// The bundle's program: the file in "Contents/MacOS" that "CFBundleExecutable" names; without that
// key, the one named like the bundle, else the only one. Nil, with the reason in `error`, when
// there is none.
std::optional<std::string> bundleExecutable(const std::string& bundlePath, Error& error);

}  // namespace tervano
