#pragma once

#include <cstdint>
#include <span>

#include "archive/value.h"

namespace tervano {

// Any keyed archive as a plain tree for people to look at; no class needs to be known.
//
// An object becomes a dictionary of its keys with the class name under "$class". Arrays, sets,
// dictionaries, strings, numbers, data, dates, URLs and UUIDs become what they stand for, nil
// becomes null; a dictionary key that is no string becomes a text that describes it. An object
// inside itself is the text "<cycle to entry 7>", and where an archive is nested too deeply, or
// shares so much that the tree would be far larger than the file, objects become "<entry 7>".
// Throws PlatformException for bytes that are no keyed archive.
Value plainValueOfKeyedArchive(std::span<const std::uint8_t> bytes);

}  // namespace tervano
