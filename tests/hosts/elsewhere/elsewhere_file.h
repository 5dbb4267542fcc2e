#pragma once

#include <gio/gio.h>

#include <string>

namespace tervano::test {

// A file of another file system that has a path on this machine as well, as one on a server has
// that is mounted here. A new reference.
GFile* newElsewhereFile(const std::string& uri, const std::string& path);

// How often such files were asked for their paths, which real ones may ask a service for.
int pathQuestions();

}  // namespace tervano::test
