#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/bundle.h"

namespace tervano {

// Which program of our own stands for each tool that the actions start by its path: the image tool,
// the defaults tool and the remove tool. Always ours, since another package may own a program of
// that path with another meaning.
std::map<std::string, std::string> toolTable(const Bundle& bundle);

// What a run of the image tool makes of which picture.
struct PictureConversion {
  std::string from;
  std::string to;
};
// Nil when the program, by the path that actions use, is another one.
std::optional<PictureConversion> pictureConversionOf(const std::string& launchPath,
                                                     const std::vector<std::string>& arguments);
// Whether the program, by the path that actions use, is the remove tool.
bool isRemoveTool(const std::string& launchPath);

}  // namespace tervano
