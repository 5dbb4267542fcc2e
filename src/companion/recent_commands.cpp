#include <iostream>

#include "companion/action_store.h"
#include "companion/arguments.h"
#include "companion/command.h"
#include "companion/recent_folders.h"
#include "companion/value_json.h"
#include "translation/translation.h"

namespace tervano {

namespace {

unsigned recentCountFrom(const std::optional<std::string>& text) {
  if (!text) return kDefaultRecentFolders;
  constexpr std::size_t kMaximumDigits = 3;
  const bool isNumber = !text->empty() && text->size() <= kMaximumDigits &&
                        text->find_first_not_of("0123456789") == std::string::npos;
  const unsigned count = isNumber ? static_cast<unsigned>(std::stoul(*text)) : 0;
  if (count == 0 || count > kMostRecentFolders) {
    throw UsageError(tr("--count takes a number from 1 to {1}.", kMostRecentFolders));
  }
  return count;
}

int listRecent(bool asJson) {
  const auto limit = recentFolderLimit();
  const auto folders = recentFolders();
  if (asJson) {
    nlohmann::ordered_json json;
    json["count"] = limit ? nlohmann::ordered_json(*limit) : nlohmann::ordered_json(nullptr);
    json["folders"] = nlohmann::ordered_json::array();
    for (const auto& folder : folders) {
      json["folders"].push_back({{"uid", folder.action->uid().value_or("")},
                                 {"title", folder.action->title().value_or("")},
                                 {"kind", folder.kind},
                                 {"path", folder.path}});
    }
    std::cout << jsonText(json);
    return kExitSuccess;
  }
  if (limit) {
    std::cout << trn("The last folder is kept in each group.",
                     "The last {1} folders are kept in each group.", *limit)
              << "\n";
  } else {
    std::cout << tr("Recent folders are not kept.") << "\n";
  }
  for (const auto& folder : folders) {
    std::cout << folder.action->uid().value_or("") << "  " << folder.kind << "  "
              << printable(folder.path) << "\n";
  }
  return kExitSuccess;
}

int recent(const std::vector<std::string>& words) {
  const Arguments arguments(words, {{"count"}, {"json"}});
  arguments.requirePositional(0, 1, "");
  const std::string what = arguments.positional().empty() ? "list" : arguments.positional().front();
  if (arguments.has("json") && what != "list") throw UsageError(tr("--json goes with list only."));
  if (arguments.value("count") && what != "on") throw UsageError(tr("--count goes with on only."));
  if (what == "list") return listRecent(arguments.has("json"));
  if (what == "on") {
    setRecentFolderLimit(recentCountFrom(arguments.value("count")));
  } else if (what == "off") {
    setRecentFolderLimit(std::nullopt);
  } else if (what == "clear") {
    clearRecentFolders();
  } else {
    throw UsageError(tr("\"{1}\" is neither on, off, list nor clear.", printable(what)));
  }
  return kExitSuccess;
}

}  // namespace

std::vector<Command> recentCommands() {
  return {
      {{"recent",
        trMark("keep the last folders that files were moved and copied to in the menu"),
        {"[list] [--json]", "on [--count N]", "off", "clear"},
        {trMark("When it is on, a folder that files were moved or copied to becomes the last "
                "member of "
                "the list's first group for that, \"Move to a folder\" or \"Copy to a folder\", "
                "unless "
                "the group has it already; the one that was not used for the longest time leaves. "
                "\"off\" "
                "leaves the members where they are, \"clear\" removes them."),
         trMark("Only members that were made in this way ever leave, and only while they are as "
                "they were "
                "made: one that you rename, disable, change or put elsewhere is yours. What leaves "
                "and "
                "comes makes no version for \"tervano restore\".")},
        {{"--count N", trMark("How many each group keeps; 5 unless given.")},
         {"--json",
          trMark("An object with \"count\" (null while it is off) and \"folders\", the last used "
                 "first: "
                 "objects with \"uid\", \"title\", \"kind\" (move or copy) and \"path\".")}}},
       recent},
  };
}

}  // namespace tervano
