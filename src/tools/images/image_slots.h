#pragma once

#include <cstdint>
#include <string>

namespace tervano {

// How many conversions of one user run at the same time, however many processes were started: as
// many as there are processors, fewer where memory is short. $TERVANO_IMAGE_SLOTS, a number from 1
// to 1024, replaces that.
int imageSlotCount();

// How many bytes the holder of a slot may use, so that all of them together use at most half of the
// machine's memory.
std::uint64_t imageSlotMemory();

// Waits for one of the user's slots, which this process then holds until it ends, however it ends:
// memory that a picture took may stay its own until then. False, with the end of a sentence in
// `reason`, when there is no folder for the files or when they cannot be locked. Any thread, but
// once a process.
//
// Slots are record locks on the bytes of the file "images/slots" in the user's runtime folder.
// Whoever finds them all taken waits for the end of one of their holders. Only one process does
// that, the one that holds the lock of "images/queue"; all others sleep on that lock and get it in
// the order of their coming.
bool takeImageSlot(int count, std::string& reason);

}  // namespace tervano
