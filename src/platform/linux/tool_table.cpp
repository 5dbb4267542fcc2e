#include "platform/linux/tool_table.h"

#include <algorithm>

namespace tervano {

namespace {

constexpr char kImageTool[] = "/usr/bin/sips";
constexpr char kDefaultsTool[] = "/usr/bin/defaults";
constexpr char kRemoveTool[] = "/bin/rm";

}  // namespace

std::map<std::string, std::string> toolTable(const Bundle& bundle) {
  return {{kImageTool, bundle.pathForAuxiliaryExecutable("tervano-images")},
          {kDefaultsTool, bundle.pathForAuxiliaryExecutable("tervano-defaults")},
          {kRemoveTool, bundle.pathForAuxiliaryExecutable("tervano-remove")}};
}

std::optional<PictureConversion> pictureConversionOf(const std::string& launchPath,
                                                     const std::vector<std::string>& arguments) {
  if (launchPath != kImageTool) return std::nullopt;
  const auto option = std::find(arguments.begin(), arguments.end(), "--out");
  if (option == arguments.begin() || std::distance(option, arguments.end()) < 2) {
    return std::nullopt;
  }
  return PictureConversion{*std::prev(option), *std::next(option)};
}

bool isRemoveTool(const std::string& launchPath) {
  return launchPath == kRemoveTool;
}

}  // namespace tervano
