#pragma once

#include <sys/types.h>

#include <string>

namespace tervano::test {

// How often a text stands in the memory of another process of this user, which must not have been
// forked from this one while it held the text. Its stacks, heaps and mappings are all searched.
int occurrencesInMemory(pid_t process, const std::string& text);

}  // namespace tervano::test
