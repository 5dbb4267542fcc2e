#pragma once

#include <string>

namespace tervano {

// The work of the image tool for "-s format FORMAT IN --out OUT". Nil for success, else the
// sentence to say. Waits for a slot before any picture library is loaded. Once a process, since it
// arranges what happens when a library fails, bounds the memory of the process and gives up
// standard output and error, of which `complaints` is a copy.
std::string convertPicture(const std::string& format, const std::string& input,
                           const std::string& output, int complaints);

// The words of the formats that this machine can write, each with a line feed; empty, with a
// sentence in `complaint`, when the picture library is missing. Gives up standard output and error.
std::string writableFormatWords(std::string& complaint);

}  // namespace tervano
