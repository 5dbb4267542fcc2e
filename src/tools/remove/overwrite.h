#pragma once

#include "tools/remove/random_bytes.h"

namespace tervano {

// Replaces what the blocks of a regular file hold by fresh random data, once, and waits until the
// disk has it. Every block that is allocated to the file's contents is written whole, the last one
// also behind the file's end, so that its size grows to the end of that block; holes stay holes.
// Few dirty pages at a time, whatever the size. `file` is open for writing. Answers 0, or the errno
// after which nothing is known about the contents.
int overwriteContents(int file, RandomBytes& random);

}  // namespace tervano
